#include <climits>
#include <gtest/gtest.h>
#include <tuple>
#include <vorelutil/firmware/fpgainterface.h>

TEST(FpgaInterface, ComposesAddressAndWord)
{
    // clang-format off
    const std::tuple<int, int, int, int, int, int, int> rows[] = {
        {1,  1,  2,  3, 0x0906, 0x12345, 0x09062345},
        {2, 15, 15, 63, 0x7FFE,      -1, 0x7FFEFFFF},
        {3,  1,  2,  3, 0x0900,  0x1234, 0x09000003},
        {1, 17, -1, 64, 0x0F80,       0, 0x0F800000}, // masked
        {9,  1,  2,  3, 0x0906, INT_MIN, 0x09060000}, // as a set
    };
    // clang-format on
    for (const auto& [kind, high, mid, low, address, value, word] : rows) {
        FpgaInterface fpga(kind, high, mid, low);
        EXPECT_EQ(fpga.getAddress(), address);
        EXPECT_EQ(fpga.sendWord, -1);
        EXPECT_EQ(fpga.makeSendable(value), word);
        EXPECT_EQ(fpga.sendWord, word);
        fpga.setTarget(5, 21, 65);
        EXPECT_EQ(fpga.getAddress(), kind == FpgaInterface::cset ? 0x0900 : 0x2A82); // a command's stays
        EXPECT_EQ(fpga.targetLow, 1);
    }
}

TEST(FpgaInterface, PrintsOneLine)
{
    testing::internal::CaptureStdout();
    for (int kind = 0; kind < 5; ++kind) {
        FpgaInterface fpga = kind == 0 ? FpgaInterface() : FpgaInterface(kind, 1, 2, 3);
        if (kind == 1) std::tie(fpga.sendWord, fpga.recvWord) = std::tuple(5, 0xA);
        if (kind == 2) fpga.makeSendable(0x12345);
        fpga.print();
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "FpgaInterface(undefined[0,0,0]) send[0xffffffff], recv[0xffffffff] -> 0x0000\n"
              "FpgaInterface(pset[1,2,3]) send[0x0005], recv[0x000a] -> 0x0906\n"
              "FpgaInterface(pget[1,2,3]) send[0x9062345], recv[0xffffffff] -> 0x0906\n"
              "FpgaInterface(cset[1,2,3]) send[0xffffffff], recv[0xffffffff] -> 0x0900\n"
              "FpgaInterface(undefined[1,2,3]) send[0xffffffff], recv[0xffffffff] -> 0x0906\n");
}
