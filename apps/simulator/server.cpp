#include "server.h"

#include "apps/controller/telegrams.h"

#include <algorithm>
#include <QHostAddress>
#include <QTcpSocket>
#include <QtEndian>
#include <utility>

using namespace controller;
using FaultKind = Simulator::FaultKind;

namespace {

constexpr std::size_t maxClients = 64;
constexpr int maxWaiting = 4096;                    ///< unconfirmed requests of one connection
constexpr std::int64_t maxUnsent = 4 * 1024 * 1024; ///< beyond that a connection gets no more for now
constexpr std::int64_t floodUnsent = 256 * 1024;
constexpr int blockSamples = 4096;
constexpr int scanMilliseconds = 5;
constexpr int streamMilliseconds = 20;                   ///< a packet each, whatever the rate
constexpr std::int64_t maxCatchUpNs = 250 * 1000 * 1000; ///< of a scan or stream whose thread did not run
constexpr std::int64_t nsPerSecond = 1000 * 1000 * 1000;
constexpr std::int64_t positions = std::int64_t(1) << 31; ///< positions run from 0 below this
constexpr std::uint32_t counterStart = 2147483000;        ///< soon beyond the signed range
constexpr std::size_t headerBytes = 20;

} // namespace

Server::Server(const Simulator::Options& options, const Simulator::Manner& manner)
    : m_options(options)
    , m_manner(manner)
    , m_source(options.seed)
    , m_position(std::uint32_t(std::max(options.position, 0)))
    , m_block(headerBytes + 4 * std::max<std::size_t>(blockSamples, PacketWriter::maxWords))
    , m_samples(blockSamples)
    , m_events(options.seed, 1)
    , m_stamps(PacketWriter::maxEvents)
    , m_words(PacketWriter::maxWords)
{
    for (std::size_t i = 0; i < parameterCount; ++i) m_values[i] = parameters[i].initial;
    m_confirmTimer.setSingleShot(true);
    m_confirmTimer.setTimerType(Qt::PreciseTimer);
    m_tellTimer.setTimerType(Qt::PreciseTimer);
    m_scanTimer.setTimerType(Qt::PreciseTimer);
    m_streamTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_server, &QTcpServer::newConnection, this, &Server::accept);
    connect(&m_confirmTimer, &QTimer::timeout, this, &Server::confirmDue);
    connect(&m_tellTimer, &QTimer::timeout, this, &Server::tellReadBack);
    connect(&m_scanTimer, &QTimer::timeout, this, &Server::scan);
    connect(&m_streamTimer, &QTimer::timeout, this, &Server::stream);
}

bool Server::open(QString* error)
{
    if (!m_options.surfaceFile.isEmpty()) {
        m_surface.setFileName(m_options.surfaceFile);
        const bool opened = m_options.surfaceFile == QLatin1String("-")
                                ? m_surface.open(1, QIODevice::WriteOnly)
                                : m_surface.open(QIODevice::WriteOnly | QIODevice::Truncate);
        if (!opened) {
            *error =
                QStringLiteral("cannot write %1: %2").arg(m_options.surfaceFile, m_surface.errorString());
            return false;
        }
    }
    const QHostAddress address(m_options.address);
    const bool sensible = !address.isNull() && m_options.port >= 0 && m_options.port <= 65535;
    if (!sensible || !m_server.listen(address, quint16(m_options.port))) {
        const QString reason = sensible ? m_server.errorString() : QStringLiteral("no such address");
        *error = QStringLiteral("cannot listen on %1:%2: %3")
                     .arg(m_options.address)
                     .arg(m_options.port)
                     .arg(reason);
        return false;
    }
    m_clock.start();
    m_tellTimer.start(50);
    for (const Simulator::Fault& f : m_options.faults) {
        const FaultKind kind = f.kind;
        if (f.seconds > 0.0)
            QTimer::singleShot(int(std::min(f.seconds * 1000.0, 2e9)), Qt::PreciseTimer, this,
                               [this, kind] { fault(kind); });
        else
            fault(kind);
    }
    return true;
}

// Connections

void Server::accept()
{
    while (QTcpSocket* socket = m_server.nextPendingConnection()) {
        if (m_clients.size() >= maxClients) {
            delete socket;
            continue;
        }
        auto* client = new Client(socket, this);
        connect(client, &Client::active, this, [this, client] { serve(client); });
        connect(client, &Client::closed, this, [this, client] { drop(client); });
        m_clients.push_back(client);
        for (const FaultKind kind : std::exchange(m_awaiting, {})) misbehave(client, kind);
        serve(client);
    }
}

