#include <array>
#include <benchmark/benchmark.h>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <muParser.h>
#include <random>
#include <string>
#include <vorelutil/eval/evaluator.h>

// What a value field does with each value that it shows or reads: a formula is handed over as text and
// evaluated. The peer, muParser, does the same with the formula in its own, infix notation.

namespace {

struct Formula
{
    std::string ours, peers;
};

// clang-format off
const Formula linear = {"+(*(x,scale),offset)", "x*scale+offset"};
const Formula nested = { // 12 calls
    "?(and(>(x,0),<=(x,1000)),/(+(*(x,scale),offset),-(1200,x)),*(-(x,1000),+(scale,/(x,offset))))",
    "(x>0 && x<=1000) ? (x*scale+offset)/(1200-x) : (x-1000)*(scale+x/offset)"};
// clang-format on

constexpr double scale = 2.5;
constexpr double offset = -0.75;

/// Raw values as fields have them, both branches of the nested formula among them.
std::array<double, 256> rawValues()
{
    std::mt19937 random(20240531);
    std::array<double, 256> values{};
    for (double& value : values) value = static_cast<int>(random() % 2000) - 500;
    return values;
}

const std::array<double, 256> inputs = rawValues();

/// One evaluator for all values.
class KeptOurs
{
public:
    explicit KeptOurs(const Formula& formula)
        : m_text(formula.ours)
    {
        m_evaluator.setVariable("scale", scale);
        m_evaluator.setVariable("offset", offset);
    }
    double operator()(double x)
    {
        m_evaluator.setVariable("x", x);
        return m_evaluator.evaluateDouble(m_text, m_source, -1, false);
    }

private:
    Evaluator m_evaluator;
    const std::string& m_text;
    const std::string m_source;
};

class KeptPeer
{
public:
    explicit KeptPeer(const Formula& formula)
        : m_text(formula.peers)
    {
        m_parser.DefineVar("x", &m_x);
        m_parser.DefineVar("scale", &m_scale);
        m_parser.DefineVar("offset", &m_offset);
    }
    double operator()(double x)
    {
        m_x = x;
        m_parser.SetExpr(m_text);
        return m_parser.Eval();
    }

private:
    mu::Parser m_parser;
    double m_x = 0.0, m_scale = scale, m_offset = offset;
    const std::string& m_text;
};

/// A new evaluator for each value, with its three variables.
template <class Kept> class Fresh
{
public:
    explicit Fresh(const Formula& formula)
        : m_formula(formula)
    {
    }
    double operator()(double x) const { return Kept(m_formula)(x); }

private:
    const Formula& m_formula;
};

template <class Contender, const Formula& formula> void evaluateAll(benchmark::State& state)
{
    Contender evaluate(formula);
    for (auto _ : state) {
        double sum = 0.0;
        for (const double x : inputs) sum += evaluate(x);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(inputs.size()));
}

bool sameAnswers(const Formula& formula)
{
    KeptOurs kept(formula);
    KeptPeer peer(formula);
    const Fresh<KeptOurs> fresh(formula);
    for (const double x : inputs) {
        const double expected = peer(x);
        const double tolerance = 1e-12 * std::fabs(expected); // the peer is free to fold products
        if (!(std::fabs(kept(x) - expected) <= tolerance && fresh(x) == kept(x))) return false;
    }
    return true;
}

} // namespace

BENCHMARK_TEMPLATE(evaluateAll, KeptOurs, linear)->Name("LinearKept/ours");
BENCHMARK_TEMPLATE(evaluateAll, KeptPeer, linear)->Name("LinearKept/peer_muparser");
BENCHMARK_TEMPLATE(evaluateAll, Fresh<KeptOurs>, linear)->Name("LinearFresh/ours");
BENCHMARK_TEMPLATE(evaluateAll, Fresh<KeptPeer>, linear)->Name("LinearFresh/peer_muparser");
BENCHMARK_TEMPLATE(evaluateAll, KeptOurs, nested)->Name("NestedKept/ours");
BENCHMARK_TEMPLATE(evaluateAll, KeptPeer, nested)->Name("NestedKept/peer_muparser");
BENCHMARK_TEMPLATE(evaluateAll, Fresh<KeptOurs>, nested)->Name("NestedFresh/ours");
BENCHMARK_TEMPLATE(evaluateAll, Fresh<KeptPeer>, nested)->Name("NestedFresh/peer_muparser");

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    if (!sameAnswers(linear) || !sameAnswers(nested)) {
        std::fprintf(stderr, "Evaluator and its peer differ\n");
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
