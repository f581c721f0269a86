#pragma once

class QWidget;

/// What a screen reader and other assistive programs learn of a `UnitEdit` or `DblEdit`.
///
/// Role: editable text, not spin box, because the field is typed into and committed, its unit belongs to what
/// is read out (a spin box is read as a bare number), and its steps are no fixed amount; "Increase" and
/// "Decrease" are offered as actions all the same. Name: the accessible name, else the text of the label
/// whose buddy the field is. Value: the text with its unit. Description: the field's own, or its tool tip,
/// then the state in words: "editing", "invalid input", "waiting for the controller" or "idle", then the unit
/// where the text lacks it. A field that waits is read-only and busy; as by the keys, it can be stepped all
/// the same, but not a `DblEdit` that its owner made read-only. Positions outside the text count as its
/// nearest end.
///
/// GUI thread only. Not installed: the constructors and `setStatus` of the fields call it.
namespace fieldaccessible {

/// Makes the toolkit ask here about value fields; a second call changes nothing.
void install();

/// Tells assistive programs, where one listens, that the state of `field` is another.
void statusChanged(QWidget* field);

} // namespace fieldaccessible