void Server::drop(Client* client)
{
    m_clients.erase(std::remove(m_clients.begin(), m_clients.end(), client), m_clients.end());
    client->deleteLater(); // its requests go with it, see confirmDue()
}

/// Takes requests, as many as the bounds allow; the rest stays in the socket until some are confirmed.
void Server::serve(Client* client)
{
    Client::Request request;
    while (client->waiting < maxWaiting && client->unsentBytes() < maxUnsent &&
           client->takeRequest(&request)) {
        ++client->waiting;
        m_pending.push_back({client, request, m_clock.nsecsElapsed()});
    }
    if (m_flooding) flood(client);
    if (!m_pending.empty() && !m_confirmTimer.isActive()) confirmDue();
}

// Requests

void Server::confirmDue()
{
    const std::int64_t latest =
        m_clock.nsecsElapsed() - std::int64_t(m_manner.confirmMilliseconds) * 1000000; // that is due
    while (!m_pending.empty() && m_pending.front().arrivedNs <= latest) {
        const Pending pending = m_pending.front();
        m_pending.pop_front();
        if (pending.client.isNull() || !pending.client->isLive()) continue;
        --pending.client->waiting;
        confirm(pending.client, pending.request);
    }
    if (!m_pending.empty())
        m_confirmTimer.start(int((m_pending.front().arrivedNs - latest + 999999) / 1000000));
    else
        m_confirmTimer.stop(); // it may run for a longer time to an answer
    // Those that had reached their bound may go on.
    for (Client* client : m_clients)
        if (client->waiting == 0) QMetaObject::invokeMethod(client, &Client::active, Qt::QueuedConnection);
}

void Server::confirm(Client* client, const Client::Request& request)
{
    if (request.address == flashBlock || request.address == flashFinish) {
        confirmDownload(client, request);
        return;
    }
    const int found = findParameter(request.address);
    std::int32_t reason = reasonOk;
    bool taken = false;
    if (m_refusing && (request.type == typeSet || request.type == typeDo)) {
        reason = reasonUnknownError;
    } else if (found < 0) {
        reason = reasonInvalidAddress;
    } else if (request.type == typeSet && request.hasWord && parameters[found].writable) {
        if (request.word < parameters[found].first || request.word > parameters[found].last)
            reason = reasonOutOfRange;
        else if (isOperatorsValue(request.address) && refusesNow())
            reason = reasonUnknownError;
        else
            taken = true;
    } else if (request.type != typeGet) {
        reason = reasonUnknownError;
    }
    if (taken) assign(std::size_t(found), request.word);
    acknowledge(client, request, reason, found < 0 ? 0 : value(std::size_t(found)));
    if (taken) tell(request.address, request.word, client);
}

/// A block of a firmware image, or its end; what was downloaded is not run.
void Server::confirmDownload(Client* client, const Client::Request& request)
{
    Download& download = client->download;
    const bool isBlock = request.address == flashBlock;
    std::int32_t reason = request.type == typeGet ? reasonInvalidAddress : reasonUnknownError;
    std::uint32_t sum = 0;
    if (request.type == (isBlock ? typeSet : typeDo) && !m_refusing)
        reason = isBlock ? download.takeBlock(request.index, request.dataSize, request.dataSum)
                         : download.finish(&sum);
    const bool isKnown = request.type != typeGet;
    acknowledge(client, request, reason, isKnown ? isBlock ? download.next() : std::int32_t(sum) : 0);
}

void Server::acknowledge(Client* client, const Client::Request& request, std::int32_t reason,
                         std::int32_t value)
{
    const std::int32_t words[] = {reason, value};
    const std::vector<char> ack =
        encodeTelegram(typeAck, request.address, request.index, request.number, words, 2);
    client->send(ack.data(), ack.size());
}

/// Counts a value that is being set; every N-th is refused.
bool Server::refusesNow()
{
    const int every = m_manner.refuseEvery;
    if (std::exchange(m_refuseTurn, m_manner.refuseTurn) != m_refuseTurn) m_settings = 0;
    m_settings = every > 0 ? m_settings % every + 1 : 0;
    return every > 0 && m_settings == every;
}

