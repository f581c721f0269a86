#include "timestamproad.h"

#include "apps/controller/controllerlink.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <numeric>
#include <utility>
#include <vorelutil/trace/tracelog.h>

namespace bench {

using controller::TelegramView;
using timestamps::Format;
using timestamps::Summary;

namespace {

constexpr std::size_t headerBytes = 20;
constexpr std::int64_t eventsPerPart = 1000000; ///< that may be decoded before events are handled
constexpr int largestSortedDivider = 16383;     ///< more virtual events could fill the memory
constexpr int staleMilliseconds = 1000;         ///< without a packet, or with the stream's time at rest
constexpr double unknown = std::numeric_limits<double>::quiet_NaN();
constexpr int mostBins = 100000;

bool decodesAlike(const timestamps::Settings& a, const timestamps::Settings& b)
{
    return a.offsets == b.offsets && a.divider == b.divider && a.startPeriod == b.startPeriod &&
           a.markerMask == b.markerMask;
}

TimeStampSettings withinRanges(TimeStampSettings settings)
{
    settings.decoder.divider = std::max(settings.decoder.divider, 1);
    settings.decoder.startPeriod = std::max<std::int64_t>(settings.decoder.startPeriod, 0);
    settings.rate = std::max(settings.rate, 1);
    settings.start = std::clamp(settings.start, 0, 255);
    settings.stop = std::clamp(settings.stop, 0, 255);
    settings.binWidth = std::max(settings.binWidth, 1);
    settings.bins = std::clamp(settings.bins, 1, mostBins);
    return settings;
}

/// What came since `base`.
Summary since(const Summary& base, Summary now)
{
    for (std::size_t i = 0; i < now.channels.size(); ++i) now.channels[i] -= base.channels[i];
    for (std::size_t i = 0; i < now.markers.size(); ++i) now.markers[i] -= base.markers[i];
    now.words -= base.words;
    now.wordsBeforeHigh -= base.wordsBeforeHigh;
    now.orderingErrors -= base.orderingErrors;
    now.lost -= base.lost;
    return now;
}

template <class Array> std::uint64_t sum(const Array& counts)
{
    return std::accumulate(counts.begin(), counts.end(), std::uint64_t(0));
}

} // namespace

int startChannel(Format format)
{
    return format == Format::F60 ? 5 : 0;
}

TimeStampRoad::TimeStampRoad(ControllerLink* link, QObject* parent)
    : QObject(parent)
    , m_link(link)
    , m_sink([this](const PpTimest* events, std::size_t count) { take(events, count); })
{
    m_confirmTimer.setSingleShot(true);
    m_confirmTimer.setInterval(confirmTimeoutMilliseconds);
    connect(&m_confirmTimer, &QTimer::timeout, this, &TimeStampRoad::onUnconfirmed);
    connect(link, &ControllerLink::acknowledged, this,
            [this](int number, int, int, int reason, int value) { onAcknowledged(number, reason, value); });
    connect(link, &ControllerLink::told, this, &TimeStampRoad::onTold);
    connect(link, &ControllerLink::stateChanged, this, &TimeStampRoad::onLinkState);
    renewDecoder();
}

TimeStampRoad::~TimeStampRoad() = default;

void TimeStampRoad::setSettings(const TimeStampSettings& settings)
{
    const TimeStampSettings old = std::exchange(m_settings, withinRanges(settings));
    const TimeStampSettings& now = m_settings;
    const bool runs = m_state == State::Running;
    const auto sayIfRunning = [&](const QString& text) {
        if (runs) emit message(text, false);
    };
    if (now.decoder.format != old.decoder.format && (runs || m_state == State::Preparing)) {
        sayIfRunning(tr("Time stamps: another format, the stream begins anew"));
        prepare();
        return;
    }
    if (!decodesAlike(now.decoder, old.decoder)) {
        renewDecoder();
        sayIfRunning(tr("Time stamps: other offsets, divider or start period, decoding begins anew and the "
                        "histogram is cleared"));
    } else if (now.start != old.start || now.stop != old.stop || now.binWidth != old.binWidth ||
               now.bins != old.bins) {
        renewHistogram();
        sayIfRunning(tr("Time stamps: other channels or bins, the histogram is cleared"));
        emit changed();
    }
    if (now.rate == old.rate) return;
    if (runs) {
        m_rateRequest = m_link->set(controller::eventRate, now.rate);
        if (m_rateRequest == 0) emit message(tr("the rate of time stamps could not be sent"), true);
    } else if (m_state == State::Preparing) {
        prepare();
    }
}

bool TimeStampRoad::start()
{
    if (!isIdle() || m_link->state() != ControllerLink::Connected) return false;
    prepare();
    return true;
}

bool TimeStampRoad::canStop() const
{
    return m_state == State::Preparing || m_state == State::Running || (isIdle() && m_strayStream);
}

void TimeStampRoad::stop()
{
    if (!canStop()) return;
    drain();
    m_waiting.clear();
    m_rateRequest = 0;
    m_accepting = false;
    setState(State::Stopping);
    if (!requestStop()) fail(tr("the request to stop could not be sent"));
}

/// Ends what the controller streams, so that the stream that follows is seen from its beginning.
void TimeStampRoad::prepare()
{
    drain();
    m_endText.clear();
    m_waiting.clear();
    m_rateRequest = 0;
    m_accepting = false;
    m_strayStream = false;
    renewDecoder();
    setState(State::Preparing);
    if (!requestStop() ||
        !request(controller::eventRate, m_settings.rate, tr("%1 events per second").arg(m_settings.rate)))
        fail(tr("the stream's settings could not be sent"));
}

bool TimeStampRoad::request(int address, int value, const QString& name)
{
    const int number = m_link->set(address, value);
    if (number == 0) return false;
    m_waiting.insert(number, name);
    m_confirmTimer.start();
    return true;
}

bool TimeStampRoad::requestStop()
{
    return request(controller::timeStampFormat, controller::timeStampsOff, tr("time stamps off"));
}

void TimeStampRoad::onAcknowledged(int number, int reason, int /*value*/)
{
    if (number == m_rateRequest) {
        m_rateRequest = 0;
        if (reason != controller::reasonOk) {
            emit message(tr("the controller refused another rate of time stamps: %1")
                             .arg(QLatin1String(tracePrintReason(reason))),
                         true);
            return;
        }
        renewHistogram();
        beginRates();
        emit message(tr("Time stamps: %1 events per second, the histogram is cleared").arg(m_settings.rate),
                     false);
        emit changed();
        return;
    }
    if (!m_waiting.contains(number)) return;
    const QString name = m_waiting.take(number);
    if (reason != controller::reasonOk) {
        fail(tr("the controller refused %1: %2").arg(name, QLatin1String(tracePrintReason(reason))));
    } else if (m_waiting.isEmpty()) {
        m_confirmTimer.stop();
        proceed();
    }
}

void TimeStampRoad::onUnconfirmed()
{
    const QString name = m_waiting.isEmpty() ? QString() : *m_waiting.cbegin();
    if (m_state != State::Stopping) m_link->set(controller::timeStampFormat, controller::timeStampsOff);
    fail(tr("the controller did not confirm %1").arg(name));
}

/// Everything that was asked for is confirmed: the next step.
void TimeStampRoad::proceed()
{
    switch (m_state) {
    case State::Preparing:
        // Packets may arrive before the confirmation does.
        m_accepting = true;
        setState(State::Running);
        if (!request(controller::timeStampFormat, static_cast<int>(m_settings.decoder.format),
                     tr("time stamps on")))
            fail(tr("the stream's settings could not be sent"));
        break;
    case State::Stopping:
        m_strayStream = false;
        goIdle();
        emit stopped();
        break;
    case State::Running:
    case State::Idle:
        break;
    }
}

void TimeStampRoad::onLinkState()
{
    if (m_link->state() == ControllerLink::Connected) return;
    m_strayStream = false;
    drain();
    if (isIdle()) return;
    if (m_link->state() == ControllerLink::Off) // the operator has closed it
        fail(tr("the controller did not confirm that it stopped"));
    else
        fail(tr("the link to the controller was lost"));
}

void TimeStampRoad::goIdle()
{
    m_waiting.clear();
    m_rateRequest = 0;
    m_confirmTimer.stop();
    m_accepting = false;
    setState(State::Idle);
}

void TimeStampRoad::fail(const QString& text)
{
    drain();
    m_endText = text;
    goIdle();
    emit failed(text);
}

void TimeStampRoad::setState(State state)
{
    m_state = state;
    emit stateChanged();
}

void TimeStampRoad::onTold(const TelegramView& telegram)
{
    if (telegram.type != controller::typeTell || telegram.address != controller::packet) return;
    if (m_accepting && telegram.index == static_cast<int>(m_settings.decoder.format)) {
        try {
            decode(telegram);
        } catch (const std::exception&) { // of the allocator
            m_decoding = nullptr;
            m_accepting = false;
            renewDecoder(); // gives back what waits
            m_link->set(controller::timeStampFormat, controller::timeStampsOff);
            fail(tr("there is no memory for the time stamps"));
        }
        return;
    }
    // On its way when the stream was ended.
    if (m_state == State::Preparing || m_state == State::Stopping) return;
    if (isIdle() && !std::exchange(m_strayStream, true)) emit stateChanged();
    ++m_totals.strays;
    tellFaults();
    emit changed();
}

std::size_t TimeStampRoad::wordsPerPart() const
{
    const timestamps::Settings& settings = m_settings.decoder;
    const std::int64_t perWord = settings.makesVirtualEvents() ? std::min(settings.divider, 16384) : 1;
    return std::size_t(std::max<std::int64_t>(eventsPerPart / perWord, 1));
}

// A slot of a signal may end the stream or begin another decoder.
void TimeStampRoad::decode(const TelegramView& telegram)
{
    const std::shared_ptr<timestamps::StreamDecoder> decoder = m_decoder;
    const std::size_t part = wordsPerPart();
    for (std::size_t done = 0; done < telegram.wordCount && m_accepting && m_decoder == decoder;) {
        const std::size_t count = std::min(part, telegram.wordCount - done);
        m_decoding = decoder.get();
        decoder->decode(telegram.bytes + headerBytes + 4 * done, 4 * count, m_sink);
        m_decoding = nullptr;
        done += count;
        m_sincePacket.start();
        if (m_decoder != decoder) return;
        countDecoded();
        tellFaults();
        if (done < telegram.wordCount) emit partDecoded();
    }
    if (m_decoder != decoder) return;
    measureRates();
    emit changed();
}

/// Brings the totals to where the histogram is.
void TimeStampRoad::countDecoded()
{
    m_totals.decoded = since(m_base, m_decoder->summary());
    m_totals.events = sum(m_totals.decoded.channels);
    m_totals.markers = sum(m_totals.decoded.markers);
    m_totals.time = m_decoder->time();
}

/// The stream, or this decoder's part of it, is over: what waits for earlier events comes out. The decoder is
/// not used again.
void TimeStampRoad::drain()
{
    if (!m_accepting || m_decoding != nullptr || m_drained == m_decoder) return;
    const std::shared_ptr<timestamps::StreamDecoder> decoder = m_drained = m_decoder;
    m_decoding = decoder.get();
    try {
        decoder->finish(m_sink);
    } catch (const std::exception&) { // of the allocator
        emit message(tr("Time stamps: there is no memory for the last ones"), true);
    }
    m_decoding = nullptr;
    if (m_decoder != decoder) return;
    countDecoded();
    emit changed();
}

void TimeStampRoad::take(const PpTimest* events, std::size_t count)
{
    if (!m_accepting || m_decoder.get() != m_decoding) return;
    m_events += count;
    m_histogram->add(events, count);
    emit eventsDecoded(events, count);
}

void TimeStampRoad::clear()
{
    m_base = m_decoder->summary();
    m_totals = Totals();
    m_totals.time = m_decoder->time();
    m_faults = {};
    m_histogram->clear();
    beginRates();
    emit changed();
}

void TimeStampRoad::renewDecoder()
{
    drain();
    timestamps::Settings settings = m_settings.decoder;
    if (settings.sorts() && settings.makesVirtualEvents() && settings.divider > largestSortedDivider) {
        settings.divider = largestSortedDivider;
        emit message(tr("Time stamps: with offsets the divider is at most %1").arg(largestSortedDivider),
                     true);
    }
    m_decoder = std::make_shared<timestamps::StreamDecoder>(settings);
    m_drained.reset();
    m_divider = settings.divider;
    m_base = Summary();
    m_totals = Totals();
    m_faults = {};
    beginRates();
    renewHistogram();
    emit changed();
}

void TimeStampRoad::renewHistogram()
{
    m_histogram = std::make_unique<timestamps::StartStopHistogram>(
        std::uint8_t(m_settings.start), std::uint8_t(m_settings.stop), m_settings.binWidth,
        std::size_t(m_settings.bins));
}

const timestamps::StartStopHistogram& TimeStampRoad::settledHistogram()
{
    m_histogram->settle();
    return *m_histogram;
}

TimeStampRoad::Counts TimeStampRoad::countsOf(const Summary& summary)
{
    Counts counts;
    std::copy(summary.markers.begin(), summary.markers.end(),
              std::copy(summary.channels.begin(), summary.channels.end(), counts.begin()));
    return counts;
}

/// None are known until a window has passed some time.
void TimeStampRoad::beginRates()
{
    m_rateClock.invalidate();
    m_rates.fill(unknown);
    m_ratesWhole = false;
}

void TimeStampRoad::beginRateWindow(const Counts& counts, qint64 now)
{
    m_rateCounts = counts;
    m_rateTime = now;
    m_rateClock.start();
}

/// In the stream's time. Several formats tell that by events alone: where it rests, real time counts.
void TimeStampRoad::measureRates()
{
    const qint64 now = m_decoder->time();
    const Counts counts = countsOf(m_decoder->summary());
    const bool goesBack = m_rateClock.isValid() && now < m_rateTime;
    if (!m_rateClock.isValid() || goesBack) {
        // What came before the first packet is not known, nor how long ago it began.
        if (now == 0 && !goesBack) return;
        m_lastTime = now;
        m_sinceMoved.start();
        beginRateWindow(counts, now);
        return;
    }
    const bool moved = std::exchange(m_lastTime, now) != now;
    if (moved) m_sinceMoved.start();
    const qint64 passed = now - m_rateTime;
    const bool rests = m_sinceMoved.hasExpired(staleMilliseconds);
    const bool isWhole = rests || passed >= rateClocks;
    if (!isWhole && (m_ratesWhole || passed == 0)) return;
    const double seconds = rests ? double(m_rateClock.elapsed()) * 1e-3
                                 : double(passed) * controller::scale::clockPeriod * 1e-12;
    for (std::size_t i = 0; i < counts.size(); ++i)
        m_rates[i] = double(counts[i] - m_rateCounts[i]) / seconds;
    if (!isWhole) return;
    m_ratesWhole = true;
    if (rests) m_sinceMoved.start();
    beginRateWindow(counts, now);
}

bool TimeStampRoad::isMeasuring() const
{
    return m_accepting && m_sincePacket.isValid() && !m_sincePacket.hasExpired(staleMilliseconds);
}

double TimeStampRoad::channelRate(int channel) const
{
    return isMeasuring() ? m_rates[std::size_t(channel)] : unknown;
}

double TimeStampRoad::markerRate(int marker) const
{
    return channelRate(timestamps::channelCount + marker);
}

/// Each kind when it begins, and again when it comes back after a pause.
void TimeStampRoad::tellFaults()
{
    const Summary& decoded = m_totals.decoded;
    const std::pair<std::uint64_t, QString> kinds[] = {
        {decoded.lost, tr("Time stamps: the events of a word exceed the buffer, some are lost")},
        {decoded.orderingErrors, tr("Time stamps: words without a partner (ordering error)")},
        {decoded.wordsBeforeHigh, tr("Time stamps: words before the first high word are dropped")},
        {std::uint64_t(m_totals.strays), isIdle()
                                             ? tr("the controller sends time stamps that were not asked for")
                                             : tr("Time stamps: packets of another format are skipped")},
    };
    for (std::size_t i = 0; i < m_faults.size(); ++i) {
        Fault& fault = m_faults[i];
        const std::uint64_t count = kinds[i].first;
        if (count <= fault.count) continue;
        m_faultCount += count - std::exchange(fault.count, count);
        const bool isOnset = !fault.last.isValid() || fault.last.hasExpired(quietMilliseconds);
        fault.last.start();
        if (isOnset) emit message(kinds[i].second, true);
    }
}

} // namespace bench
