#pragma once

#include <ctime>
#include <sys/time.h>

/// The arithmetic behind time stamps and time-outs, apart from the clock that feeds it.
namespace thread {

/// The stamp of `IThread::getTimestamp` for a time of day.
constexpr int timestampOf(const timeval& time)
{
    return static_cast<int>(time.tv_sec % 2000000) * 1000 + static_cast<int>(time.tv_usec / 1000);
}

/// The absolute time `ms` (zero or more) milliseconds after `now`.
constexpr timespec deadlineAfter(const timeval& now, int ms)
{
    const long microseconds = static_cast<long>(now.tv_usec) + (ms % 1000) * 1000L;
    timespec deadline{};
    deadline.tv_sec = now.tv_sec + ms / 1000 + microseconds / 1000000;
    deadline.tv_nsec = (microseconds % 1000000) * 1000;
    return deadline;
}

} // namespace thread
