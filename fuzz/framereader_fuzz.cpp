// Frame files: every reader takes every input, whatever its first line says.
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vorelutil/frames/frameparser.h>
#include <vorelutil/trace/error.h>

namespace {

void require(bool condition)
{
    if (!condition) std::abort();
}

/// What a reader returns is whole; else it throws `FormatError`, and nothing else. From a file, and from a
/// pipe.
template <typename Parser, typename Check> void take(Parser parse, std::string_view content, Check check)
{
    using frameparser::MemorySource;
    for (const bool pipe : {false, true}) {
        MemorySource source = pipe ? MemorySource(content, 7) : MemorySource(content);
        try {
            check(parse(source, "fuzz"));
        } catch (const FormatError&) {
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view content(reinterpret_cast<const char*>(data), size);
    const auto checkImage = [size](const FrameImage& image) {
        require(image.xPixels > 0 && image.yPixels > 0 && image.values.size() < size);
        require(image.values.size() / static_cast<std::size_t>(image.xPixels) ==
                static_cast<std::size_t>(image.yPixels));
        require(image.values.size() % static_cast<std::size_t>(image.xPixels) == 0);
    };
    take(frameparser::parseAsc, content, checkImage);
    take(frameparser::parseBcr, content, checkImage);
    take(frameparser::parseLineCsv, content,
         [](const FrameLine& line) { require(line.x.size() == line.y.size()); });
    take(frameparser::parsePermCsv, content,
         [size](const FrameLog& log) { require(log.values.size() < size); });
    return 0;
}
