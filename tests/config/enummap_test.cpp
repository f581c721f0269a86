#include <climits>
#include <gtest/gtest.h>
#include <vorelutil/config/enummap.h>

TEST(EnumMap, ReadsEntries)
{
    // clang-format off
    const char* const rows[][2] = {
        {"Off:Slow=10:Fast:Auto=0x20",  "[Off=0][Slow=10][Fast=11][Auto=32]"},
        {" A = -3 :\tB :C = +4\n",      "[A=-3][B=-2][C=4]"},
        {"a=017:b=0:c=0X1f:d=-0x10",    "[a=15][b=0][c=31][d=-16]"},
        {"a=2147483647:b:c=0xFFFFFFFF", "[a=2147483647][b=-2147483648][c=-1]"},
        {"a=2147483648:b=-2147483649:c=0x100000000", "[a=2147483648=0][b=-2147483649=1][c=0x100000000=2]"},
        {"a=-2147483648:b=-0x80000000:c=-0x80000001", "[a=-2147483648][b=-2147483648][c=-0x80000001=-2147483647]"},
        {"a=08:b=0x:c=:d=-:e=5 V:f= 6", "[a=08=0][b=0x=1][c==2][d=-=3][e=5 V=4][f=6]"},
        {"a=b=5:x >= y:\xD9\xA5=\xD9\xA5", "[a=b=5][x >= y=6][\xD9\xA5=\xD9\xA5=7]"}, // not ASCII: no digits
        {"a=1111111111222222222233333333334444444444", "[a=1111111111222222222233333333334444444444=0]"},
        {"A::: :B:=7:C:=",              "[A=0][B=1][=7][C=8][==9]"},
    };
    // clang-format on
    for (const auto& row : rows) {
        const EnumMap map(row[0]);
        QString list;
        for (int i = 0; i < map.count(); ++i)
            list += QString("[%1=%2]").arg(map.captionAt(i)).arg(map.valueAt(i));
        EXPECT_EQ(list.toStdString(), row[1]);
    }
    EXPECT_TRUE(EnumMap(QString(10'000'000, ':')).isEmpty());
}

TEST(EnumMap, AnswersByValueCaptionPositionAndOrder)
{
    const EnumMap map("high=5:low=-2:mid=3:again=5:low=9");
    const int positions[] = {1, 2, 0, 3, 4}; // by value
    for (int order = 0; order < 5; ++order) {
        EXPECT_EQ(map.positionInOrder(order), positions[order]);
        EXPECT_EQ(map.orderOf(positions[order]), order);
    }
    const EnumMap same(QString("a=0:").repeated(40)); // equal values keep their places
    for (int position = 0; position < 40; ++position) EXPECT_EQ(same.positionInOrder(position), position);
    EXPECT_EQ(map.caption(5, "none"), "high"); // the first of two
    EXPECT_EQ(map.value("low", 77), -2);
    EXPECT_EQ(map.positionOf("again"), 3);
    EXPECT_EQ(map.caption(4, "none"), "none");
    EXPECT_EQ(map.value("Low", 77), 77); // case counts
    for (const int outside : {-1, 5, INT_MIN, INT_MAX}) {
        EXPECT_EQ(map.captionAt(outside), QString());
        EXPECT_EQ(map.valueAt(outside, 77), 77);
        EXPECT_EQ(map.positionInOrder(outside) + map.orderOf(outside), -2);
    }
}
