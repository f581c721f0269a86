#pragma once

#include <QDialog>
#include <vorelutil/platform/export.h>

class QButtonGroup;
class QLineEdit;
class QPushButton;
class QRadioButton;
class QSpinBox;
class UnitEdit;

/// The small dialog in which the user sets how far a step of a `UnitEdit` goes: relative to the current
/// value, or by an absolute width.
///
/// Not modal. `UnitEdit::configureStep` makes it, refreshes it before it is shown, and keeps it; it is the
/// field's child. Tab, the arrow keys and Return reach everything. GUI thread.
///
/// Kept: the tool tip of the absolute width is on the spin box of the relative one.
class VORELUTIL_EXPORT StepDialog : public QDialog
{
    Q_OBJECT

public:
    /// A dialog for `edit`, which is its parent and may not be null. The absolute width can be chosen only
    /// while the field shows a valid number; that is seen again, either way, whenever a hidden dialog is
    /// refreshed.
    explicit StepDialog(UnitEdit* edit);

    /// Shows the field's step settings.
    void refresh();

public slots:
    /// Emits the field's `stepChanged` (also without a group), then stores the settings, refreshes and
    /// closes.
    ///
    /// Kept: the absolute width is read from the text, also when the relative one is chosen, and so is stored
    /// as it is shown, with the field's digits. One that does not convert counts as 0; "Ok" keeps the user
    /// from it. A field that never had a value shows none, and "Ok" stores 0: the least step.
    void accept() override;

    /// Judges the text of the absolute width: "Ok" is enabled exactly when it converts. Puts `text` into the
    /// text field, if it is not there. A number without prefix and unit has the prefix last shown there.
    ///
    /// Kept: an empty text means the number in the field.
    virtual void absStepTextChanged(const QString& text);

private:
    UnitEdit* const m_edit;
    QRadioButton* const m_absolute;
    QRadioButton* const m_relative;
    QButtonGroup* const m_buttons; ///< exclusive, holds both
    QSpinBox* const m_relStep;
    QLineEdit* const m_absStep;
    QPushButton* const m_ok;
    char m_prefix = ' '; ///< of the absolute width as last shown
};
