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
    int descriptor = open(path, flags | O_NONBLOCK, 0666);
    // A file that another program holds a lease on can be had by waiting; a named pipe never says this.
    if (descriptor < 0 && errno == EWOULDBLOCK) descriptor = open(path, flags, 0666);
    if (descriptor < 0) return nullptr;

    struct stat status
    {
    };
    std::FILE* file = nullptr;
    if (fstat(descriptor, &status) == 0 && fcntl(descriptor, F_SETFL, flags) == 0) {
        if (S_ISDIR(status.st_mode)) {
            errno = EISDIR;
        } else {
            file = fdopen(descriptor, mode);
        }
    }
    if (file == nullptr) {
        const int reason = errno;
        close(descriptor);
        errno = reason;
    }
    return file;
}

} // namespace platform
