#include "logview.h"

#include "apps/controller/addresses.h"
#include "theme.h"

#include <algorithm>
#include <QEvent>
#include <QFontDatabase>
#include <QRegularExpression>
#include <QScrollBar>
#include <QSyntaxHighlighter>
#include <QVector>
#include <utility>

namespace bench {

namespace {

constexpr int readMilliseconds = 200;
constexpr int hurryMilliseconds = 10; ///< while there is more to read

enum class Line
{
    Plain,
    Telegram,
    Periodic, ///< a telegram that is left out
    Problem,
};

/// What a line is, by the forms of the trace log.
Line lineKind(const QString& line)
{
    static const QRegularExpression error(QStringLiteral("^[^ ]+ (?:ERROR|FATAL): "));
    static const QRegularExpression telegram(
        QStringLiteral("^[^ ]+ \\[[0-9.]+\\]: [rt]x: (\\w+) +Len=\\d+ Addr=([0-9a-f]+) Ind=-?\\d+ "
                       "CNo=-?\\d+-\\d+ ?([0-9a-f]*)"));
    const QRegularExpressionMatch match = telegram.match(line);
    if (!match.hasMatch()) return error.match(line).hasMatch() ? Line::Problem : Line::Plain;
    const QString type = match.captured(1);
    if (type == QLatin1String("ACK") && match.capturedRef(3) != QLatin1String("0")) return Line::Problem;
    const int address = int(match.capturedRef(2).toUInt(nullptr, 16));
    const bool isTold =
        type == QLatin1String("TELL") && (address == controller::voltageReadBack ||
                                          address == controller::samples || address == controller::packet);
    const bool isPeriodic = isTold || address == controller::counter || address == controller::flashBlock;
    return isPeriodic ? Line::Periodic : Line::Telegram;
}

} // namespace

class LogView::Highlighter : public QSyntaxHighlighter
{
public:
    using QSyntaxHighlighter::QSyntaxHighlighter;
    QColor colour;

protected:
    void highlightBlock(const QString& text) override
    {
        if (lineKind(text) == Line::Problem) setFormat(0, text.size(), colour);
    }
};

LogView::LogView(QWidget* parent)
    : QPlainTextEdit(parent)
    , m_highlighter(new Highlighter(document()))
{
    m_highlighter->colour = problemColour(palette());
    setReadOnly(true);
    setUndoRedoEnabled(false);
    setMaximumBlockCount(shownLines);
    setLineWrapMode(QPlainTextEdit::NoWrap);
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setFamily(QStringLiteral("monospace"));
    font.setStyleHint(QFont::Monospace);
    if (font.pointSizeF() > 0) font.setPointSizeF(font.pointSizeF() * 0.9);
    setFont(font);
    setAccessibleName(tr("Trace log"));
    connect(&m_timer, &QTimer::timeout, this, &LogView::readMore);
}

void LogView::follow(const QString& path)
{
    m_timer.stop();
    m_file.close();
    m_partial.clear();
    m_leftOut = 0;
    m_sinceShown.invalidate();
    m_file.setFileName(path);
    if (path.isEmpty()) return;
    if (!m_file.open(QIODevice::ReadOnly)) {
        appendPlainText(tr("%1: %2").arg(path, m_file.errorString()));
        return;
    }
    m_timer.start(readMilliseconds);
}

void LogView::readMore()
{
    if (!m_file.isOpen()) return;
    const qint64 size = m_file.size();
    if (size < m_file.pos()) {
        m_file.seek(0);
        m_partial.clear();
    }
    if (size == m_file.pos()) return;
    QByteArray text = m_partial + m_file.read(stepBytes);
    m_partial.clear();
    const bool isEnd = m_file.pos() >= size;
    if (m_timer.isActive()) m_timer.start(isEnd ? readMilliseconds : hurryMilliseconds);
    // A line without an end is kept for the next time, but not without limit.
    const int end = text.lastIndexOf('\n');
    if (end < 0 && text.size() < stepBytes) {
        m_partial = text;
        return;
    }
    if (end >= 0) {
        m_partial = text.mid(end + 1);
        text.truncate(end);
    }
    const QStringList lines = choose(QString::fromUtf8(text), isEnd);
    if (lines.isEmpty()) return;
    // Whoever has scrolled up to read stays there.
    const int column = horizontalScrollBar()->value();
    m_follows = verticalScrollBar()->value() == verticalScrollBar()->maximum();
    appendPlainText(lines.join(QLatin1Char('\n')));
    horizontalScrollBar()->setValue(column);
    if (m_follows) verticalScrollBar()->setValue(verticalScrollBar()->maximum());
}

/// What is shown of the lines. Of the telegrams the last ones, at the end of the file or every now and then.
QStringList LogView::choose(const QString& text, bool isEnd)
{
    QVector<std::pair<QStringRef, Line>> lines;
    qint64 excess = 0;
    for (const QStringRef& line : text.splitRef(QLatin1Char('\n'))) {
        const Line kind = lineKind(line.toString());
        if (kind == Line::Periodic) continue;
        if (kind == Line::Telegram) excess += line.size() + 1;
        lines.append({line, kind});
    }
    if (isEnd || !m_sinceShown.isValid() || m_sinceShown.hasExpired(readMilliseconds)) {
        excess -= telegramBytes;
        m_sinceShown.start();
    }
    QStringList shown;
    for (const auto& [line, kind] : qAsConst(lines)) {
        if (kind == Line::Telegram && excess > 0) {
            excess -= line.size() + 1;
            m_leftOut += line.size() + 1;
            continue;
        }
        if (m_leftOut > 0)
            shown += tr("... %1 bytes are in the file only ...").arg(std::exchange(m_leftOut, 0));
        shown += line.toString();
    }
    return shown.size() > shownLines ? shown.mid(shown.size() - shownLines) : shown;
}

/// A long line brings a scroll bar, which takes room from the end.
void LogView::resizeEvent(QResizeEvent* event)
{
    QPlainTextEdit::resizeEvent(event);
    if (m_follows) verticalScrollBar()->setValue(verticalScrollBar()->maximum());
}

void LogView::changeEvent(QEvent* event)
{
    QPlainTextEdit::changeEvent(event);
    if (event->type() != QEvent::PaletteChange) return;
    m_highlighter->colour = problemColour(palette());
    m_highlighter->rehighlight();
}

} // namespace bench
