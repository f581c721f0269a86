#include "logview.h"

#include "apps/controller/addresses.h"
#include "theme.h"

#include <algorithm>
#include <QEvent>
#include <QFontDatabase>
#include <QRegularExpression>
#include <QScrollBar>
#include <QSyntaxHighlighter>

namespace bench {

namespace {

constexpr int readMilliseconds = 200;

enum class Line
{
    Plain,
    Periodic,
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
    const bool isTold = type == QLatin1String("TELL") &&
                        (address == controller::voltageReadBack || address == controller::samples ||
                         address == controller::packet);
    return isTold || address == controller::counter ? Line::Periodic : Line::Plain;
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
    m_timer.setInterval(readMilliseconds);
    connect(&m_timer, &QTimer::timeout, this, &LogView::readMore);
}

void LogView::follow(const QString& path)
{
    m_timer.stop();
    m_file.close();
    m_partial.clear();
    m_file.setFileName(path);
    if (path.isEmpty()) return;
    if (!m_file.open(QIODevice::ReadOnly)) {
        appendPlainText(tr("%1: %2").arg(path, m_file.errorString()));
        return;
    }
    m_timer.start();
}

void LogView::readMore()
{
    if (!m_file.isOpen()) return;
    const qint64 size = m_file.size();
    if (size < m_file.pos()) m_file.seek(0);
    const qint64 behind = size - m_file.pos();
    if (behind == 0) return;
    QByteArray text = m_partial;
    m_partial.clear();
    if (behind > chunkBytes) {
        const qint64 skipped = behind - chunkBytes;
        m_file.seek(size - chunkBytes);
        text = m_file.read(chunkBytes);
        text.remove(0, text.indexOf('\n') + 1);
        text.prepend(tr("... %1 bytes are in the file only ...\n").arg(skipped).toUtf8());
    } else {
        text += m_file.read(behind);
    }
    // A line without an end is kept for the next time, but not without limit.
    const int end = text.lastIndexOf('\n');
    if (end < 0 && text.size() < chunkBytes) {
        m_partial = text;
        return;
    }
    if (end >= 0) {
        m_partial = text.mid(end + 1);
        text.truncate(end);
    }
    QStringList lines = QString::fromUtf8(text).split(QLatin1Char('\n'));
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const QString& line) { return lineKind(line) == Line::Periodic; }),
                lines.end());
    if (lines.isEmpty()) return;
    // Whoever has scrolled up to read stays there.
    const int column = horizontalScrollBar()->value();
    m_follows = verticalScrollBar()->value() == verticalScrollBar()->maximum();
    appendPlainText(lines.join(QLatin1Char('\n')));
    horizontalScrollBar()->setValue(column);
    if (m_follows) verticalScrollBar()->setValue(verticalScrollBar()->maximum());
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
