#include "framereader.h"

#include "frameparser.h"

#include <cstdio>
#include <memory>
#include <new>
#include <vorelutil/platform/files.h>
#include <vorelutil/trace/error.h>

namespace {

struct FileCloser
{
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

File openForReading(const std::string& path)
{
    File file(platform::openFile(path.c_str(), "rb"));
    if (file == nullptr) throw FileOpenError(path, false);
    return file;
}

/// Reads on to the end of the file, but no block more once the content does not begin as it should.
std::string readContent(const std::string& path, std::string_view title)
{
    const File file = openForReading(path);
    constexpr std::size_t blockSize = 256 * 1024;
    const auto block = std::make_unique<char[]>(blockSize);
    std::string content;
    std::size_t count = 0;
    while ((count = std::fread(block.get(), 1, blockSize, file.get())) > 0) {
        content.append(block.get(), count);
        if (!frameparser::hasTitle(content, title)) break;
    }
    if (std::ferror(file.get()) != 0) throw IOError("Can't read file\n" + path);
    return content;
}

template <typename Parser> auto read(const std::string& path, std::string_view title, Parser parse)
{
    try {
        return parse(readContent(path, title), path);
    } catch (const std::bad_alloc&) {
        throw OomError("Not enough memory to read\n" + path);
    }
}

} // namespace

FrameFileFormat detectFrameFile(const std::string& path)
{
    const File file = openForReading(path);
    char block[64];
    const std::string_view start(block, std::fread(block, 1, sizeof block, file.get()));
    if (std::ferror(file.get()) != 0) throw IOError("Can't read file\n" + path);
    if (frameparser::hasTitle(start, frameparser::ascTitle)) return FrameFileFormat::Asc;
    if (frameparser::hasTitle(start, frameparser::bcrTitle)) return FrameFileFormat::Bcr;
    if (frameparser::hasTitle(start, frameparser::lineCsvTitle)) return FrameFileFormat::LineCsv;
    if (frameparser::hasTitle(start, frameparser::permCsvTitle)) return FrameFileFormat::PermCsv;
    throw FormatError("not a frame file", path);
}

FrameImage readFrameAsc(const std::string& path)
{
    return read(path, frameparser::ascTitle, frameparser::parseAsc);
}

FrameImage readFrameBcr(const std::string& path)
{
    return read(path, frameparser::bcrTitle, frameparser::parseBcr);
}

FrameLine readLineCsv(const std::string& path)
{
    return read(path, frameparser::lineCsvTitle, frameparser::parseLineCsv);
}

FrameLog readPermCsv(const std::string& path)
{
    return read(path, frameparser::permCsvTitle, frameparser::parsePermCsv);
}
