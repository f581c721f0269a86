#include <apps/controller/telegrams.h>
#include <gtest/gtest.h>
#include <string>

using namespace controller;

TEST(Telegrams, AreLittleEndianOnTheWire)
{
    const std::int32_t words[] = {-2, 0x12345678};
    const std::vector<char> bytes = encodeTelegram(typeSet, 0x21, 3, 0x10005, words, 2);
    const char expected[] =
        "\x18\0\0\0\0\0\0\0\x21\0\0\0\x03\0\0\0\x05\0\x01\0\xFE\xFF\xFF\xFF\x78\x56\x34\x12";
    EXPECT_EQ(std::string(bytes.data(), bytes.size()), std::string(expected, 28));
}

TEST(Telegrams, WalksABlockAtAnyAlignment)
{
    const std::string tell("\x18\0\0\0\x04\0\0\0\0\x01\0\0\xFF\xFF\xFF\x7F\0\0\0\0\x01\0\0\0\xFF\xFF\xFF\xFF",
                           28);
    const std::string get("\x10\0\0\0\x01\0\0\0\x21\0\0\0\0\0\0\0\x07\0\0\0", 20);
    for (int shift = 0; shift < 4; ++shift) {
        const std::string block = std::string(std::size_t(shift), '?') + tell + get;
        TelegramReader reader(block.data() + shift, block.size() - std::size_t(shift));
        TelegramView view;
        ASSERT_TRUE(reader.next(&view));
        EXPECT_EQ(view.type, 4u);
        EXPECT_EQ(view.address, 0x100);
        EXPECT_EQ(view.index, 2147483647);
        ASSERT_EQ(view.wordCount, 2u);
        std::int32_t copied[2] = {};
        view.copyWords(1, 1, copied);
        EXPECT_EQ(copied[0], -1);
        EXPECT_EQ(view.word(0), 1);
        EXPECT_EQ(view.word(2), 0);
        ASSERT_TRUE(reader.next(&view));
        EXPECT_EQ(view.number, 7);
        EXPECT_EQ(view.wordCount, 0u);
        EXPECT_FALSE(reader.next(&view));
        EXPECT_FALSE(reader.malformed());
    }
}

TEST(Telegrams, StopsAtWhatIsNone)
{
    using Row = std::tuple<const char*, std::uint32_t, std::size_t>;
    for (const auto& [desc, length, size] :
         {Row{"too short for a header", 12, 20}, Row{"no whole words", 18, 24},
          Row{"negative", 0xFFFFFFFC, 20}, Row{"beyond the block", 20, 20}, Row{"huge", 0x7FFFFFFC, 20},
          Row{"block ends inside the header", 16, 19}, Row{"block ends inside the length", 16, 3}}) {
        std::vector<char> bytes(size + 4);
        for (std::size_t i = 0; i < 4; ++i) bytes[i] = char(length >> (8 * i));
        TelegramReader reader(bytes.data(), size);
        TelegramView view;
        EXPECT_FALSE(reader.next(&view)) << desc;
        EXPECT_TRUE(reader.malformed()) << desc;
        EXPECT_FALSE(reader.next(&view)) << desc;
    }
}
