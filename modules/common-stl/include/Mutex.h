// The library's root class and its locks for threads and processes.
#ifndef QOR_MUTEX_H
#define QOR_MUTEX_H

#include <fcntl.h>
#include <pthread.h>

#include <cstdint>
#include <string>

#include "ThreadAnnotations.h"

namespace QOR_SPACE {

// Root of the library's classes.
class QorObject {
public:
    QorObject() = default;
    QorObject(const QorObject&) = default;
    QorObject& operator=(const QorObject&) = default;
    virtual ~QorObject();

    // The mangled name of the run-time type; some classes return another string. Never null.
    virtual const char* toString() const;
};

// A POSIX mutex with default attributes: not recursive, no error checking. Only the thread that locked it may
// unlock it.
class QOR_CAPABILITY("mutex") Mutex : public QorObject {
public:
    Mutex();
    ~Mutex() override;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    // Returns 0 or the error number of pthread_mutex_lock(3).
    int lock() QOR_ACQUIRE();
    // Returns 0, or EBUSY if a thread holds the mutex.
    int trylock() QOR_TRY_ACQUIRE(0);
    // Returns 0 or the error number of pthread_mutex_unlock(3).
    int unlock() QOR_RELEASE();

private:
    friend class Condition;

    pthread_mutex_t mutex;  // default attributes
};

// Holds a Mutex during its lifetime. The Mutex must outlive it.
class QOR_SCOPED_CAPABILITY Monitor : public QorObject {
public:
    explicit Monitor(Mutex& toHold) QOR_ACQUIRE(toHold);
    ~Monitor() override QOR_RELEASE();
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;

private:
    Mutex& mutex;  // not owned
};

// A condition variable of a Mutex, which must outlive it. Every operation returns 0 or the error number of
// the underlying call.
class Condition : public QorObject {
public:
    explicit Condition(Mutex& boundMutex);
    ~Condition() override;
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;

    // Waits for a notification. May wake up without one: test in a loop. REQUIRES: the caller holds the
    // mutex.
    int wait();
    // The same for at most `seconds`; returns ETIMEDOUT after that. The deadline is a full second of the
    // calendar clock, so the wait may be up to one second shorter.
    int wait(int seconds);
    // Wakes one waiter.
    int notify();
    // Wakes every waiter.
    int notifyAll();
    // Lock and unlock the mutex.
    int lock() QOR_NO_THREAD_SAFETY_ANALYSIS;
    int unlock() QOR_NO_THREAD_SAFETY_ANALYSIS;

private:
    pthread_cond_t condition;  // default attributes: the calendar clock
    Mutex& mutex;              // not owned
};

// A counting semaphore for the threads of one process.
class Semaphore : public QorObject {
public:
    // REQUIRES (asserted): initialCount >= 1.
    explicit Semaphore(int initialCount);
    ~Semaphore() override;
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    // Takes a unit; waits if there is none. Returns 0.
    int wait();
    // Takes a unit. Returns 0, or -1 if there is none.
    int trywait();
    // Puts a unit back and wakes one waiter. Returns 0.
    int post();

private:
    std::int32_t count QOR_GUARDED_BY(mutex);  // available units
    Mutex mutex;                               // guards count
    Condition available;                       // signalled by post
};

// Many readers or one writer; not recursive. Readers have priority and can starve a writer.
class RWLock : public QorObject {
public:
    RWLock();
    ~RWLock() override;
    RWLock(const RWLock&) = delete;
    RWLock& operator=(const RWLock&) = delete;

    // Waits while a writer holds the lock. Returns 0.
    int rdlock();
    // Returns 0, or -1 if a writer holds the lock.
    int tryrdlock();
    // Waits while a reader or writer holds the lock. Returns 0.
    int wrlock();
    // Returns 0, or -1 if a reader or writer holds the lock.
    int trywrlock();
    // Releases the caller's lock of either kind. Returns 0.
    int unlock();

private:
    std::int32_t readers QOR_GUARDED_BY(mutex);  // read holders
    std::int32_t writer QOR_GUARDED_BY(mutex);   // 1 while a writer holds the lock, else 0
    Mutex mutex;                                 // guards readers and writer
    Condition writable;                          // writers wait here
    Condition readable;                          // readers wait here
};

// A thread-safe counter. After the largest 32-bit number it starts again at 0.
class Sequence : public QorObject {
public:
    // initVal is the first number. REQUIRES (asserted): initVal >= 0.
    explicit Sequence(int initVal);
    ~Sequence() override;
    Sequence(const Sequence&) = delete;
    Sequence& operator=(const Sequence&) = delete;

    // The next number, never negative. After the wrap it returns 0 twice.
    int getNext();
    // Reserves `size` consecutive numbers and returns the first, never negative. REQUIRES (asserted): size >
    // 0.
    int getNext(unsigned int size);

private:
    std::int32_t nextValue QOR_GUARDED_BY(mutex);  // negative once the counter has wrapped
    Mutex mutex;                                   // guards nextValue
};

// An exclusive advisory lock between processes on a whole file (fcntl(2), record locks). The process owns it:
// it does not exclude threads of the same process, and closing any descriptor of the file releases it.
// Combine it with a Mutex; take the Mutex first and release it last. Not thread-safe. Owns its descriptor.
// Nothing throws; errno is as the failing call set it.
class FileLock : public QorObject {
public:
    // As setPath.
    FileLock(const std::string& lockPath, bool widenMode);
    ~FileLock() override;
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    // Closes the present file, then opens `lockPath` (its first 255 characters), creating it with mode 0600
    // less the umask; an empty path opens nothing. With `widenMode` the file gets mode 0666, so that all
    // users share the lock; then a file that is a symbolic link, is not regular or has a second name is not
    // opened, so that nobody can use the lock to open up another file or to release this process's locks on
    // it. isValid() tells whether the file was opened.
    void setPath(const std::string& lockPath, bool widenMode);
    // Waits for the lock. Returns 0, or -1 on failure: no open file, interrupted by a signal, refused.
    int lock();
    // Returns 0, or -1 on failure.
    int unlock();
    // Closes the file, which releases the lock. Returns 0, or -1 on failure.
    int close();
    // Removes the file; descriptor and lock remain usable. Returns 0, or -1 on failure.
    int unlink();
    // True if a lock file is open.
    bool isValid() const { return fd >= 0; }

private:
    std::int32_t fd;             // open lock file, or -1
    struct flock lockRequest;    // exclusive, whole file
    struct flock unlockRequest;  // the same, releasing
    char path[256];              // lock file, cut to 255 characters
    bool widen;                  // set mode 0666 after opening
};

}  // namespace QOR_SPACE

#endif
