#pragma once

#include <QByteArray>
#include <QPlainTextEdit>

namespace bench {

/// Shows a text file with the numbers of its lines, one of which is marked.
///
/// Of a long file only the lines around the marked one are there, and of a long line its beginning; both are
/// said in the view. A byte that cannot be shown is replaced. Read only.
class SourceView : public QPlainTextEdit
{
    Q_OBJECT

public:
    static constexpr int shownLines = 2000;
    static constexpr int shownCharacters = 1000; ///< of a line

    explicit SourceView(QWidget* parent = nullptr);

    /// Shows the beginning of `source`; no line is marked.
    void showSource(const QByteArray& source);
    /// Marks a line, counted from 1, and brings it into view; one behind the end marks the last one, 0 none.
    void markLine(int line, bool isProblem);
    /// The marked line's number; 0: none.
    int markedLine() const { return m_marked; }

protected:
    void changeEvent(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    class Numbers;

    void fill(int firstLine);
    void applyMark();
    int numbersWidth() const;
    int blockOfLine(int line) const;
    int lineOfBlock(int block) const; ///< 0: a remark
    void placeNumbers();

    Numbers* m_numbers;
    QByteArray m_source;
    int m_lineCount = 0;
    int m_firstLine = 1; ///< that is shown
    int m_lastLine = 0;
    int m_marked = 0;
    bool m_isProblem = false;
};

} // namespace bench
