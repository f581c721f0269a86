#pragma once

#include <memory>
#include <QColor>
#include <QLineEdit>
#include <QPointer>
#include <vorelutil/platform/export.h>
#include <vorelutil/widgets/savable.h>

class QMenu;
class QTimer;
class StepDialog;
struct NumberModel;

/// A field for a physical quantity, such as "12.5 ms", behind which the program deals in a raw integer.
///
/// The raw `value` is what a controller is set to or reports; the field shows the number that it stands for,
/// with prefix and unit, and reads what the user types back into a raw value (docs/value-fields.md, with a
/// picture). Its background tells its state:
///
/// | status | colour | meaning | left by |
/// |---|---|---|---|
/// | `EsIdle` | `defaultColor()`, white | shows the program's value | typing, steps |
/// | `EsEditValid` | light green | the user types, the text is acceptable | commit, Escape |
/// | `EsEditInvalid` | red | the user types, the text is not acceptable | typing on, Escape |
/// | `EsCommitted` | green-yellow, read-only | the program has to confirm | a value, steps, Escape |
///
/// The background is the palette's: under a style sheet that draws the field's border or background the
/// states do not show.
///
/// Return, Enter and loss of focus commit: a new value is stored and announced by `changed`, and the field
/// waits in `EsCommitted` until the program sets a value (unless it commits directly: then it is idle at
/// once). An invalid text is never committed. Kept: a field that waits is read-only for typing alone; Escape,
/// F5 and steps still act on it, and lead to idle and to typing. While the user types, values from the
/// program are kept back, and Escape shows the last of them.
///
/// Keys: Up, Down and the wheel step the number; Control or Shift make it 10 steps on the wheel, both 100. A
/// step commits by itself after 100 ms, unless the user types on or gives up meanwhile. Kept: a wheel event
/// with a delta of zero steps down, but not where it marks the begin, end or momentum of a gesture. Escape,
/// F5 and the menu's "Undo" drop what was typed.
///
///     auto* exposure = new UnitEdit(this);
///     exposure->configure("s", 'm', 1, 0, 1, 10000000); // one raw step is 1 ms
///     connect(exposure, &UnitEdit::changed, this, &Panel::sendExposure);
///     exposure->setValue(250);                          // "250 ms"
///
/// Thread: GUI thread. Nothing is thrown. A slot of `changed`, `contextMenuCreated` or `stepChanged`, and an
/// entry of the menu, may delete the field; a slot of the line edit's own signals may not. The exception is
/// `changed` when the focus is lost or a key is pressed: there the toolkit itself goes on with the field, so
/// use `deleteLater`.
///
/// `value` is the USER property. It has no NOTIFY signal: `changed` tells only what the user commits, and
/// what the program sets is not announced to the program.
class VORELUTIL_EXPORT UnitEdit : public QLineEdit
{
    Q_OBJECT
    Q_PROPERTY(int value READ getValue WRITE setValue USER true)
    Q_PROPERTY(double number READ getNumber WRITE setNumber STORED false)
    Q_PROPERTY(QString baseUnit READ baseUnit WRITE setBaseUnit)
    Q_PROPERTY(char inputPrefix READ inputPrefix WRITE setInputPrefix)
    Q_PROPERTY(char currentPrefix READ currentPrefix STORED false)
    Q_PROPERTY(double inputFactor READ inputFactor WRITE setInputFactor)
    Q_PROPERTY(double inputOffset READ inputOffset WRITE setInputOffset)
    Q_PROPERTY(bool inputUnsigned READ isInputUnsigned WRITE setInputUnsigned)
    Q_PROPERTY(int minimum READ minimum WRITE setMinimum)
    Q_PROPERTY(int maximum READ maximum WRITE setMaximum)
    Q_PROPERTY(int resolution READ resolution WRITE setResolution)
    Q_PROPERTY(double tolerance READ tolerance WRITE setTolerance)
    Q_PROPERTY(OutputPfSelect outputPrefixSelection READ outputPrefixSelection WRITE setOutputPrefixSelection)
    Q_PROPERTY(DfltInputPf defaultInputPrefix READ defaultInputPrefix CONSTANT)
    Q_PROPERTY(QString toNumberFormula READ toNumberFormula STORED false)
    Q_PROPERTY(QString toValueFormula READ toValueFormula STORED false)
    Q_PROPERTY(int averageLength READ averageLength WRITE setAverageLength)
    Q_PROPERTY(QColor defaultColor READ defaultColor WRITE setDefaultColor)
    Q_PROPERTY(EditStatus status READ status STORED false)
    Q_PROPERTY(bool valid READ isValid STORED false)
    Q_PROPERTY(bool directCommit READ isDirectCommit CONSTANT)
    Q_PROPERTY(QString groupName READ groupName CONSTANT)
    Q_PROPERTY(bool stepRelative READ isStepRelative STORED false)
    Q_PROPERTY(int relativeStep READ relativeStep STORED false)
    Q_PROPERTY(double absoluteStep READ absoluteStep STORED false)

public:
    /// How the prefix that is shown is chosen.
    enum OutputPfSelect : int
    {
        PfDynamic = 0, ///< by the number's magnitude
        PfStatic = 1,  ///< always the input prefix
        PfUseInput = 2 ///< the prefix last used for input
    };
    Q_ENUM(OutputPfSelect)

