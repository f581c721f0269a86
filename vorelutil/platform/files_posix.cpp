#include "files.h"

#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {

std::FILE* openFile(const char* path, const char* mode)
{
    if (path == nullptr || *path == '\0') {
        errno = ENOENT;
        return nullptr;
    }
    const bool writing = std::string_view(mode).front() == 'w';
    const int flags = O_CLOEXEC | O_NOCTTY | (writing ? O_WRONLY | O_CREAT | O_TRUNC : O_RDONLY);
    const int descriptor = open(path, flags, 0666);
    if (descriptor < 0) return nullptr;
    struct stat status {};
    if (fstat(descriptor, &status) != 0 || S_ISDIR(status.st_mode)) {
        close(descriptor);
        errno = EISDIR;
        return nullptr;
    }
    std::FILE* file = fdopen(descriptor, mode);
    if (file == nullptr) {
        const int reason = errno;
        close(descriptor);
        errno = reason;
    }
    return file;
}

} // namespace platform
