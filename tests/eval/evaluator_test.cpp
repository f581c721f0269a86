#include <array>
#include <cmath>
#include <gmock/gmock.h>
#include <iostream>
#include <QByteArray>
#include <sstream>
#include <thread>
#include <vorelutil/eval/evaluator.h>
#include <vorelutil/trace/error.h>

#include "tests/support/germanlocale.h"
#include "tests/support/require.h"

namespace {

/// While it lives, what is written to standard output goes to `text`.
struct Output
{
    ~Output() { std::cout.rdbuf(former); }
    std::ostringstream text;
    std::streambuf* const former = std::cout.rdbuf(text.rdbuf());
};

class EvaluatorTest : public ::testing::Test
{
protected:
    EvaluatorTest()
    {
        // clang-format off
        const std::pair<const char*, double> variables[] = {
            {"x", 5}, {"scale", 2}, {"offset", 1}, {"gain2", 20}, {"gain6", 60}, {"g0.333333", 3}, {"g1e+06", 6},
            {"a#b#c", 7}, {"12abc", 12}, {"0x", 16}, {"1e400", 400}, {"inf", 8}, {"1e", 1.5}, {"0X1F", 32}, {"a b", 9},
            {"nan", NAN}, {"7", 77}, {"+-5", 55}, {"0x80000000", 2}, {".", 0.5}, {"+", 10}, {"f(1)2", 12}, {"-", 11}};
        // clang-format on
        for (const auto& [name, value] : variables) evaluator.setVariable(name, value);
    }
    std::string failure(const std::string& formula, const std::string& source = "s", int line = 3) const
    {
        try {
            evaluator.evaluateDouble(formula, source, line, false);
            return "none";
        } catch (const XmlError& error) {
            return error.message;
        }
    }
    void expectValues(const std::vector<std::pair<std::string, double>>& rows) const
    {
        for (const auto& [formula, expected] : rows) {
            SCOPED_TRACE(formula);
            EXPECT_NO_THROW(
                EXPECT_THAT(evaluator.evaluateDouble(formula), testing::NanSensitiveDoubleEq(expected)));
        }
    }

    Evaluator evaluator;
};

} // namespace

TEST_F(EvaluatorTest, ReadsNumbersAndNames)
{
    // clang-format off
    expectValues({
        {"+(*(x,scale),offset)", 11}, {" \t+\n( x\v,\f2 )\r", 7}, {"+(1,2)zz(3,", 3}, {"+(+(1,2) x(9,9) ,4)", 7},
        {"0x1F", 31}, {"0x7FFFFFFF", 2147483647}, {"0x-80000000", -2147483648.0}, {"0x 1f", 31}, {"0x+5", 5},
        {"0x0x1F", 31}, {"0x0X1F", 31}, {"/(1,0x-0)", INFINITY}, {"+5", 5}, {"-.5", -0.5}, {"5.", 5}, {"1E-2", 0.01},
        {"1e-400", 0}, {"7", 7}, {"#7", 77},
        // names that look like numbers; composed names
        {"12abc", 12}, {"0x", 16}, {"1e400", 400}, {"inf", 8}, {"1e", 1.5}, {"0X1F", 32}, {"a b", 9}, {"+", 10},
        {"nan", NAN}, {"+-5", 55}, {"0x80000000", 2}, {".", 0.5}, {"-", 11}, {"gain#2", 20}, {"gain#+(x,1)", 60},
        {"g#/(1,3)", 3}, {"g#1e6", 6}, {"a#b#c", 7}, {"f(1)#2", 12}, {"+(gain#*(1,2),gain# 6 )", 80},
    });
    // clang-format on
}

