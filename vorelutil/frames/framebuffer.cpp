#include "framebuffer.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <new>
#include <string>
#include <utility>
#include <vorelutil/algo/rounding.h>
#include <vorelutil/trace/error.h>

static_assert(sizeof(VRB_Meta) == 13 * sizeof(std::int32_t), "thirteen 32-bit fields without gaps");

namespace {

[[noreturn]] void throwOutOfMemory()
{
    throw OomError(std::string());
}

/// Runs a change of a container whose allocation may fail.
template <typename Change> void changeOrThrow(Change change)
{
    try {
        change();
    } catch (const std::bad_alloc&) {
        throwOutOfMemory();
    }
}

/// The greatest multiple of `step` (above 0) that is not greater than `position`.
std::int64_t roundDown(std::int64_t position, std::int64_t step)
{
    const std::int64_t rest = position % step;
    return position - (rest < 0 ? rest + step : rest);
}

std::uint64_t positivePart(std::int32_t value)
{
    return value > 0 ? static_cast<std::uint64_t>(value) : 0;
}

/// From the first pixel to the last, in single precision.
float extent(std::int32_t pixels, float pitch)
{
    return static_cast<float>(static_cast<std::int64_t>(pixels) - 1) * pitch;
}

/// The position half an extent behind the start.
double centre(float start, float length)
{
    return static_cast<double>(start) + static_cast<double>(length) / 2;
}

} // namespace

void FrameBuffer::FreeArray::operator()(int* array) const
{
    std::free(array);
}

void FrameBuffer::CloseFile::operator()(std::FILE* file) const
{
    std::fclose(file);
}

FrameBuffer::FrameBuffer()
{
    initMetaData();
}

FrameBuffer::FrameBuffer(const int* data, int count, int position, const VRB_Meta* meta)
{
    initMetaData();
    setMetaData(meta);
    m_startPosition = position;
    m_active = true;
    m_defaultSize = count;
    setFrameSize();
    if (data == nullptr || count < 1) return;
    m_fill = std::min(static_cast<std::uint32_t>(count), m_capacity);
    std::copy_n(data, m_fill, m_samples.get());
}

FrameBuffer::FrameBuffer(const FrameBuffer& other, bool withData)
{
    copySettings(other);
    if (!withData) return;
    m_startPosition = other.m_startPosition;
    m_fill = other.m_fill;
    m_frameCounter = other.m_frameCounter;
    std::copy_n(other.m_samples.get(), m_fill, m_samples.get());
}

FrameBuffer& FrameBuffer::operator=(const FrameBuffer& other)
{
    if (this != &other) copySettings(other);
    return *this;
}

FrameBuffer::~FrameBuffer() = default;

void FrameBuffer::init(const FrameBuffer* other)
{
    if (other != nullptr) *this = *other;
}

void FrameBuffer::copySettings(const FrameBuffer& other)
{
    // Inactive while the record is loaded: its entries then allocate nothing.
    m_active = false;
    reallocBuffer(0, 0);
    clear();
    m_frameCounter = 0;
    m_append = other.m_append;
    m_defaultSize = other.m_defaultSize;
    m_record.reset();
    if (other.m_record) setMetaData(&*other.m_record);
    changeOrThrow([&] { m_metaData = other.m_metaData; });
    m_mode = other.m_mode;
    m_xPixels = other.m_xPixels;
    m_yPixels = other.m_yPixels;
    m_active = other.m_active;
    m_frameSize = other.m_frameSize;
    m_dimensions = other.m_dimensions;
    reallocBuffer(other.m_capacity, other.m_sortedCapacity);
}

void FrameBuffer::setDfltBufSize(int size, bool append)
{
    m_defaultSize = size;
    m_append = append;
    setFrameSize();
}

