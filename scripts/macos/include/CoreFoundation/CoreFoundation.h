// Declaration-only stand-in for the CoreFoundation names libVTLog uses, for the macOS compile
// check (scripts/check_macos.sh). Never installed, never linked: the check links with undefined
// symbols allowed, and a real build uses the macOS SDK's framework. The declarations follow the
// SDK's: opaque const struct references, C linkage, CFSTR as a call that makes a constant string.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void const* CFTypeRef;
typedef struct __CFAllocator const* CFAllocatorRef;
typedef struct __CFDictionary const* CFDictionaryRef;
typedef struct __CFError* CFErrorRef;
typedef struct __CFNumber const* CFNumberRef;
typedef struct __CFString const* CFStringRef;
typedef uint32_t CFStringEncoding;

enum CFStringBuiltInEncodings : CFStringEncoding {
    kCFStringEncodingUTF8 = 0x08000100,
};

extern CFAllocatorRef const kCFAllocatorDefault;

void CFRelease(CFTypeRef object);
CFStringRef CFStringCreateWithFormat(CFAllocatorRef allocator, CFDictionaryRef format_options,
                                     CFStringRef format, ...);
CFStringRef __CFStringMakeConstantString(char const* text);

#ifdef __cplusplus
}
#endif

#define CFSTR(text) __CFStringMakeConstantString("" text "")
