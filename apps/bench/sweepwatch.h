#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QSet>

class UEditSpec;

namespace bench {

class ValueRoad;

/// Sends what a field's sweeps tell the controller, follows them, and says how they end.
///
/// None goes on without a link. A sweep stops by itself when a point is not confirmed in time, and does not
/// say so; what stopped it is seen from the outside: a point without an answer, refused, or answered with
/// another value.
class SweepWatch : public QObject
{
    Q_OBJECT

public:
    /// The field's points go over `road` to `address`. Both must outlive the watch.
    SweepWatch(UEditSpec* field, ValueRoad* road, int address, QObject* parent = nullptr);

    bool isRunning() const { return m_running; }

signals:
    void started();
    /// The controller has confirmed the next point. A request that a slot sends is answered before the point
    /// after it is set. `backward`: on the way back.
    void reached(int value, bool backward);
    /// `done`: every point was confirmed.
    void ended(bool done);
    /// Something for the operator to read.
    void message(const QString& text, bool isProblem);

private:
    enum class Answer
    {
        None,
        Value,
        Refused
    };

    bool isConfirmed() const;
    void onTelegram(bool set, int address, int index, int value);
    void onAcknowledged(int number, int reason);
    void onLinkState();
    void tellUntaken(const QString& reason);
    void onAnswered(int address, int reason, int value, int milliseconds, bool isLast);
    void look();
    QString whyStopped() const;

    UEditSpec* m_field;
    ValueRoad* m_road;
    const int m_address;
    bool m_running = false;
    bool m_late = false; ///< the last sweep stopped before its point was answered
    int m_steps = 0;     ///< in one direction
    bool m_bothWays = false;
    int m_point = 0; ///< that was sent last, from 0 on
    int m_done = 0;  ///< points that were confirmed
    int m_target = 0;
    Answer m_answer = Answer::None;
    int m_answered = 0; ///< value of the answer
    QElapsedTimer m_sincePoint;
    QSet<int> m_telegrams;  ///< unanswered ones about the sweep, by number
    bool m_untaken = false; ///< it was told that the controller does not take them
    QString m_withoutLink;  ///< why a sweep was stopped: what the link said; null: something else
};

} // namespace bench
