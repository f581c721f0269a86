#include "logview.h"

#include <QFontDatabase>
#include <QScrollBar>

namespace bench {

namespace {
constexpr int readMilliseconds = 200;
} // namespace

LogView::LogView(QWidget* parent)
    : QPlainTextEdit(parent)
{
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
    // Whoever has scrolled up to read stays there; appendPlainText follows only from the bottom.
    const int column = horizontalScrollBar()->value();
    appendPlainText(QString::fromUtf8(text));
    horizontalScrollBar()->setValue(column);
}

} // namespace bench
