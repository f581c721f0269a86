#pragma once

#include <cstdio>

/// Opening files with the C runtime, with the differences between systems removed.
namespace platform {

/// Opens a file as `fopen` does; the stream is not inherited by child processes.
///
/// `mode` is "r", "w", "rb" or "wb"; "w" and "r" are text mode, where the system knows one. A null or
/// empty path, and a directory (which `fopen` opens for reading on Linux), give a null pointer with
/// `errno` set. A named pipe is not waited for: reading one that nobody writes to finds the end of the file
/// at once, and one that nobody reads does not open for writing (ENXIO). The caller closes the stream with
/// `fclose`.
std::FILE* openFile(const char* path, const char* mode);

} // namespace platform
