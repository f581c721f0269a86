#include "grouplist.h"

#include "elementlines.h"

#include <algorithm>
#include <QCoreApplication>
#include <QRegularExpression>
#include <QTextCodec>
#include <string>
#include <vector>

namespace descriptions {

namespace {

constexpr int quotedLength = 40; ///< of what a problem quotes, such as a tag's name

QString tr(const char* text)
{
    return QCoreApplication::translate("GroupList", text);
}

QString quoted(const std::string& text)
{
    const std::string beginning = text.substr(0, 4 * (quotedLength + 1)); // no character is longer
    return shortened(QString::fromStdString(beginning), quotedLength);
}

/// The number that a text means without any doubt; false when there is none.
bool plainNumber(const std::string& value, qlonglong* number)
{
    const QByteArray text = QByteArray::fromStdString(value).trimmed();
    bool ok = false;
    if (text.startsWith("0x"))
        *number = text.mid(2).toLongLong(&ok, 16);
    else if (text.startsWith("0b"))
        *number = text.mid(2).toLongLong(&ok, 2);
    else
        *number = text.toLongLong(&ok, 10);
    return ok;
}

/// What is none gives the default, whatever that is.
bool isNumber(const DocNode& node, const char* attribute)
{
    return node.findAttrInt(attribute, 0) == node.findAttrInt(attribute, -1);
}

/// Tag and name, as they help to find an element.
QString label(const DocNode& node)
{
    const std::string name = node.findAttr("Name", std::string());
    return name.empty() ? quoted(node.name) : quoted(node.name) + QLatin1Char(' ') + quoted(name);
}

/// "no Id", and whether it is there under a name of other case.
QString missing(const DocNode& node, const char* attribute)
{
    const QString name = QLatin1String(attribute);
    for (const auto& [other, value] : node.attributes) {
        if (name.compare(QLatin1String(other.c_str()), Qt::CaseInsensitive) != 0 || other == attribute)
            continue;
        return tr("no %1 (there is \"%2\", and case counts)").arg(name, quoted(other));
    }
    return tr("no %1").arg(name);
}

struct KeywordList
{
    const char* attribute;
    QStringList keywords;
};

const std::vector<KeywordList>& keywordLists()
{
    static const std::vector<KeywordList> lists{
        {"Formats", {"Ascii", "Bin"}},
        {"Properties",
         {"StoreFrame", "StoreContinous", "StoreLocal", "StoreRetrigger", "StoreGroup", "ShowChannels",
          "ShowSource", "ShowAverage", "ShowSampleTime", "ShowStream", "HidePage"}},
        {"ChannelDescr", {"Number", "Name", "Signal", "Group"}},
    };
    return lists;
}

/// Empty: it is not left out for itself.
QString reasonToLeaveOut(const DataGroup& group, const DocNode& node)
{
    QStringList reasons;
    if (group.name.isEmpty()) reasons += missing(node, "Name");
    for (const auto& [attribute, number] : {std::pair("Id", group.id), std::pair("Trigger", group.trigger)}) {
        if (number >= 0) continue;
        const std::string text = node.findAttr(attribute, std::string());
        const QString name = QLatin1String(attribute);
        if (text.empty())
            reasons += missing(node, attribute);
        else if (!isNumber(node, attribute))
            reasons += tr("its %1 \"%2\" is no number").arg(name, quoted(text));
        else
            reasons += tr("its %1 is %2, below 0").arg(name, QString::number(number));
    }
    return reasons.join(QLatin1String(", "));
}

/// The first line that is not UTF-8; 0 when there is none.
int firstForeignLine(std::string_view source)
{
    constexpr std::size_t longestPiece = 65536;
    const QTextCodec* codec = QTextCodec::codecForName("UTF-8");
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    int line = 1;
    while (!source.empty()) {
        const std::string_view piece = source.substr(0, longestPiece);
        const std::string_view part = piece.substr(0, piece.find('\n')); // a line, or some of it
        const bool isWhole = part.size() < piece.size();
        codec->toUnicode(part.data(), int(part.size()), &state);
        if (state.invalidChars > 0 || (isWhole && state.remainingChars > 0)) return line;
        line += int(isWhole);
        source.remove_prefix(part.size() + std::size_t(isWhole));
    }
    return state.remainingChars > 0 ? line : 0;
}

class Lister
{
public:
    explicit Lister(int mostProblems)
        : m_mostProblems(mostProblems)
    {
    }

