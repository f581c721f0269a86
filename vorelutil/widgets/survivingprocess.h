#pragma once

#include <QProcess>
#include <vorelutil/platform/export.h>

/// A QProcess whose destruction leaves the started program running, so that it may outlive the object and
/// the application.
///
/// In all else it is an ordinary QProcess, with its owner, thread and failures. What ends with the object is
/// the contact: no signal tells of the program any more, and its pipes have no other end. A program that
/// then writes to one of them is ended by the system (SIGPIPE), unless it ignores that, and one that reads
/// its standard input finds the end. Give a program that writes a file instead before it starts
/// (`setStandardOutputFile`, `setStandardErrorFile`), or the application's own channels
/// (`ForwardedChannels`).
class VORELUTIL_EXPORT SurvivingProcess : public QProcess
{
    Q_OBJECT

public:
    /// No program yet. `parent` may be null.
    explicit SurvivingProcess(QObject* parent = nullptr);

    /// Does not wait for the program, nor kill it. If it runs, `stateChanged(QProcess::NotRunning)` is
    /// emitted, and no `finished`. Start nothing from a slot of that signal: the object is about to go, and
    /// as a plain QProcess it would kill the new program and wait for its end.
    ~SurvivingProcess() override;
};
