#include "valueroad.h"

#include "apps/controller/controllerlink.h"

#include <QDeadlineTimer>
#include <utility>
#include <vorelutil/trace/tracelog.h>
#include <vorelutil/widgets/ueditspec.h>

namespace bench {

struct ValueRoad::Way
{
    int address = 0;
    QString name;
    QList<QPointer<UnitEdit>> fields;
    QPointer<const UnitEdit> only; ///< of the fields that can be entered; null: all
    bool isEntry = true;
    int value = 0;        ///< the last one that the controller said
    bool known = false;   ///< it said one
    bool fresh = false;   ///< over the present link
    int waitsFor = 0;     ///< number of the last "SET"; 0: none under way
    int late = 0;         ///< number of the one that was given up
    bool again = false;   ///< to be asked for again and again
    bool refused = false; ///< over the present link the controller said that it has no such address
    bool unread = false;  ///< it was told that a "GET" is not answered
    qint64 askedAt = 0;   ///< of the "GET" that is under way, by `now`; 0: none
    QTimer limit;         ///< of the last "SET"
    QString complaint;    ///< of a request that failed; no "SET" was taken since
};

namespace {

constexpr int lookMilliseconds = 100;

qint64 now()
{
    return QDeadlineTimer::current().deadline();
}

} // namespace

ValueRoad::ValueRoad(ControllerLink* link, QObject* parent)
    : QObject(parent)
    , m_link(link)
{
    connect(link, &ControllerLink::stateChanged, this, &ValueRoad::onLinkState);
    connect(link, &ControllerLink::acknowledged, this,
            [this](int number, int, int, int reason, int value) { onAcknowledged(number, reason, value); });
    connect(link, &ControllerLink::told, this, &ValueRoad::onTold);
    connect(&m_askTimer, &QTimer::timeout, this, [this] {
        for (const auto& way : m_ways)
            if (way->again) ask(way.get());
    });
    // Steps commit without a signal of their own.
    connect(&m_lookTimer, &QTimer::timeout, this, &ValueRoad::look);
    m_lookTimer.start(lookMilliseconds);
}

ValueRoad::~ValueRoad() = default;

void ValueRoad::bind(int address, UnitEdit* field, const QString& name, bool isEntry)
{
    Way* way = find(address);
    if (way == nullptr) {
        m_ways.push_back(std::make_unique<Way>());
        way = m_ways.back().get();
        way->address = address;
        way->name = name;
        way->isEntry = isEntry;
        way->limit.setSingleShot(true);
        way->limit.setInterval(answerMilliseconds);
        connect(&way->limit, &QTimer::timeout, this, [this, way] {
            way->late = way->waitsFor;
            giveUp(way, tr("%1 was not confirmed: no answer within %2 s")
                            .arg(way->name)
                            .arg(answerMilliseconds / 1000));
        });
    }
    way->fields.append(field);
    connect(field, &UnitEdit::changed, this, [this, way](int value) { send(way, value); });
    // After the field's own connection, which commits.
    connect(field, &UnitEdit::editingFinished, this, [this, way] { closeGap(way); });
    allow(way);
    ask(way);
}

void ValueRoad::askAgain(int address)
{
    if (Way* way = find(address)) way->again = true;
    m_askTimer.start(askMilliseconds);
}

ValueRoad::Way* ValueRoad::find(int address) const
{
    for (const auto& way : m_ways)
        if (way->address == address) return way.get();
    return nullptr;
}

void ValueRoad::reserve(int address, const UnitEdit* field)
{
    Way* const way = find(address);
    if (way == nullptr) return;
    way->only = field;
    allow(way);
}

bool ValueRoad::isWaiting(int address) const
{
    const Way* const way = find(address);
    return way != nullptr && way->waitsFor != 0;
}

bool ValueRoad::isFresh(int address) const
{
    const Way* const way = find(address);
    return way != nullptr && way->fresh;
}

void ValueRoad::look()
{
    for (const auto& way : m_ways) {
        closeGap(way.get());
        if (way->askedAt == 0 || now() - way->askedAt < answerMilliseconds) continue;
        way->askedAt = 0;
        if (way->unread) continue;
        way->unread = true;
        complain(
            way.get(),
            tr("%1 could not be read: no answer within %2 s").arg(way->name).arg(answerMilliseconds / 1000));
    }
}

/// Sends what an idle field shows and the controller does not have.
void ValueRoad::closeGap(Way* way)
{
    for (const QPointer<UnitEdit>& field : qAsConst(way->fields)) {
        if (!way->fresh || way->waitsFor != 0) return;
        if (field.isNull() || !field->isEnabled() || field->status() != UnitEdit::EsIdle ||
            field->getValue() == way->value)
            continue;
        field->setStatus(UnitEdit::EsCommitted);
        send(way, field->getValue());
        return;
    }
}

/// Lets the user enter values, or not.
void ValueRoad::allow(Way* way)
{
    for (const QPointer<UnitEdit>& field : qAsConst(way->fields)) {
        if (field.isNull()) continue;
        const bool may = way->isEntry && way->fresh && (way->only.isNull() || way->only == field);
        if (field->isEnabled() == may) continue;
        // A disabled field gives up the focus, which would commit what was typed.
        if (!may && UnitEdit::isStatusEditing(field->status())) field->restore();
        field->setEnabled(may);
    }
}

void ValueRoad::told(Way* way, int value)
{
    way->value = value;
    way->known = true;
    if (way->fresh) return;
    way->fresh = true;
    if (way->waitsFor == 0) show(way); // before it can be entered
    allow(way);
}

void ValueRoad::ask(Way* way)
{
    if (way->askedAt != 0 || way->refused) return;
    const int number = m_link->get(way->address);
    if (number == 0) return;
    m_requests.insert(number, {way, false, now()});
    way->askedAt = now();
}

void ValueRoad::send(Way* way, int value)
{
    const int number = m_link->set(way->address, value);
    if (number == 0) {
        const bool stands = m_link->state() == ControllerLink::Connected;
        const QString text = tr("%1 was not set: %2")
                                 .arg(way->name, stands ? tr("it could not be sent") : m_link->stateText());
        if (way->known && value == way->value)
            show(way); // nothing is amiss
        else
            giveUp(way, text);
        return;
    }
    m_requests.insert(number, {way, true, now()});
    way->waitsFor = number;
    way->limit.start();
}

void ValueRoad::show(Way* way)
{
    for (const QPointer<UnitEdit>& field : qAsConst(way->fields)) {
        if (field.isNull()) continue;
        if (way->known) {
            field->setValue(way->value, false);
            if (!field.isNull()) emit shown(field);
        } else if (field->status() == UnitEdit::EsCommitted) {
            field->clear();
        }
    }
}

/// No answer will come to what was entered. A field that sweeps is left alone: the value of before would
/// confirm a point that has the same.
void ValueRoad::giveUp(Way* way, const QString& text)
{
    way->waitsFor = 0;
    way->limit.stop();
    complain(way, text);
    for (const QPointer<UnitEdit>& field : qAsConst(way->fields)) {
        const auto* sweeping = qobject_cast<UEditSpec*>(field.data());
        if (sweeping != nullptr && sweeping->isRunning()) return;
    }
    show(way);
}

void ValueRoad::complain(Way* way, const QString& text)
{
    way->complaint = text;
    emit message(text, true);
}

void ValueRoad::onLinkState()
{
    if (m_link->state() == ControllerLink::Connected) {
        for (const auto& way : m_ways) {
            way->refused = way->unread = false;
            ask(way.get());
        }
        return;
    }
    m_requests.clear();
    for (const auto& way : m_ways) {
        way->askedAt = 0;
        way->late = 0;
        way->fresh = false;
    }
    for (const auto& way : m_ways) {
        if (way->waitsFor != 0)
            giveUp(way.get(), tr("%1 was not confirmed: %2").arg(way->name, m_link->stateText()));
        allow(way.get());
    }
}

void ValueRoad::onAcknowledged(int number, int reason, int value)
{
    const auto found = m_requests.constFind(number);
    if (found == m_requests.constEnd()) return;
    const Request request = *found;
    m_requests.erase(found);
    Way* const way = request.way;
    if (!request.isSet) {
        way->askedAt = 0;
        way->refused = reason == controller::reasonInvalidAddress;
    }
    const bool decides = way->waitsFor == 0 || way->waitsFor == number;
    // Of an address that it does not know a controller does not know the value either.
    if (reason == controller::reasonOk || (request.isSet && reason != controller::reasonInvalidAddress)) {
        told(way, value);
    }
    if (reason != controller::reasonOk)
        complain(way, (request.isSet ? tr("%1 was refused: %2 (reason %3)")
                                     : tr("%1 could not be read: %2 (reason %3)"))
                          .arg(way->name, QLatin1String(tracePrintReason(reason)))
                          .arg(reason));
    else if (request.isSet && !way->complaint.isEmpty())
        emit overcome(std::exchange(way->complaint, QString()));
    const int milliseconds = int(now() - request.sentAt);
    if (number == way->late) {
        way->late = 0;
        if (reason == controller::reasonOk)
            emit message(tr("%1 was confirmed after %2 ms").arg(way->name).arg(milliseconds), false);
    }
    // First, as a slot may end the link or send.
    if (decides) {
        way->waitsFor = 0;
        way->limit.stop();
    }
    if (request.isSet) emit answered(way->address, reason, value, milliseconds, decides);
    if (decides && way->waitsFor == 0) show(way);
}

void ValueRoad::onTold(const controller::TelegramView& telegram)
{
    if (telegram.type != controller::typeTell || telegram.wordCount < 1) return;
    Way* const way = find(telegram.address);
    if (way == nullptr) return;
    told(way, telegram.word(0));
    if (way->waitsFor == 0) show(way);
}

} // namespace bench
