#include "colourmap.h"

#include <algorithm>
#include <cmath>

namespace cli {
namespace {

struct Map
{
    const char* name;
    std::vector<QRgb> points; ///< evenly spaced from the lowest value to the highest
};

const std::vector<Map>& maps()
{
    // Lightness rises evenly in the first three.
    static const std::vector<Map> all = {
        {"viridis",
         {0x440154, 0x472C7A, 0x3B518B, 0x2C718E, 0x21908D, 0x27AD81, 0x5CC863, 0xAADC32, 0xFDE725}},
        {"grey", {0x000000, 0xFFFFFF}},
        {"heat", {0x000000, 0x5A0A0A, 0xA52A00, 0xE06A00, 0xF7B23B, 0xFFE59A, 0xFFFFFF}},
        {"topo", {0x14326E, 0x1E78AA, 0x3CA05A, 0xC8C864, 0xA06E3C, 0xFAFAFA}},
    };
    return all;
}

int between(int low, int high, double t)
{
    return int(std::lround(low + (high - low) * t));
}

} // namespace

std::vector<std::string> colourMapNames()
{
    std::vector<std::string> names;
    names.reserve(maps().size());
    for (const Map& map : maps()) names.emplace_back(map.name);
    return names;
}

ColourMap colourMap(const std::string& name)
{
    const Map* chosen = &maps().front();
    for (const Map& map : maps())
        if (name == map.name) chosen = &map;
    ColourMap colours;
    const std::size_t last = chosen->points.size() - 1;
    for (std::size_t i = 0; i < colours.size(); ++i) {
        const double at = double(i * last) / double(colours.size() - 1);
        const std::size_t from = std::min(std::size_t(at), last - 1);
        const QRgb a = chosen->points[from];
        const QRgb b = chosen->points[from + 1];
        const double t = at - double(from);
        colours[i] = qRgb(between(qRed(a), qRed(b), t), between(qGreen(a), qGreen(b), t),
                          between(qBlue(a), qBlue(b), t));
    }
    return colours;
}

} // namespace cli
