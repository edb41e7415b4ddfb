// Names for clang's thread safety attributes (-Wthread-safety); nothing for other compilers.
#ifndef QOR_THREADANNOTATIONS_H
#define QOR_THREADANNOTATIONS_H

#if defined(__clang__)
#define QOR_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define QOR_THREAD_ATTRIBUTE(x)
#endif

// A class whose objects are locks, and one whose objects hold a lock for a block.
#define QOR_CAPABILITY(name) QOR_THREAD_ATTRIBUTE(capability(name))
#define QOR_SCOPED_CAPABILITY QOR_THREAD_ATTRIBUTE(scoped_lockable)
// Data that only the holder of the lock may touch.
#define QOR_GUARDED_BY(lock) QOR_THREAD_ATTRIBUTE(guarded_by(lock))
// Operations that take a lock or release it; without a lock named it is the object itself.
#define QOR_ACQUIRE(...) QOR_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define QOR_RELEASE(...) QOR_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
// An operation that tries to take the lock that the object is; `result` is what it returns on success.
#define QOR_TRY_ACQUIRE(result) QOR_THREAD_ATTRIBUTE(try_acquire_capability(result))
// Operations whose locking crosses their border and that the analysis cannot follow.
#define QOR_NO_THREAD_SAFETY_ANALYSIS QOR_THREAD_ATTRIBUTE(no_thread_safety_analysis)

#endif
