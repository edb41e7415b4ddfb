// The root class of the library and its thread and process locks.
#ifndef QOR_MUTEX_H
#define QOR_MUTEX_H

#include <fcntl.h>
#include <pthread.h>

#include <cstdint>
#include <string>

#include "ThreadAnnotations.h"

namespace QOR_SPACE {

// Root of the library's classes. No data, no thread rule of its own.
class QorObject {
public:
    QorObject() = default;
    QorObject(const QorObject&) = default;
    QorObject& operator=(const QorObject&) = default;
    virtual ~QorObject();

    // The run-time type name as the compiler records it (mangled), never null; some classes return a text
    // of their own instead.
    virtual const char* toString() const;
};

// A POSIX mutex with default attributes: not recursive, no error checking. May be used by any thread; only
// the thread that locked it may unlock it.
class QOR_CAPABILITY("mutex") Mutex : public QorObject {
public:
    Mutex();
    ~Mutex() override;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    // 0, or the error number of pthread_mutex_lock(3).
    int lock() QOR_ACQUIRE();
    // 0 when taken, EBUSY when somebody holds it.
    int trylock() QOR_TRY_ACQUIRE(0);
    // 0, or the error number of pthread_mutex_unlock(3).
    int unlock() QOR_RELEASE();

private:
    friend class Condition;

    pthread_mutex_t mutex;  // default attributes
};

// Holds a Mutex from construction to the end of the block, also when an exception leaves it. Local objects
// only; the Mutex must outlive it.
class QOR_SCOPED_CAPABILITY Monitor : public QorObject {
public:
    explicit Monitor(Mutex& toHold) QOR_ACQUIRE(toHold);
    ~Monitor() override QOR_RELEASE();
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;

private:
    Mutex& mutex;  // not owned
};

// A condition variable bound to a Mutex for life (not owned; it must outlive the condition). Every operation
// returns 0 or the error number of the call below it.
class Condition : public QorObject {
public:
    explicit Condition(Mutex& boundMutex);
    ~Condition() override;
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;

    // Waits for a notification; the caller holds the bound mutex. May wake without one: test in a loop.
    int wait();
    // The same for at most `seconds`: ETIMEDOUT when the deadline passed. The deadline lies on a full second
    // of the calendar clock, so the wait is up to one second shorter than asked.
    int wait(int seconds);
    // Wakes one waiter.
    int notify();
    // Wakes every waiter.
    int notifyAll();
    // Lock and unlock the bound mutex.
    int lock() QOR_NO_THREAD_SAFETY_ANALYSIS;
    int unlock() QOR_NO_THREAD_SAFETY_ANALYSIS;

private:
    pthread_cond_t condition;  // default attributes: the calendar clock
    Mutex& mutex;              // not owned
};

// A counting semaphore for the threads of one process.
class Semaphore : public QorObject {
public:
    // Asserts initialCount >= 1: a semaphore cannot start empty.
    explicit Semaphore(int initialCount);
    ~Semaphore() override;
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    // Takes a unit, waits for one if there is none; 0.
    int wait();
    // Takes a unit; 0, or -1 when there is none.
    int trywait();
    // Returns a unit and wakes one waiter; 0.
    int post();

private:
    std::int32_t count QOR_GUARDED_BY(mutex);  // available units
    Mutex mutex;                               // guards count
    Condition available;                       // signalled by post
};

// Many readers or one writer. Readers have priority: a steady stream of them keeps a writer waiting. Not
// recursive in either kind.
class RWLock : public QorObject {
public:
    RWLock();
    ~RWLock() override;
    RWLock(const RWLock&) = delete;
    RWLock& operator=(const RWLock&) = delete;

    // Waits while a writer holds the lock; 0.
    int rdlock();
    // 0, or -1 while a writer holds the lock.
    int tryrdlock();
    // Waits while anybody holds the lock; 0.
    int wrlock();
    // 0, or -1 while anybody holds the lock.
    int trywrlock();
    // Ends the caller's hold, of whichever kind; 0.
    int unlock();

private:
    std::int32_t readers QOR_GUARDED_BY(mutex);  // read holders
    std::int32_t writer QOR_GUARDED_BY(mutex);   // 1 while a writer holds the lock, else 0
    Mutex mutex;                                 // guards readers and writer
    Condition writable;                          // writers wait here
    Condition readable;                          // readers wait here
};

// Hands out ascending numbers to any thread. After the largest 32-bit number it starts again at 0.
class Sequence : public QorObject {
public:
    // Asserts initVal >= 0; initVal is the first number handed out.
    explicit Sequence(int initVal);
    ~Sequence() override;
    Sequence(const Sequence&) = delete;
    Sequence& operator=(const Sequence&) = delete;

    // The next number, never negative. At the wrap 0 is handed out twice.
    int getNext();
    // Reserves `size` consecutive numbers and returns the first, never negative; asserts size > 0.
    int getNext(unsigned int size);

private:
    std::int32_t nextValue QOR_GUARDED_BY(mutex);  // negative once the counter has wrapped
    Mutex mutex;                                   // guards nextValue
};

// An exclusive advisory lock on a whole file, between processes (fcntl(2), record locks). It belongs to the
// process: it does not keep threads of one process apart, and closing any descriptor of the file in this
// process releases it. Pair it with a Mutex: take the Mutex first and release it last. Not thread-safe.
// Owns its descriptor. Nothing here throws or prints; errno is as the failing call left it.
class FileLock : public QorObject {
public:
    // Unopened when `lockPath` is empty; otherwise as setPath.
    FileLock(const std::string& lockPath, bool widenMode);
    ~FileLock() override;
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    // Closes the present file, then opens `lockPath` (its first 255 characters), creating it with mode 0600
    // less the umask; an empty path opens nothing. With `widenMode` the file gets mode 0666, so that all
    // users share the lock. Symbolic links are not followed. A file to widen that is not regular or has a
    // second name is not opened, so that nobody can use the lock to open up another file or to release this
    // process's locks on it. Ask isValid() whether it worked.
    void setPath(const std::string& lockPath, bool widenMode);
    // Waits for the lock: 0, or -1 (unopened, interrupted by a signal, refused).
    int lock();
    // 0, or -1 (unopened, refused).
    int unlock();
    // Closes the file, which releases the lock: 0, or -1 (unopened, or close(2) failed).
    int close();
    // Removes the file; descriptor and lock stay usable: 0, or -1.
    int unlink();
    // True while a lock file is open.
    bool isValid() const { return fd >= 0; }

private:
    std::int32_t fd;             // open lock file, -1 when none
    struct flock lockRequest;    // exclusive, whole file
    struct flock unlockRequest;  // the same, releasing
    char path[256];              // lock file, cut to 255 characters
    bool widen;                  // set mode 0666 after opening
};

}  // namespace QOR_SPACE

#endif