/// The frame size that the state calls for, which may be more than a buffer can have.
std::uint64_t FrameBuffer::wantedFrameSize(unsigned* dimensions) const
{
    *dimensions = 0;
    if (!m_active) return 0;
    switch (m_mode) {
    case Stream:
        *dimensions = 1;
        return positivePart(m_xPixels);
    case Forward:
    case Backward:
        *dimensions = m_yPixels < 2 ? 1 : 2;
        return imagePixels();
    case ForwardReturn:
    case ReturnForward:
        *dimensions = m_yPixels < 2 ? 1 : 2;
        return 2 * imagePixels();
    default:
        return positivePart(m_defaultSize);
    }
}

void FrameBuffer::setFrameSize()
{
    const std::uint32_t oldSize = m_frameSize;
    const std::uint32_t oldDimensions = m_dimensions;
    unsigned dimensions = 0;
    const std::uint64_t wanted = wantedFrameSize(&dimensions);
    m_frameSize = 0;
    m_dimensions = 0;
    if (wanted > std::numeric_limits<std::uint32_t>::max()) {
        reallocBuffer(0, 0);
        clear();
        throwOutOfMemory();
    }
    m_frameSize = static_cast<std::uint32_t>(wanted);
    m_dimensions = dimensions;
    if (m_frameSize != oldSize || m_dimensions != oldDimensions) clear(); // also when there is no memory
    if (m_capacity < m_frameSize) reallocBuffer(m_frameSize, 0);
}

/// Zeroed storage; null for a count of 0 and when there is no memory. Pages that nobody writes to cost
/// none, hence calloc.
FrameBuffer::Array FrameBuffer::allocate(std::uint64_t count)
{
    if (count == 0 || count > std::numeric_limits<std::size_t>::max() / sizeof(int)) return nullptr;
    return Array(static_cast<int*>(std::calloc(static_cast<std::size_t>(count), sizeof(int))));
}

void FrameBuffer::reallocBuffer(unsigned size, unsigned sortSize)
{
    m_samples.reset();
    m_sorted.reset();
    m_capacity = 0;
    m_sortedCapacity = 0;
    m_fill = 0;
    Array samples = allocate(size);
    Array sorted = allocate(sortSize);
    if ((size != 0 && samples == nullptr) || (sortSize != 0 && sorted == nullptr)) throwOutOfMemory();
    m_samples = std::move(samples);
    m_sorted = std::move(sorted);
    m_capacity = size;
    m_sortedCapacity = sortSize;
}

void FrameBuffer::setActive(bool on)
{
    if (on == m_active) return;
    m_active = on;
    if (!on) {
        clear();
        reallocBuffer(0, 0);
        m_frameCounter = 0;
    }
    setFrameSize();
}

void FrameBuffer::clear()
{
    m_fill = 0;
    m_startPosition = 0;
}

/// What `addData` returns when nothing was left over.
int FrameBuffer::completion() const
{
    return m_fill == m_frameSize ? -1 : 0;
}

int FrameBuffer::addData(const int* data, int count, int position)
{
    if (m_frameSize == 0 || m_frameSize > m_capacity || data == nullptr || count < 1) return completion();

    const bool plain = m_mode == 0;
    const std::int64_t effective = plain && m_append ? std::int64_t{m_fill} : std::int64_t{position};
    const std::int64_t offset = effective - m_startPosition;
    if (offset < m_fill || offset >= m_frameSize) {
        ++m_frameCounter;
        return plain ? beginPlainFrame(data, count, effective) : beginFrame(data, count, position);
    }
    const std::int64_t stored = std::min<std::int64_t>(count, m_frameSize - offset);
    std::copy_n(data, stored, m_samples.get() + offset);
    m_fill = static_cast<std::uint32_t>(offset + stored);
    return stored < count ? static_cast<int>(count - stored) : completion();
}

