#include "sourceview.h"

#include "theme.h"

#include <algorithm>
#include <QEvent>
#include <QFontDatabase>
#include <QPainter>
#include <QScrollBar>
#include <QTextBlock>

namespace bench {

namespace {

constexpr int margin = 5;
constexpr int markAlpha = 70; ///< a text is read through it

/// A line's text as a view can hold it: on one line, and no longer than a person reads.
QString lineText(const char* begin, const char* end)
{
    if (end > begin && end[-1] == '\r') --end;
    // The longest characters have 4 bytes.
    const int bytes = int(std::min<qptrdiff>(end - begin, 4 * SourceView::shownCharacters));
    QString text = QString::fromUtf8(begin, bytes);
    const bool isCut = text.size() > SourceView::shownCharacters || bytes < end - begin;
    text.truncate(SourceView::shownCharacters);
    for (QChar& c : text) {
        const bool isBreak = c == QChar::ParagraphSeparator || c == QChar::LineSeparator;
        const bool isControl = c.unicode() < 0x20 && c != QLatin1Char('\t');
        if (isBreak || isControl || (c >= 0xFDD0 && c <= 0xFDEF)) c = QChar::ReplacementCharacter;
    }
    if (isCut) text += SourceView::tr(" ... (%1 bytes)").arg(end - begin);
    return text;
}

/// Fainter than a text on a window, and readable: its contrast is 5:1 or more in the program's palettes.
QColor numberColour(const QPalette& palette)
{
    const QColor& text = palette.color(QPalette::WindowText);
    const QColor& back = palette.color(QPalette::Window);
    const auto mixed = [](int front, int behind) { return (7 * front + 3 * behind) / 10; };
    return {mixed(text.red(), back.red()), mixed(text.green(), back.green()),
            mixed(text.blue(), back.blue())};
}

} // namespace

/// The column of the numbers, beside the text.
class SourceView::Numbers : public QWidget
{
public:
    explicit Numbers(SourceView* view)
        : QWidget(view)
        , m_view(*view)
    {
    }

protected:
    void paintEvent(QPaintEvent* event) override
    {
        QPainter painter(this);
        painter.fillRect(event->rect(), palette().color(QPalette::Window));
        painter.setPen(numberColour(palette()));
        painter.setFont(m_view.font());
        for (QTextBlock block = m_view.firstVisibleBlock(); block.isValid(); block = block.next()) {
            const QRectF place = m_view.blockBoundingGeometry(block).translated(m_view.contentOffset());
            if (place.top() > height()) break;
            const int line = m_view.lineOfBlock(block.blockNumber());
            if (line > 0)
                painter.drawText(QRectF(0, place.top(), width() - margin, place.height()),
                                 Qt::AlignRight | Qt::AlignVCenter, QString::number(line));
        }
    }

private:
    SourceView& m_view;
};

SourceView::SourceView(QWidget* parent)
    : QPlainTextEdit(parent)
    , m_numbers(new Numbers(this))
{
    setReadOnly(true);
    setUndoRedoEnabled(false);
    setAcceptDrops(false); // the page takes them
    setLineWrapMode(QPlainTextEdit::NoWrap);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setFamily(QStringLiteral("monospace"));
    font.setStyleHint(QFont::Monospace);
    if (font.pointSizeF() > 0) font.setPointSizeF(font.pointSizeF() * 0.9);
    setFont(font);
    setAccessibleName(tr("Text of the description"));
    connect(this, &QPlainTextEdit::updateRequest, m_numbers, QOverload<>::of(&QWidget::update));
}

void SourceView::showSource(const QByteArray& source)
{
    m_source = source;
    m_lineCount = source.isEmpty() ? 0 : source.count('\n') + int(!source.endsWith('\n'));
    m_marked = 0;
    fill(1);
    applyMark();
}

void SourceView::markLine(int line, bool isProblem)
{
    m_marked = std::clamp(line, 0, m_lineCount);
    m_isProblem = isProblem;
    if (m_marked > 0 && (m_marked < m_firstLine || m_marked > m_lastLine))
        fill(std::max(1, std::min(m_marked - shownLines / 2, m_lineCount - shownLines + 1)));
    applyMark();
    if (m_marked == 0) return;
    setTextCursor(QTextCursor(document()->findBlockByNumber(blockOfLine(m_marked))));
    centerCursor();
    horizontalScrollBar()->setValue(0);
}

void SourceView::fill(int firstLine)
{
    m_firstLine = firstLine;
    m_lastLine = std::min(m_lineCount, firstLine + shownLines - 1);
    const char* begin = m_source.constData();
    const char* const end = begin + m_source.size();
    for (int line = 1; line < firstLine; ++line) begin = std::find(begin, end, '\n') + 1;
    QStringList lines;
    if (firstLine > 1) lines += tr("... the lines before %1 are left out ...").arg(firstLine);
    for (int line = firstLine; line <= m_lastLine; ++line) {
        const char* lineEnd = std::find(begin, end, '\n');
        lines += lineText(begin, lineEnd);
        begin = lineEnd + 1;
    }
    if (m_lastLine < m_lineCount)
        lines += tr("... %1 more lines are left out ...").arg(m_lineCount - m_lastLine);
    setPlainText(lines.join(QLatin1Char('\n')));
    setViewportMargins(numbersWidth(), 0, 0, 0);
    placeNumbers();
}

void SourceView::applyMark()
{
    QList<QTextEdit::ExtraSelection> marks;
    if (m_marked > 0) {
        QTextEdit::ExtraSelection mark;
        mark.cursor = QTextCursor(document()->findBlockByNumber(blockOfLine(m_marked)));
        QColor colour = m_isProblem ? problemColour(palette()) : palette().color(QPalette::Highlight);
        colour.setAlpha(markAlpha);
        mark.format.setBackground(colour);
        mark.format.setProperty(QTextFormat::FullWidthSelection, true);
        marks.append(mark);
    }
    setExtraSelections(marks);
}

/// A remark stands before the first line if there are others before it.
int SourceView::blockOfLine(int line) const
{
    return line - m_firstLine + int(m_firstLine > 1);
}

int SourceView::lineOfBlock(int block) const
{
    const int line = block + m_firstLine - int(m_firstLine > 1);
    return line >= m_firstLine && line <= m_lastLine ? line : 0;
}

int SourceView::numbersWidth() const
{
    return 2 * margin + fontMetrics().horizontalAdvance(QString::number(std::max(m_lineCount, 10)));
}

void SourceView::placeNumbers()
{
    const QRect inside = contentsRect();
    m_numbers->setGeometry(inside.left(), inside.top(), numbersWidth(), inside.height());
}

void SourceView::resizeEvent(QResizeEvent* event)
{
    QPlainTextEdit::resizeEvent(event);
    placeNumbers();
}

void SourceView::changeEvent(QEvent* event)
{
    QPlainTextEdit::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) applyMark();
}

} // namespace bench