TEST_F(EvaluatorTest, ComputesFunctions)
{
    // clang-format off
    expectValues({
        {"+(1,2,3,4,5,6,7,8,9,10)", 55}, {"*(2,2.5,-3)", -15}, {"-(1,3)", -2}, {"/(1,4)", 0.25},
        {"/(-1,0)", -INFINITY}, {"/(0,0)", NAN}, {"+(1e100,1,-1e100)", 0}, {"%(7.6,3)", 2}, {"%(-7,3)", -1},
        {"%(7,-3)", 1}, {"%(5,0)", 0}, {"%(5,0.4)", 0}, {"%(-2147483648,-1)", 0}, {"%(nan,-1)", 0},
        {"%(1e300,10)", -8}, {"==(1,1)", 1}, {"==(1,2)", 0}, {"==(nan,nan)", 0}, {"!=(1,1)", 0}, {"!=(1,2)", 1},
        {"!=(nan,nan)", 1}, {">(2,1)", 1}, {">(1,1)", 0}, {">=(1,1)", 1}, {">=(1,2)", 0}, {"<(1,2)", 1}, {"<(1,1)", 0},
        {"<=(1,1)", 1}, {"<=(2,1)", 0}, {">(nan,1)", 0}, {">=(1,nan)", 0}, {"<(nan,1)", 0}, {"<=(1,nan)", 0},
        {"?(0.1,2,3)", 2}, {"?(0,2,3)", 3}, {"?(nan,2,3)", 2}, {"?\?(1.7,10,20,30)", 20}, {"?\?(0,10,20)", 10},
        {"?\?(3,10,20,30)", 3}, {"?\?(-1,10,20)", -1}, {"?\?(-0.5,10,20)", -0.5}, {"?\?(nan,10,20)", NAN},
        {"and(1,0.5,-1)", 1}, {"and(1,0.4)", 0}, {"or(0.4,0)", 0}, {"or(0,0,-0.5)", 1}, {"!(0.4)", 0}, {"!(0)", 1},
        {"!(nan)", 0}, {"band(6,3)", 2}, {"band(-1,-2,0xFE)", 254}, {"bor(6,3)", 7},
        {"bor(0x-80000000,0.5)", -2147483647}, {"exp2(4.5)", 32}, {"exp2(31)", -2147483648.0}, {"exp2(32)", 1},
        {"exp2(-1)", -2147483648.0}, {"log2(8)", 3}, {"log2(0)", -INFINITY}, {"log2(-1)", NAN},
    });
    // clang-format on
}

TEST_F(EvaluatorTest, NamesWhatFailed)
{
    using namespace std::string_literals;
    const std::string at = "s line 3: ", cannot = at + "Can't evaluate",
                      grouped = at + "Unbalanced Parentheses in";
    // The first failure from left to right: a function's name, its arguments, their count.
    // clang-format off
    const std::array<std::string, 3> rows[] = {
        {"(1)", grouped, "(1)"}, {"(+(1,2))", grouped, "(+(1,2))"}, {"+(1, (2) )", grouped, "(2)"},
        {" (1)", cannot, " (1)"}, {"+(1,2", cannot, "+(1,2"}, {")(", cannot, ")("}, {" bad ", cannot, " bad "},
        {"+(1, bad\t)", cannot, "bad"}, {"foo(bad)", cannot, "foo(bad)"}, {"!(1, foo(1) x )", cannot, "foo(1) x"},
        {"x#+(1,1)#", cannot, "x#+(1,1)#"}, {"gain#3", cannot, "gain#3"}, {"*(+(bad)#6,2)", cannot, "+(bad)#6"},
        {"*(+(1,gain#2)#6,2)", cannot, "+(1,gain#2)#6"}, {"gain# bad", cannot, " bad"}, {"1\0"s, cannot, "1\0"s},
        {"+\0(1,2)"s, cannot, "+\0(1,2)"s}, {"*(2, !(1,2) y)", "s: Parameter count doesn't match in", "!(1,2) y"},
    };
    // clang-format on
    for (const auto& [formula, what, piece] : rows) EXPECT_EQ(failure(formula), what + " \"" + piece + '"');
    for (const char* formula : {"", " \t ", "log2()", "+(1, ,bad)", "gain#"})
        EXPECT_EQ(failure(formula), at + "Empty expression") << formula;
    EXPECT_EQ(failure("bad", "", -1), "Can't evaluate \"bad\"");
}

TEST_F(EvaluatorTest, CountsArguments)
{
    // clang-format off
    const std::tuple<const char*, int, int> rows[] = {
        {"+", 2, 10}, {"*", 2, 10}, {"-", 2, 2}, {"/", 2, 2}, {"%", 2, 2}, {"==", 2, 2}, {"!=", 2, 2}, {">", 2, 2},
        {">=", 2, 2}, {"<", 2, 2}, {"<=", 2, 2}, {"?", 3, 3}, {"?\?", 3, 10}, {"and", 2, 10}, {"or", 2, 10}, {"!", 1, 1},
        {"band", 2, 10}, {"bor", 2, 10}, {"exp2", 1, 1}, {"log2", 1, 1}};
    // clang-format on
    for (const auto& [name, least, most] : rows) {
        std::string call = name + std::string("(1");
        for (int n = 1; n <= 11; ++n, call += ",1")
            EXPECT_EQ(failure(call + ')').substr(0, 3), n < least || n > most ? "s: " : "non") << call;
    }
}

TEST_F(EvaluatorTest, WritesWhatItEvaluatedInnermostFirst)
{
    const Output output;
    evaluator.evaluateDouble(" x ", "", -1, true);
    evaluator.evaluateDouble(" +( *( x ,scale) ,gain#/(2,1))", "", -1, true);
    EXPECT_EQ(output.text.str(), "Evaluated:  x  --> 5\nEvaluated: x --> 5\nEvaluated: scale --> 2\n"
                                 "Evaluated: *( x ,scale) --> 10\nEvaluated: 2 --> 2\nEvaluated: 1 --> 1\n"
                                 "Evaluated: /(2,1) --> 2\nEvaluated: gain#/(2,1) --> 20\n"
                                 "Evaluated:  +( *( x ,scale) ,gain#/(2,1)) --> 30\n");
}

