#include "groupdescription.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <string_view>
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

QString tr(const char* text)
{
    return QCoreApplication::translate("GroupDescription", text);
}

/// A message of the parser, which was given no file name: " line 12: Comment expected".
descriptions::Problem parserProblem(const std::string& message)
{
    descriptions::Problem problem;
    problem.isError = true;
    const std::size_t colon = message.find(": ");
    const std::size_t number = std::strlen(" line ");
    std::size_t text = 0;
    if (message.compare(0, number, " line ") == 0 && colon != std::string::npos) {
        problem.line = QByteArray::fromStdString(message.substr(number, colon - number)).toInt();
        text = colon + 2;
    }
    problem.text = descriptions::shortened(QString::fromStdString(message.substr(text, 4 * messageLength)),
                                           messageLength);
    return problem;
}

GroupDescription failed(const QString& name, const QString& text)
{
    GroupDescription description;
    description.name = name;
    description.list.problems.append({text, 0, true});
    return description;
}

} // namespace

QString GroupDescription::problemText(const descriptions::Problem& problem) const
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
    try {
        // A tree takes many times the memory of its text.
        if (source.count('<') > GroupDescription::bracketLimit) {
            const QString text =
                tr("The character \"<\" stands there more than %1 times; the groups are not read");
            description.list.problems.append({text.arg(GroupDescription::bracketLimit), 0, true});
            return description;
        }
        XmlDoc document;
        document.setContent(source.toStdString(), std::string());
        const std::string_view text(source.constData(), std::size_t(source.size()));
        description.list = descriptions::listGroups(document, text, GroupDescription::problemLimit);
    } catch (const XmlError& error) {
        description.list.problems = {parserProblem(error.message)};
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

} // namespace bench
