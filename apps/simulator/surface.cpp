#include "surface.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double pi = 3.14159265358979323846;
constexpr double stepHeight = controller::scale::stepHeight;
constexpr double widthNm = controller::scale::scanWidth / 1000.0;
constexpr double heightNm = controller::scale::scanHeight / 1000.0;
constexpr double hysteresisNm = 2.4;

/// A well mixed number of two.
std::uint32_t mixed(std::uint32_t seed, std::uint32_t number)
{
    std::uint32_t h = number * 0x9E3779B1u + seed * 0x85EBCA6Bu + 0x27D4EB2Fu;
    h ^= h >> 16;
    h *= 0x7FEB352Du;
    h ^= h >> 15;
    h *= 0x846CA68Bu;
    h ^= h >> 16;
    return h;
}

double fraction(std::uint32_t seed, std::uint32_t number)
{
    return mixed(seed, number) / 4294967296.0;
}

/// Triangular, -25 to 24 pm.
std::int32_t noise(std::uint32_t seed, std::uint32_t position)
{
    const std::uint32_t h = mixed(seed, position);
    return std::int32_t((((h & 0xFFFFu) + (h >> 16)) * 25u) >> 16) - 25;
}

/// A triangle wave over 2^22 positions, -100 to 100 pm.
std::int32_t drift(std::uint32_t position)
{
    const std::int32_t p = std::int32_t(position & 0x3FFFFFu);
    const std::int32_t rising = p < 0x200000 ? p : 0x400000 - p;
    return (rising - 0x100000) * 100 / 0x100000;
}

/// 0 below 0, 1 above 1, smooth between.
double ramp(double t)
{
    t = std::clamp(t, 0.0, 1.0);
    return t * t * (3.0 - 2.0 * t);
}

} // namespace

SampleSource::SampleSource(std::uint32_t seed)
    : m_seed(seed)
    , m_phase(fraction(seed, 1))
{
    std::uint32_t number = 2;
    for (Atom& atom : m_atoms) {
        atom.x = widthNm * fraction(seed, number++);
        atom.y = heightNm * fraction(seed, number++);
        atom.height = 80.0 + 80.0 * fraction(seed, number++);
    }
}

int SampleSource::hysteresis(int xPixels)
{
    return int(std::lround(hysteresisNm * (xPixels - 1) / widthNm));
}

double SampleSource::height(double x, double y) const
{
    // Around the dislocation at (68, 22) the terraces rise by one step a turn, which the step that ends there
    // takes back.
    const double turn = std::atan2(y - 22.0, x - 68.0) / (2.0 * pi);
    const double phase = m_phase + 0.035 * x + 0.022 * y + 0.9 * std::sin(x / 19.0 + y / 47.0) +
                         0.35 * std::sin(y / 11.0 - x / 83.0) + turn;
    const double terrace = std::floor(phase);
    const double steps = terrace + ramp((phase - terrace - 0.9) / 0.1) - turn;
    double z = stepHeight * steps + 2.0 * x - 1.2 * y;

    // The island: an ellipse, turned by half a radian, whose top is tilted.
    const double along = (x - 24.0) * std::cos(0.5) + (y - 52.0) * std::sin(0.5);
    const double across = (y - 52.0) * std::cos(0.5) - (x - 24.0) * std::sin(0.5);
    const double radius = std::hypot(along / 14.0, across / 8.0);
    if (radius < 1.0) z += (stepHeight + 9.0 * along) * ramp((1.0 - radius) / 0.1);

    for (const Atom& atom : m_atoms) {
        const double distance = std::hypot(x - atom.x, y - atom.y);
        if (distance < 6.0) z += atom.height * std::exp(-distance * distance / 2.0);
    }
    return z;
}

void SampleSource::setGeometry(const Geometry& geometry)
{
    Geometry next = geometry;
    if (next.kind == controller::acquisitionLine) next.yPixels = 1;
    if (next.mode == 2) next.mode = 3;
    const bool sameRows = next.xPixels == m_geometry.xPixels && next.yPixels == m_geometry.yPixels;
    m_geometry = next;
    if (next.kind == controller::acquisitionStream) {
        if (!m_stream.empty()) return;
        m_stream.resize(streamPeriod);
        for (int i = 0; i < streamPeriod; ++i) {
            const double angle = 2.0 * pi * i / streamPeriod;
            m_stream[std::size_t(i)] =
                std::int32_t(std::lround(700.0 * std::sin(angle) + 250.0 * std::sin(37.0 * angle)));
        }
    } else if (!sameRows || m_rows.empty()) {
        m_rows.clear();
        m_rows.resize(std::size_t(next.yPixels));
    }
}

const std::vector<std::int32_t>& SampleSource::row(int index)
{
    std::vector<std::int32_t>& values = m_rows[std::size_t(index)];
    if (values.empty()) {
        const int x = m_geometry.xPixels;
        const int y = m_geometry.yPixels;
        const double pitch = x > 1 ? widthNm / (x - 1) : 0.0;
        const double atY = y > 1 ? heightNm * index / (y - 1) : heightNm / 2.0;
        values.resize(std::size_t(x) + std::size_t(hysteresis(x)));
        for (std::size_t i = 0; i < values.size(); ++i)
            values[i] = std::int32_t(std::lround(height(pitch * double(i), atY)));
    }
    return values;
}

void SampleSource::fill(std::uint32_t position, int count, std::int32_t* out)
{
    if (m_geometry.kind == controller::acquisitionStream) {
        fillStream(position, count, out);
        return;
    }
    const std::uint32_t x = std::uint32_t(m_geometry.xPixels);
    while (count > 0) {
        const int part = int(std::min(std::uint32_t(count), x - position % x));
        fillLine(position, part, out);
        position += std::uint32_t(part);
        out += part;
        count -= part;
    }
}

/// `count` samples within one line.
void SampleSource::fillLine(std::uint32_t position, int count, std::int32_t* out)
{
    const std::uint32_t x = std::uint32_t(m_geometry.xPixels);
    const std::uint32_t y = std::uint32_t(m_geometry.yPixels);
    const std::uint32_t line = position / x;
    const std::uint32_t column = position % x;
    const bool twoPasses = m_geometry.mode == 4 || m_geometry.mode == 6;
    const std::uint32_t scanLine = twoPasses ? line / 2 : line;
    const bool mirrored = scanLine / y % 2 == 0; // even frames scan the slow axis the other way
    const std::uint32_t index = mirrored ? y - 1 - scanLine % y : scanLine % y;
    const bool odd = line % 2 != 0;
    const bool forward =
        m_geometry.mode == 3 || (m_geometry.mode == 4 && !odd) || (m_geometry.mode == 6 && odd);

    const std::vector<std::int32_t>& values = row(int(index));
    if (forward) {
        std::copy_n(values.data() + column, count, out);
    } else {
        std::reverse_copy(values.end() - std::ptrdiff_t(column) - count,
                          values.end() - std::ptrdiff_t(column), out);
    }
    for (int i = 0; i < count; ++i) {
        const std::uint32_t p = position + std::uint32_t(i);
        out[i] += noise(m_seed, p) + drift(p);
    }
}

void SampleSource::fillStream(std::uint32_t position, int count, std::int32_t* out) const
{
    for (int i = 0; i < count; ++i) {
        const std::uint32_t p = position + std::uint32_t(i);
        const std::int32_t telegraph =
            (mixed(m_seed + 1, p >> 11) & 1u) != 0 ? controller::scale::stepHeight : 0;
        out[i] = m_stream[p % streamPeriod] + telegraph + noise(m_seed, p) + drift(p);
    }
}