/// Begins the frame in which the last sample of the block lies.
int FrameBuffer::beginFrame(const int* data, std::int64_t count, std::int64_t position)
{
    const std::int64_t last = position + count - 1;
    m_startPosition = roundDown(last, m_frameSize);
    m_fill = static_cast<std::uint32_t>(last - m_startPosition + 1);
    const std::int64_t offset = position - m_startPosition;
    const std::int64_t dropped = offset < 0 ? -offset : 0;
    std::copy_n(data + dropped, count - dropped, m_samples.get() + offset + dropped);
    return completion();
}

/// Begins a frame without geometry, with the block at its front.
int FrameBuffer::beginPlainFrame(const int* data, std::int64_t count, std::int64_t position)
{
    const std::int64_t stored = std::min<std::int64_t>(count, m_capacity);
    m_startPosition = position;
    m_fill = static_cast<std::uint32_t>(stored);
    std::copy_n(data, stored, m_samples.get());
    return stored < count ? static_cast<int>(count - stored) : completion();
}

bool FrameBuffer::getFilled() const
{
    return m_frameSize != 0 && m_fill == m_frameSize;
}

const int* FrameBuffer::getData(unsigned* count) const
{
    if (count != nullptr) *count = m_fill;
    return m_samples.get();
}

std::uint64_t FrameBuffer::imagePixels() const
{
    return positivePart(m_xPixels) * positivePart(m_yPixels);
}

int FrameBuffer::findMeta(int key, int dflt) const
{
    const auto entry = m_metaData.find(key);
    return entry == m_metaData.end() ? dflt : entry->second;
}

void FrameBuffer::setMetaData(int key, int value)
{
    changeOrThrow([&] { m_metaData[key] = value; });
    std::int32_t* const geometry = key == KeyMode      ? &m_mode
                                   : key == KeyXPixels ? &m_xPixels
                                   : key == KeyYPixels ? &m_yPixels
                                                       : nullptr;
    if (geometry != nullptr && *geometry != value) {
        *geometry = value;
        setFrameSize();
    } else if (key == KeyReset && value != 0) {
        clear();
    }
}

void FrameBuffer::setMetaData(const VRB_Meta* meta)
{
    if (meta == nullptr) return;
    m_record = *meta;
    const VRB_Meta& record = *m_record;
    constexpr double pi = 3.141592653589793;
    constexpr double perHalfTurn = 1.52587890625e-5; // 2^-16
    const float xLength = extent(record.xPixels, record.xPitch);
    const float yLength = extent(record.yPixels, record.yPitch);
    const float gainRatio = record.sampleGain / record.sampleGainBase;
    setMetaData(KeyMode, record.mode);
    setMetaData(KeyXPixels, record.xPixels);
    setMetaData(KeyYPixels, record.yPixels);
    setMetaData(KeyXLength, algoNearest(static_cast<double>(xLength)));
    setMetaData(KeyYLength, algoNearest(static_cast<double>(yLength)));
    setMetaData(KeySampleDivisor, algoNearest(1.0 / static_cast<double>(record.sampleGain)));
    setMetaData(KeyXyUnit, record.xyUnit);
    setMetaData(KeyValueUnit, record.valueUnit);
    setMetaData(KeyRotation, algoNearest(static_cast<double>(record.rotation) * pi * perHalfTurn));
    setMetaData(KeyXOffset, algoNearest(centre(record.xStart, xLength)));
    setMetaData(KeyYOffset, algoNearest(centre(record.yStart, yLength)));
    setMetaData(KeySampleOffset,
                algoNearest(static_cast<double>(record.sampleOffset) / static_cast<double>(gainRatio)));
}

void FrameBuffer::initMetaData()
{
    changeOrThrow([&] {
        // Kept: the x length twice, and no y length.
        m_metaData = {{KeyXPixels, 1}, {KeyYPixels, 1},       {KeyXLength, 1},
                      {KeyXLength, 1}, {KeySampleDivisor, 1}, {KeyMode, 0},
                      {Key2010, 255},  {KeyXyUnit, 128},      {KeyValueUnit, 128}};
    });
    m_mode = 0;
    m_xPixels = 1;
    m_yPixels = 1;
    setFrameSize();
}
