#pragma once

#include <QFile>
#include <QPlainTextEdit>
#include <QTimer>

namespace bench {

/// Shows the end of a growing trace log.
///
/// Telegrams that come by themselves or again and again are left out: what is told of samples and read-back,
/// and the counter's requests and answers. Errors and refusals stand out by their colour.
///
/// Bounded in lines, and in what it reads at a time: when the file grows faster than a person can read, it
/// leaves out what lies between, and says so. A file that shrank or was replaced is read from its start.
class LogView : public QPlainTextEdit
{
    Q_OBJECT

public:
    static constexpr int shownLines = 2000;
    static constexpr qint64 chunkBytes = 32 * 1024;

    explicit LogView(QWidget* parent = nullptr);

    /// Follows `path`; an empty path shows nothing more.
    void follow(const QString& path);

public slots:
    /// Reads what was added, as a timer does five times a second.
    void readMore();

protected:
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    class Highlighter;

    Highlighter* m_highlighter;
    bool m_follows = true; ///< the end is shown, and is to stay so
    QFile m_file;
    QTimer m_timer;
    QByteArray m_partial; ///< the beginning of a line whose end is not written yet
};

} // namespace bench
