#pragma once

#include <atomic>
#include <memory>
#include <pthread.h>
#include <vorelutil/platform/export.h>

/// Threads, mutexes and conditions over POSIX threads.
///
/// Each class keeps its POSIX object in storage of its own, so that its layout does not depend on the
/// system. Results of the system's calls are not passed on, except where a function says so. No class here
/// can be copied.

/// A mutex that is always recursive: the thread that holds it may lock it again, and must unlock it as often.
///
/// Any thread may call `lock` and `unlock`; it serves `std::lock_guard`.
class VORELUTIL_EXPORT IMutex
{
public:
    IMutex();
    /// The mutex must be unlocked.
    ~IMutex();
    IMutex(const IMutex&) = delete;
    IMutex& operator=(const IMutex&) = delete;

    /// Blocks until the calling thread holds the mutex.
    void lock();
    /// Takes back one `lock` of the calling thread.
    void unlock();

private:
    friend class IWaitCondition;
    struct Storage;
    Storage* m_storage;
};

/// A condition that threads wait for and others signal.
///
/// A wake-up is not remembered: one that comes while nobody waits is lost. As with every condition variable a
/// wait may end without a signal, so check what you wait for in a loop. Any thread may call its functions.
class VORELUTIL_EXPORT IWaitCondition
{
public:
    IWaitCondition();
    /// No thread may be waiting. Kept: it frees the storage and does nothing else.
    ~IWaitCondition();
    IWaitCondition(const IWaitCondition&) = delete;
    IWaitCondition& operator=(const IWaitCondition&) = delete;

    /// Waits for a signal, without a mutex of the caller, for at most `ms` milliseconds; a negative `ms`
    /// waits without limit, 0 ends at once.
    ///
    /// False if and only if the time ran out. Kept: the mutex behind it is private to the call, so a
    /// `wakeOne` just before the wait begins is lost; use a time-out. One thread at a time may wait in this
    /// form. The time-out is an absolute time of day: setting the system's clock moves it.
    bool wait(int ms);

    /// The same on `mutex`, which the caller holds, locked once: it is free while the thread waits and held
    /// again afterwards, so that no signal sent under the mutex is lost. A null mutex acts as the form
    /// without one.
    bool wait(IMutex* mutex, int ms);

    /// Wakes one of the waiting threads, if any. Always true.
    bool wakeOne();

private:
    struct Storage;
    Storage* m_storage;
};

/// A thread: derive from it, put the work into `run`, call `start`.
///
/// The object is idle until `start`. Its thread's end is seen by `wait` (blocking) or `finished` (polling).
/// The object must outlive its thread's `run`: end the thread and wait for it before you destroy the object,
/// and do so before the derived class's members go. `start`, `wait`, `finished` and `isCurrentThread` may be
/// called by any thread, the object's own included. No exception may leave `run`.
class VORELUTIL_EXPORT IThread
{
public:
    IThread();
    /// Neither ends nor awaits the thread; one that was not waited for is detached, so that nothing leaks.
    virtual ~IThread();
    IThread(const IThread&) = delete;
    IThread& operator=(const IThread&) = delete;

    /// The thread's body, called once by the new thread.
    virtual void run() = 0;

    /// Starts the thread.
    ///
    /// On failure writes "pthread_create: " and the system's text (errno is set to its reason) as one line to
    /// standard error and returns; the object is idle again, and nothing is thrown. Meant to be called once;
    /// a second call starts a second thread, and the object then stands for that one alone.
    virtual void start();

    /// Waits until the thread has ended; returns at once if none was started, or when called again
    /// afterwards.
    ///
    /// Called by the thread itself it returns at once, also by the destructors of the thread's own variables,
    /// which run after `run`. Use `finished` to make the object idle again.
    virtual void wait();

    /// True if no thread was started or the thread has left the system; then the object is idle and the
    /// thread's resources are free. False until then, and while another thread's `wait` is not through. Never
    /// blocks.
    bool finished();

    /// Whether the caller runs in this object's thread. False if none was started or its `run` has ended.
    bool isCurrentThread() const;

    /// The calling thread's id.
    static pthread_t identify();

    /// Suspends the calling thread for `ms` milliseconds; a signal may end it earlier.
    ///
    /// Kept: the microseconds are a 32-bit unsigned number, so delays above about 71.5 minutes wrap
    /// (4294968 ms sleeps 704 us).
    static void sleep(unsigned long ms);

    /// The number of processors as "/proc/cpuinfo" lists them; 0 if it cannot be read, and then it is tried
    /// again by the next call. A number above 0 is kept for the life of the process.
    static int getCpuCount();

    /// A stamp in milliseconds of the time of day, 0 to 1999999999, for intervals.
    ///
    /// It wraps to 0 every 2000000 seconds (about 23.1 days); compare differences only, and expect a jump at
    /// the wrap and when the system's clock is set.
    static int getTimestamp();

private:
    struct Holder;
    struct Body;
    static void* trampoline(void* body);
    std::shared_ptr<Holder> m_holder; ///< shared with the thread, which marks its end there
};

/// A thread that calls one job over and over, for as long as a flag stays set.
///
/// Fill `job` and set `running` before `start`. Clear `running`, from any thread, to make the thread end
/// after the call that is at work. The flag is tested before the first call too: a thread started with false
/// ends at once, and so does one without a job.
class VORELUTIL_EXPORT CyclicThread : public IThread
{
public:
    ~CyclicThread() override;
    void run() override;

    void (*job)(CyclicThread*) = nullptr; ///< called with this object; constant while the thread runs
    std::atomic<bool> running = false;    ///< the run flag
};
