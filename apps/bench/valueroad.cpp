#include "valueroad.h"

#include "apps/controller/controllerlink.h"

#include <QDeadlineTimer>
#include <utility>
#include <vorelutil/trace/tracelog.h>
#include <vorelutil/widgets/unitedit.h>

namespace bench {

struct ValueRoad::Way
{
    int address = 0;
    QString name;
    QList<QPointer<UnitEdit>> fields;
    int value = 0;      ///< the last one that the controller said
    bool known = false; ///< it said one
    int waitsFor = 0;   ///< number of the last "SET"; 0: none under way
    bool again = false; ///< to be asked for again and again
    bool asked = false; ///< a "GET" is under way
    QTimer limit;       ///< of the last "SET"
    QString complaint;  ///< of a request that failed; no "SET" was taken since
};

namespace {

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
}

ValueRoad::~ValueRoad() = default;

void ValueRoad::bind(int address, UnitEdit* field, const QString& name)
{
    Way* way = find(address);
    if (way == nullptr) {
        m_ways.push_back(std::make_unique<Way>());
        way = m_ways.back().get();
        way->address = address;
        way->name = name;
        way->limit.setSingleShot(true);
        way->limit.setInterval(answerMilliseconds);
        connect(&way->limit, &QTimer::timeout, this,
                [this, way] { giveUp(way, tr("no answer within %1 s").arg(answerMilliseconds / 1000)); });
    }
    way->fields.append(field);
    connect(field, &UnitEdit::changed, this, [this, way](int value) { send(way, value); });
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

void ValueRoad::ask(Way* way)
{
    if (way->asked) return;
    const int number = m_link->get(way->address);
    if (number == 0) return;
    m_requests.insert(number, {way, false, now()});
    way->asked = true;
}

void ValueRoad::send(Way* way, int value)
{
    const int number = m_link->set(way->address, value);
    if (number == 0) {
        giveUp(way, m_link->state() == ControllerLink::Connected ? tr("it could not be sent")
                                                                 : m_link->stateText());
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
        if (way->known)
            field->setValue(way->value, false);
        else if (field->status() == UnitEdit::EsCommitted)
            field->clear();
    }
}

/// No answer will come to what was entered.
void ValueRoad::giveUp(Way* way, const QString& reason)
{
    way->waitsFor = 0;
    way->limit.stop();
    complain(way, tr("%1 was not set: %2").arg(way->name, reason));
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
        for (const auto& way : m_ways) ask(way.get());
        return;
    }
    m_requests.clear();
    for (const auto& way : m_ways) way->asked = false;
    for (const auto& way : m_ways)
        if (way->waitsFor != 0) giveUp(way.get(), m_link->stateText());
}

void ValueRoad::onAcknowledged(int number, int reason, int value)
{
    const auto found = m_requests.constFind(number);
    if (found == m_requests.constEnd()) return;
    const Request request = *found;
    m_requests.erase(found);
    Way* const way = request.way;
    if (!request.isSet) way->asked = false;
    // Of an address that it does not know a controller does not know the value either.
    if (reason == controller::reasonOk || (request.isSet && reason != controller::reasonInvalidAddress)) {
        way->value = value;
        way->known = true;
    }
    if (reason != controller::reasonOk)
        complain(way, (request.isSet ? tr("%1 was refused: %2 (reason %3)")
                                     : tr("%1 could not be read: %2 (reason %3)"))
                          .arg(way->name, QLatin1String(tracePrintReason(reason)))
                          .arg(reason));
    else if (request.isSet && !way->complaint.isEmpty())
        emit overcome(std::exchange(way->complaint, QString()));
    const bool decides = way->waitsFor == 0 || way->waitsFor == number;
    if (request.isSet) emit answered(way->address, reason, value, int(now() - request.sentAt), decides);
    if (!decides) return;
    way->waitsFor = 0;
    way->limit.stop();
    show(way);
}

void ValueRoad::onTold(const controller::TelegramView& telegram)
{
    if (telegram.type != controller::typeTell || telegram.wordCount < 1) return;
    Way* const way = find(telegram.address);
    if (way == nullptr) return;
    way->value = telegram.word(0);
    way->known = true;
    if (way->waitsFor == 0) show(way);
}

} // namespace bench
