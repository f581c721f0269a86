#include <chrono>
#include <clocale>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>
#include <vorelutil/thread/thread.h>
#include <vorelutil/thread/walltime.h>

namespace {

using Clock = std::chrono::steady_clock;

/// Starts at once, and is waited for.
struct Worker : IThread
{
    explicit Worker(std::function<void(IThread&)> work) { body.swap(work), start(); }
    ~Worker() override { wait(); }
    void run() override { body(*this); }
    std::function<void(IThread&)> body;
};

/// Waits for a condition, with a generous limit and no pause: what holds too early shall be seen.
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
    for (Worker a(count), b(count); !a.finished() || !b.finished();) std::this_thread::yield();
    EXPECT_EQ(counter, 40000);
}

TEST(WaitCondition, TimesOutOrIsWoken)
{
    IWaitCondition condition;
    EXPECT_TRUE(condition.wakeOne() && !condition.wait(0) && !condition.wait(1)) << "lost: nobody waits";
    for (const int ms : {-1, 60000}) {
        std::atomic<bool> woken = false;
        Worker waiter([&](IThread&) { woken = condition.wait(ms); });
        EXPECT_TRUE(eventually([&] { return condition.wakeOne() && woken; })) << ms;
    }
    IMutex mutex;
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
        for (; turn < 4000; ++turn, conditions[1 - who].wakeOne()) {
            while (turn % 2 != who) ASSERT_TRUE(conditions[who].wait(&mutex, 30000)) << turn;
        }
    };
    Worker worker([&](IThread&) { play(1); });
    play(0);
}

TEST(Thread, KnowsWhetherItRunsAndWhoCalls)
{
    std::atomic<bool> go = false, inside = false;
    Worker worker([&](IThread& self) {
        self.wait(); // of the thread for itself: returns at once
        inside = self.isCurrentThread() && !self.finished();
        while (!go) std::this_thread::yield();
    });
    EXPECT_FALSE(worker.finished() || worker.isCurrentThread());
    const auto wait = [&](IThread&) { worker.wait(); };
    Worker waiters[] = {Worker(wait), Worker(wait), Worker(wait)}; // many may wait at once
    go = true;
    worker.wait();
    EXPECT_TRUE(worker.finished() && inside);
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
        Worker release([&](IThread&) { go = true; }); // most likely while the first call below waits
        for (const char* step = order; *step != '\0'; ++step) {
            if (*step == 'w') worker.wait();
            EXPECT_TRUE((*step == 'w' || eventually([&] { return worker.finished(); })) && asked) << order;
        }
    }
}

TEST(Thread, FailedStartLeavesTheObjectIdleAndNoWaitLeavesNoThreadBehind) // as the thread sanitizer sees it
{
    struct Unwaited : IThread
    {
        void run() override { done = true; }
        std::atomic<bool> done = false;
    } thread;
    pthread_attr_t usual, huge;
    ASSERT_FALSE(pthread_getattr_default_np(&usual) || pthread_attr_init(&huge) ||
                 pthread_attr_setstacksize(&huge, std::size_t{1} << 50) || pthread_setattr_default_np(&huge));
    std::setlocale(LC_ALL, "C"); // the reason's text
    testing::internal::CaptureStderr();
    thread.start();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "pthread_create: Resource temporarily unavailable\n");
    pthread_setattr_default_np(&usual);
    EXPECT_TRUE((thread.wait(), thread.finished()));
    thread.start(); // now it can
    EXPECT_TRUE(eventually([&] { return thread.done.load(); }));
}

TEST(CyclicThread, CallsTheJobForAsLongAsTheFlagIsSet)
{
    static std::atomic<int> calls = 0;
    CyclicThread thread;
    thread.job = [](CyclicThread* self) { self->running = ++calls < 5; };
    thread.wait();
    EXPECT_TRUE(thread.finished() && !thread.isCurrentThread()) << "never started";
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
    // clang-format off
    const std::tuple<timeval, int, timespec> rows[] = {
        {{10, 999999}, 1, {11, 999000}}, {{10, 500000}, 2500, {13, 0}}, {{10, 0}, 2147483647, {2147493, 647000000}}};
    // clang-format on
    for (const auto& [from, ms, expected] : rows) {
        const timespec deadline = thread::deadlineAfter(from, ms);
        EXPECT_EQ(std::tie(deadline.tv_sec, deadline.tv_nsec), std::tie(expected.tv_sec, expected.tv_nsec));
    }
    IThread::sleep(4294968); // wraps to 704 us
}

} // namespace
