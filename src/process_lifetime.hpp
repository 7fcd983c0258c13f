// Objects that live until the process ends.
#pragma once

#include <utility>

namespace VT::Logging::v2::impl {

// Holds a T that is never destroyed, so that threads that still log while the process exits,
// and exit handlers, find it working. A static of this type built by a constexpr constructor of T
// is constant-initialised: it exists before any code of the process runs.
template <class T>
class process_lifetime {
public:
    template <class... Args>
    constexpr explicit process_lifetime(Args&&... args)
        : value(std::forward<Args>(args)...)
    {
    }
    ~process_lifetime() {}
    process_lifetime(process_lifetime const&) = delete;
    process_lifetime& operator=(process_lifetime const&) = delete;

    constexpr T& operator*() noexcept { return value; }
    constexpr T const& operator*() const noexcept { return value; }
    constexpr T* operator->() noexcept { return &value; }
    constexpr T const* operator->() const noexcept { return &value; }

private:
    union {
        T value;
    };
};

} // namespace VT::Logging::v2::impl