std::int32_t Server::value(std::size_t parameter)
{
    switch (parameters[parameter].address) {
    case counter:
        return std::int32_t(counterStart + std::uint32_t(m_clock.elapsed()));
    case voltageReadBack:
        return readBack();
    case samplePosition:
        return std::int32_t(m_position);
    default:
        return m_values[parameter];
    }
}

std::int32_t Server::current(Address address) const
{
    return m_values[std::size_t(findParameter(address))];
}

void Server::assign(std::size_t parameter, std::int32_t value)
{
    m_values[parameter] = value;
    switch (parameters[parameter].address) {
    case samplePosition:
        m_position = std::uint32_t(value);
        break;
    case acquisition:
    case xPixels:
    case yPixels:
    case frameMode:
    case lineRate:
        applyScan();
        break;
    case timeStampFormat:
        applyStream();
        break;
    case eventRate:
        m_events.setRate(value, m_streamTime);
        break;
    default:
        break;
    }
}

// Samples

/// Starts, stops or changes the scan; what is due is counted from now.
void Server::applyScan()
{
    const std::int32_t kind = current(acquisition);
    m_credit = 0;
    m_scannedNs = m_clock.nsecsElapsed();
    if (kind == acquisitionOff) {
        m_scanTimer.stop();
        if (m_surface.isOpen() && !m_surface.flush()) endSurface();
        return;
    }
    m_source.setGeometry({kind, current(frameMode), current(xPixels), current(yPixels)});
    if (!m_scanTimer.isActive()) m_scanTimer.start(scanMilliseconds);
}

/// Nobody listens, or somebody is too slow: scan and stream wait, so that no sample and no event is lost.
bool Server::heldBack() const
{
    bool anyLive = false;
    for (const Client* client : m_clients) {
        if (!client->isLive()) continue;
        if (client->unsentBytes() > maxUnsent) return true;
        anyLive = true;
    }
    return !anyLive;
}

void Server::scan()
{
    const std::int64_t now = m_clock.nsecsElapsed();
    const std::int64_t samplesPerSecond =
        std::int64_t(current(lineRate)) * (current(acquisition) == acquisitionStream ? 1 : current(xPixels));
    m_credit += samplesPerSecond * std::min(now - m_scannedNs, maxCatchUpNs);
    m_scannedNs = now;
    while (m_credit >= nsPerSecond) {
        if (heldBack()) {
            m_credit = 0; // slower, not later in a burst
            return;
        }
        const std::int64_t count =
            std::min({m_credit / nsPerSecond, std::int64_t(blockSamples), positions - m_position});
        sendSamples(int(count));
        m_credit -= count * nsPerSecond;
    }
}

void Server::sendSamples(int count)
{
    const std::size_t n = std::size_t(count);
    m_source.fill(m_position, count, m_samples.data());
    encodeHeader(typeTell, controller::samples, std::int32_t(m_position), 0, n, m_block.data());
    qToLittleEndian<std::int32_t>(m_samples.data(), qsizetype(n), m_block.data() + headerBytes);
    for (Client* client : m_clients) client->send(m_block.data(), headerBytes + 4 * n);
    if (m_surface.isOpen()) {
        const qint64 bytes = 4 * qint64(n);
        if (m_surface.write(m_block.data() + headerBytes, bytes) != bytes) endSurface();
    }
    m_position = (m_position + std::uint32_t(count)) & 0x7FFFFFFFu;
}

/// The surface file cannot be written any more.
void Server::endSurface()
{
    qWarning("The surface file ends here: %s", qUtf8Printable(m_surface.errorString()));
    m_surface.close();
}

// Time stamps

/// Starts the stream anew, or stops it.
void Server::applyStream()
{
    m_streamTimer.stop();
    if (current(timeStampFormat) == timeStampsOff) return;
    m_events = EventSource(m_options.seed, current(eventRate));
    m_packets.begin(current(timeStampFormat));
    m_streamTime = 1; // 0 would be no time in format 60
    m_streamedNs = m_clock.nsecsElapsed();
    m_streamTimer.start(streamMilliseconds);
}

