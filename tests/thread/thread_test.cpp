#include <chrono>
#include <clocale>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <thread>
#include <tuple>
#include <vorelutil/thread/thread.h>
#include <vorelutil/thread/walltime.h>

namespace {

using Clock = std::chrono::steady_clock;

using Work = std::function<void(IThread&)>;

/// Starts at once, and is waited for.
struct Worker : IThread
{
    explicit Worker(Work work)
        : body(std::move(work))
    {
        start();
    }
    ~Worker() override { wait(); }
    void run() override { body(*this); }
    Work body;
};

/// Waits for a condition, with a generous limit.
bool eventually(const std::function<bool()>& condition)
{
    const auto limit = Clock::now() + std::chrono::seconds(30);
    while (!condition() && Clock::now() < limit) std::this_thread::yield();
    return condition();
}

TEST(Mutex, ExcludesOthersUntilUnlockedAsOftenAsLocked)
{
    IMutex mutex;
    int counter = 0;
    const auto count = [&](IThread&) {
        for (int i = 0; i < 20000; ++i) {
            const std::lock_guard outer(mutex);
            mutex.lock();
            mutex.unlock();
            ++counter;
        }
    };
    {
        Worker first(count), second(count);
    }
    EXPECT_EQ(counter, 40000);
}

TEST(WaitCondition, TimesOutOrIsWoken)
{
    IWaitCondition condition;
    IMutex mutex;
    EXPECT_FALSE(condition.wait(0));
    EXPECT_TRUE(condition.wakeOne()) << "lost: nobody waits";
    EXPECT_FALSE(condition.wait(1));
    for (const int ms : {-1, 60000}) {
        std::atomic<int> result = -1;
        Worker waiter([&](IThread&) { result = condition.wait(ms) ? 1 : 0; });
        EXPECT_TRUE(eventually([&] { return condition.wakeOne() && result == 1; })) << ms;
    }
    const std::lock_guard lock(mutex);
    const auto begin = Clock::now();
    EXPECT_FALSE(condition.wait(&mutex, 1050));
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(1000));
}

TEST(WaitCondition, SignalsUnderTheMutexAreNotLost)
{
    IWaitCondition conditions[2];
    IMutex mutex;
    int turn = 0; // even: the owner's, odd: the worker's
    const auto play = [&](int who) {
        const std::lock_guard lock(mutex);
        for (int i = 0; i < 2000; ++i) {
            while (turn % 2 != who) ASSERT_TRUE(conditions[who].wait(&mutex, 30000));
            ++turn;
            conditions[1 - who].wakeOne();
        }
    };
    Worker worker([&](IThread&) { play(1); });
    play(0);
    worker.wait();
    EXPECT_EQ(turn, 4000);
}

TEST(Thread, KnowsWhetherItRunsAndWhoCalls)
{
    CyclicThread idle;
    idle.wait();
    EXPECT_TRUE(idle.finished() && !idle.isCurrentThread()) << "never started";
    std::atomic<bool> go = false, inside = false;
    Worker worker([&](IThread& self) {
        self.wait(); // of the thread for itself: returns at once
        inside = self.isCurrentThread() && !self.finished() &&
                 pthread_equal(IThread::identify(), pthread_self()) != 0;
        while (!go) std::this_thread::yield();
    });
    EXPECT_FALSE(worker.finished() || worker.isCurrentThread());
    std::thread waiters[4]; // many may wait at once
    for (std::thread& waiter : waiters) waiter = std::thread([&] { worker.wait(); });
    go = true;
    EXPECT_TRUE(eventually([&] { return worker.finished(); }));
    for (std::thread& waiter : waiters) waiter.join();
    EXPECT_TRUE(inside);
}

TEST(Thread, EndIsSeenInEveryOrderOfCallsAlsoWhileTheThreadsVariablesDie)
{
    for (const char* order : {"f", "w", "ff", "ww", "fw", "wf", "wwff", "fwfw"}) {
        std::atomic<bool> dying = false, go = false, asked = false;
        Worker worker([&](IThread& self) {
            thread_local std::shared_ptr<void> late(nullptr, [&](void*) {
                dying = true;
                while (!go) std::this_thread::yield();
                asked = !self.isCurrentThread() && !self.finished();
                self.wait();
            });
        });
        EXPECT_TRUE(eventually([&] { return dying.load(); }));
        EXPECT_FALSE(worker.finished()) << "and does not block";
        std::thread release([&] { go = true; }); // most likely while the first call below waits
        for (const char* step = order; *step != '\0'; ++step) {
            if (*step == 'w') worker.wait();
            EXPECT_TRUE(*step == 'w' || eventually([&] { return worker.finished(); })) << order;
            EXPECT_TRUE(asked) << order;
        }
        release.join();
        EXPECT_FALSE(worker.isCurrentThread());
    }
}

TEST(Thread, ObjectThatIsNeverWaitedForLeavesNoThreadBehind) // as the thread sanitizer sees it
{
    struct Unwaited : IThread
    {
        ~Unwaited() override = default;
        void run() override { done = true; }
        std::atomic<bool> done = false;
    } thread;
    thread.start();
    EXPECT_TRUE(eventually([&] { return thread.done.load(); }));
}

TEST(Thread, FailedStartTellsTheReasonAndLeavesTheObjectIdle)
{
    pthread_attr_t usual, huge;
    ASSERT_EQ(pthread_getattr_default_np(&usual) + pthread_attr_init(&huge), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&huge, std::size_t{1} << 50), 0);
    ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
    std::setlocale(LC_ALL, "C"); // the reason's text
    testing::internal::CaptureStderr();
    Worker worker([](IThread&) {});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "pthread_create: Resource temporarily unavailable\n");
    pthread_setattr_default_np(&usual);
    for (int i = 0; i < 2; ++i) {
        worker.wait();
        EXPECT_TRUE(eventually([&] { return worker.finished(); }));
        worker.start(); // now it can
    }
}

TEST(CyclicThread, CallsTheJobForAsLongAsTheFlagIsSet)
{
    static std::atomic<int> calls = 0;
    CyclicThread thread;
    thread.job = [](CyclicThread* self) { self->running = ++calls < 5; };
    for (const int expected : {0, 5}) { // the flag is tested before the first call
        thread.running = expected != 0;
        thread.start();
        thread.wait();
        EXPECT_EQ(calls, expected);
    }
}

TEST(Time, StampsWrapAndDeadlinesCarry)
{
    EXPECT_EQ(thread::timestampOf({1999999, 999999}), 1999999999);
    EXPECT_EQ(thread::timestampOf({1700000000, 1999}), 1);
    EXPECT_LT(static_cast<unsigned>(IThread::getTimestamp()), 2000000000U);
    const std::tuple<timeval, int, timespec> rows[] = {
        {{10, 999999}, 0, {10, 999999000}},
        {{10, 999999}, 1, {11, 999000}},
        {{10, 500000}, 2500, {13, 0}},
        {{10, 0}, 2147483647, {2147493, 647000000}},
    };
    for (const auto& [from, ms, expected] : rows) {
        const timespec deadline = thread::deadlineAfter(from, ms);
        EXPECT_EQ(std::tie(deadline.tv_sec, deadline.tv_nsec), std::tie(expected.tv_sec, expected.tv_nsec));
    }
    const auto begin = Clock::now();
    IThread::sleep(4294968); // wraps to 704 us
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(30));
}

TEST(Processors, AreTheLinesThatTellOfOne)
{
    int count = 0;
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);) count += line.find("processor\t:") == 0;
    for (int i = 0; i < 2; ++i) EXPECT_EQ(IThread::getCpuCount(), count);
}

} // namespace
