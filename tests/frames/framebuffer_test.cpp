#include "buffers.h"

#include <climits>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <vorelutil/trace/error.h>

using ::testing::ElementsAreArray;

static std::vector<int> held(const FrameBuffer& frame)
{
    unsigned count = 0;
    const int* const data = frame.getData(&count);
    return {data, data + count};
}

TEST(FrameBuffer, DerivesFrameSizeAndDimensions)
{
    // clang-format off
    const struct { const char* desc; int mode, x, y, size; unsigned frameSize, dimensions; } rows[] = {
        {"stream uses x alone", 2, 5, 0, 9, 5, 1},     {"stream without pixels", 2, 0, 5, 9, 0, 1},
        {"line", 3, 4, 1, 9, 4, 1},                    {"area", 5, 4, 3, 9, 12, 2},
        {"line with return", 6, 4, 1, 9, 8, 1},        {"area with return", 4, 4, 3, 9, 24, 2},
        {"no x pixels", 3, 0, 5, 9, 0, 2},             {"both negative", 4, INT_MIN, INT_MIN, 9, 0, 1},
        {"unknown mode", -1, 4, 3, 9, 9, 0},           {"negative default size", 0, 4, 3, -9, 0, 0}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.desc);
        FrameBuffer frame;
        frame.setDfltBufSize(row.size, false);
        activate(&frame, row.mode, row.x, row.y, {1});
        EXPECT_EQ(frame.frameSize(), row.frameSize);
        EXPECT_EQ(frame.dimensions(), row.dimensions);
        EXPECT_EQ(frame.filled(), row.frameSize == 0 ? 0U : 1U);
        frame.setActive(false);
        EXPECT_EQ(frame.frameSize() + frame.dimensions() + frame.capacity() + frame.filled(), 0U);
    }
}

TEST(FrameBuffer, RefusesFramesBeyondThirtyTwoBits)
{
    const int sizes[][3] = {{3, 65536, 65536}, {4, 32768, 65536}, {6, INT_MAX, INT_MAX}, {5, INT_MAX, 3}};
    for (const auto& [mode, x, y] : sizes) {
        SCOPED_TRACE(x);
        FrameBuffer frame;
        activate(&frame, mode, 4, 2, numbers(1, 4));
        set(&frame, {{0x2003, 0}, {0x2002, x}});
        EXPECT_THROW(frame.setMetaData(0x2003, y), OomError);
        EXPECT_EQ(frame.getData(nullptr), nullptr);
        EXPECT_EQ(add(&frame, numbers(1, 4)), -1);
        set(&frame, {{0x2003, 0}, {0x2002, 2}, {0x2003, 1}});
        EXPECT_GT(add(&frame, numbers(1, 6)), 0) << "usable again";
    }
}

// A sanitizer's shadow needs the address space itself.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !defined(__clang__)
TEST(FrameBuffer, ThrowsWhenThereIsNoMemory)
{
    FrameBuffer frame;
    FrameBuffer stream;
    activate(&frame, 3, 4, 2, numbers(1, 4), 8);
    activate(&stream, 2, 50000, 50000, numbers(1, 4));
    rlimit old{};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &old), 0);
    const rlimit tight{rlim_t{2} << 30, old.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_AS, &tight), 0);
    EXPECT_THROW(frame.reallocBuffer(16, 3000000000U), OomError) << "sort array";
    EXPECT_EQ(frame.getData(nullptr), nullptr);
    EXPECT_THROW(frame.setMetaData(0x2003, 1000000000), OomError);
    EXPECT_EQ(add(&frame, numbers(1, 4)), 0) << "not complete, nothing stored";
    EXPECT_EQ(frame.capacity() + frame.filled() + frame.startPosition(), 0);
    EXPECT_EQ(stream.saveFrameAsc("unused", "", false, false), 3);
    EXPECT_EQ(stream.saveFrameBcr("unused", "", false), 3);
    setrlimit(RLIMIT_AS, &old);
}
#endif

