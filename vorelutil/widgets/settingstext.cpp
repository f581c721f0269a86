#include "settingstext.h"

#include <QSet>
#include <QTextCodec>

namespace settingstext {

namespace {

constexpr char startLine[] =
    "; Settings, format 1. Keep this line and the last one: without it the file counts as cut off.";
constexpr char startMark[] = "; Settings, format 1.";
constexpr char endLine[] = "; End of settings.";
constexpr char byteOrderMark[] = "\xEF\xBB\xBF";

void appendEscaped(QString* out, QChar c)
{
    switch (c.unicode()) {
    case '\n':
        *out += QLatin1String("\\n");
        break;
    case '\r':
        *out += QLatin1String("\\r");
        break;
    case '\t':
        *out += QLatin1String("\\t");
        break;
    case ' ':
        *out += QLatin1String("\\s");
        break;
    default:
        *out += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
    }
}

/// `marks` are the characters that would mean something at this place.
QByteArray encode(const QString& text, const char* marks)
{
    QString out;
    const QLatin1String special(marks);
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        const bool atEnd = i == 0 || i == text.size() - 1;
        if (c.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
            out += c;
            out += text[++i];
        } else if (c == QLatin1Char('\\') || special.contains(c)) {
            out += QLatin1Char('\\');
            out += c;
        } else if (!c.isPrint() || (c == QLatin1Char(' ') && atEnd)) {
            appendEscaped(&out, c);
        } else {
            out += c;
        }
    }
    return out.toUtf8();
}

QString decode(const QByteArray& bytes)
{
    const QString in = QString::fromUtf8(bytes);
    QString out(QLatin1String("")); // empty is not null
    out.reserve(in.size());
    for (int i = 0; i < in.size(); ++i) {
        if (in[i] != QLatin1Char('\\') || i + 1 == in.size()) {
            out += in[i];
            continue;
        }
        const QChar c = in[++i];
        bool isCode = false;
        const ushort code = c == QLatin1Char('u') ? in.midRef(i + 1, 4).toUShort(&isCode, 16) : ushort(0);
        if (isCode && i + 4 < in.size()) {
            out += QChar(code);
            i += 4;
        } else if (c == QLatin1Char('n')) {
            out += QLatin1Char('\n');
        } else if (c == QLatin1Char('r')) {
            out += QLatin1Char('\r');
        } else if (c == QLatin1Char('t')) {
            out += QLatin1Char('\t');
        } else if (c == QLatin1Char('s')) {
            out += QLatin1Char(' ');
        } else {
            out += c;
        }
    }
    return out;
}

int findUnescaped(const QByteArray& text, char wanted)
{
    for (int i = 0; i < text.size(); ++i) {
        if (text[i] == '\\') {
            ++i;
        } else if (text[i] == wanted) {
            return i;
        }
    }
    return -1;
}

/// Walks over the lines of a file.
class Lines
{
public:
    enum Kind
    {
        Start,
        End,
        Comment, ///< or blank
        Section,
        Value,
        Other
    };

    explicit Lines(const QByteArray& bytes)
        : m_bytes(bytes)
        , m_next(bytes.startsWith(byteOrderMark) ? 3 : 0)
    {
    }

    bool next()
    {
        if (m_next >= m_bytes.size()) return false;
        const int end = m_bytes.indexOf('\n', m_next);
        m_raw = m_bytes.mid(m_next, end < 0 ? -1 : end - m_next);
        m_next = end < 0 ? m_bytes.size() : end + 1;
        m_kind = classify(m_raw.trimmed());
        return true;
    }

    Kind kind() const { return m_kind; }
    const QByteArray& raw() const { return m_raw; }      ///< without the line feed
    const QString& owner() const { return m_key.first; } ///< of the section
    const Key& key() const { return m_key; }             ///< of a value
    QString value() const { return decode(m_value); }

private:
    Kind classify(const QByteArray& line)
    {
        if (line.startsWith(startMark)) return Start;
        if (line == endLine) return End;
        if (line.isEmpty() || line[0] == ';' || line[0] == '#') return Comment;
        if (line[0] == '[') {
            const int close = findUnescaped(line, ']');
            if (close < 0) return Other;
            m_key.first = decode(line.mid(1, close - 1).trimmed());
            return Section;
        }
        const int equals = findUnescaped(line, '=');
        if (equals < 0 || m_key.first.isEmpty()) return Other;
        m_key.second = decode(line.left(equals).trimmed());
        m_value = line.mid(equals + 1).trimmed();
        return m_key.second.isEmpty() ? Other : Value;
    }