TEST(Evaluator, RoundsToIntegers)
{
    const Evaluator evaluator;
    EXPECT_EQ(evaluator.evaluate("/(0,0)", "", -1, false), -2147483647 - 1);
    EXPECT_EQ(evaluator.tryToEvaluate("*(2,2.4)", "", -1), "5");
    EXPECT_EQ(evaluator.tryToEvaluate("-2.5", "", -1), "-3");
    EXPECT_EQ(evaluator.tryToEvaluate(" unknown", "", -1), " unknown");
}

TEST(Evaluator, KeepsVariablesInOrder)
{
    Evaluator evaluator;
    const std::pair<const char*, double> rows[] = {
        {"b", 1}, {"\xB5", 1.0 / 3}, {"a", 1}, {"B", -2}, {"a", 1e6}};
    for (const auto& [name, value] : rows) evaluator.setVariable(name, value);
    for (const char* name : {"b", "unknown"}) evaluator.removeVariable(name);
    const Output output;
    evaluator.dumpEnvironment();
    EXPECT_EQ(output.text.str(), "Evaluator Variable Dump\n"
                                 "Primary:   B = -2\nPrimary:   a = 1e+06\nPrimary:   \xB5 = 0.333333\n");
}

TEST(Evaluator, ReplacesFunctionsOfItsOwn)
{
    Evaluator evaluator;
    const Evaluator before = evaluator;
    const auto count = [](const std::vector<double>& arguments) { return double(arguments.size()); };
    evaluator.setFunction("+", count, 1, 1);
    evaluator.setFunction("", count, 2, 2);
    evaluator.setFunction(")f", count, 3, 3);
    const std::pair<const char*, int> rows[] = {{"+(7)", 1}, {" (7,7)", 2}, {")f(7,7,7)#", 3}, {"*(2,3)", 6}};
    for (const auto& [formula, value] : rows) EXPECT_EQ(evaluator.evaluateDouble(formula), value) << formula;
    EXPECT_THROW(evaluator.evaluateDouble("+(1,2)"), XmlError);
    for (const Evaluator& other : {before, Evaluator()}) EXPECT_EQ(other.evaluateDouble("+(1,2)"), 3);
    evaluator.setFunction(
        "fail", [](const auto&) -> double { throw 7; }, 1, 1);
    EXPECT_THROW(evaluator.tryToEvaluate("*(fail(1),bad)"), int); // and no error is mistaken for a formula's
}

TEST_F(EvaluatorTest, TakesAnyDepthAndLength)
{
    const auto repeated = [](const char* text, int n) { return QByteArray(text).repeated(n).toStdString(); };
    const std::string cannot = "s line 3: Can't evaluate \"", open = repeated("+(1,", 100000),
                      close(100000, ')'), many(500000, '('), matched = many + std::string(500000, ')');
    EXPECT_EQ(evaluator.evaluateDouble(open + "2" + close), 100002);
    EXPECT_EQ(evaluator.evaluateDouble(repeated("+(", 100000) + "2" + repeated(",gain#2)", 100000)), 2000002);
    EXPECT_EQ(failure(open + "bad" + close), cannot + "bad\"");
    EXPECT_EQ(failure(open + "!(2,3)" + close), "s: Parameter count doesn't match in \"!(2,3)\"");
    EXPECT_EQ(failure(many + many), cannot + many + many + '"');
    EXPECT_EQ(failure("!(" + matched + ")"), "s line 3: Unbalanced Parentheses in \"" + matched + '"');
    EXPECT_EQ(failure("gain#" + open), cannot + open + '"');
    EXPECT_EQ(failure(repeated("x#", 500000)), cannot + repeated("x#", 500000) + '"');
}

TEST_F(EvaluatorTest, IsUsedByManyThreads)
{
    double sums[2] = {};
    const auto work = [this](double* sum) {
        for (int i = 0; i < 1000; ++i) *sum += evaluator.evaluateDouble("+(*(x,scale),gain#+(x,1))");
    };
    std::thread other(work, &sums[0]);
    work(&sums[1]);
    other.join();
    EXPECT_TRUE(sums[0] == 70000 && sums[1] == 70000);
}

TEST_F(EvaluatorTest, KeepsTheDecimalPointInGermany)
{
    const GermanLocale german;
    REQUIRE_OR_SKIP(german.works(), "the locale de_DE.UTF-8");
    expectValues({{"*(2.5,2)", 5}, {"0.5e-400", 0}, {"g#/(1,3)", 3}});
    for (const char* formula : {"2,5", "0.5e400"}) EXPECT_NE(failure(formula), "none") << formula;
}
