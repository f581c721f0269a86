#include "xmldoc.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

/// Appends to a text, which grows in great steps: bytes go straight into memory that is the text's already.
/// A step goes by what was appended, not by what was there: others may have filled the text node by node.
/// Its size is right when this object is destroyed.
class Output
{
public:
    explicit Output(std::string& text)
        : m_text(text)
        , m_begin(text.size())
        , m_size(m_begin)
    {
    }
    ~Output() { m_text.resize(m_size); }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void append(std::string_view bytes)
    {
        char* const to = room(bytes.size());
        std::memcpy(to, bytes.data(), bytes.size());
        m_size += bytes.size();
    }
    void append(char c)
    {
        *room(1) = c;
        ++m_size;
    }
    /// Text `s` as it stands in an attribute's value.
    void appendTranslated(const std::string& s);
    void appendNewLine(long long level)
    {
        append('\n');
        const std::size_t count = static_cast<std::size_t>(level) * 2;
        std::memset(room(count), ' ', count);
        m_size += count;
    }

private:
    /// Where the next `count` bytes go.
    char* room(std::size_t count)
    {
        if (m_text.size() - m_size < count) grow(count);
        return m_text.data() + m_size;
    }
    void grow(std::size_t count)
    {
        constexpr std::size_t leastStep = 256;
        m_text.resize(m_size + std::max({count, m_size - m_begin, leastStep}));
    }

    std::string& m_text;
    const std::size_t m_begin; ///< size of the text at first
    std::size_t m_size;        ///< of what was written so far; the text is at least as long
};

/// What stands for a byte in an attribute's value. Empty: the byte itself.
constexpr std::string_view escapeOf(char c)
{
    switch (c) {
    case '"':
        return "&quot;";
    case '&':
        return "&amp;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    default:
        return {};
    }
}
constexpr std::size_t longestEscape = 6;

/// Whether a byte is not copied: a zero byte, and those that have an escape.
constexpr std::array<bool, 256> makeSpecial()
{
    std::array<bool, 256> table{};
    for (const char c : {'\0', '"', '&', '<', '>'}) table[static_cast<unsigned char>(c)] = true;
    return table;
}
constexpr std::array<bool, 256> special = makeSpecial();

void Output::appendTranslated(const std::string& s)
{
    constexpr std::size_t piece = 4096;
    for (std::size_t begin = 0; begin < s.size(); begin += piece) {
        const std::size_t count = std::min(piece, s.size() - begin);
        char* const first = room(count * longestEscape);
        char* to = first;
        bool ended = false;
        for (const char c : std::string_view(s).substr(begin, count)) {
            if (!special[static_cast<unsigned char>(c)]) {
                *to++ = c;
                continue;
            }
            ended = c == '\0';
            if (ended) break;
            const std::string_view escape = escapeOf(c);
            to = std::copy(escape.begin(), escape.end(), to);
        }
        m_size += static_cast<std::size_t>(to - first);
        if (ended) return;
    }
}

/// Result: whether an end tag must follow.
bool writeStart(Output& out, const XmlDocNode& node, long long level)
{
    if (level > 0) out.appendNewLine(level);
    out.append('<');
    out.append(node.name);
    for (const auto& [name, value] : node.attributes) {
        out.append(' ');
        out.append(name);
        out.append("=\"");
        out.appendTranslated(value);
        out.append('"');
    }
    const bool isOpen = !node.children.empty() || !node.text.empty();
    out.append(isOpen ? ">" : "/>");
    return isOpen;
}

void writeEnd(Output& out, const XmlDocNode& node, long long level)
{
    out.append(node.text);
    if (level >= 0) out.appendNewLine(level);
    out.append("</");
    out.append(node.name);
    out.append('>');
}

} // namespace

std::string XmlDocNode::translate(const std::string& s)
{
    std::string text;
    Output(text).appendTranslated(s);
    return text;
}

void XmlDocNode::write(std::string& text_, int indent) const
{
    struct Open
    {
        const XmlDocNode* node;
        std::list<XmlDocNode*>::const_iterator next;
    };
    Output out(text_);
    long long level = indent <= unindented ? LLONG_MIN / 2 : indent;
    std::vector<Open> open; // the elements whose end tags are still to come, from this one to the deepest
    if (!writeStart(out, *this, level)) return;
    open.push_back({this, children.begin()});
    while (!open.empty()) {
        Open& deepest = open.back();
        if (deepest.next == deepest.node->children.end()) {
            writeEnd(out, *deepest.node, level);
            open.pop_back();
            --level;
            continue;
        }
        const XmlDocNode* const child = *deepest.next++;
        if (!writeStart(out, *child, level + 1)) continue;
        ++level;
        open.push_back({child, child->children.begin()});
    }
}
