#pragma once

#include "apps/controller/addresses.h"

#include <array>
#include <cstdint>
#include <vector>

/// What a simulated acquisition sees at each position: a pure function of seed, geometry and position.
///
/// An area or line scan looks at a surface of 100 nm x 75 nm, whatever its pixels: curved terraces with
/// atomic steps, a screw dislocation, a tilted island and a few single atoms, on a tilted plane. Noise and a
/// slow drift depend on the absolute position alone; the backward pass sees the surface shifted (hysteresis).
/// A stream sees two oscillations and a random telegraph. See docs/simulator.md for the formulas. One thread
/// at a time.
class SampleSource
{
public:
    struct Geometry
    {
        std::int32_t kind = controller::acquisitionArea; ///< a `controller::Acquisition`, not off
        std::int32_t mode = 4;                           ///< 2 acts as 3
        std::int32_t xPixels = 1;                        ///< 1 or more
        std::int32_t yPixels = 1; ///< 1 or more; a line scan has 1 line whatever this says
    };

    explicit SampleSource(std::uint32_t seed);

    /// Sets what is scanned. Rows that are already known are forgotten when the geometry differs.
    void setGeometry(const Geometry& geometry);

    /// Writes the samples at `position`, `position` + 1, ... to `out`. `position` + `count` is at most 2^31.
    void fill(std::uint32_t position, int count, std::int32_t* out);

    /// Height of the surface in pm at `x`, `y` in nm; defined also outside of the scan's window.
    double height(double x, double y) const;

    /// Pixels by which the backward pass lags at `xPixels` pixels per line.
    static int hysteresis(int xPixels);

private:
    struct Atom
    {
        double x, y, height;
    };

    void fillLine(std::uint32_t position, int count, std::int32_t* out);
    void fillStream(std::uint32_t position, int count, std::int32_t* out) const;
    const std::vector<std::int32_t>& row(int index);

    static constexpr int streamPeriod = 8192;

    std::uint32_t m_seed;
    double m_phase; ///< where the first step edge lies, 0 to 1
    std::array<Atom, 14> m_atoms;
    Geometry m_geometry;
    std::vector<std::vector<std::int32_t>> m_rows; ///< image rows, made when first needed; empty: not yet
    std::vector<std::int32_t> m_stream;            ///< one period of the oscillations
};