    /// Which prefix a number gets that is typed without a prefix letter and without a unit.
    enum DfltInputPf : int
    {
        DfltPfConfigured = 0, ///< always the input prefix
        DfltPfLastInput = 1,  ///< the prefix of the last committed input
        DfltPfLastShown = 2   ///< the same, and every rendering makes the prefix that it shows the default
    };
    Q_ENUM(DfltInputPf)

    /// The state that the background shows; see the class comment.
    enum EditStatus : int
    {
        EsEditValid = 1,
        EsEditInvalid = 2,
        EsCommitted = 3,
        EsIdle = 4
    };
    Q_ENUM(EditStatus)

    /// A row of `pfUsageMode`.
    struct PfUsage
    {
        OutputPfSelect value;
        const char* caption; ///< null ends the table
    };

    /// The captions of `OutputPfSelect`, in the order of the menu: "Dynamic", "Static", "Use Input".
    static const PfUsage pfUsageMode[];

    /// An empty field: no unit, one raw step is 1, limits -1 and 1.
    ///
    /// `selectOnFocus` points at a switch that many fields may share: while it is true, a field that gets the
    /// focus selects its text (not when its window becomes active). It may be null, and must live as long as
    /// the field. `directCommit`: nobody confirms; a commit leads to idle at once. Fields with the same
    /// `groupName` share their step settings (see `stepChanged`), which are persistent settings of that
    /// owner; without a name they are not stored.
    ///
    /// Kept: the limits of a new field are on; `setValue(5, true)` stores 1.
    explicit UnitEdit(QWidget* parent = nullptr, DfltInputPf dfltInputPf = DfltPfConfigured,
                      const bool* selectOnFocus = nullptr, bool directCommit = false,
                      QString groupName = QString());
    ~UnitEdit() override;

    /// \name Conversions
    ///@{

    /// The number in base units for raw value `v`, read as unsigned when the input is: (v - offset) * factor
    /// * factor of the input prefix, or what the formula gives. NaN when the formula does not evaluate.
    double value2Number(int v) const;

    /// The raw value next to number `n`, halves away from zero. What fits no raw value gives INT_MIN,
    /// for unsigned input 0 or the low 32 bits; see `checkNumberValid`.
    int number2Value(double n) const;

    /// The same for `n` in units of the input prefix. Kept: the formulas are not used.
    int prefixedNumber2Value(double n) const;

    /// Whether `n` has a raw value less than one raw step away, within the limits. False for NaN.
    bool checkNumberValid(double n) const;

    /// The raw value last taken over from the program or committed.
    int getValue() const { return m_value; }

    /// Reads `extText`, or the field's text when that is empty; the number in base units.
    ///
    /// "12.5ms", "12.5 m" and "0.0125 s" are the same where the unit is s; case of the unit does not matter.
    /// A text with a unit and without a prefix letter has no prefix; a text with neither has `*inputPf`, or
    /// the current prefix when that is null. "h:m:s h" is a time where the unit is s. `*valid` tells whether
    /// the text converts (limits do not matter), `*inputPf` receives the prefix used (a time leaves it
    /// alone), `*incomplete` whether the unit was not complete; with an empty unit it always is. Each may be
    /// null. Where the text does not convert the result is 0, but infinite for "1e999", and a time counts the
    /// parts that are no numbers as 0: "1:x:3 h" gives 3603.
    Q_INVOKABLE double getNumber(bool* valid = nullptr, char* inputPf = nullptr, bool* incomplete = nullptr,
                                 QString extText = QString()) const;

