#pragma once

#include <array>
#include <QRgb>
#include <string>
#include <vector>

/// Colour maps for pictures of measurement values.
namespace cli {

using ColourMap = std::array<QRgb, 256>; ///< from the lowest value to the highest

/// The names of the maps; the first is the default.
std::vector<std::string> colourMapNames();

/// The map of that name, one of `colourMapNames`; any other name gives the default.
ColourMap colourMap(const std::string& name);

} // namespace cli
