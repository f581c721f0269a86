#pragma once

#include <cstdio>

namespace cli {

/// Whether what is written there goes to a terminal.
bool isTerminal(std::FILE* stream);

/// From now on, writing to a pipe that nobody reads any more fails instead of ending the process.
void outliveBrokenPipes();

/// Before any file is opened: a standard stream that was closed when the process began fails, instead of
/// being the first file that gets its number.
void occupyStandardStreams();

/// What a signal leaves behind that ends the process (SIGINT, SIGTERM, SIGHUP, SIGXFSZ; not one that is
/// ignored). It still ends it.
/// @{

/// Such a signal removes this file, until `keepOnSignal`. `path` as the system takes it; of more than four
/// files at a time, and of very long paths, the signal leaves the file.
void removeOnSignal(const char* path);
void keepOnSignal(const char* path);
/// Whether such a signal ends a line on standard error that stands there without its end.
void endLineOnSignal(bool stands);

/// While it lives, such a signal is noted, and ends the process only when this is destroyed: time to stop and
/// to tidy up. One object at a time.
class HeldSignals
{
public:
    HeldSignals();
    ~HeldSignals();
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

    /// Whether one has come.
    bool any() const;
};
/// @}

} // namespace cli