    GroupList list(const DocNode* root, std::string_view source)
    {
        if (root == nullptr) {
            tellEmptyDocument(source);
            return m_list;
        }
        QMap<int, DataGroup> groups;
        DataGroup::parseDataGroups(root, groups);
        if (groups.isEmpty()) tellError(0, "No data groups");
        tellText(source);
        const QMap<int, int> ids = DataGroup::sortGroupsBySequence(groups);
        const std::vector<const DocNode*> nodes(root->children.begin(), root->children.end());
        std::vector<int> lines = childLines(source);
        lines.resize(nodes.size());
        m_list.groups.reserve(ids.size());
        for (int place = 0; place < int(nodes.size()); ++place) {
            const DocNode& node = *nodes[std::size_t(place)];
            const int line = lines[std::size_t(place)];
            if (const auto id = ids.find(place); id != ids.end()) {
                m_list.groups.append({groups.value(*id), line});
                for (const char* attribute : {"Id", "Trigger", "Algorithm"})
                    checkNumber(line, node, attribute);
                checkKeywords(line, node);
                continue;
            }
            tell(line, [&] {
                const DataGroup group(&node, place);
                const QString reason = reasonToLeaveOut(group, node);
                if (!reason.isEmpty()) return tr("<%1> is left out: %2").arg(label(node), reason);
                const auto other = std::size_t(groups.value(group.id).sequence);
                return tr("<%1> is replaced by <%2> of line %3, which has the same Id %4")
                    .arg(label(node), label(*nodes[other]), QString::number(lines[other]),
                         QString::number(group.id));
            });
        }
        return m_list;
    }

private:
    /// `compose` gives the text, if that is wanted.
    template <typename Compose> void tell(int line, const Compose& compose, bool isError = false)
    {
        if (m_list.problems.size() < m_mostProblems)
            m_list.problems.append({compose(), line, isError});
        else
            ++m_list.unlisted;
    }

    void tellError(int line, const char* text)
    {
        tell(
            line, [text] { return tr(text); }, true);
    }

    void tellEmptyDocument(std::string_view source)
    {
        if (source.find_first_not_of(" \t\n\v\f\r") == std::string_view::npos)
            tellError(0, "No data groups: the file is empty");
        else if (source.substr(0, 3) == "\xEF\xBB\xBF")
            tellError(1, "No data groups: the file begins with a byte-order mark, which is not read");
        else
            tellError(1, "No data groups: the file does not begin with a tag");
    }

    /// What is not read as it stands.
    void tellText(std::string_view source)
    {
        const std::string_view text = source.substr(0, source.find('\0'));
        if (text.size() < source.size())
            tell(1 + int(std::count(text.begin(), text.end(), '\n')),
                 [] { return tr("A zero byte ends the text here; the rest is not read"); });
        if (const int line = firstForeignLine(text))
            tell(line, [] { return tr("Not in UTF-8, from this line on; such characters are replaced"); });
    }

    /// Numbers of a group that is listed, which may have been read as another one than was meant.
    void checkNumber(int line, const DocNode& node, const char* attribute)
    {
        const std::string text = node.findAttr(attribute, std::string());
        if (text.empty()) return;
        const int number = node.findAttrInt(attribute, -1);
        qlonglong meant = 0;
        if (plainNumber(text, &meant) && meant == number) return;
        tell(line, [&] {
            return (isNumber(node, attribute) ? tr("<%1>: its %2 \"%3\" is read as %4")
                                              : tr("<%1>: its %2 \"%3\" is no number, %4 is taken"))
                .arg(label(node), QLatin1String(attribute), quoted(text), QString::number(number));
        });
    }

    /// Words that switch nothing on, or something that they only contain.
    void checkKeywords(int line, const DocNode& node)
    {
        static const QRegularExpression separators(QStringLiteral("[^A-Za-z0-9_]+"));
        for (const KeywordList& list : keywordLists()) {
            const auto text = QString::fromStdString(node.findAttr(list.attribute, std::string()));
            for (const QString& word : text.split(separators, Qt::SkipEmptyParts)) {
                if (list.keywords.contains(word)) continue;
                tell(line, [&] {
                    QStringList contained;
                    for (const QString& keyword : list.keywords)
                        if (word.contains(keyword)) contained += keyword;
                    const QString name = QLatin1String(list.attribute);
                    const QString shown = shortened(word, quotedLength);
                    if (contained.isEmpty())
                        return tr("<%1>: \"%2\" in its %3 is no keyword").arg(label(node), shown, name);
                    return tr("<%1>: \"%2\" in its %3 counts as %4")
                        .arg(label(node), shown, name, contained.join(QLatin1String(", ")));
                });
            }
        }
    }

    const int m_mostProblems;
    GroupList m_list;
};

} // namespace

GroupList listGroups(const XmlDoc& document, std::string_view source, int mostProblems)
{
    return Lister(mostProblems).list(document.getChild(), source);
}

QString shortened(const QString& text, int length)
{
    QString line = text.left(length + 1).simplified();
    if (text.size() > length) line = line.left(length - 1) + QStringLiteral("\u2026");
    for (QChar& c : line)
        if (c.category() == QChar::Other_Control) c = QChar::ReplacementCharacter;
    return line;
}

} // namespace descriptions
