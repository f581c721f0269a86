#include <apps/controller/telegrams.h>
#include <gtest/gtest.h>
#include <string>
#include <tuple>

using namespace controller;

TEST(Telegrams, AreLittleEndianAndReadAtAnyAlignment)
{
    const std::int32_t words[] = {-2, 0x12345678};
    const std::vector<char> bytes = encodeTelegram(typeSet, 0x21, 2147483647, 0x10005, words, 2);
    const std::string set(bytes.begin(), bytes.end());
    EXPECT_EQ(set, std::string("\x18\0\0\0\0\0\0\0\x21\0\0\0\xFF\xFF\xFF\x7F\x05\0\x01\0"
                               "\xFE\xFF\xFF\xFF\x78\x56\x34\x12",
                               28));
    const std::string get("\x10\0\0\0\x01\0\0\0\x21\0\0\0\0\0\0\0\x07\0\0\0", 20);
    for (int shift = 0; shift < 4; ++shift) {
        const std::string block = std::string(std::size_t(shift), '?') + set + get;
        TelegramReader reader(block.data() + shift, block.size() - std::size_t(shift));
        TelegramView view;
        ASSERT_TRUE(reader.next(&view));
        ASSERT_EQ(view.wordCount, 2u);
        std::int32_t copied = 0;
        view.copyWords(1, 1, &copied);
        EXPECT_EQ(std::tuple(view.address, view.index, view.number), std::tuple(0x21, 2147483647, 0x10005));
        EXPECT_EQ(std::tuple(view.word(0), copied, view.word(2)), std::tuple(-2, 0x12345678, 0)) << shift;
        ASSERT_TRUE(reader.next(&view));
        EXPECT_EQ(std::pair(view.type, view.wordCount), std::pair(1u, std::size_t(0)));
        EXPECT_FALSE(reader.next(&view) || reader.malformed());
    }
}

TEST(Telegrams, StopsAtWhatIsNone)
{
    // clang-format off
    const std::pair<std::uint32_t, std::size_t> rows[] = { // length in the telegram, size of the block
        {12, 20} /* too short for a header */, {18, 24} /* no whole words */, {0xFFFFFFFC, 20} /* negative */,
        {20, 20} /* beyond the block */, {0x7FFFFFFC, 20} /* huge */,
        {16, 19} /* block ends inside the header */, {16, 3} /* and inside the length */};
    // clang-format on
    for (const auto& [length, size] : rows) {
        std::vector<char> bytes(size + 4);
        for (std::size_t i = 0; i < 4; ++i) bytes[i] = char(length >> (8 * i));
        TelegramReader reader(bytes.data(), size);
        TelegramView view;
        EXPECT_FALSE(reader.next(&view)) << length << ' ' << size;
        EXPECT_TRUE(reader.malformed()) << length << ' ' << size;
        EXPECT_FALSE(reader.next(&view)) << length << ' ' << size;
    }
}
