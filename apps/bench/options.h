#pragma once

#include "scansettings.h"
#include "theme.h"

namespace bench {

/// What the command line asks for.
struct Options
{
    QString host; ///< empty: the simulated controller inside this process
    int port = 0;
    bool headless = false;
    double seconds = 5.0;         ///< of a headless run
    QString outFolder;            ///< of a headless run
    QString settingsFile;         ///< empty: the user's
    int confirmMilliseconds = 50; ///< of the simulated controller
    int refuseEvery = 0;
    double ownChangesSeconds = 4.0; ///< 0 in a headless run, unless asked for
    ScanSettings scan;
    QString style;
    Theme theme = Theme::Platform;
};

/// Reads the command line. Result: -1 to go on, else the exit code (0 after --help, 2 for wrong usage); what
/// is to be said was printed.
int parseOptions(int argc, char** argv, Options* options);

} // namespace bench
