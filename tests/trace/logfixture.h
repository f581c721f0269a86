#pragma once

#include <clocale>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <QTemporaryDir>
#include <tests/support/files.h>
#include <vorelutil/trace/tracelog.h>

/// Each case runs in an empty folder of its own and the "C" locale, with its standard output caught, and
/// leaves the log as if no traceInit had run.
class LogFixture : public testing::Test
{
public:
    LogFixture()
    {
        std::filesystem::current_path(m_folder.path().toStdString());
        std::setlocale(LC_ALL, "C");
        testing::internal::CaptureStdout();
    }

    ~LogFixture() override
    {
        echoed();
        testing::internal::GetCapturedStdout();
        traceInit("", "", 0); // closes the log file
        traceGetParamset()->secretAddrs.clear();
        traceInit(static_cast<TraceParams*>(nullptr));
    }

    /// What standard output got since the last call.
    static std::string echoed()
    {
        std::fflush(stdout);
        const std::string text = testing::internal::GetCapturedStdout();
        testing::internal::CaptureStdout();
        return text;
    }

    /// What the own record's log, the file "log", got since the last call.
    static std::string logged()
    {
        std::fflush(traceGetParamset()->logFile);
        const std::string text = contents("log");
        std::FILE* again = std::freopen("log", "w", traceGetParamset()->logFile);
        return again != nullptr ? text : "log cannot be reopened";
    }

private:
    QTemporaryDir m_folder;
};