/// Sends what happened since the last time, in one packet or more; one without events tells the time.
void Server::stream()
{
    const std::int64_t now = m_clock.nsecsElapsed();
    const std::int64_t until = m_streamTime + std::min(now - m_streamedNs, maxCatchUpNs);
    m_streamedNs = now;
    std::size_t count = 0;
    do {
        if (heldBack()) return; // its time stands still
        count = m_events.take(until, m_stamps.data(), m_stamps.size());
        sendPacket(count);
        m_streamTime = count == m_stamps.size() ? m_stamps.back().time : until;
    } while (count == m_stamps.size());
}

void Server::sendPacket(std::size_t events)
{
    const std::size_t n = m_packets.write(m_streamTime, m_stamps.data(), events, m_words.data());
    encodeHeader(typeTell, packet, current(timeStampFormat), 0, n, m_block.data());
    qToLittleEndian<std::uint32_t>(m_words.data(), qsizetype(n), m_block.data() + headerBytes);
    for (Client* client : m_clients) client->send(m_block.data(), headerBytes + 4 * n);
}

// Tells

std::uint32_t Server::random()
{
    m_noise = m_noise * 1664525u + 1013904223u;
    return m_noise >> 16;
}

/// The voltage with noise of up to 5 mV.
std::int32_t Server::readBack()
{
    return current(outputVoltage) + std::int32_t(random()) % 11 - 5;
}

std::vector<char> Server::readBackTelegram()
{
    const std::int32_t word = readBack();
    return encodeTelegram(typeTell, voltageReadBack, 0, 0, &word, 1);
}

/// Tells every connection but one; those that are too slow miss it.
void Server::tell(std::int32_t address, std::int32_t value, const Client* butOne)
{
    const std::vector<char> bytes = encodeTelegram(typeTell, address, 0, 0, &value, 1);
    for (Client* client : m_clients)
        if (client != butOne && client->unsentBytes() < maxUnsent) client->send(bytes.data(), bytes.size());
}

void Server::tellReadBack()
{
    tell(voltageReadBack, readBack());
    const std::int64_t interval = m_manner.ownChangesNs;
    if (interval > 0 && m_clock.nsecsElapsed() - m_ownChangedNs >= interval) tellOwnChange();
    if (!m_pending.empty()) confirmDue(); // the time to an answer may have changed
}

/// Frequency and exposure time in turn, by up to 5 % up or down, and at least by 1.
void Server::tellOwnChange()
{
    m_ownChangedNs = m_clock.nsecsElapsed();
    m_ownFrequency = !m_ownFrequency;
    const Parameter& parameter =
        parameters[findParameter(m_ownFrequency ? controller::frequency : controller::exposureTime)];
    const std::int64_t before = current(controller::Address(parameter.address));
    const std::int64_t change = 1 + before * (random() % 50) / 1000;
    const std::int64_t after =
        before + (random() % 2 == 0 || before - change < parameter.first ? change : -change);
    const std::int32_t word = std::int32_t(after > parameter.last ? before - change : after);
    assign(std::size_t(&parameter - parameters), word);
    tell(parameter.address, word);
}

// Faults

void Server::fault(FaultKind kind)
{
    if (kind == FaultKind::Refuse) {
        m_refusing = true;
        return;
    }
    if (kind == FaultKind::Flood) m_flooding = true;
    bool found = false;
    for (Client* client : m_clients) {
        if (!client->isLive()) continue;
        misbehave(client, kind);
        found = true;
    }
    if (!found) m_awaiting.append(kind);
}

void Server::misbehave(Client* client, FaultKind kind)
{
    const std::vector<char> bytes = readBackTelegram();
    switch (kind) {
    case FaultKind::Drop:
        client->send(bytes.data(), bytes.size() / 2);
        client->close();
        break;
    case FaultKind::Stall:
        client->stall();
        break;
    case FaultKind::Length: {
        char length[4];
        qToLittleEndian<std::int32_t>(0x40000000, length);
        client->send(length, sizeof length);
        client->stall();
        break;
    }
    case FaultKind::Flood:
        flood(client);
        break;
    case FaultKind::Refuse:
        break;
    }
}

void Server::flood(Client* client)
{
    if (!client->isLive()) return;
    std::vector<char> bytes;
    while (bytes.size() < 24 * 1024) {
        const std::vector<char> one = readBackTelegram();
        bytes.insert(bytes.end(), one.begin(), one.end());
    }
    while (client->isLive() && client->unsentBytes() < floodUnsent) client->send(bytes.data(), bytes.size());
}
