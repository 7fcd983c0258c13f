// Declaration-only stand-in for the libCF++ names libVTLog uses, for the macOS compile check
// (scripts/check_macos.sh). Never installed, never linked. It records what the CoreFoundation
// binding (src/cf_error_text.cpp and the Apple block of <VTLog/VTLog.hpp>) assumes of libCF++;
// each assumption still needs a build against the real library on a Mac:
//
//   namespace CF, umbrella header <CF++.hpp>, which includes <CoreFoundation/CoreFoundation.h>
//   class Type                      the polymorphic base of every wrapper
//     virtual CFTypeRef GetCFObject() const          the wrapped object reference
//     virtual bool IsValid() const                   holds an object of the wrapper's own type
//   bool operator==(Type const&, Type const&)        the wrapped objects are equal (CFEqual)
//   class String : Type
//     String(CFTypeRef), String(CFStringRef)         take their own reference; a non-string
//                                                    object gives an invalid String
//     std::string GetValue(CFStringEncoding) const
//   class Number : Type
//     explicit operator bool() const                 there is a number
//     operator long() const
//   class Error : Type, copyable
//     String GetDomain() const, Number GetCode() const
//     String GetDescription() const, GetFailureReason() const, GetRecoverySuggestion() const
//     Error GetUnderlyingError() const               invalid when there is none
//
// Where the real library is more permissive (an implicit operator bool, a member operator==),
// code that compiles against these declarations still compiles.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <string>

namespace CF {

class Type {
public:
    virtual ~Type();

    virtual CFTypeRef GetCFObject() const = 0;
    virtual bool IsValid() const;

protected:
    Type() = default;
    Type(Type const&) = default;
    Type& operator=(Type const&) = default;
};

bool operator==(Type const& a, Type const& b);

class String : public Type {
public:
    String();
    String(CFTypeRef object);
    String(CFStringRef string);
    String(String const& other);
    String& operator=(String const& other);
    ~String() override;

    CFTypeRef GetCFObject() const override;
    std::string GetValue(CFStringEncoding encoding) const;
};

class Number : public Type {
public:
    Number();
    Number(Number const& other);
    Number& operator=(Number const& other);
    ~Number() override;

    CFTypeRef GetCFObject() const override;
    explicit operator bool() const;
    operator long() const;
};

class Error : public Type {
public:
    Error();
    Error(CFErrorRef error);
    Error(Error const& other);
    Error& operator=(Error const& other);
    ~Error() override;

    CFTypeRef GetCFObject() const override;
    String GetDomain() const;
    Number GetCode() const;
    String GetDescription() const;
    String GetFailureReason() const;
    String GetRecoverySuggestion() const;
    Error GetUnderlyingError() const;
};

} // namespace CF