TEST(FrameBuffer, PlacesBlocks)
{
    // clang-format off
    struct Block { int position, count, result; }; // samples 100, 101 ..., then 200, 201 ...
    const struct { const char* desc; int mode, x, y, size; bool append; std::vector<Block> blocks; std::int64_t start;
                   std::vector<int> held; unsigned newFrames; } rows[] = {
        {"past the end", 3, 4, 2, 0, false, {{0, 6, 0}, {6, 4, 2}}, 0, {100, 101, 102, 103, 104, 105, 200, 201}, 0},
        {"longer than a frame", 3, 4, 2, 0, false, {{0, 8, -1}, {8, 20, 0}}, 24, {216, 217, 218, 219}, 1},
        {"a gap keeps old samples", 3, 4, 2, 0, false, {{0, 8, -1}, {8, 2, 0}, {12, 2, 0}}, 8,
            {200, 201, 102, 103, 300, 301}, 1},
        {"a step back", 3, 4, 2, 0, false, {{0, 4, 0}, {2, 2, 0}}, 0, {100, 101, 200, 201}, 1},
        {"below zero", 3, 4, 2, 0, false, {{-3, 2, 0}}, -8, {0, 0, 0, 0, 0, 100, 101}, 1},
        {"across zero", 3, 4, 2, 0, false, {{-2, 4, 0}}, 0, {102, 103}, 1},
        {"at the upper end", 3, 4, 2, 0, false, {{INT_MAX - 1, 4, 0}}, 2147483648, {102, 103}, 1},
        {"at the lower end", 3, 5, 2, 0, false, {{INT_MIN, 3, 0}, {INT_MIN + 3, 5, -1}}, -2147483650,
            {0, 0, 100, 101, 102, 200, 201, 202, 203, 204}, 1},
        {"from end to end", 3, 4, 1, 0, false, {{INT_MAX, 1, -1}, {INT_MIN, 4, -1}}, INT_MIN, {200, 201, 202, 203}, 2},
        {"nothing", 3, 4, 2, 0, false, {{0, 0, 0}, {0, -5, 0}, {0, INT_MIN, 0}}, 0, {}, 0},
        {"mode 0, at its offset", 0, 1, 1, 8, false, {{0, 3, 0}, {5, 2, 0}}, 0, {100, 101, 102, 0, 0, 200, 201}, 0},
        {"mode 0, new frame", 0, 1, 1, 8, false, {{0, 8, -1}, {9, 3, 0}}, 9, {200, 201, 202}, 1},
        {"mode 0, new frame is clipped", 0, 1, 1, 4, false, {{-100, 6, 2}}, -100, {100, 101, 102, 103}, 1},
        {"append ignores the position", 0, 1, 1, 4, true, {{50, 3, 0}, {7, 3, 2}}, 0, {100, 101, 102, 200}, 0},
        {"append after the first wrap", 0, 1, 1, 4, true, {{0, 4, -1}, {0, 3, 0}, {0, 1, 0}}, 3, {300}, 2},
        {"other mode without geometry", 7, 1, 1, 8, true, {{3, 2, 0}, {13, 2, 0}}, 8, {0, 0, 0, 100, 101, 200, 201}, 1}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.desc);
        FrameBuffer frame;
        frame.setDfltBufSize(row.size, row.append);
        activate(&frame, row.mode, row.x, row.y);
        int first = 100;
        for (const Block& block : row.blocks) {
            const std::vector<int> samples = numbers(first, 100);
            EXPECT_EQ(frame.addData(samples.data(), block.count, block.position), block.result) << first;
            first += 100;
        }
        EXPECT_EQ(frame.startPosition(), row.start);
        EXPECT_EQ(frame.frameCounter(), row.newFrames);
        EXPECT_THAT(held(frame), ElementsAreArray(row.held));
        EXPECT_EQ(frame.getFilled(), row.held.size() == frame.frameSize());
    }
}

