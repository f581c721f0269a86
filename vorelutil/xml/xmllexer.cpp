#include "xmllexer.h"

#include <algorithm>
#include <array>
#include <vorelutil/trace/error.h>

namespace XmlInternal {

namespace {

// Classes of characters, as bits. The end of the input is no member of any class that goes on.
constexpr unsigned char notSpace = 1;
constexpr unsigned char notName = 2;
constexpr unsigned char endsText = 4;
constexpr unsigned char endsString = 8;
constexpr unsigned char endsReference = 16;

constexpr unsigned char classesOf(unsigned char c)
{
    const bool isSpace = c == ' ' || (c >= '\t' && c <= '\r');
    const bool isName = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                        c == '_' || c == '.' || c == ':';
    const bool isEnd = c == '\0';
    return static_cast<unsigned char>(
        (isSpace ? 0 : notSpace) | (isName ? 0 : notName) | (isEnd || c == '<' ? endsText : 0) |
        (isEnd || c == '"' || c == '&' ? endsString : 0) | (isEnd || c == ';' ? endsReference : 0));
}

constexpr std::array<unsigned char, 256> makeTable()
{
    std::array<unsigned char, 256> table{};
    for (unsigned c = 0; c < 256; ++c) table[c] = classesOf(static_cast<unsigned char>(c));
    return table;
}

constexpr std::array<unsigned char, 256> classes = makeTable();

bool is(char character, unsigned char wanted)
{
    return (classes[static_cast<unsigned char>(character)] & wanted) != 0;
}

struct Reference
{
    const char* text;
    char character;
};

// clang-format off
constexpr Reference references[] = {
    {"&amp;",  '&'},
    {"&lt;",   '<'},
    {"&gt;",   '>'},
    {"&quot;", '"'},
};
// clang-format on

} // namespace

ILexer::ILexer(const std::string& sourceName)
    : m_sourceName(sourceName)
{
}

ILexer::~ILexer() = default;

/// Takes characters, the current one first, up to one of the class `stop`, and appends them to the text;
/// white space is dropped.
template <unsigned char stop> void ILexer::takeUntil()
{
    while (!is(m_char, stop)) {
        const char* end = m_next;
        while (end != m_end && !is(*end, stop)) {
            if constexpr (stop != notName) m_line += *end == '\n' ? 1U : 0U;
            ++end;
        }
        if constexpr (stop != notSpace) {
            m_text.push_back(m_char);
            m_text.append(m_next, end);
        }
        m_next = end;
        advance();
    }
}

/// Takes a reference, from the "&" to the ";" or the end of the input.
void ILexer::takeReference()
{
    const std::size_t begin = m_text.size();
    takeUntil<endsReference>();
    m_text.push_back(';');
    advance();
    for (const Reference& reference : references) {
        if (m_text.compare(begin, std::string::npos, reference.text) == 0) {
            m_text.resize(begin);
            m_text.push_back(reference.character);
            return;
        }
    }
}

void ILexer::takeString()
{
    m_text.clear();
    advance();
    takeUntil<endsString>();
    while (m_char == '&') {
        takeReference();
        takeUntil<endsString>();
    }
    advance();
}

void ILexer::skipUntil(const char* terminator)
{
    const char* expected = terminator;
    while (*expected != '\0') {
        advance();
        if (m_char == *expected)
            ++expected;
        else if (m_char != '\0')
            expected = terminator;
        else
            throw XmlError("Unterminated comment", m_sourceName, static_cast<int>(m_line));
    }
    advance();
}

int ILexer::getNextSymbol(bool nameMode)
{
    for (;;) {
        takeUntil<notSpace>();
        switch (m_char) {
        case '\0':
            return symEnd;
        case '"':
            takeString();
            return symString;
        case '/':
            advance();
            return symSlash;
        case '=':
            advance();
            return symEquals;
        case '>':
            advance();
            return symTagClose;
        case '<':
            advance();
            if (m_char == '!') {
                for (int i = 0; i < 2; ++i) {
                    advance();
                    if (m_char != '-')
                        throw XmlError("Comment expected", m_sourceName, static_cast<int>(m_line));
                }
                skipUntil("-->");
                continue;
            }
            if (m_char == '?') {
                skipUntil("?>");
                continue;
            }
            return symTagOpen;
        default:
            break;
        }
        if (nameMode && is(m_char, notName)) {
            advance();
            return symUnknown;
        }
        m_text.clear();
        if (nameMode)
            takeUntil<notName>();
        else
            takeUntil<endsText>();
        return symWord;
    }
}

StringLexer::StringLexer(const std::string& content, const std::string& sourceName)
    : ILexer(sourceName)
    , m_content(content)
{
    lend(m_content.data(), m_content.data() + m_content.size());
}

void StringLexer::getNextChar()
{
    if (!takeLent()) setChar('\0');
}

StreamLexer::StreamLexer(std::FILE* stream, const std::string& sourceName, std::size_t blockSize)
    : ILexer(sourceName)
    , m_stream(stream)
    , m_block(std::max<std::size_t>(blockSize, 1))
{
}

void StreamLexer::getNextChar()
{
    if (takeLent() || current() == '\0') return;
    lend(m_block.data(), m_block.data() + std::fread(m_block.data(), 1, m_block.size(), m_stream));
    if (!takeLent()) setChar('\0');
}

} // namespace XmlInternal
