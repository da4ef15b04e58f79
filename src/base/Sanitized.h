// Whether this build runs under a sanitizer. A sanitizer checks memory of the allocator and accesses of compiled code,
// not mapped memory or hand-written instructions.
#pragma once

namespace corvane {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif
#else
inline constexpr bool kSanitized = false;
#endif

}    // namespace corvane
