// clang's thread-safety attributes; empty for other compilers.
#ifndef MANTLE_MNTHREADSAFETY_H
#define MANTLE_MNTHREADSAFETY_H

#if defined(__clang__)
#  define MN_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#  define MN_THREAD_ATTRIBUTE(x)
#endif

#define MN_CAPABILITY(x) MN_THREAD_ATTRIBUTE(capability(x))
#define MN_SCOPED_CAPABILITY MN_THREAD_ATTRIBUTE(scoped_lockable)
#define MN_GUARDED_BY(x) MN_THREAD_ATTRIBUTE(guarded_by(x))
#define MN_PT_GUARDED_BY(x) MN_THREAD_ATTRIBUTE(pt_guarded_by(x))
#define MN_REQUIRES(...) MN_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define MN_ACQUIRE(...) MN_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define MN_TRY_ACQUIRE(...) MN_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define MN_RELEASE(...) MN_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define MN_EXCLUDES(...) MN_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define MN_NO_THREAD_SAFETY_ANALYSIS MN_THREAD_ATTRIBUTE(no_thread_safety_analysis)

#endif
