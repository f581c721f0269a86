#pragma once

#include <memory>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QTimer>
#include <vector>

class ControllerLink;
class UnitEdit;

namespace controller {
struct TelegramView;
} // namespace controller

namespace bench {

/// The road between value fields and the controller's parameters.
///
/// A bound field shows what the controller says of its address: the answer to a "GET" whenever a link stands,
/// and every "TELL". What is entered in it goes out as a "SET"; the answer brings the value that the
/// controller has then, so that a refused value gives way to the one that holds. When no answer can come (no
/// link, a link that is lost, nothing within `answerMilliseconds`), the field returns to the last value that
/// the controller said, and is empty when it never said one. Whatever went wrong is told through `message`.
/// A field can be entered only while a link stands over which the controller has said its value.
///
/// An idle field that differs from what the controller said last, with nothing under way, is what the user
/// asked for: values that come while one types are kept back, and the text that is then committed may be the
/// field's former value, which no field announces. Such a value goes out as a "SET", too.
///
/// While a "SET" is under way, other values of its address are remembered and not shown: the answer, which
/// follows them, decides; of several "SET"s the last one's. GUI thread only.
class ValueRoad : public QObject
{
    Q_OBJECT

public:
    static constexpr int answerMilliseconds = 3000;
    static constexpr int askMilliseconds = 500;

    /// `link` must outlive the road.
    explicit ValueRoad(ControllerLink* link, QObject* parent = nullptr);
    ~ValueRoad() override;

    /// Binds a field to an address; several fields may share one. `name` is what messages call it, of the
    /// first field that is bound. The field may be destroyed at any time.
    /// `isEntry` false: the field is for display, and stays disabled.
    void bind(int address, UnitEdit* field, const QString& name, bool isEntry = true);

    /// Asks for the value every `askMilliseconds`, as it is not told. After `bind`.
    void askAgain(int address);

    /// Only this one of the address's fields can be entered; null: all of them.
    void reserve(int address, const UnitEdit* field);

    /// A "SET" of the address is under way.
    bool isWaiting(int address) const;
    /// The controller has said the value over the present link.
    bool isFresh(int address) const;
    ControllerLink* link() const { return m_link; }

signals:
    /// Something for the operator to read.
    void message(const QString& text, bool isProblem);
    /// A "SET" was taken: what `message` told last of a failed request of this address is over.
    void overcome(const QString& text);
    /// A "SET" of a bound address was answered, after so many milliseconds. `isLast`: none was sent since.
    /// Emitted before the fields have the value, and so before a sweep sends its next one.
    void answered(int address, int reason, int value, int milliseconds, bool isLast);
    /// A field was given the controller's value.
    void shown(UnitEdit* field);

private:
    struct Way;
    struct Request
    {
        Way* way = nullptr;
        bool isSet = false;
        qint64 sentAt = 0; ///< by `m_clock`, ms
    };

    Way* find(int address) const;
    void ask(Way* way);
    void look();
    void closeGap(Way* way);
    void allow(Way* way);
    void told(Way* way, int value);
    void send(Way* way, int value);
    void show(Way* way);
    void giveUp(Way* way, const QString& text);
    void complain(Way* way, const QString& text);
    void onLinkState();
    void onAcknowledged(int number, int reason, int value);
    void onTold(const controller::TelegramView& telegram);

    ControllerLink* m_link;
    std::vector<std::unique_ptr<Way>> m_ways;
    QHash<int, Request> m_requests; ///< unanswered ones by number
    QTimer m_askTimer;
    QTimer m_lookTimer;
};

} // namespace bench
