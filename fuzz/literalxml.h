#pragma once

#include <cctype>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// The reader of documents once more, written down as it is explained: byte by byte, recursive, and with no
/// regard to speed. The fuzz target compares the library's with it.
namespace literalxml {

struct Node
{
    std::string name;
    std::string text;
    std::map<std::string, std::string> attributes;
    std::vector<std::unique_ptr<Node>> children;
    unsigned line = 0;
};

/// A syntax error.
struct Failure
{
    std::string message;
    unsigned line;
};

enum class Symbol
{
    Unknown,
    End,
    TagOpen,
    TagClose,
    Slash,
    Equals,
    String,
    Word
};

class Lexer
{
public:
    explicit Lexer(const std::string& content)
        : m_content(content.substr(0, content.find('\0')))
    {
    }

    unsigned line = 1;
    std::string text;

    Symbol getNextSymbol(bool nameMode)
    {
        for (;;) {
            while (isSpace()) getNextChar();
            switch (m_current) {
            case '\0':
                return Symbol::End;
            case '"':
                return readString();
            case '/':
                return consume(Symbol::Slash);
            case '=':
                return consume(Symbol::Equals);
            case '>':
                return consume(Symbol::TagClose);
            case '<':
                getNextChar();
                if (m_current == '!') {
                    getNextChar();
                    if (m_current != '-') throw Failure{"Comment expected", line};
                    getNextChar();
                    if (m_current != '-') throw Failure{"Comment expected", line};
                    skipUntil("-->");
                    continue;
                }
                if (m_current == '?') {
                    skipUntil("?>");
                    continue;
                }
                return Symbol::TagOpen;
            default:
                break;
            }
            if (!nameMode) {
                text.clear();
                while (m_current != '<' && m_current != '\0') collect();
                return Symbol::Word;
            }
            if (!isName()) return consume(Symbol::Unknown);
            text.clear();
            while (isName()) collect();
            return Symbol::Word;
        }
    }

private:
    void getNextChar()
    {
        if (m_position >= m_content.size()) {
            m_current = '\0';
            return;
        }
        m_current = m_content[m_position];
        ++m_position;
        if (m_current == '\n') ++line;
    }
    bool isSpace() const { return m_current != '\0' && std::string(" \t\n\v\f\r").find(m_current) < 6; }
    bool isName() const
    {
        const int c = static_cast<unsigned char>(m_current);
        return std::isalnum(c) != 0 || c == '_' || c == '.' || c == ':';
    }
    Symbol consume(Symbol symbol)
    {
        getNextChar();
        return symbol;
    }
    void collect()
    {
        text += m_current;
        getNextChar();
    }
    void skipUntil(const std::string& terminator)
    {
        std::size_t position = 0;
        for (;;) {
            getNextChar();
            if (m_current == terminator[position]) {
                ++position;
                if (position == terminator.size()) {
                    getNextChar();
                    return;
                }
            } else {
                if (m_current == '\0') throw Failure{"Unterminated comment", line};
                position = 0;
            }
        }
    }
    Symbol readString()
    {
        getNextChar();
        text.clear();
        for (;;) {
            if (m_current == '"') return consume(Symbol::String);
            if (m_current == '\0') return Symbol::String;
            if (m_current != '&') {
                collect();
                continue;
            }
            std::string name;
            getNextChar();
            while (m_current != ';' && m_current != '\0') {
                name += m_current;
                getNextChar();
            }
            getNextChar();
            if (name == "amp")
                text += "&";
            else if (name == "lt")
                text += "<";
            else if (name == "gt")
                text += ">";
            else if (name == "quot")
                text += "\"";
            else
                text += "&" + name + ";";
        }
    }

    const std::string m_content;
    std::size_t m_position = 0;
    char m_current = ' ';
};

class Parser
{
public:
    explicit Parser(const std::string& content)
        : m_lexer(content)
    {
    }

    void getNextElement()
    {
        m_attributes.clear();
        m_name.clear();
        m_selfClosing = false;
        m_kind = 3;
        Symbol symbol = m_lexer.getNextSymbol(false);
        const unsigned line = m_lexer.line;
        if (symbol != Symbol::TagOpen) {
            m_name = m_lexer.text;
            return;
        }
        symbol = m_lexer.getNextSymbol(true);
        if (symbol == Symbol::Slash) {
            m_kind = 2;
            symbol = m_lexer.getNextSymbol(true);
        } else {
            m_kind = 1;
        }
        if (symbol != Symbol::Word) throw Failure{"Text expected", line};
        m_name = m_lexer.text;
        symbol = m_lexer.getNextSymbol(true);
        while (symbol == Symbol::Word) {
            const std::string name = m_lexer.text;
            symbol = m_lexer.getNextSymbol(true);
            if (symbol != Symbol::Equals) throw Failure{"\"=\" expected", line};
            symbol = m_lexer.getNextSymbol(true);
            if (symbol != Symbol::String && symbol != Symbol::Word)
                throw Failure{"String or text expected", line};
            m_attributes[name] = m_lexer.text;
            symbol = m_lexer.getNextSymbol(true);
        }
        if (symbol == Symbol::Slash) {
            m_selfClosing = true;
            symbol = m_lexer.getNextSymbol(true);
        }
        if (symbol != Symbol::TagClose) throw Failure{"\">\" expected", line};
    }

    /// Of the root, nothing behind it is read.
    std::unique_ptr<Node> getNode(bool isRoot)
    {
        if (m_kind != 1) return nullptr;
        auto node = std::make_unique<Node>();
        node->name = m_name;
        node->attributes = m_attributes;
        if (m_selfClosing) {
            node->line = m_lexer.line;
            if (!isRoot) getNextElement();
            return node;
        }
        getNextElement();
        node->line = m_lexer.line;
        if (m_kind == 3) {
            node->text = m_name;
            getNextElement();
        } else {
            while (m_kind == 1) node->children.push_back(getNode(false));
        }
        if (m_kind != 2 || m_name != node->name)
            throw Failure{"Missing closing tag for " + node->name, node->line};
        if (!isRoot) getNextElement();
        return node;
    }

private:
    Lexer m_lexer;
    std::map<std::string, std::string> m_attributes;
    bool m_selfClosing = false;
    int m_kind = 0;
    std::string m_name;
};

} // namespace literalxml