TEST(FrameBuffer, SortsImages)
{
    // Samples 1, 2, 3 ...; pixels without one are 99. Per mode: even and odd frames, directions, parts.
    // clang-format off
    const struct { int mode, x, y, size, position, count; bool forward; int placed; std::vector<int> image; } rows[] = {
        {3, 3, 2, 0, 0, 6, true, 6, {4, 5, 6, 1, 2, 3}},      {3, 3, 2, 0, 6, 6, true, 6, {1, 2, 3, 4, 5, 6}},
        {3, 3, 2, 0, 0, 6, false, 0, std::vector(6, 99)},     {3, 3, 2, 0, 0, 4, true, 4, {4, 99, 99, 1, 2, 3}},
        // One sample missing.
        {3, 3, 2, 0, 0, 5, true, 6, {4, 5, 5, 1, 2, 3}},      {3, 2, 1, 0, 0, 1, true, 2, {1, 1}},
        {3, 1, 1, 0, 0, 0, true, 0, {99}},                    {4, 3, 2, 0, 0, 5, false, 2, {99, 99, 99, 99, 5, 4}},
        {4, 3, 2, 0, 0, 12, true, 6, {7, 8, 9, 1, 2, 3}},     {4, 3, 2, 0, 0, 12, false, 6, {12, 11, 10, 6, 5, 4}},
        {4, 3, 2, 0, 12, 12, true, 6, {1, 2, 3, 7, 8, 9}},    {4, 3, 2, 0, 12, 12, false, 6, {6, 5, 4, 12, 11, 10}},
        {5, 11, 1, 0, 0, 11, false, 11, {11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1}}, // longer than a vector register
        {6, 3, 2, 0, 0, 12, true, 6, {10, 11, 12, 4, 5, 6}},  {6, 3, 2, 0, 0, 12, false, 6, {9, 8, 7, 3, 2, 1}},
        // A stream is backward; without geometry: on into an odd frame, from within a line.
        {2, 4, 2, 0, 0, 4, false, 4, {99, 99, 99, 99, 4, 3, 2, 1}},
        {0, 2, 2, 6, 0, 6, false, 6, {6, 5, 2, 1}},           {0, 3, 2, 4, 20, 4, false, 4, {1, 99, 99, 4, 3, 2}},
        // Below zero, up to the last position, beyond it.
        {3, 3, 2, 0, -6, 6, true, 0, std::vector(6, 99)},     {3, 4, 2, 0, INT_MAX - 1, 9, true, 0, std::vector(8, 99)},
        {0, 4, 2, 6, INT_MAX - 1, 6, false, 2, {99, 99, 99, 99, 2, 1, 99, 99}}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        FrameBuffer frame;
        frame.setDfltBufSize(row.size, false);
        activate(&frame, row.mode, row.x, row.y, numbers(1, row.count), row.position);
        std::vector<int> image(row.image.size() + 2, -1);
        EXPECT_EQ(frame.sortData(image.data() + 1, row.forward, 99), row.placed);
        EXPECT_EQ(image.front() + image.back(), -2) << "written beside the image";
        EXPECT_THAT(std::vector<int>(image.begin() + 1, image.end() - 1), ElementsAreArray(row.image));
        EXPECT_EQ(frame.sortData(nullptr, row.forward, 99), 0);
    }
}

TEST(FrameBuffer, KeepsWithinReplacedStorage)
{
    FrameBuffer frame;
    int image[4] = {1, 2, 3, 4};
    EXPECT_EQ(frame.sortData(image, true, 99), 0) << "inactive: one pixel";
    EXPECT_THAT(image, ElementsAreArray({99, 2, 3, 4}));
    activate(&frame, 3, 2, 2, numbers(1, 3));
    frame.reallocBuffer(3, 0); // below the frame size
    EXPECT_EQ(add(&frame, numbers(1, 3)), 0);
    frame.reallocBuffer(6, 0);
    add(&frame, {1, 2});
    EXPECT_EQ(frame.sortData(image, true, 7), 2);
    frame.setMetaData(0x2003, -1);
    EXPECT_EQ(frame.sortData(image, true, 55), 0) << "no pixels";
    EXPECT_THAT(image, ElementsAreArray({7, 7, 1, 2}));
}

TEST(FrameBuffer, KeepsMetaData)
{
    FrameBuffer frame;
    EXPECT_EQ(frame.findMeta(0x2010, -7) + frame.findMeta(0x2005, 7), 255 + 7);
    frame.setMetaData(-12345, 6);
    EXPECT_EQ(frame.findMeta(-12345, 0), 6);

    activate(&frame, 3, 2, 2, {1, 2}, 4);
    set(&frame, {{0x2100, 0}, {0x2002, 2}});
    EXPECT_EQ(frame.filled(), 2U) << "no reset, and no new geometry";
    frame.setMetaData(0x2100, 1);
    EXPECT_EQ(frame.filled() + frame.startPosition(), 0);
    EXPECT_EQ(frame.frameCounter(), 1U) << "only switching off resets it";
    frame.initMetaData();
    EXPECT_EQ(frame.findMeta(-12345, 0), 0);
    frame.setDfltBufSize(8, false);
    activate(&frame, 0, 8, 1, {1, 2, 3});
    frame.setMetaData(0x2001, 2);
    EXPECT_EQ(frame.filled(), 0U) << "the dimensions alone change";
}