    /// The text to show for `*number`, or for the value when that is null; the prefix used goes to `*pfOut`,
    /// unless null. Empty, with `*pfOut` untouched, until a value was set or committed.
    ///
    /// From 60 s on, a number of seconds reads "01:02:05 h", cut to whole seconds. Zero shows with the
    /// current prefix.
    QString normalizedText(char* pfOut = nullptr, const double* number = nullptr) const;

    ///@}
    /// \name Configuration
    /// At any time. Each renders the value anew when something changed, unless said otherwise; a text that is
    /// being typed is lost by that. Kept: the state of typing, and its colour, stay until the next commit,
    /// edit or Escape, and values from the program are kept back until then.
    ///@{

    QString baseUnit() const;
    /// Unit text such as "s" or "Hz", stored trimmed. Default: empty.
    void setBaseUnit(QString u);

    char inputPrefix() const;
    /// The prefix in which the factor counts; ' ' is none, 'X' is none, and never normalise. Becomes the
    /// current prefix, too. `keepNumber`: the number shown stays, and the raw value becomes what it is now
    /// worth (without `changed`, without limits), else the raw value stays. Default: ' '.
    ///
    /// Kept: the number that stays is the one last given to `setNumber`, if the text was not edited since,
    /// also when `setValue` came later; else the one in the text, with its rounding.
    void setInputPrefix(char pf, bool keepNumber = false);

    /// The prefix of a text without prefix and unit, and of zero.
    char currentPrefix() const;

    double inputFactor() const;
    /// Size of one raw step in units of prefix and base unit; `keepNumber` as above. Default: 1.
    void setInputFactor(double f, bool keepNumber = false);

    double inputOffset() const;
    /// Raw value of the number zero; `keepNumber` as above. Default: 0.
    void setInputOffset(double o, bool keepNumber = false);

    /// `setBaseUnit`, `setInputPrefix`, `setInputFactor`, `setInputOffset` in turn, then both limits.
    void configure(QString baseUnit, char pf, double factor, double offset, int minimum, int maximum,
                   bool keepNumber = false);

    bool isInputUnsigned() const;
    /// Raw values are unsigned 32-bit; renders always. Default: false. Limits stay signed.
    void setInputUnsigned(bool on);

    int minimum() const;
    /// Lower limit of the raw value, for setters that limit and for what the user enters; stored only.
    /// Limits are off while the maximum is not above the minimum. Default: -1.
    void setMinimum(int minimum);

    int maximum() const;
    /// Upper limit; stored only. Default: 1.
    void setMaximum(int maximum);

    int resolution() const;
    /// Significant digits shown; below 0 is ignored, 0 counts as 1. Default: 4.
    void setResolution(int r);

    double tolerance() const { return m_tolerance; }
    /// Relative difference up to which a new value leaves the text as it is; below 1e-10 none does. 1 and
    /// more (and NaN) is ignored. Does not render. Default: 0.
    void setTolerance(double t);

    OutputPfSelect outputPrefixSelection() const;
    /// How the prefix shown is chosen; values outside the enumeration are ignored. Default: `PfDynamic`.
    void setOutputPrefixSelection(OutputPfSelect s);

    DfltInputPf defaultInputPrefix() const { return m_dfltInputPf; }

    QString toNumberFormula() const;
    QString toValueFormula() const;
    /// Formulas instead of the linear mapping, unless empty (docs/formulas.md); rendered always.
    ///
    /// `toNumber` gets "x" = raw value, `toValue` gets "x" = number in units of the input prefix; both get
    /// "scale" = factor and "offset". Characters outside Latin-1 are replaced. A formula that does not
    /// evaluate gives NaN: the field shows it, is not valid, and commits nothing. An infinite result is shown
    /// and is valid, but is not committed either.
    void setFormulas(QString toNumber, QString toValue);

    int averageLength() const { return m_avgLength; }
    /// How many values a disabled field averages before it shows their mean, cut towards zero; 0 and 1: none.
    /// An enabled field never averages. Values are read as unsigned when the input is; the mean is taken
    /// modulo 2^32 if the input was switched between them. Stored only. Default: 0.
    void setAverageLength(int length) { m_avgLength = length; }

