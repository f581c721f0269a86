#pragma once

#include <QLabel>

namespace bench {

/// A tool tip that shows a text as it is, whatever markup it looks like; empty for an empty one.
QString plainToolTip(const QString& text);

/// A label of one line of plain text. What does not fit is cut, with an ellipsis, and shown by the tool tip
/// unless that is another one. `text` is whole; the width of the text is not asked for.
class ElidedLabel : public QLabel
{
    Q_OBJECT

public:
    explicit ElidedLabel(QWidget* parent = nullptr);

    QSize minimumSizeHint() const override;

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    QString shownText() const;
};

} // namespace bench
