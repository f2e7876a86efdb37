// sanitized.h: whether the tests run under a sanitizer, where they do less.
#pragma once

namespace ksw::test {

#if defined(__has_feature)
#define KSW_HAS_FEATURE(feature) __has_feature(feature)
#else
#define KSW_HAS_FEATURE(feature) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || KSW_HAS_FEATURE(address_sanitizer)
inline constexpr bool kHasAddressSanitizer = true;
#else
inline constexpr bool kHasAddressSanitizer = false;
#endif

#if defined(__SANITIZE_THREAD__) || KSW_HAS_FEATURE(thread_sanitizer)
inline constexpr bool kHasThreadSanitizer = true;
#else
inline constexpr bool kHasThreadSanitizer = false;
#endif

/// Whether a sanitizer makes everything some ten times as slow.
inline constexpr bool kIsSanitized = kHasAddressSanitizer || kHasThreadSanitizer;

/// One of two sizes: under a sanitizer a load is smaller.
template <class T>
constexpr T sized(T whole, T sanitized) {
    return kIsSanitized ? sanitized : whole;
}

}  // namespace ksw::test