    QColor defaultColor() const { return m_defaultColor; }
    /// Background of the idle state; shown at once when it is that of the present state. Default: white.
    void setDefaultColor(QColor c);

    /// "AbsStep" becomes the number that `text` means, also as its default. An open or closed step dialog
    /// takes the text over and is accepted, which tells the group; a text without prefix and unit then has
    /// the prefix that the dialog shows. Kept: an empty text means the field's own. Kept: the width goes back
    /// to 1 in the current prefix with the next value from the program, see `absoluteStep`.
    void setAbsoluteStepsize(QString text);

    bool isDirectCommit() const { return m_directCommit; }
    QString groupName() const { return m_groupName; }
    /// Whether steps are relative ("StepIsRel").
    bool isStepRelative() const;
    /// Relative step width in tenths of a percent ("RelStep").
    int relativeStep() const;
    /// Absolute step width in base units ("AbsStep"), six digits. Until an absolute step was made, the step
    /// dialog opened, or a stored setting offered, each value from the program makes it 1 in the current
    /// prefix. Kept: also one that `setAbsoluteStepsize` or `changeStep` has set.
    double absoluteStep() const;

    ///@}
    /// \name State
    ///@{

    EditStatus status() const { return m_status; }
    /// Shows a state: colour, and read-only exactly in `EsCommitted`. Values outside the enumeration act as
    /// `EsIdle`. From a state that is not typing to one that is, Escape will bring back the present value.
    ///
    /// As the states switch read-only on and off, a field for display only is one that is disabled.
    void setStatus(EditStatus s);

    /// Whether the user is typing: `EsEditValid` and `EsEditInvalid`.
    static bool isStatusEditing(EditStatus s) { return s == EsEditValid || s == EsEditInvalid; }

    /// Marks the text as invalid (red, as while typing) or as valid and idle. The field can be edited.
    void setInvalid(bool inv);

    /// Whether the text is acceptable: converts, representable, within the limits. After rendering it is
    /// true, whatever the value, but for a number that is NaN.
    bool isValid() const { return m_valid; }

    /// Whether a value was set or committed; until then the field is empty.
    bool isValueShown() const { return m_valueShown; }

    /// Whether the text changed since it was last rendered or committed.
    bool isTextDirty() const { return m_textDirty; }

    /// What Escape would bring back while the user types: the last value from the program.
    int pendingValue() const { return m_pendingValue; }

    /// Direction of the last step: 1, -1, or 0 after typing or a value taken over.
    int lastStepDirection() const { return m_stepAccu; }

    /// The context menu: the line edit's own without its undo, redo and Unicode entries, then "Undo", "Step
    /// Width..." and "Unit Prefix". Emits `contextMenuCreated`. Owned by the caller; it is also the field's
    /// child. Null when a slot deleted it.
    QMenu* createContextMenu();

    ///@}

public slots:
    /// Takes over raw value `v` from the program; whether it had to be limited. Emits nothing.
    ///
    /// A disabled field may average (`setAverageLength`). `limit` keeps `v` between the limits, if they are
    /// on. While the user types, `v` (not limited) is only kept for Escape. Else it is shown, and the
    /// field is idle: this confirms a commit.
    virtual bool setValue(int v, bool limit = false);

    /// `setValue` with the raw value of number `n`, in base units, or in units of the input prefix when
    /// `prefixed`.
    bool setNumber(double n, bool limit = false, bool prefixed = false);

    /// Takes `v` over as `setValue` does, then commits it as if it had been typed: `changed` is emitted, and
    /// the field waits for the confirmation. Whether it had to be limited.
    ///
    /// Kept: what is committed is the text, so the value announced is rounded to the digits shown. Where `v`
    /// did not change the text, it is the text from before that is committed: the user's while typing, the
    /// former value's within the tolerance and while a disabled field averages. Nothing is emitted when the
    /// text means the present value, or is refused (see `commit`).
    bool setValueAndCommit(int v, bool limit = false);

    /// Empty text, idle. The value stays, and Escape shows it again.
    void clear();

    /// Shows the value again, `force`: even if the text is within the tolerance. The cursor keeps its place.
    void updateDisplay(bool force = false);