    const QByteArray& m_bytes;
    int m_next;
    Kind m_kind = Other;
    QByteArray m_raw;
    Key m_key;
    QByteArray m_value; ///< encoded
};

bool isUtf8(const QByteArray& bytes)
{
    QTextCodec::ConverterState state;
    QTextCodec::codecForName("UTF-8")->toUnicode(bytes.constData(), bytes.size(), &state);
    return state.invalidChars == 0 && state.remainingChars == 0;
}

QByteArray valueLine(const Key& key, const QString& value)
{
    return encode(key.second, "=[;#") + '=' + encode(value, "") + '\n';
}

/// Takes the values of `owner` out of `added`, as lines.
QByteArray takeLines(Changes* added, const QString& owner)
{
    QByteArray lines;
    auto it = added->lowerBound(Key(owner, QString()));
    while (it != added->end() && it.key().first == owner) {
        lines += valueLine(it.key(), it.value());
        it = added->erase(it);
    }
    return lines;
}

} // namespace

bool isWhole(const QByteArray& bytes)
{
    if (bytes.contains('\0')) return false;
    bool isFirst = true, hasStart = false, hasEnd = false, hasSection = false, hasStrayText = false;
    for (Lines lines(bytes); lines.next(); isFirst = false) {
        hasStart = hasStart || (isFirst && lines.kind() == Lines::Start);
        hasEnd = hasEnd || lines.kind() == Lines::End;
        hasSection = hasSection || lines.kind() == Lines::Section;
        hasStrayText = hasStrayText || (lines.kind() == Lines::Other && !hasSection);
    }
    if (hasStart) return hasEnd;
    // Written by hand, or cut off within the first line.
    const bool isCut = !bytes.isEmpty() && QByteArray(startLine).startsWith(bytes);
    return !isCut && !hasStrayText && isUtf8(bytes);
}

Values read(const QByteArray& bytes)
{
    Values values;
    for (Lines lines(bytes); lines.next();) {
        if (lines.kind() == Lines::Value && !values.contains(lines.key())) {
            values.insert(lines.key(), lines.value());
        }
    }
    return values;
}

QByteArray merge(const QByteArray& bytes, const Changes& changes)
{
    Changes added;
    const Values present = read(bytes);
    for (auto it = changes.begin(); it != changes.end(); ++it) {
        if (!it.value().isNull() && !present.contains(it.key())) added.insert(it.key(), it.value());
    }

    QByteArray out = startLine;
    out += '\n';
    int sectionEnd = 0; // behind the last value of the section
    QString owner;
    QSet<Key> written;
    for (Lines lines(bytes); lines.next();) {
        const Lines::Kind kind = lines.kind();
        if (kind == Lines::Start || kind == Lines::End) continue;
        if (kind == Lines::Section) {
            out.insert(sectionEnd, takeLines(&added, owner));
            owner = lines.owner();
        }
        const auto change = kind == Lines::Value ? changes.find(lines.key()) : changes.end();
        if (change == changes.end()) {
            out += lines.raw() + '\n';
        } else if (!change.value().isNull() && !written.contains(change.key())) {
            out += valueLine(change.key(), change.value());
            written.insert(change.key());
        }
        if (kind == Lines::Section || kind == Lines::Value) sectionEnd = out.size();
    }
    out.insert(sectionEnd, takeLines(&added, owner));
    while (!added.isEmpty()) {
        owner = added.firstKey().first;
        out += "\n[" + encode(owner, "]") + "]\n" + takeLines(&added, owner);
    }
    while (out.endsWith("\n\n")) out.chop(1);
    return out + '\n' + endLine + '\n';
}

} // namespace settingstext
