// sanitized.h: whether the tests run under a sanitizer, where they do less.
#pragma once

namespace ksw::test {

/// Whether a sanitizer makes everything some ten times as slow.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kIsSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
inline constexpr bool kIsSanitized = true;
#else
inline constexpr bool kIsSanitized = false;
#endif
#else
inline constexpr bool kIsSanitized = false;
#endif

/// One of two sizes: under a sanitizer a load is smaller.
template <class T>
constexpr T sized(T whole, T sanitized) {
    return kIsSanitized ? sanitized : whole;
}

}  // namespace ksw::test
