#include "datagroup.h"

#include <string>

namespace {

QString text(const DocNode* node, const char* attribute)
{
    return QString::fromStdString(node->findAttr(attribute, std::string()));
}

struct Flag
{
    const char* keyword;
    bool DataGroup::*member;
};

// clang-format off
constexpr Flag formatFlags[] = {
    {"Ascii", &DataGroup::ascii},
    {"Bin",   &DataGroup::bin},
};
constexpr Flag propertyFlags[] = {
    {"StoreFrame",     &DataGroup::storeFrame},
    {"StoreContinous", &DataGroup::storeContinous},
    {"StoreLocal",     &DataGroup::storeLocal},
    {"StoreRetrigger", &DataGroup::storeRetrigger},
    {"StoreGroup",     &DataGroup::storeGroup},
    {"ShowChannels",   &DataGroup::showChannels},
    {"ShowSource",     &DataGroup::showSource},
    {"ShowAverage",    &DataGroup::showAverage},
    {"ShowSampleTime", &DataGroup::showSampleTime},
    {"ShowStream",     &DataGroup::showStream},
    {"HidePage",       &DataGroup::hidePage},
};
constexpr Flag channelFlags[] = {
    {"Number", &DataGroup::channelNumber},
    {"Name",   &DataGroup::channelName},
    {"Signal", &DataGroup::channelSignal},
    {"Group",  &DataGroup::channelGroup},
};
// clang-format on

template <std::size_t count>
void setFlags(DataGroup& group, const QString& keywords, const Flag (&flags)[count])
{
    for (const Flag& flag : flags) {
        group.*flag.member = keywords.indexOf(QLatin1String(flag.keyword), 0, Qt::CaseSensitive) >= 0;
    }
}

} // namespace

DataGroup::DataGroup(const DocNode* node, int place)
    : name(text(node, "Name"))
    , abbrev(text(node, "Abbrev"))
    , id(node->findAttrInt("Id", -1))
    , trigger(node->findAttrInt("Trigger", -1))
    , algorithm(node->findAttrInt("Algorithm", -1))
    , sequence(place)
    , condition(text(node, "Condition"))
{
    setFlags(*this, text(node, "Formats"), formatFlags);
    setFlags(*this, text(node, "Properties"), propertyFlags);
    setFlags(*this, text(node, "ChannelDescr"), channelFlags);
    displayName = name;
    displayAbbrev = abbrev;
}

DataGroup::~DataGroup() = default;

void DataGroup::parseDataGroups(const DocNode* parent, QMap<int, DataGroup>& groups)
{
    if (parent == nullptr) return;
    int place = 0;
    for (const DocNode* child : parent->children) {
        const DataGroup group(child, place++);
        if (group.name.isEmpty() || group.id < 0 || group.trigger < 0) continue;
        groups.insert(group.id, group);
    }
}

QMap<int, int> DataGroup::sortGroupsBySequence(const QMap<int, DataGroup>& groups)
{
    QMap<int, int> ids;
    for (auto group = groups.begin(); group != groups.end(); ++group) {
        ids.insert(group->sequence, group.key());
    }
    return ids;
}
