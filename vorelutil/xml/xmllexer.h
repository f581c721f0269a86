#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

/// The reader behind `XmlDoc`: characters, symbols, elements.
namespace XmlInternal {

/// Kinds of symbols.
enum Symbol : int
{
    symUnknown = 0,  ///< a character that begins no symbol; consumed
    symEnd = 1,      ///< end of the input
    symTagOpen = 2,  ///< "<", not before "!" or "?"
    symTagClose = 3, ///< ">"
    symSlash = 4,    ///< "/"
    symEquals = 5,   ///< "="
    symString = 6,   ///< a text in double quotes; its decoded content is the symbol's text
    symWord = 7      ///< a name, or a run of text, by mode
};

/// Cuts a source of characters into symbols, and counts its lines.
///
/// A source derives from this class and delivers characters one by one with `getNextChar`. It may
/// lend a stretch of characters that come next (`lend`): those are then taken without a call each, and
/// `getNextChar` is called when they are used up. Characters are bytes; 0 is the end of the input, for good:
/// nothing is asked for behind it.
class ILexer
{
public:
    /// `sourceName` is copied into errors and nodes. The current character is a blank then, the line 1.
    explicit ILexer(const std::string& sourceName);
    virtual ~ILexer();
    /// Makes the next character of the source the current one, with `setChar`; 0 at its end.
    virtual void getNextChar() = 0;
    ILexer(const ILexer&) = delete;
    ILexer& operator=(const ILexer&) = delete;

    /// Reads the next symbol; its text, if it has one, is left in `text`. In name mode a word is made of
    /// ASCII letters and digits and "_.:"; otherwise of all that stands before the next "<". White space,
    /// comments and processing instructions before it are skipped. Throws `XmlError` for a comment or
    /// processing instruction that does not end, with the line where the input ends, and for "<!" that begins
    /// no comment, with the line of the character that should be a hyphen.
    ///
    /// In a string "&amp;", "&lt;", "&gt;" and "&quot;" are decoded, and all other references kept; in a run
    /// of text every one is. A string may end with the input. Kept: a reference goes as far as the next ";",
    /// also past a quote, and has one added where the input ends before.
    int getNextSymbol(bool nameMode);
    /// Consumes characters until `terminator` has been read, and one more. Throws `XmlError` "Unterminated
    /// comment" at the end of the input, with the line where that is. Kept: a character that does not match
    /// is not compared with the terminator's first one, so that "--->" does not end a comment.
    void skipUntil(const char* terminator);

    char current() const { return m_char; } ///< 0 at the end of the input
    /// Text of the last name, run of text or string. Other symbols leave it as it is.
    const std::string& text() const { return m_text; }
    const std::string& sourceName() const { return m_sourceName; }
    std::uint32_t line() const { return m_line; } ///< line feeds read, plus 1

protected:
    /// Makes `character` the current one, and counts it when it is a line feed.
    void setChar(char character)
    {
        m_char = character;
        if (character == '\n') ++m_line;
    }
    /// What comes after the current character; must stay where it is until it is used up.
    void lend(const char* begin, const char* end)
    {
        m_next = begin;
        m_end = end;
    }
    /// Makes the next lent character the current one; false when there is none, or the input has ended.
    bool takeLent()
    {
        if (m_next == m_end || m_char == '\0') return false;
        setChar(*m_next++);
        return true;
    }

private:
    void advance()
    {
        if (!takeLent() && m_char != '\0') getNextChar();
    }
    template <unsigned char stop> void takeUntil();
    void takeReference();
    void takeString();

    char m_char = ' ';
    std::uint32_t m_line = 1;
    const char* m_next = nullptr; ///< lent characters that were not taken yet
    const char* m_end = nullptr;
    std::string m_text;
    const std::string m_sourceName;
};

/// Characters of a string, of which it keeps a copy.
class StringLexer : public ILexer
{
public:
    StringLexer(const std::string& content, const std::string& sourceName);
    void getNextChar() override;

private:
    const std::string m_content;
};

/// Characters of an open file, read in blocks. The stream must outlive the lexer; how far it was read in the
/// end is not defined. A read that fails ends the input.
class StreamLexer : public ILexer
{
public:
    /// `blockSize`, in bytes, is at least 1.
    StreamLexer(std::FILE* stream, const std::string& sourceName, std::size_t blockSize = 65536);
    void getNextChar() override;

private:
    std::FILE* const m_stream;
    std::vector<char> m_block;
};

} // namespace XmlInternal
