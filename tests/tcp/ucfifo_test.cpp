#include <gtest/gtest.h>
#include <string>
#include <vector>
#include <vorelutil/tcp/ucfifo.h>

TEST(UcFifo, GivesRoomAndBlocksWhereTheRingSaysSo)
{
    // One call: 'w' startWrite and finishWrite, 'p' startWrite alone, 'r' startRead and finishRead of all,
    // 'h' startRead and finishRead of half; n: bytes asked for, or the count that startRead must give;
    // offset: where, from the start of the buffer; -1 for null
    // clang-format off
    struct Step { char call; int n, offset; };
    const struct { const char* desc; int size; std::vector<Step> steps; } scripts[] = {
        {"a second frame of 60 waits until read > 60", 100,
         {{'r', 0, -1}, {'w', 60, 0}, {'p', 60, -1}, {'r', 60, 0}, {'p', 60, -1}, {'w', 10, 60}, {'p', 60, -1},
          {'r', 10, 60}, {'w', 60, 0}, {'r', 60, 0}, {'r', 0, -1}}},
        {"a frame may end exactly at the end of the buffer", 100, {{'w', 40, 0}, {'w', 60, 40}, {'p', 1, -1}, {'r', 100, 0}}},
        {"the whole buffer fits once", 100, {{'p', 101, -1}, {'w', 100, 0}, {'r', 100, 0}, {'p', 100, -1}, {'w', 99, 0}}},
        {"wrapping needs strictly more room than the frame", 100,
         {{'w', 60, 0}, {'r', 60, 0}, {'w', 40, 60}, {'p', 60, -1}, {'w', 59, 0}, {'r', 40, 60}, {'r', 59, 0}}},
        {"a lap ahead, the writer never reaches the reader", 100,
         {{'w', 80, 0}, {'h', 80, 0}, {'p', 40, -1}, {'w', 20, 80}, {'w', 30, 0}, {'p', 10, -1}, {'w', 9, 30},
          {'p', 1, -1}, {'r', 60, 40}, {'r', 39, 0}}},
        {"a reservation that wrapped and was abandoned loses nothing", 100,
         {{'w', 90, 0}, {'h', 90, 0}, {'p', 30, 0}, {'r', 45, 45}, {'r', 0, -1}, {'w', 30, 0}, {'r', 30, 0}}},
        {"frames of 0 bytes are no data", 10, {{'w', 0, 0}, {'r', 0, -1}, {'w', 10, 0}, {'p', 0, 10}}},
        {"no size at all", 0, {{'p', 1, -1}, {'r', 0, -1}}}, {"a negative size", -5, {{'p', 1, -1}, {'r', 0, -1}}},
    };
    // clang-format on
    for (const auto& script : scripts) {
        UcFifo fifo(script.size);
        const char* const base = fifo.startWrite(0);
        int number = 0;
        for (const Step& step : script.steps) {
            SCOPED_TRACE(std::string(script.desc) + ", step " + std::to_string(number++));
            const bool writing = step.call == 'w' || step.call == 'p';
            int count = -1;
            const char* const place = writing ? fifo.startWrite(step.n) : fifo.startRead(&count);
            ASSERT_EQ(place == nullptr ? -1 : place - base, step.offset);
            ASSERT_TRUE(writing || count == step.n) << count;
            if (place == nullptr || step.call == 'p') continue;
            if (writing) fifo.finishWrite(step.n);
            if (!writing) fifo.finishRead(step.call == 'h' ? count / 2 : count);
        }
    }
}
