#pragma once

#include <QElapsedTimer>
#include <QFile>
#include <QPlainTextEdit>
#include <QTimer>

namespace bench {

/// Shows the end of a growing trace log.
///
/// Telegrams that come by themselves or again and again are left out: what is told of samples and read-back,
/// and the counter's requests and answers. Errors and refusals stand out by their colour.
///
/// Bounded in lines, and in what it reads at a time. When more telegrams come than a person can read, it
/// leaves out the most of them, and says so; errors, refusals and what the console itself writes are always
/// there. A file that shrank or was replaced is read from its start.
class LogView : public QPlainTextEdit
{
    Q_OBJECT

public:
    static constexpr int shownLines = 2000;
    static constexpr int telegramBytes = 32 * 1024; ///< of telegrams, shown at a time
    static constexpr int stepBytes = 256 * 1024;    ///< read at a time

    explicit LogView(QWidget* parent = nullptr);

    /// Follows `path`; an empty path shows nothing more.
    void follow(const QString& path);

public slots:
    /// Reads what was added, at most a step of it, as a timer does five times a second, and more often when
    /// there is more.
    void readMore();

protected:
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    class Highlighter;

    QStringList choose(const QString& text, bool isEnd);

    Highlighter* m_highlighter;
    bool m_follows = true; ///< the end is shown, and is to stay so
    QFile m_file;
    QTimer m_timer;
    QByteArray m_partial;       ///< the beginning of a line whose end is not written yet
    QElapsedTimer m_sinceShown; ///< since telegrams were shown
    qint64 m_leftOut = 0;       ///< bytes of telegrams before the next line that is shown
};

} // namespace bench
