#pragma once

#include <atomic>
#include <cstdint>
#include <future>
#include <QString>
#include <QVector>
#include <thread>

/// A simulated controller: a TCP server that speaks the wire format, in a thread of its own.
///
/// Answers requests, tells its read-back, the samples of a running acquisition and the packets of a running
/// time-stamp stream, and tells the others what one connection sets. What it samples is a pure function of
/// seed, acquisition, frame mode, geometry and position, and its events one of seed, rate and event number,
/// so that two runs give the same however fast they go. All functions are called from one thread, while a
/// `QCoreApplication` exists, but for the setters, which any thread may call at any time; the server's own
/// thread is inside. See docs/simulator.md for what it answers.
class Simulator
{
public:
    enum class FaultKind
    {
        Refuse, ///< every "SET" and "DO" is refused with reason 99, from then on
        Drop,   ///< the connection is closed inside a frame; later ones work
        Stall,  ///< nothing is sent and nothing is read any more on this connection; later ones work
        Length, ///< a frame states a length that no receiver can hold, then the connection stalls
        Flood,  ///< "TELL"s are sent as fast as the connection takes them, from then on
    };

    struct Fault
    {
        FaultKind kind = FaultKind::Refuse; ///< meets the connections open then, or else the next one
        double seconds = 0.0;               ///< after the start; 0: at once
    };

    struct Options
    {
        QString address = QStringLiteral("127.0.0.1");
        int port = 0;                   ///< 0: the system chooses
        int confirmMilliseconds = 50;   ///< from a request to its "ACK"; below 0 acts as 0
        int refuseEvery = 0;            ///< every N-th "SET" of a value is refused; below 1: none
        double ownChangesSeconds = 0.0; ///< time between changes of its own; not above 0: none
        int position = 0;               ///< of the first sample
        /// Where samples go as they are sent, each once, in order (int32, little-endian). Whole when an
        /// acquisition has stopped and at the end. Empty: nowhere; "-": standard output.
        QString surfaceFile;
        QVector<Fault> faults;
        quint32 seed = 1;
    };

    explicit Simulator(const Options& options);
    /// Closes every connection and ends the thread.
    ~Simulator();
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    /// Opens the port and starts the server. False with `*error` in words when that fails.
    bool start(QString* error);
    /// The port that is listened on; 0 before `start`.
    int port() const;
    /// As it was made, whatever the setters did since.
    const Options& options() const { return m_options; }

    /// Counts within 50 ms, for the requests that wait for an answer, too.
    void setConfirmMilliseconds(int milliseconds);
    /// Every `every`-th "SET" of 0x0021 to 0x0025 that would be taken is refused with reason 99, counted from
    /// now on; below 1: none.
    void setRefuseEvery(int every);
    /// Frequency or exposure time change by themselves every `seconds`, as if somebody turned a knob, and are
    /// told. Not above 0: never.
    void setOwnChanges(double seconds);

    /// What the setters change while the server runs.
    struct Manner
    {
        std::atomic<int> confirmMilliseconds;
        std::atomic<int> refuseEvery;
        std::atomic<int> refuseTurn = 0; ///< counts the calls of the setter
        std::atomic<std::int64_t> ownChangesNs;
    };

    /// "drop", "stall@2.5" ...: a fault by name. False when the text is no fault.
    static bool parseFault(const QString& text, Fault* fault);

private:
    void serve(std::promise<int>* port, QString* error);

    const Options m_options;
    Manner m_manner;
    int m_port = 0;
    std::atomic<bool> m_stop = false; ///< asks the server's thread to end
    std::thread m_thread;             ///< joinable while started
};
