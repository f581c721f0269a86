#include "stream.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

namespace {

using Encode = int (*)(Tdc56Instance*, const PpTimest*, int*, std::uint32_t*, int);

int encode60b(Tdc56Instance*, const PpTimest* events, int* count, std::uint32_t* output, int capacity)
{
    return tdc56Encode60b(nullptr, events, count, reinterpret_cast<std::uint8_t*>(output), capacity);
}

std::vector<PpTimest> records(const Events& events)
{
    std::vector<PpTimest> result;
    for (const auto& [time, channel] : events)
        result.push_back({time, static_cast<std::uint8_t>(channel), {}});
    return result;
}

struct Row
{
    const char* desc;
    Encode encode;
    Events events;
    int capacity;
    Words words;
    int consumed;
    int result = -1; ///< -1: as many as there are words
};

TEST(Encoders, WriteWordsWithinTheCapacity)
{
    const Events grown = {{5, 1}, {0x10000003, 2}};
    const Events two = {{1000, 1}, {1007, 5}};
    const Events bytes = {{0x123456789, 3}, {0, 1}, {0x12345678, 3}, {0x123456, 200}, {0x1234, 1}, {-5, 1}};
    // clang-format off
    const Row rows[] = {
        {"56, high word with its channel", tdc56Encode, grown, 9, {0x20000005, 0x50000001, 0x40000003}, 2},
        {"56, high word at the end", tdc56Encode, grown, 2, {0x20000005, 0x50000001}, 1},
        {"56, one word", tdc56Encode, grown, 1, {0x20000005}, 1},
        {"56, none", tdc56Encode, grown, 0, {}, 0}, {"56, negative", tdc56Encode, grown, -1, {}, 0},
        {"56, smaller high part", tdc56Encode, {{0x20000000, 0}, {0x10000001, 0}}, 9, {0x10000002, 0, 1}, 2},
        {"56, cut off", tdc56Encode, {{-1, 9}, {0x100000000000000, 255}}, 9, {0x3FFFFFFF, 0x2FFFFFFF, 0xE0000000}, 2},
        {"52", tdc56Encode52, {{5, 1}, {6, 31}, {0x4000001, 0}}, 9, {0x04000005, 0x7C000006, 0xFC000001, 1}, 3},
        {"52, markers", tdc56Encode52, {{1, 100}, {2, 103}, {3, 104}, {4, 200}, {5, 203}}, 9,
         {0x84000001, 0x90000002, 0xA4000003, 0x94000004, 0xA0000005}, 5},
        {"52, no markers", tdc56Encode52, {{1, 32}, {2, 99}, {3, 105}, {4, 199}, {5, 255}}, 9,
         {0x80000001, 0x8C000002, 0x98000003, 0x10000004, 0x70000005}, 5},
        {"52, high word at the end", tdc56Encode52, {{0x4000000, 3}}, 1, {0xFC000001}, 0},
        {"60", tdc56Encode60, two, 6, {1000, 0x80000000, 0x40000000, 0xC8000000, 0x40000007, 0xE8000000}, 2},
        {"60, 5 words", tdc56Encode60, two, 5, {1000, 0x80000000, 0x40000000, 0xC8000000}, 1},
        {"60, 3 words", tdc56Encode60, two, 3, {1000, 0x80000000}, 0},
        {"60, 2 words", tdc56Encode60, two, 2, {1000, 0x80000000}, 0},
        {"60, 1 word", tdc56Encode60, two, 1, {}, 0}, {"60, none", tdc56Encode60, two, 0, {}, 0},
        {"60, negative", tdc56Encode60, two, -6, {}, 0}, {"60, no event", tdc56Encode60, {}, 9, {}, 0},
        {"60, 60 bits", tdc56Encode60, {{-1, 0}}, 2, {0x3FFFFFFF, 0xBFFFFFFF}, 0},
        {"60, backwards", tdc56Encode60, {{10, 0}, {9, 0}}, 6,
         {10, 0x80000000, 0x40000000, 0xC0000000, 0x7FFFFFFF, 0xC7FFFFFF}, 2},
        {"60, markers, then a channel", tdc56Encode60, {{15003, 102}, {15003, 203}, {15300, 4}}, 8,
         {15003, 0x80000000, 0x40000001, 0xF0000000, 0x400000FC, 0xF0000000, 0x4000002C, 0xE0000000}, 3},
        {"60, marker below 0", tdc56Encode60, {{-7501, 100}}, 4, {0x3FFFE2B3, 0xBFFFFFFF, 0x400009C6, 0xF0000000}, 1},
        {"60, no markers: 2^20, 2^64, 2^35, channel 3", tdc56Encode60,
         {{15000, 120}, {15000, 164}, {15000, 230}, {15000, 99}}, 10, {15000, 0x80000000, 0x40100000, 0xF0000000,
         0x7FF00000, 0xF7FFFFFF, 0x40000000, 0xF0000020, 0x40000000, 0xDFFFFFE0}, 4},
        // The bytes, four a word, lowest first; EE is what was there before.
        {"60b, each form", encode60b, bytes, 7, {0x8D159E24, 4, 0x7800000C, 0xEE123456, 0x12345621, 0xEE123405}, 6, 5},
        {"60b, full", encode60b, bytes, 4, {0x8D159E24, 4, 0x7800000C, 0xEE123456}, 3},
        {"60b, cut", encode60b, bytes, 1, {0x8D159E24}, 1, 2},
        {"60b, cut most", encode60b, {{1, 1}, {0x100000000, 2}}, 1, {0x00000105}, 2, 3},
        {"60b, the largest below", encode60b, {{0xFFFF, 0}, {0xFFFFFF, 0}, {0xFFFFFFFF, 0}}, 3,
         {0x01FFFF01, 0xFFFFFFFF, 0xEEFFFFFF}, 3},
        {"60b, the smallest above", encode60b, {{0x10000, 0}, {0x1000000, 0}}, 3, {0x01000001, 0x01000000}, 2},
        {"60b, highest", encode60b, {{0x7FFFFFFFFFFFFFFF, 255}}, 3, {0xFFFFFFFC, 0xFFFFFFFF, 0xEE0000FC}, 1, 2},
        {"60b, none", encode60b, bytes, 0, {}, 0}, {"60b, negative", encode60b, bytes, -1, {}, 0},
    };
    // clang-format on
    for (const Row& row : rows) {
        const Stream stream;
        for (int available : {static_cast<int>(row.events.size()), 0, -1}) {
            const Words none;
            Words expected = available > 0 ? row.words : none;
            const int result = row.result < 0 ? static_cast<int>(expected.size()) : row.result;
            expected.resize(static_cast<std::size_t>(std::max(row.capacity, 0)), 0xEEEEEEEE);
            Words output(expected.size(), 0xEEEEEEEE);
            int count = available;
            const int written =
                row.encode(stream.instance, records(row.events).data(), &count, output.data(), row.capacity);
            EXPECT_EQ(written, available > 0 ? result : 0) << row.desc;
            EXPECT_EQ(output, expected) << row.desc;
            EXPECT_EQ(count, available > 0 ? row.consumed : 0) << row.desc;
        }
    }
}

TEST(Encoders, WhatTheyWriteReadsBack)
{
    const struct
    {
        Encode encode;
        Format format;
        Words zero; ///< a high word 0
    } rows[] = {{tdc56Encode, Format::f56, {0x10000000}},
                {tdc56Encode52, Format::f52, {0xFC000000}},
                {tdc56Encode60, Format::f60, {}}};
    const std::pair<int, int> markers[] = {{100, 1},  {101, 2},  {102, 4},   {103, 8},  {104, 16},
                                           {200, 32}, {201, 64}, {202, 128}, {203, 256}};
    std::mt19937 random(3);
    for (const auto& row : rows) {
        Events events;
        std::int64_t time = 1;
        for (int i = 0; i < 9000; ++i, time += random() % (i % 10 == 0 ? 600000000 : 20000)) {
            if (row.encode == tdc56Encode || i % 7 != 0) {
                events.emplace_back(time, random() % 6);
            } else { // format 60: on the grid, and what follows is not before the carrier
                const auto& [code, flag] = markers[random() % 9];
                events.emplace_back(time = time / 5000 * 5000 + 5000, code);
                time += flag;
            }
        }
        const std::vector<PpTimest> all = records(events);
        const Stream writer;
        Stream reader;
        reader.feed(row.format, row.zero);
        for (int done = 0, count = 1; done < 9000 && count > 0; done += count) {
            Words words(3000 + random() % 100);
            count = 9000 - done;
            const int written = row.encode(writer.instance, &all[static_cast<std::size_t>(done)], &count,
                                           words.data(), static_cast<int>(words.size()));
            words.resize(static_cast<std::size_t>(written));
            reader.feed(row.format, words);
        }
        EXPECT_EQ(reader.events, events);
    }
}

} // namespace
