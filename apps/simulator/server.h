#pragma once

#include "client.h"
#include "events.h"
#include "packets.h"
#include "parameters.h"
#include "simulator.h"
#include "surface.h"

#include <array>
#include <deque>
#include <QElapsedTimer>
#include <QFile>
#include <QPointer>
#include <QTcpServer>
#include <QTimer>
#include <QVector>
#include <vector>

/// What runs in the simulator's thread: answers, tells, scans and misbehaves.
class Server : public QObject
{
    Q_OBJECT

public:
    /// `manner` must outlive the server; other threads may change it.
    Server(const Simulator::Options& options, const Simulator::Manner& manner);

    /// Opens surface file and port. False with `*error` in words when that fails.
    bool open(QString* error);
    int port() const { return m_server.serverPort(); }

private:
    struct Pending
    {
        QPointer<Client> client;
        Client::Request request;
        std::int64_t arrivedNs = 0;
    };

    void accept();
    void drop(Client* client);
    void serve(Client* client);

    void confirmDue();
    void confirm(Client* client, const Client::Request& request);
    void confirmDownload(Client* client, const Client::Request& request);
    void acknowledge(Client* client, const Client::Request& request, std::int32_t reason, std::int32_t value);
    std::int32_t value(std::size_t parameter);
    std::int32_t current(controller::Address address) const;
    void assign(std::size_t parameter, std::int32_t value);
    void applyScan();

    bool refusesNow();
    void tell(std::int32_t address, std::int32_t value, const Client* butOne = nullptr);
    void tellReadBack();
    void tellOwnChange();
    std::uint32_t random();
    std::int32_t readBack();
    std::vector<char> readBackTelegram();
    bool heldBack() const;
    void scan();
    void sendSamples(int count);
    void endSurface();
    void applyStream();
    void stream();
    void sendPacket(std::size_t events);

    void fault(Simulator::FaultKind kind);
    void misbehave(Client* client, Simulator::FaultKind kind);
    void flood(Client* client);

    const Simulator::Options m_options;
    const Simulator::Manner& m_manner;
    QTcpServer m_server;
    QElapsedTimer m_clock;
    QTimer m_confirmTimer;
    QTimer m_tellTimer;
    QTimer m_scanTimer;
    QTimer m_streamTimer;
    QFile m_surface;

    std::vector<Client*> m_clients;
    std::deque<Pending> m_pending; ///< in the order of arrival, and so of confirmation
    std::array<std::int32_t, parameterCount> m_values;

    SampleSource m_source;
    std::uint32_t m_position;     ///< of the next sample, below 2^31
    std::int64_t m_scannedNs = 0; ///< the scan's clock: samples up to then are sent
    std::int64_t m_credit = 0;    ///< samples that are due, in 10^-9 of a sample
    std::vector<char> m_block;    ///< the telegram under construction
    std::vector<std::int32_t> m_samples;

    EventSource m_events;
    PacketWriter m_packets;
    std::int64_t m_streamedNs = 0;  ///< when the stream's time was moved on last
    std::int64_t m_streamTime = 0;  ///< in clocks: events up to then are sent
    std::vector<PpTimest> m_stamps; ///< of the packet under construction
    std::vector<std::uint32_t> m_words;

    bool m_refusing = false;
    int m_refuseTurn = 0;            ///< the last one seen in `m_manner`
    int m_settings = 0;              ///< values set in this turn
    std::int64_t m_ownChangedNs = 0; ///< when a value changed by itself last
    bool m_ownFrequency = false;     ///< it was the frequency
    bool m_flooding = false;
    std::uint32_t m_noise = 1;
    QVector<Simulator::FaultKind> m_awaiting; ///< faults that want a connection and found none
};