TEST(FrameBuffer, LoadsTheRecord)
{
    // Lengths in single precision: 3 * 5592405.5 is 16777216.5, a float 16777216. Halves go away from zero.
    const VRB_Meta meta{4, 4, 6, 5592405.5F, -0.5F, 100.0F, -3.0F, -32768, 0x17D, 0.001F, 2.0F, 0.5F, 0x280};
    // clang-format off
    const int entries[][2] = {
        {0x2001, 4}, {0x2002, 4}, {0x2003, 6}, {0x2004, 16777216}, {0x2005, -3}, {0x2006, 8388708}, {0x2007, -4},
        {0x2008, -2}, {0x200A, 1000}, {0x2012, 0x17D}, {0x2013, 0x280}, {0x2014, 1000}};
    // clang-format on
    FrameBuffer frame;
    frame.setMetaData(&meta);
    for (const auto& [key, value] : entries) EXPECT_EQ(frame.findMeta(key, 7), value) << std::hex << key;
    const VRB_Meta wild{3, INT_MIN, INT_MIN, 1.0F, 1e30F, 0.0F, 0.0F, 1e38F, -1, 0.0F, 1.0F, 1.0F, -1};
    frame.setMetaData(&wild);
    frame.setMetaData(static_cast<const VRB_Meta*>(nullptr));
    for (const int key : {0x2004, 0x2005, 0x2008, 0x200A}) EXPECT_EQ(frame.findMeta(key, 7), INT_MIN) << key;

    const VRB_Meta line{3, 3, 1, 1, 1, 0, 0, 0, 128, 1, 1, 0, 128};
    const std::vector<int> samples = numbers(1, 5);
    EXPECT_THAT(held(FrameBuffer(samples.data(), 5, 77, &line)), ElementsAreArray({1, 2, 3}));
    EXPECT_EQ(FrameBuffer(samples.data(), 5, 77, nullptr).frameSize(), 5U) << "mode 0";
    EXPECT_EQ(FrameBuffer(samples.data(), -5, 77, nullptr).startPosition(), 77) << "holds nothing";
    EXPECT_EQ(FrameBuffer(nullptr, 5, 0, nullptr).filled(), 0U);
}

TEST(FrameBuffer, CopiesSettingsAndSamplesOnRequest)
{
    const VRB_Meta meta{3, 3, 1, 1, 1, 0, 0, 0, 128, 1, 1, 0, 128};
    FrameBuffer source;
    source.setMetaData(&meta);
    set(&source, {{0x2013, 0x280}, {0x4711, 5}}); // win over the record
    source.setActive(true);
    add(&source, {1, 2}, 3);

    FrameBuffer full(source, true);
    add(&source, {50}, 5);
    EXPECT_THAT(held(full), ElementsAreArray({1, 2}));
    EXPECT_EQ(full.startPosition() + full.frameCounter(), 3 + 1);
    EXPECT_EQ(add(&full, {3}, 5), -1);

    FrameBuffer copy;
    activate(&copy, 2, 100, 1);
    copy = source;
    EXPECT_EQ(copy.filled() + copy.frameCounter(), 0U);
    EXPECT_EQ(copy.capacity(), 3U) << "active, with the source's geometry";
    EXPECT_EQ(copy.findMeta(0x2013, 0) + copy.findMeta(0x4711, 0), 0x280 + 5);
    FrameBuffer plain;
    plain.setDfltBufSize(8, true);
    activate(&plain, 0, 1, 1, {1, 2});
    FrameBuffer appending(plain, true);
    add(&appending, {3}, 50);
    appending.init(&appending);
    EXPECT_THAT(held(appending), ElementsAreArray({1, 2, 3})) << "the append flag";
}
