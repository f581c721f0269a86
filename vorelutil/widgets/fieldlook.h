#pragma once

class QColor;
class QWidget;

/// The background by which a value field shows its state, and text that stays readable on it.
///
/// GUI thread only. Not installed: the fields of this folder use it, and nobody else.
namespace fieldlook {

/// Gives `field` the background `color` in every colour group, through `qth_setWidgetColor`.
///
/// Does nothing, and costs one look-up, when the field has that background already. Where the contrast of the
/// palette's text with the background is below 4.5:1 the text turns black or white, whichever contrasts more.
/// Text of the disabled group, and placeholder text, turns into a mix of that colour and the background that
/// still has the 4.5:1: a disabled field shows live values, and looks disabled all the same. Text that is
/// readable keeps the palette's colour, and gets it back when the background or the palette becomes readable
/// again, also when the application's palette changes while it runs. That is seen for each colour alone: one
/// that the owner gives the field meanwhile stays the owner's. Selected text keeps the palette's pair
/// of colours, which do not stand on the background.
///
/// What is kept about a field belongs to it and goes with it.
void setBackground(QWidget* field, QColor const& color);

} // namespace fieldlook
