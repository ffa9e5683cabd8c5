// Clang thread-safety annotations. They let `-Wthread-safety` prove at
// compile time that every member marked GUARDED_BY is only touched with its
// lock held; on other compilers they expand to nothing.
#pragma once

#if defined(__clang__)
#define GRABSYS_TSA(x) __attribute__((x))
#else
#define GRABSYS_TSA(x)
#endif

#define CAPABILITY(x) GRABSYS_TSA(capability(x))
#define SCOPED_CAPABILITY GRABSYS_TSA(scoped_lockable)
#define GUARDED_BY(x) GRABSYS_TSA(guarded_by(x))
#define PT_GUARDED_BY(x) GRABSYS_TSA(pt_guarded_by(x))
#define ACQUIRE(...) GRABSYS_TSA(acquire_capability(__VA_ARGS__))
#define RELEASE(...) GRABSYS_TSA(release_capability(__VA_ARGS__))
#define REQUIRES(...) GRABSYS_TSA(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) GRABSYS_TSA(locks_excluded(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS GRABSYS_TSA(no_thread_safety_analysis)
