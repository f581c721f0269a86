#pragma once

#include "framereader.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace frameparser {

/// Where the bytes of a file come from.
class Source
{
public:
    virtual ~Source() = default;
    /// Reads up to `size` bytes (1 and more) and returns how many; 0 only at the end. May throw `IOError`.
    virtual std::size_t read(char* to, std::size_t size) = 0;
    /// The size of the whole, where it is known beforehand.
    virtual std::optional<std::uint64_t> size() const = 0;
};

/// A text in memory, which outlives the source.
class MemorySource : public Source
{
public:
    /// All of it can be had at once, as from a regular file.
    explicit MemorySource(std::string_view content)
        : m_rest(content)
        , m_size(content.size())
        , m_piece(content.size())
    {
    }
    /// It comes in pieces of at most `piece` bytes (1 and more) and its size is not told, as from a pipe.
    MemorySource(std::string_view content, std::size_t piece)
        : m_rest(content)
        , m_piece(piece)
    {
    }
    std::size_t read(char* to, std::size_t size) override;
    std::optional<std::uint64_t> size() const override { return m_size; }
    std::string_view rest() const { return m_rest; } ///< what is not read yet

private:
    std::string_view m_rest;
    std::optional<std::uint64_t> m_size;
    std::size_t m_piece;
};

/// As many bytes as there are, but at most `size`: fewer only at the end.
std::size_t readFully(Source& source, char* to, std::size_t size);

/// Which kind of file begins so, by its first line; none where that line is not there as a whole.
std::optional<FrameFileFormat> formatOf(std::string_view start);

/// Enough of a file's beginning for `formatOf`.
inline constexpr std::size_t formatStartSize = 64;

/// Takes a text apart line by line, holding no more of it than one block.
///
/// What is not as expected throws `FormatError` with the number of the line. How lines end, "\n" or "\r\n",
/// is decided by the first one.
class LineReader
{
public:
    /// Both outlive the reader; `fileName` is for messages.
    LineReader(Source& source, const std::string& fileName);

    /// Reads the first line. Any but that of `format` throws with `complaint`.
    void start(FrameFileFormat format, const char* complaint);

    [[noreturn]] void fail(const std::string& reason) const;

    /// Whether there is nothing behind the lines read.
    bool atEnd();

    /// The next line without its end, valid until the next call. It has at most `blockSize` - 1 bytes.
    std::string_view next();

    /// Whether the next line, as far as a block holds it, has this character.
    bool nextLineHas(char character);

    // The next line, which must begin with `caption`: what follows is the value.
    std::string_view field(std::string_view caption);
    std::string text(std::string_view caption);
    std::string time(std::string_view caption, std::string_view shape); ///< '0' in `shape` is any digit
    long long integer(std::string_view caption, long long lowest, long long highest, const char* complaint);
    double length(std::string_view caption); ///< a finite number
    void literal(std::string_view line);     ///< a line of just this text

    // A line of many values, of any length, is read value by value.
    void beginRow();
    std::string_view cell(std::string_view separator); ///< up to the separator, which is skipped
    void endRow();

    /// A sample value: a finite number, or one of the texts that the writers print for the others.
    double sample(std::string_view text) const;

    static constexpr std::size_t blockSize = 65536;

private:
    std::string_view window() const;
    bool readMore();
    [[noreturn]] void failAtEnd() const;

    Source& m_source;
    const std::string& m_fileName;
    std::unique_ptr<char[]> m_block;
    std::size_t m_begin = 0; ///< in the block: what is read, but not taken
    std::size_t m_end = 0;
    std::size_t m_number = 0; ///< of the line taken last
    bool m_returns = false;   ///< lines end in "\r\n"
};

} // namespace frameparser
