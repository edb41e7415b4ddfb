// Clang's thread safety attributes (-Wthread-safety); empty for other compilers.
#ifndef QOR_THREADANNOTATIONS_H
#define QOR_THREADANNOTATIONS_H

#if defined(__clang__)
#define QOR_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define QOR_THREAD_ATTRIBUTE(x)
#endif

// A lock class, and a class that holds a lock during its lifetime.
#define QOR_CAPABILITY(name) QOR_THREAD_ATTRIBUTE(capability(name))
#define QOR_SCOPED_CAPABILITY QOR_THREAD_ATTRIBUTE(scoped_lockable)
// Data that may only be accessed with the lock held.
#define QOR_GUARDED_BY(lock) QOR_THREAD_ATTRIBUTE(guarded_by(lock))
// Functions that take or release a lock; without an argument, the object itself.
#define QOR_ACQUIRE(...) QOR_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define QOR_RELEASE(...) QOR_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
// A function that tries to take the object; it returns `result` on success.
#define QOR_TRY_ACQUIRE(result) QOR_THREAD_ATTRIBUTE(try_acquire_capability(result))
// Functions that return with a lock taken or released in a way the analysis cannot follow.
#define QOR_NO_THREAD_SAFETY_ANALYSIS QOR_THREAD_ATTRIBUTE(no_thread_safety_analysis)

#endif
