#include "groupdescription.h"

#include "elementlines.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextCodec>
#include <vector>
#include <vorelutil/trace/error.h>
#include <vorelutil/xml/xmldoc.h>

// Resources of a static library are asked for by name, outside of namespaces.
static void initResources()
{
    Q_INIT_RESOURCE(bench);
}

namespace bench {

namespace {

constexpr int messageLength = 160; ///< of what a message quotes, such as a tag's name
constexpr int quotedLength = 40;

QString tr(const char* text)
{
    return QCoreApplication::translate("GroupDescription", text);
}

QString quoted(const std::string& text)
{
    return shortened(QString::fromUtf8(text.data(), int(std::min<std::size_t>(text.size(), messageLength))),
                     quotedLength);
}

/// A message of the parser, which was given no file name: " line 12: Comment expected".
GroupDescription::Problem parserProblem(const std::string& message)
{
    GroupDescription::Problem problem;
    problem.isError = true;
    const std::size_t colon = message.find(": ");
    const std::size_t number = std::strlen(" line ");
    std::size_t text = 0;
    if (message.compare(0, number, " line ") == 0 && colon != std::string::npos) {
        problem.line = QByteArray::fromStdString(message.substr(number, colon - number)).toInt();
        text = colon + 2;
    }
    problem.text = shortened(QString::fromStdString(message.substr(text, 4 * messageLength)), messageLength);
    return problem;
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

int lineOf(const QByteArray& source, qptrdiff position)
{
    return 1 + int(std::count(source.begin(), source.begin() + position, '\n'));
}

/// The first line that is not UTF-8; 0 when there is none.
int firstForeignLine(const QByteArray& source)
{
    const QTextCodec* codec = QTextCodec::codecForName("UTF-8");
    int line = 0;
    const char* const end = source.constData() + source.size();
    for (const char* begin = source.constData(); begin < end;) {
        ++line;
        const char* lineEnd = std::find(begin, end, '\n');
        if (std::any_of(begin, lineEnd, [](char c) { return (static_cast<unsigned char>(c) & 0x80) != 0; })) {
            QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
            codec->toUnicode(begin, int(lineEnd - begin), &state);
            if (state.invalidChars > 0 || state.remainingChars > 0) return line;
        }
        begin = lineEnd + 1;
    }
    return 0;
}

/// Fills a description from a document's root, which may be null.
class Reader
{
public:
    explicit Reader(GroupDescription* description)
        : m_description(*description)
    {
    }

    void read(const DocNode* root)
    {
        if (root == nullptr) return tellEmptyDocument();
        QMap<int, DataGroup> groups;
        DataGroup::parseDataGroups(root, groups);
        const QMap<int, int> ids = DataGroup::sortGroupsBySequence(groups);
        const std::vector<const DocNode*> nodes(root->children.begin(), root->children.end());
        const QVector<int> lines = linesOf(nodes);
        m_description.groups.reserve(ids.size());
        for (int place = 0; place < int(nodes.size()); ++place) {
            const DocNode& node = *nodes[std::size_t(place)];
            const int line = lines[place];
            const auto id = ids.find(place);
            if (id != ids.end()) {
                m_description.groups.append({groups.value(*id), line});
                checkNumber(line, node, "Id");
                checkNumber(line, node, "Trigger");
                checkNumber(line, node, "Algorithm");
            } else if (isFull()) {
                ++m_description.unlisted; // without composing its text
            } else if (const QString reason = reasonToLeaveOut(node); !reason.isEmpty()) {
                add(line, tr("<%1> is left out: %2").arg(label(node), reason));
            } else {
                const DataGroup& other = groups[node.findAttrInt("Id", -1)];
                const DocNode& otherNode = *nodes[std::size_t(other.sequence)];
                add(line, tr("<%1> is replaced by <%2> of line %3, which has the same Id %4")
                              .arg(label(node), label(otherNode))
                              .arg(lines[other.sequence])
                              .arg(other.id));
            }
        }
        if (m_description.groups.isEmpty()) m_description.problems.prepend({tr("No data groups"), 0, true});
    }

    void add(int line, const QString& text, bool isError = false)
    {
        if (isFull())
            ++m_description.unlisted;
        else
            m_description.problems.append({text, line, isError});
    }

private:
    bool isFull() const { return m_description.problems.size() >= GroupDescription::problemLimit - 1; }

    /// Where the elements begin; where the parser was after their tags if that is not found out.
    QVector<int> linesOf(const std::vector<const DocNode*>& nodes) const
    {
        QVector<int> lines = childLines(m_description.source);
        const bool isSure = lines.size() == int(nodes.size()) &&
                            std::equal(lines.begin(), lines.end(), nodes.begin(),
                                       [](int line, const DocNode* node) { return line <= node->line; });
        if (isSure) return lines;
        lines.clear();
        for (const DocNode* node : nodes) lines.append(node->line);
        return lines;
    }

    void tellEmptyDocument()
    {
        const QByteArray& source = m_description.source;
        if (source.trimmed().isEmpty())
            add(0, tr("No data groups: the file is empty"), true);
        else if (source.startsWith("\xEF\xBB\xBF"))
            add(1, tr("No data groups: the file begins with a byte-order mark, which is not read"), true);
        else
            add(1, tr("No data groups: the file does not begin with a tag"), true);
    }

    /// Tag and name, as they help to find an element.
    static QString label(const DocNode& node)
    {
        const std::string name = node.findAttr("Name", std::string());
        return name.empty() ? quoted(node.name) : quoted(node.name) + QLatin1Char(' ') + quoted(name);
    }

    /// Empty: it is not left out for itself.
    static QString reasonToLeaveOut(const DocNode& node)
    {
        QStringList reasons;
        if (node.findAttr("Name", std::string()).empty()) reasons += tr("no Name");
        for (const char* attribute : {"Id", "Trigger"}) {
            if (node.findAttrInt(attribute, -1) >= 0) continue;
            const std::string text = node.findAttr(attribute, std::string());
            if (text.empty())
                reasons += tr("no %1").arg(QLatin1String(attribute));
            else if (!isNumber(node, attribute))
                reasons += tr("its %1 \"%2\" is no number").arg(QLatin1String(attribute), quoted(text));
            else
                reasons += tr("its %1 is %2, below 0")
                               .arg(QLatin1String(attribute))
                               .arg(node.findAttrInt(attribute, 0));
        }
        return reasons.join(QLatin1String(", "));
    }

    /// What is none gives the default, whatever that is.
    static bool isNumber(const DocNode& node, const char* attribute)
    {
        return node.findAttrInt(attribute, 0) == node.findAttrInt(attribute, -1);
    }

    /// Numbers of a group that is listed, which may have been read as another one than was meant.
    void checkNumber(int line, const DocNode& node, const char* attribute)
    {
        const std::string text = node.findAttr(attribute, std::string());
        if (text.empty()) return;
        const int number = node.findAttrInt(attribute, -1);
        qlonglong meant = 0;
        if (plainNumber(text, &meant) && meant == number) return;
        add(line, (isNumber(node, attribute) ? tr("<%1>: its %2 \"%3\" is read as %4")
                                             : tr("<%1>: its %2 \"%3\" is no number, %4 is taken"))
                      .arg(label(node), QLatin1String(attribute), quoted(text), QString::number(number)));
    }

    GroupDescription& m_description;
};

GroupDescription failed(const QString& name, const QString& text)
{
    GroupDescription description;
    description.name = name;
    description.problems.append({text, 0, true});
    return description;
}

} // namespace

QString GroupDescription::problemText(const Problem& problem) const
{
    if (problem.line <= 0) return tr("%1: %2").arg(name, problem.text);
    return tr("%1, line %2: %3").arg(name, QString::number(problem.line), problem.text);
}

GroupDescription readGroups(const QString& path)
{
    const QFileInfo info(path);
    const QString name = info.fileName().isEmpty() ? QDir::toNativeSeparators(path) : info.fileName();
    const auto cannotOpen = [&](const QString& reason) {
        const QString message = QString::fromStdString(FileOpenError(path.toStdString(), false).message);
        return failed(name, QString(message).replace(QLatin1Char('\n'), QLatin1Char(' ')) +
                                QLatin1String(": ") + reason);
    };
    if (info.exists() && !info.isFile())
        return cannotOpen(info.isDir() ? tr("it is a folder") : tr("it is no ordinary file"));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return cannotOpen(file.errorString());
    try {
        constexpr int limit = GroupDescription::readLimit;
        QByteArray source;
        if (file.size() <= limit) source = file.read(limit + 1); // it may have grown
        if (file.error() != QFileDevice::NoError) return failed(name, file.errorString());
        if (std::max(file.size(), qint64(source.size())) > limit)
            return failed(name, tr("The file is longer than %1 MB and is not read").arg(limit >> 20));
        return parseGroups(source, name);
    } catch (const std::bad_alloc&) {
        return failed(name, tr("There is no memory for the file"));
    }
}

GroupDescription parseGroups(const QByteArray& source, const QString& name)
{
    GroupDescription description;
    description.name = name;
    description.source = source;
    Reader reader(&description);
    try {
        // A tree takes many times the memory of its text.
        if (source.count('<') > GroupDescription::tagLimit) {
            reader.add(0, tr("More than %1 tags, which are not read").arg(GroupDescription::tagLimit), true);
            return description;
        }
        XmlDoc document;
        document.setContent(source.toStdString(), std::string());
        if (const int zero = source.indexOf('\0'); zero >= 0)
            reader.add(lineOf(source, zero), tr("A zero byte ends the text here; the rest is not read"));
        if (const int line = firstForeignLine(source))
            reader.add(line, tr("Not in UTF-8, from this line on; such characters are replaced"));
        reader.read(document.getChild());
    } catch (const XmlError& error) {
        description.problems = {parserProblem(error.message)};
    } catch (const std::bad_alloc&) {
        description = failed(name, tr("There is no memory for the file"));
    }
    return description;
}

GroupDescription exampleGroups()
{
    initResources();
    QFile file(QStringLiteral(":/bench/measurements.xml"));
    if (!file.open(QIODevice::ReadOnly)) return failed(file.fileName(), file.errorString());
    return parseGroups(file.readAll(), QStringLiteral("measurements.xml"));
}

QString shortened(const QString& text, int length)
{
    const QString line = text.left(length + 1).simplified();
    return text.size() <= length ? line : line.left(length - 1) + QStringLiteral("\u2026");
}

} // namespace bench
