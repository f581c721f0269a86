#include "framereader.h"

#include "frameparser.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <new>
#include <system_error>
#include <vorelutil/platform/files.h>
#include <vorelutil/trace/error.h>

namespace {

class FileSource : public frameparser::Source
{
public:
    explicit FileSource(const std::string& path)
        : m_path(path)
        , m_file(platform::openFile(path.c_str(), "rb"))
    {
        if (m_file == nullptr) throw FileOpenError(path, false);
    }

    std::size_t read(char* to, std::size_t size) override
    {
        errno = 0;
        const std::size_t count = std::fread(to, 1, size, m_file.get());
        if (std::ferror(m_file.get()) != 0) {
            throw IOError("Can't read file\n" + m_path + ": " + std::generic_category().message(errno));
        }
        return count;
    }

    /// Of a regular file only.
    std::optional<std::uint64_t> size() const override
    {
        std::error_code failure;
        const std::uintmax_t size = std::filesystem::file_size(m_path, failure);
        return failure ? std::nullopt : std::optional<std::uint64_t>(size);
    }

private:
    struct Closer
    {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    const std::string& m_path;
    std::unique_ptr<std::FILE, Closer> m_file;
};

template <typename Parser> auto read(const std::string& path, Parser parse)
{
    try {
        FileSource source(path);
        return parse(source, path);
    } catch (const std::bad_alloc&) {
        throw OomError("Not enough memory to read\n" + path);
    }
}

} // namespace

FrameFileFormat detectFrameFile(const std::string& path)
{
    FileSource file(path);
    char start[frameparser::formatStartSize];
    const std::size_t size = frameparser::readFully(file, start, sizeof start);
    const auto format = frameparser::formatOf({start, size});
    if (!format) throw FormatError("not a frame file", path);
    return *format;
}

FrameImage readFrameAsc(const std::string& path)
{
    return read(path, frameparser::parseAsc);
}

FrameImage readFrameBcr(const std::string& path)
{
    return read(path, frameparser::parseBcr);
}

FrameLine readLineCsv(const std::string& path)
{
    return read(path, frameparser::parseLineCsv);
}

FrameLog readPermCsv(const std::string& path)
{
    return read(path, frameparser::parsePermCsv);
}
