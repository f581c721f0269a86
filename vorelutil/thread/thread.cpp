#include "thread.h"

#include "walltime.h"

#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <unistd.h>
#include <vorelutil/platform/files.h>

// The system's condition must stay usable after IWaitCondition frees it without a destroy call, and
// IThread::identify() shows the system's id: hence POSIX calls here. What IThread itself needs inside is
// the standard library's.

struct IMutex::Storage
{
    pthread_mutex_t mutex;
};

IMutex::IMutex()
    : m_storage(nullptr)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    m_storage = new Storage;
    pthread_mutex_init(&m_storage->mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

IMutex::~IMutex()
{
    pthread_mutex_destroy(&m_storage->mutex);
    delete m_storage;
}

void IMutex::lock()
{
    pthread_mutex_lock(&m_storage->mutex);
}

void IMutex::unlock()
{
    pthread_mutex_unlock(&m_storage->mutex);
}

struct IWaitCondition::Storage
{
    pthread_cond_t condition;
};

IWaitCondition::IWaitCondition()
    : m_storage(new Storage)
{
    pthread_cond_init(&m_storage->condition, nullptr);
}

IWaitCondition::~IWaitCondition()
{
    delete m_storage;
}

bool IWaitCondition::wait(int ms)
{
    IMutex mutex;
    const std::lock_guard lock(mutex);
    return wait(&mutex, ms);
}

bool IWaitCondition::wait(IMutex* mutex, int ms)
{
    if (mutex == nullptr) return wait(ms);
    if (ms < 0) {
        pthread_cond_wait(&m_storage->condition, &mutex->m_storage->mutex);
        return true;
    }
    timeval now{};
    gettimeofday(&now, nullptr);
    const timespec deadline = thread::deadlineAfter(now, ms);
    return pthread_cond_timedwait(&m_storage->condition, &mutex->m_storage->mutex, &deadline) != ETIMEDOUT;
}

bool IWaitCondition::wakeOne()
{
    pthread_cond_signal(&m_storage->condition);
    return true;
}

/// What the object knows of its thread. `mutex` guards all of it, and is held while the thread is created, so
/// that the new thread never sees a handle that is not set yet.
struct IThread::Holder
{
    std::mutex mutex;
    std::condition_variable changed; ///< what wait() waits for may be true now
    pthread_t handle{};
    unsigned starts = 0;  ///< number of the thread that the rest is about
    bool started = false; ///< the object is not idle
    bool ended = false;   ///< run() has returned; destructors of the thread's own variables may still run
    bool joining = false; ///< a thread is about to join it
    bool joined = false;  ///< the handle is no longer valid

    bool isSelf() const { return started && !joined && pthread_equal(pthread_self(), handle) != 0; }

    /// Joins without the mutex, which what still runs of the thread may want.
    void join(std::unique_lock<std::mutex>& lock)
    {
        if (!started || joined) return;
        joining = true;
        const pthread_t leaving = handle;
        const unsigned number = starts;
        lock.unlock();
        if (pthread_join(leaving, nullptr) != 0) pthread_detach(leaving);
        lock.lock();
        if (starts == number) {
            joining = false;
            joined = true;
        }
        changed.notify_all();
    }

    void detach()
    {
        if (started && !joined && !joining) pthread_detach(handle);
    }
};

/// What one thread works on. Its destructor marks the end however the thread leaves run(); the IThread itself
/// may be gone by then.
struct IThread::Body
{
    IThread* thread;
    std::shared_ptr<Holder> holder;
    unsigned number;

    ~Body()
    {
        const std::lock_guard lock(holder->mutex);
        if (holder->starts != number) return;
        holder->ended = true;
        holder->changed.notify_all();
    }
};

void* IThread::trampoline(void* body)
{
    const std::unique_ptr<Body> owned(static_cast<Body*>(body));
    owned->thread->run();
    return nullptr;
}

IThread::IThread()
    : m_holder(std::make_shared<Holder>())
{
}

IThread::~IThread()
{
    const std::lock_guard lock(m_holder->mutex);
    m_holder->detach();
}

void IThread::start()
{
    std::unique_lock lock(m_holder->mutex);
    m_holder->detach();
    m_holder->started = m_holder->ended = m_holder->joining = m_holder->joined = false;
    Body* body = new (std::nothrow) Body{this, m_holder, ++m_holder->starts};
    const int result =
        body != nullptr ? pthread_create(&m_holder->handle, nullptr, &trampoline, body) : ENOMEM;
    m_holder->started = result == 0;
    m_holder->changed.notify_all(); // who waits for an earlier thread waits for this one now, if any
    lock.unlock();
    if (result == 0) return;
    delete body;
    errno = result;
    std::fprintf(stderr, "pthread_create: %s\n", std::strerror(errno));
}

void IThread::wait()
{
    std::unique_lock lock(m_holder->mutex);
    if (m_holder->isSelf()) return;
    m_holder->changed.wait(lock,
                           [this] { return !m_holder->started || (m_holder->ended && !m_holder->joining); });
    m_holder->join(lock);
}

bool IThread::finished()
{
    const std::lock_guard lock(m_holder->mutex);
    if (!m_holder->started) return true;
    if (!m_holder->ended || m_holder->joining) return false;
    if (!m_holder->joined && pthread_tryjoin_np(m_holder->handle, nullptr) != 0) return false;
    m_holder->started = false;
    return true;
}

bool IThread::isCurrentThread() const
{
    const std::lock_guard lock(m_holder->mutex);
    return !m_holder->ended && m_holder->isSelf();
}

pthread_t IThread::identify()
{
    return pthread_self();
}

void IThread::sleep(unsigned long ms)
{
    usleep(static_cast<std::uint32_t>(ms) * 1000U);
}

int IThread::getCpuCount()
{
    static std::atomic<int> cpus = 0;
    if (cpus != 0) return cpus;
    int count = 0;
    if (std::FILE* file = platform::openFile("/proc/cpuinfo", "r")) {
        char line[256];
        bool atStart = true; // a line longer than the buffer comes in pieces
        while (std::fgets(line, sizeof line, file) != nullptr) {
            if (atStart && std::strncmp(line, "processor", 9) == 0) ++count;
            atStart = std::strchr(line, '\n') != nullptr;
        }
        std::fclose(file);
    }
    cpus = count;
    return count;
}

int IThread::getTimestamp()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    return thread::timestampOf(now);
}

CyclicThread::~CyclicThread() = default;

void CyclicThread::run()
{
    while (running && job != nullptr) job(this);
}
