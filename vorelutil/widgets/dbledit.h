#pragma once

#include <QColor>
#include <QLineEdit>
#include <vorelutil/platform/export.h>

class QTimer;

/// A one-line field for a physical quantity that the program holds as a double in base units.
///
/// It shows "12.5 ms", for the unit "s" and from 60 seconds on "01:02:05 h", and reads what it shows: a
/// number, a prefix letter and the unit, each of the two last at will. While the user types, the background
/// is light green for a text that counts and red for one that does not. Enter, or leaving the field, commits:
/// the number is taken over, the text rewritten, `changed()` emitted, the background becomes the default
/// colour. An invalid text is never committed; it stays red.
///
/// Up, Down and the wheel step by 5 % (up: times 1.05, down: divided by it) and commit 100 ms later, unless
/// the user types on. They do nothing in a field that is read-only. Kept: Control and Shift do not change the
/// width of a wheel's step, and a zero delta steps down. Escape and F5 throw away what was typed.
///
/// Kept: while the user types, a number without a prefix letter and without a unit is judged with the prefix
/// last committed, and a step reads it so, but the commit reads it without a prefix. (In a field without a
/// unit that is also how a step reads a rendered number that needs no prefix.)
///
/// GUI thread only. Owned by its parent. Nothing is thrown. A slot of `changed()` that wants to destroy the
/// field does so by `deleteLater()`, as the toolkit asks where it emits on a key.
class VORELUTIL_EXPORT DblEdit : public QLineEdit
{
    Q_OBJECT
    // Without a NOTIFY signal: changed() tells of commits, not of numbers from the program.
    Q_PROPERTY(double number READ getNumber WRITE setNumber USER true)
    Q_PROPERTY(QString baseUnit READ baseUnit WRITE setBaseUnit)
    Q_PROPERTY(int resolution READ resolution WRITE setResolution)
    Q_PROPERTY(double tolerance READ tolerance WRITE setTolerance)
    Q_PROPERTY(double minimum READ minimum WRITE setMinimum)
    Q_PROPERTY(double maximum READ maximum WRITE setMaximum)
    Q_PROPERTY(QColor defaultColor READ defaultColor WRITE setDefaultColor)
    Q_PROPERTY(EditStatus status READ status WRITE setStatus)

public:
    enum EditStatus : int
    {
        EsEditValid = 1,   ///< typing, the text counts: light green
        EsEditInvalid = 2, ///< typing, it does not: red
        EsIdle = 3         ///< shows the number: the default colour, as for any other value
    };
    Q_ENUM(EditStatus)

    /// Empty, without unit and limits, four digits, idle and white.
    ///
    /// `*selectOnFocus`, unless null, is read at each focus-in and must outlive the field: while it is true
    /// the focus selects the whole text. Many fields may share it.
    explicit DblEdit(QWidget* parent = nullptr, bool const* selectOnFocus = nullptr);
    ~DblEdit() override;

    double getNumber() const { return m_number; } ///< in base units; 0 at first
    QString baseUnit() const { return m_unit; }
    char prefix() const { return m_prefix; }         ///< last committed by the user; a blank at first
    int resolution() const { return m_resolution; }  ///< significant digits
    double tolerance() const { return m_tolerance; } ///< see `setTolerance`
    double minimum() const { return m_minimum; }     ///< in base units
    double maximum() const { return m_maximum; }     ///< in base units
    bool isValid() const { return m_valid; }         ///< the text counts
    bool isTextDirty() const { return m_textDirty; } ///< typed since the last commit or rendering
    EditStatus status() const { return m_status; }   ///< the state that the background shows
    QColor defaultColor() const { return m_defaultColor; }

    /// Whether the limits are off, or n lies within them. Without limits NaN is true, too; typed it is
    /// invalid all the same.
    bool checkNumberValid(double n) const;

    /// The number that the text means, in base units; 0 where it does not convert.
    ///
    /// Each pointer may be null. `*valid` tells whether it converts; limits play no part. `*inputPf` is the
    /// prefix of a number without prefix letter and unit, and receives the one that was used; without the
    /// pointer that is `prefix()`. `*incomplete` tells whether the unit was missing or cut short.
    double parseNumber(bool* valid = nullptr, char* inputPf = nullptr, bool* incomplete = nullptr) const;

    /// The text that shows n, with the prefix that suits its size; none once the user has committed the
    /// prefix "X". The prefix goes to `*pfOut` unless null.
    QString normalizedText(double n, char* pfOut = nullptr) const;

    /// `setBaseUnit(unit)`, then both limits.
    void configure(QString const& unit, double minimum, double maximum);

    /// Stores the unit trimmed and renders the number, when `unit` differs from the present one.
    void setBaseUnit(QString const& unit);

    /// Stores the significant digits and renders the number; ignored below 0. 0 counts as 1.
    void setResolution(int digits);

    /// The relative difference up to which a number leaves a text alone that nobody typed in; ignored from
    /// 1.0 on (and for NaN). Below 1e-10, as at first, every number is rendered. Does not render.
    void setTolerance(double tolerance);

    /// Stored only. The limits are off unless the minimum is below the maximum.
    void setMinimum(double minimum) { m_minimum = minimum; }
    void setMaximum(double maximum) { m_maximum = maximum; } ///< see `setMinimum`

    /// Sets the state and the background that shows it.
    void setStatus(EditStatus status);

    /// The background of the idle state; white at first. Applied at once where it shows.
    void setDefaultColor(QColor const& color);

public Q_SLOTS:
    /// Takes a number over from the program and shows it, always in place of what the user types. No signal.
    ///
    /// With `limit`, and limits that are on, it is brought within them. Returns whether that changed it. NaN
    /// is within every limit. Kept: state and background stay as they are.
    bool setNumber(double v, bool limit = false);

    /// Takes over what was typed, as Enter does: only a valid text, and `changed()` only for another number.
    /// A number that, read without a prefix, is outside the limits is not taken over; the stored number is
    /// shown again.
    void commit();

    /// Judges the text anew; connected to `textChanged()`.
    void onTextChange();

    /// One step of 5 % from the number in the text, up from a direction of 1, else down. Nothing happens
    /// where the text is no number or the step would leave the limits.
    void step(int direction);

    /// Throws away what was typed, as Escape does.
    void restore();

    /// Selects the whole text, the cursor at its begin.
    void selectContents();

Q_SIGNALS:
    /// The user committed another number: after it is stored and shown, before the state becomes idle.
    void changed(double value);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;

private:
    bool limitsOn() const { return m_minimum < m_maximum; }
    bool isAcceptable(double n) const;
    void updateDisplay(bool force);

    double m_number = 0;
    QTimer* m_commitTimer; ///< single shot, a child: runs from a step on, until the user types
    QString m_unit;
    char m_prefix = ' ';
    int m_resolution = 4;
    double m_tolerance = 0;
    double m_minimum = 0;
    double m_maximum = 0;
    bool m_valid = false; ///< the text counts, or is a rendering
    EditStatus m_status = EsIdle;
    bool m_textDirty = false;
    bool const* m_selectOnFocus; ///< may be null
    QColor m_defaultColor;
};
