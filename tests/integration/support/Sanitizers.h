// What the program is instrumented with.
#ifndef TESTS_INTEGRATION_SUPPORT_SANITIZERS_H
#define TESTS_INTEGRATION_SUPPORT_SANITIZERS_H

#if defined(__has_feature)
#  if __has_feature(thread_sanitizer)
#    define TESTS_THREAD_SANITIZER
#  endif
#  if __has_feature(address_sanitizer)
#    define TESTS_ADDRESS_SANITIZER
#  endif
#endif
#if defined(__SANITIZE_THREAD__)
#  define TESTS_THREAD_SANITIZER
#endif
#if defined(__SANITIZE_ADDRESS__)
#  define TESTS_ADDRESS_SANITIZER
#endif

#if defined(TESTS_THREAD_SANITIZER)
inline constexpr bool UNDER_THREAD_SANITIZER = true;
#else
inline constexpr bool UNDER_THREAD_SANITIZER = false;
#endif

#if defined(TESTS_ADDRESS_SANITIZER)
inline constexpr bool UNDER_ADDRESS_SANITIZER = true;
#else
inline constexpr bool UNDER_ADDRESS_SANITIZER = false;
#endif

#endif
