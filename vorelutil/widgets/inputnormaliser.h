#pragma once

#include <vorelutil/platform/export.h>

#include <QPointer>
#include <QValidator>

class QLineEdit;

/// Lets a user type and paste numbers as they are written elsewhere into a field that reads 12.5 µs.
///
/// Opt-in: `new InputNormaliser(field)` on any `QLineEdit`, value fields included; nothing in the library
/// makes one. While the user edits, by keys, paste, drop or input method, one character becomes one other, so
/// that the cursor stays where it is:
///
/// | typed | becomes |
/// |---|---|
/// | comma, also the keypad's | point, when it is the number's only separator |
/// | Greek small mu (U+03BC) | micro sign (U+00B5) |
/// | minus sign (U+2212) | hyphen-minus |
/// | no-break blanks (U+00A0, U+202F, U+2007, U+2009) | blank |
///
/// A comma is always a decimal comma, never a separator of thousands: "1,000" becomes "1.000" and means one,
/// as the point that appears at once shows. In a number with a second separator every comma stays and the
/// text is not a number: "1,000.5", "1.000,5" and "1,000,000" are refused by the field and never read as
/// something else. Typed one by one, the first comma has become a point before the second separator comes;
/// "1.000.5" is no number either. The number ends at the first letter; behind it only the other three rows
/// apply.
///
/// What is typed, and what is pasted by key, is changed before it reaches the field: one `textChanged`, and
/// the field's undo takes it back. A paste that was changed counts as typed there: it goes together with what
/// was typed just before it. What arrives in another way (menu, drop, input method) is changed by the
/// validator: also one `textChanged`, but the field's undo history then starts anew. Keys with Control, Alt
/// or Meta go to the field as they are. Text that the program sets is changed, too, unless the field's
/// signals are blocked, as value fields block them when they show a value.
///
/// Owned by the field. It becomes the field's validator and asks the former one, if there is one, about the
/// changed text; so set your own validator first. Deleting it gives the former validator back. GUI thread
/// only.
class VORELUTIL_EXPORT InputNormaliser : public QValidator
{
    Q_OBJECT

public:
    /// `field` is not null.
    explicit InputNormaliser(QLineEdit* field);
    ~InputNormaliser() override;

    /// The text as the field should get it; as long as `text`. Linear in the length, any text.
    /// Examples: "1,5 \u03bcs" -> "1.5 µs", "1,000.5" -> "1,000.5".
    static QString normalised(QString text);

    State validate(QString& text, int& cursor) const override;
    void fixup(QString& text) const override;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QString asInserted(QString const& text) const;

    QLineEdit* const m_field; ///< the parent
    QPointer<QValidator const> m_former;
};
