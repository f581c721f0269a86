#pragma once

#include <QObject>
#include <QString>
#include <vorelutil/platform/export.h>

class IQTcpThread;

/// A TCP link to a controller.
///
/// Connects to a host, connects again by itself whenever the connection is lost, hands over the frames that
/// arrive, and sends blocks. A frame is a 4-byte length L (signed 32-bit, little-endian) and L bytes of
/// payload (docs/formats/wire.md).
///
///     IQTcp link(4 << 20, nullptr, "controller");
///     QObject::connect(&link, &IQTcp::dataReceived, [](char* buffer, int length) { ... });
///     link.connectToHost("192.168.1.10", 2101);
///
/// Kept: one object serves one connection life: after `disconnect` it does not connect again. Create a new
/// object for a new connection.
///
/// Thread: all functions belong to the thread that created the object, which needs an event loop. A thread of
/// the object's own connects and receives; what it has to tell comes as posted events, so every signal is
/// emitted in the object's thread.
///
/// From any slot of its signals the object may be deleted or disconnected, and an event loop may be run.
///
/// Failures: nothing is thrown, but for std::bad_alloc when memory runs out in a call; see `error`. Socket
/// errors are Linux's errno values, look-up errors the resolver's (negative).
class VORELUTIL_EXPORT IQTcp : public QObject
{
    Q_OBJECT

public:
    /// The state of the link. Any but Idle turns into Closing by `disconnect`.
    enum State : int
    {
        Idle = 0,       ///< not connected to a host yet, or no more since `connected(false)`
        Connecting = 2, ///< connecting, or connecting again
        Connected = 3,
        Closing = 4 ///< final
    };

    /// An idle link.
    ///
    /// `fifoSize` is the number of bytes that may wait for the application. It should be more than twice the
    /// largest frame (4 + L): a frame lies in the buffer in one piece, and one that never finds such a place
    /// stops the reception for good (see `getAndClearOverload`), and the loss of the connection is then not
    /// noticed either, except by a send. In a buffer of 0 bytes or less no frame ever fits. What comes before
    /// `connected(true)` was emitted has to fit: if it does not, the connection is closed, the rest of it is
    /// lost, and `error` follows (code ENOBUFS). As a drain comes 30 ms after the first
    /// frame, it also bounds the throughput, to about fifoSize / 30 ms. `name` is shown in debug messages
    /// only; it is not copied, so keep it alive as long as the object; null acts as "".
    ///
    /// Throws std::bad_alloc if there is no memory, for the buffer or else; nothing leaks.
    IQTcp(int fifoSize, QObject* parent, const char* name);

    /// Ends the connection and the thread, without a signal. It waits for the thread, as a rule a few
    /// milliseconds and at most about half a second (longer only if the system has not yet begun to run the
    /// thread). Kept: then it deletes what it owns in any case; a thread
    /// that is still at work touches nothing of it.
    ~IQTcp() override;

    /// Starts to connect to `host` (name or dotted IPv4 address; Latin-1) at `port` (its low 16 bits). True
    /// in state Idle (at first, and again after `connected(false)`); else false, and nothing changes. The
    /// outcome comes as `connected` or `error`; the link goes on trying until it is disconnected or
    /// destroyed.
    ///
    /// A refused or unanswered attempt is followed by a pause of 2 s. Besides, attempts are spaced by 50 ms
    /// times the number of attempts since data was last received, at most 5 s.
    bool connectToHost(const QString& host, int port);

    /// Ends the link for good: state Closing, and no signal from now on, `connected(false)` included. Frames
    /// that were not handed over yet are dropped. False, without effect, in state Idle. Hides the functions
    /// of the same name of QObject, which can be called as QObject::disconnect.
    bool disconnect();

    /// Expects a controller that is still starting: the next refused attempt is followed by a pause of 3 s
    /// instead of 2 s, and while the flag is still set when its event is handled, it emits no `error`.
    ///
    /// Call it after `connectToHost`, which clears the flag; the thread clears it after that attempt. If an
    /// attempt has been refused already and its pause begun, that pause stays 2 s, its error is suppressed if
    /// it was not handled yet, and the 3 s come after the next refusal. As the thread clears the flag as soon
    /// as it has posted the refusal's event, it is open which thread comes first, and so whether `error` is
    /// emitted for the patient attempt.
    void setPatient();

    /// "WSA_Error #" and the last error code in decimal; empty if there was none, after a refused or
    /// unanswered attempt, and when the peer ended the connection in an orderly way. Kept: the code stays
    /// until the next failure, also when the link is connected again.
    QString getErrorMsg() const;

    /// Whether, since the last call, a frame had to wait for room because the application is too slow for
    /// the controller, or the frame is too large for the buffer. Waiting is no error, and the controller is
    /// held up meanwhile. It loses nothing while the connection stands; if the link closes it, because a
    /// `writeBlock` fails, what still waits outside the buffer is lost. Before `connected(true)` nothing
    /// waits; see the constructor.
    bool getAndClearOverload();

    /// The present state. It follows the signals: Connected from just before `connected(true)`.
    State getState() const;

    /// Handles the events by which the thread reports; all others are QObject's.
    bool event(QEvent* e) override;

signals:
    /// Frames have arrived: one or more whole ones, each its 4-byte length and the payload, without gaps or
    /// padding. Use them before you return: the memory is then used again. A slot that runs an event loop
    /// keeps its block; what arrives meanwhile follows after it returns. A slot that deletes the object
    /// keeps its block until it returns.
    ///
    /// Emitted about 30 ms after the first of the frames came, so that more of them gather.
    void dataReceived(char* buffer, int length);

    /// True: the connection stands. False: the thread has ended although it was connected; never emitted
    /// because of `disconnect`. The state is then Idle, and `connectToHost` works again. A connection that is
    /// lost is told by `error`.
    void connected(bool connect);

    /// An attempt failed, or the connection was lost; see `getErrorMsg`. The link connects again by itself,
    /// unless its thread ran out of memory (code ENOMEM), which ends it.
    /// Not emitted for a refused attempt, or an orderly end, while the patient flag is set.
    void error();

public slots:
    /// Sends `length` bytes (whole telegrams, each with its length) and waits until the system has taken
    /// them, at most 5 s each time it is sent. True if it has; also for a length of 0. False for a negative
    /// length, while there is no connection, and if sending failed: then the connection is closed, `error`
    /// follows, and the link connects again. A peer that stops reading, so that the block is not taken after
    /// 5 s, counts as failed.
    ///
    /// Kept: if a signal handler cuts a send short, the block is sent again from its start, with 5 s of its
    /// own, and the result is false.
    bool writeBlock(const char* buffer, int length);

protected slots:
    /// Hands over all frames that wait, by `dataReceived`. Does nothing while a drain is at work already.
    void readFromFifo();

private:
    const char* const m_name; ///< the caller's
    QString m_host;
    int m_port = 0;
    IQTcpThread* const m_thread; ///< owned; its Core holds the last error, the patient flag and the state
    bool m_isDraining = false;
};
