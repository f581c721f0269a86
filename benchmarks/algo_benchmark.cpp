#include <benchmark/benchmark.h>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <random>
#include <vector>
#include <vorelutil/algo/prefix.h>

// What a field does with each value that it shows: normalise it. The peer takes the same steps as written
// down: two searches through a table, the bound by pow, a search at each step.

namespace {

struct Prefix
{
    char prefix;
    int exponent;
    bool usable;
};

// clang-format off
constexpr Prefix prefixes[] = {
    {'Y', 24, true}, {'Z', 21, true}, {'E', 18, true}, {'P', 15, true}, {'T', 12, true}, {'G', 9, true},
    {'M', 6, true}, {'k', 3, true}, {' ', 0, true}, {'X', 0, false}, {'m', -3, true}, {'\xB5', -6, true},
    {'u', -6, true}, {'n', -9, true}, {'p', -12, true}, {'f', -15, true}, {'a', -18, true}, {'z', -21, true},
    {'y', -24, true}, {'\0', 0, false},
};
// clang-format on

const Prefix& find(char prefix)
{
    const Prefix* row = prefixes;
    while (row->prefix != '\0' && row->prefix != prefix) ++row;
    return *row;
}

char ofExponent(int exponent)
{
    const Prefix* row = prefixes;
    while (row->prefix != '\0' && row->exponent != exponent) ++row;
    return row->prefix;
}

char literalNormalize(double* value, char prefix, double* factor, int decimals)
{
    if (factor != nullptr) *factor = 1;
    if (std::fabs(*value) < 1e-30) {
        *value = 0;
        return ' ';
    }
    const Prefix& row = find(prefix);
    if (!row.usable) return prefix;
    int exponent = row.exponent;
    double scaled = *value;
    double scale = 1;
    const double bound = 1 - 0.5 * std::pow(10.0, -decimals);
    while (std::fabs(scaled) < bound && ofExponent(exponent - 3) != '\0') {
        scaled *= 1000;
        scale *= 1000;
        exponent -= 3;
    }
    while (std::fabs(scaled) >= 1000 && ofExponent(exponent + 3) != '\0') {
        scaled /= 1000;
        scale /= 1000;
        exponent += 3;
    }
    *value = scaled;
    if (factor != nullptr) *factor = scale;
    return ofExponent(exponent);
}

struct Input
{
    double value;
    char prefix;
    int decimals;
};

/// Readings as fields show them: each field `readings` noisy values of one magnitude, then the next field.
std::vector<Input> shownValues(std::size_t count, std::size_t readings)
{
    std::mt19937_64 random(20240531);
    std::uniform_real_distribution<double> exponent(-6, 6);
    std::uniform_real_distribution<double> noise(0.97, 1.03);
    std::uniform_int_distribution<std::size_t> row(0, std::size(prefixes) - 2);
    std::uniform_int_distribution<int> decimals(0, 6);
    std::vector<Input> inputs(count);
    Input field{};
    for (std::size_t i = 0; i < count; ++i) {
        if (i % readings == 0) {
            field = {std::pow(10, exponent(random)), prefixes[row(random)].prefix, decimals(random)};
            if (random() % 4 == 0) field.value = -field.value;
        }
        inputs[i] = field;
        inputs[i].value *= noise(random);
    }
    return inputs;
}

/// Hard ones: any bits, and neighbours of the bounds, at any number of decimals.
std::vector<Input> hardValues(std::size_t count)
{
    std::mt19937_64 random(20240601);
    std::vector<Input> inputs(count);
    for (Input& input : inputs) {
        input.prefix = static_cast<char>(random());
        input.decimals = static_cast<int>(random() % 30) - 4;
        if (random() % 2 == 0) {
            const std::uint64_t bits = random();
            std::memcpy(&input.value, &bits, sizeof input.value);
        } else {
            input.prefix = prefixes[random() % std::size(prefixes)].prefix;
            const double bounds[] = {1 - 0.5 * std::pow(10.0, -input.decimals), 1000, 1, 1e-30};
            input.value = bounds[random() % std::size(bounds)];
            for (std::uint64_t steps = random() % 4; steps > 0; --steps) {
                input.value = std::nextafter(input.value, random() % 2 == 0 ? 0 : 1e4);
            }
            const bool up = random() % 2 == 0;
            for (std::uint64_t steps = random() % 4; steps > 0; --steps) {
                input.value = up ? input.value * 1000 : input.value / 1000;
            }
        }
    }
    return inputs;
}

bool sameBits(double a, double b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

bool sameAnswers(const std::vector<Input>& inputs)
{
    for (const Input& input : inputs) {
        double ours = input.value;
        double peers = input.value;
        double ourFactor = 0;
        double peerFactor = 0;
        const char ourPrefix = algoNormalize(&ours, input.prefix, &ourFactor, input.decimals);
        const char peerPrefix = literalNormalize(&peers, input.prefix, &peerFactor, input.decimals);
        if (ourPrefix != peerPrefix || !sameBits(ours, peers) || !sameBits(ourFactor, peerFactor))
            return false;
    }
    return true;
}

constexpr std::size_t valueCount = 65536;

using Normalize = char(double*, char, double*, int);

template <Normalize normalize, std::size_t readings> void normalizeAll(benchmark::State& state)
{
    const std::vector<Input> inputs = shownValues(valueCount, readings);
    for (auto _ : state) {
        double sum = 0;
        for (const Input& input : inputs) {
            double value = input.value;
            double factor = 0;
            sum += normalize(&value, input.prefix, &factor, input.decimals);
            sum += value + factor;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(inputs.size()));
}

} // namespace

BENCHMARK_TEMPLATE(normalizeAll, algoNormalize, 16)->Name("Normalize/ours");
BENCHMARK_TEMPLATE(normalizeAll, literalNormalize, 16)->Name("Normalize/peer_literal");
// No value like the one before: what is left is the price of jumps that cannot be foreseen.
BENCHMARK_TEMPLATE(normalizeAll, algoNormalize, 1)->Name("NormalizeScattered/ours");
BENCHMARK_TEMPLATE(normalizeAll, literalNormalize, 1)->Name("NormalizeScattered/peer_literal");

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    if (!sameAnswers(hardValues(4000000)) || !sameAnswers(shownValues(valueCount, 16)) ||
        !sameAnswers(shownValues(valueCount, 1))) {
        std::fprintf(stderr, "algoNormalize and its peer differ\n");
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