    /// Commits the text; see the class comment. The state is already the new one when `changed` is emitted,
    /// so that a slot may confirm at once.
    ///
    /// Refused, with the field invalid and red until Escape or `restore`, is an edited text that does not
    /// convert, or whose number is not finite or fits no raw value (see `number2Value`; unsigned, a number
    /// below raw 0 counts as 0). The value stays. Limits are judged while the user types, not here.
    void commit();

    /// Drops what was typed and shows the program's last value, as Escape does. Kept: a field that waits
    /// shows the value that it announced, idle, before anybody confirmed it.
    void restore();

    /// Steps the number up (`steps` > 0) or down; whether it was possible. Does not when the text is no
    /// number, or the result cannot be represented or is beyond the limits.
    ///
    /// A relative step up and one down lead back to the start. A step is at least one raw step, and at least
    /// one in the last digit shown; a result smaller than that digit is zero. The text changes at once, the
    /// commit follows 100 ms after the last step.
    bool step(int steps);

    /// Opens the step dialog, which is made the first time and then kept.
    void configureStep();

    /// Chooses the prefix whose caption in `pfUsageMode` is the action's text; ignores any other.
    void configurePf(QAction* a);

    /// Selects the whole text, the cursor at its start.
    void selectContents();

    /// Takes step settings over when `groupName` is this field's and not empty: connect it to `stepChanged`
    /// of the others in the group.
    void changeStep(QString groupName, bool useRel, int relStep, double absStep);

    /// Sets the step settings; `local` tells the group first, if the field has one.
    void changeStepInt(bool local, bool useRel, int relStep, double absStep);

    /// Judges the text after it was edited.
    void onTextChange();

signals:
    /// A commit changed the value. Never emitted for `setValue` and `setNumber`.
    void changed(int value);

    /// The context menu was built, and is shown next: owners add their entries.
    void contextMenuCreated(QMenu* menu);

    /// The step settings changed here and are to reach the rest of the group. Kept: the step dialog emits it
    /// also with an empty group name.
    void stepChanged(QString groupName, bool useRel, int relStep, double absStep);

protected:
    void contextMenuEvent(QContextMenuEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;

    /// Runs a menu of this field modally and deletes it, also when the field is deleted meanwhile.
    void runMenu(QMenu* menu, const QPoint& globalPos);

private:
    /// What the last rendering showed: the same value need not be rendered again.
    struct Rendered
    {
        bool fresh = false; ///< no setting changed since
        bool valueShown = false;
        bool valid = false;
        char currentPf = ' ';
        int value = 0;
        QString text;
    };

    /// The text that was parsed last, and what it means.
    struct Parsed
    {
        bool fresh = false;
        bool valid = false;
        bool incomplete = false;
        char defaultPf = ' ';
        char pf = ' ';
        double number = 0.0;
        QString text;
    };

    double shownNumber() const;
    void applyModel();
    void applyMapping(double number, bool keepNumber);
    const Parsed& parsedText() const;
    bool average(int* v);
    void followStep();
    void showStatus(EditStatus s, const QColor& color);

    QTimer* m_commitTimer;
    QPointer<StepDialog> m_stepDialog;
    QPointer<QMenu> m_openMenu;
    std::unique_ptr<NumberModel> m_model; ///< prefixes, factor, offset, unit, limits, resolution, formulas
    double m_tolerance = 0.0;
    Savable m_absStep;
    Savable m_relStep;
    Savable m_stepIsRel;
    int m_value = 0;
    int m_pendingValue = 0; ///< from the program while the user types; what Escape returns to
    bool m_valid = false;
    EditStatus m_status = EsIdle;
    bool m_valueShown = false;
    bool m_textDirty = false;
    bool m_absStepFixed = false; ///< the absolute step no longer follows the prefix
    int m_stepAccu = 0;
    const DfltInputPf m_dfltInputPf;
    const bool* const m_selectOnFocus;
    const bool m_directCommit;
    int m_avgCount = 0;
    double m_avgSum = 0.0;
    int m_avgLength = 0;
    double m_storedNumber = 0.0; ///< last given to setNumber
    bool m_numberStored = false; ///< the text still stands for m_storedNumber
    QColor m_defaultColor = QColor(QStringLiteral("white"));
    const QString m_groupName;
    Rendered m_rendered;
    mutable Parsed m_parsed;
    QString m_followedStep;  ///< text of "AbsStep" as derived from the current prefix; null: to be derived
    char m_followedPf = ' '; ///< the current prefix then
};
