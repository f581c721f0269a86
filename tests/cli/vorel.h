#pragma once

#include <gtest/gtest.h>
#include <QByteArray>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <tests/support/files.h>
#include <tuple>
#include <vector>

/// Runs of the command-line tool.

inline const QString vorel = QStringLiteral(VOREL_PATH);

struct Result
{
    int code = -1;
    QByteArray out, err;
};

inline Result run(const QByteArray& line, const QByteArray& input = {})
{
    QProcess process;
    process.start(vorel, QString::fromLatin1(line).split(QLatin1Char(' '), Qt::SkipEmptyParts));
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit) return {};
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

struct Row
{
    QByteArray arguments;
    int code;
    QByteArray out, err;
};

/// Exit code, standard output and standard error together; `more` follows each row's arguments.
inline void expectRows(const std::vector<Row>& rows, const QByteArray& more = {},
                       const QByteArray& input = {})
{
    for (const Row& row : rows) {
        const Result result = run(row.arguments + more, input);
        EXPECT_EQ(std::tuple(result.code, result.out, result.err), std::tuple(row.code, row.out, row.err))
            << row.arguments.constData();
    }
}

/// A temporary folder with files in it.
class InFolder : public ::testing::Test
{
protected:
    QByteArray path(const char* name) const { return QFile::encodeName(dir.filePath(QLatin1String(name))); }
    void write(const char* name, const QByteArray& bytes) const
    {
        QFile file(dir.filePath(QLatin1String(name)));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    }
    QByteArray read(const char* name) const
    {
        return QByteArray::fromStdString(contents(path(name).toStdString()));
    }

    QTemporaryDir dir;
};
