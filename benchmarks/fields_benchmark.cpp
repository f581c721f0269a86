#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <optional>
#include <QApplication>
#include <QDoubleSpinBox>
#include <QEventLoop>
#include <QGridLayout>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>
#include <QWidget>
#include <vector>
#include <vorelutil/widgets/numbermodel.h>
#include <vorelutil/widgets/unitedit.h>

// A controller's values arrive in fields, most of them unchanged. The peer is the toolkit's field for a
// number with a unit, which shows the same number with a fixed unit.

namespace {

constexpr int firstValue = 100000;
constexpr int valueCount = 64;
constexpr int valueStep = 100; // another text each time

int rawValue(std::int64_t index)
{
    return firstValue + valueStep * static_cast<int>(index % valueCount);
}

/// Millivolts in volts, "123.4 V".
class Ours
{
public:
    Ours() { m_field.configure("V", 'm', 1, 0, 0, 1000000); }
    QWidget* widget() { return &m_field; }
    void set(int raw) { m_field.setValue(raw, false); }
    QString text() const { return m_field.text(); }

private:
    UnitEdit m_field;
};

class Peers
{
public:
    Peers()
    {
        m_field.setRange(0, 1000);
        m_field.setDecimals(1);
        m_field.setSuffix(" V");
    }
    QWidget* widget() { return &m_field; }
    void set(int raw) { m_field.setValue(raw / 1000.0); }
    QString text() const { return m_field.text(); }

private:
    QDoubleSpinBox m_field;
};

bool sameTexts()
{
    Ours ours;
    Peers peers;
    for (int i = 1; i < valueCount; ++i) {
        if (i % 10 == 0) continue; // whole volts: the peer writes "101.0 V"
        ours.set(rawValue(i));
        peers.set(rawValue(i));
        if (ours.text() != peers.text()) return false;
    }
    return true;
}

/// Shows a field in a window in which the focus is elsewhere, as it is for all but one field of a panel.
class Window
{
public:
    explicit Window(QWidget* field)
        : m_field(field)
    {
        m_layout.addWidget(&m_focused);
        m_layout.addWidget(field);
        m_window.show();
        m_focused.setFocus();
        QApplication::processEvents();
    }
    ~Window() { m_field->setParent(nullptr); }
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

private:
    QWidget m_window;
    QVBoxLayout m_layout{&m_window};
    QPushButton m_focused{"Start"};
    QWidget* const m_field;
};

enum class Shown
{
    No,
    Yes
};

template <typename Field, Shown shown> void changing(benchmark::State& state)
{
    Field field;
    std::optional<Window> window;
    if (shown == Shown::Yes) window.emplace(field.widget());
    std::int64_t index = 0;
    for (auto _ : state) field.set(rawValue(index++));
}

/// `noise` other values, all too small to be seen.
template <int noise> void unchanged(benchmark::State& state)
{
    Ours field;
    const Window window(field.widget());
    int value = 0;
    for (auto _ : state) {
        field.set(firstValue + value);
        value = value < noise ? value + 1 : 0;
    }
    if (field.text() != "100 V") state.SkipWithError("the text changed");
}

/// The share of one core that a panel of fields takes, painting included, whose values change at 100 Hz each.
void panel(benchmark::State& state)
{
    constexpr int fieldCount = 64;
    constexpr int rows = 16;
    constexpr int period = 10; // ms
    constexpr int ticks = 200;
    for (auto _ : state) {
        QWidget window;
        QGridLayout layout(&window);
        std::vector<UnitEdit*> fields;
        for (int i = 0; i < fieldCount; ++i) {
            fields.push_back(new UnitEdit(&window));
            fields.back()->configure("V", 'm', 1, 0, 0, 1000000);
            layout.addWidget(fields.back(), i % rows, i / rows);
        }
        window.show();
        QApplication::processEvents();
        int tick = 0;
        QEventLoop loop;
        QTimer timer;
        timer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&timer, &QTimer::timeout, [&] {
            ++tick;
            for (UnitEdit* field : fields) field->setValue(rawValue(tick), false);
            if (tick == ticks) loop.quit();
        });
        timespec begin{}, end{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &begin);
        timer.start(period);
        loop.exec();
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &end);
        if (fields.back()->text() != "100.8 V") state.SkipWithError("the panel shows something else");
        const double used = static_cast<double>(end.tv_sec - begin.tv_sec) +
                            1e-9 * static_cast<double>(end.tv_nsec - begin.tv_nsec);
        state.SetIterationTime(used);
        state.counters["percent_of_a_core"] = 100 * used / (1e-3 * period * ticks);
    }
}

NumberModel volts()
{
    NumberModel model;
    model.inputPf = 'm';
    model.baseUnit = "V";
    return model;
}

void render(benchmark::State& state)
{
    const NumberModel model = volts();
    std::int64_t index = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(model.normalizedText(model.value2Number(rawValue(index++))));
    }
}

void parse(benchmark::State& state)
{
    const NumberModel model = volts();
    const QString texts[] = {"123.4 V", "12.5 mV", "3.3"};
    std::size_t index = 0;
    for (auto _ : state) benchmark::DoNotOptimize(model.parse(texts[index++ % std::size(texts)]));
}

void formula(benchmark::State& state)
{
    NumberModel model = volts();
    model.value2NumberFormula = "*(-(x,offset),scale)";
    std::int64_t index = 0;
    for (auto _ : state) benchmark::DoNotOptimize(model.value2Number(rawValue(index++)));
}

} // namespace

BENCHMARK_TEMPLATE(changing, Ours, Shown::No)->Name("ChangingHidden/ours");
BENCHMARK_TEMPLATE(changing, Peers, Shown::No)->Name("ChangingHidden/peer_spin_box");
BENCHMARK_TEMPLATE(changing, Ours, Shown::Yes)->Name("ChangingShown/ours");
BENCHMARK_TEMPLATE(changing, Peers, Shown::Yes)->Name("ChangingShown/peer_spin_box");
// Beside the peer's price of a text that changes: what a field costs that shows each value anew.
BENCHMARK_TEMPLATE(unchanged, 0)->Name("Unchanged/ours");
BENCHMARK_TEMPLATE(unchanged, 30)->Name("UnchangedNoise/ours");
BENCHMARK(panel)->Name("Panel64At100Hz")->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(render)->Name("Model/render");
BENCHMARK(parse)->Name("Model/parse");
BENCHMARK(formula)->Name("Model/formula");

int main(int argc, char** argv)
{
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    const QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    if (!sameTexts()) {
        std::fprintf(stderr, "the field and its peer show different texts\n");
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
