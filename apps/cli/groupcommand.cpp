#include "cli.h"
#include "xmlinput.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <QHash>
#include <vorelutil/config/datagroup.h>

namespace cli {
namespace {

/// The members under their names, in their order.
nlohmann::ordered_json json(const DataGroup& group)
{
    return {{"displayName", group.displayName.toStdString()},
            {"displayAbbrev", group.displayAbbrev.toStdString()},
            {"name", group.name.toStdString()},
            {"abbrev", group.abbrev.toStdString()},
            {"id", group.id},
            {"trigger", group.trigger},
            {"algorithm", group.algorithm},
            {"sequence", group.sequence},
            {"ascii", group.ascii},
            {"bin", group.bin},
            {"storeFrame", group.storeFrame},
            {"storeContinous", group.storeContinous},
            {"storeLocal", group.storeLocal},
            {"storeRetrigger", group.storeRetrigger},
            {"storeGroup", group.storeGroup},
            {"showChannels", group.showChannels},
            {"showSource", group.showSource},
            {"showAverage", group.showAverage},
            {"showSampleTime", group.showSampleTime},
            {"showStream", group.showStream},
            {"hidePage", group.hidePage},
            {"channelNumber", group.channelNumber},
            {"channelName", group.channelName},
            {"channelSignal", group.channelSignal},
            {"channelGroup", group.channelGroup},
            {"modified", group.modified},
            {"condition", group.condition.toStdString()}};
}

/// Tells which elements give no group, and which take another's place.
void tellOddities(const DocNode& parent)
{
    QHash<int, int> lines; // by id
    int sequence = 0;
    for (const XmlDocNode* node : parent.children) {
        const DataGroup group(node, sequence++);
        const auto tell = [&](const std::string& what) {
            diagnose("Note", node->file + " line " + std::to_string(node->line) + ": " + what);
        };
        const std::string leftOut = '"' + group.name.toStdString() + "\" is left out: no ";
        if (group.name.isEmpty()) {
            tell("an element \"" + node->name + "\" is left out: no Name");
        } else if (group.id < 0) {
            tell(leftOut + "Id of 0 or more");
        } else if (group.trigger < 0) {
            tell(leftOut + "Trigger of 0 or more");
        } else {
            const auto earlier = lines.constFind(group.id);
            if (earlier != lines.constEnd())
                tell('"' + group.name.toStdString() + "\" replaces the group of line " +
                     std::to_string(*earlier) + ", with the same Id " + std::to_string(group.id));
            lines.insert(group.id, node->line);
        }
    }
}

int list(const std::string& in)
{
    XmlDoc document;
    readDocument(in, &document);
    tellOddities(*document.getChild());
    QMap<int, DataGroup> groups;
    DataGroup::parseDataGroups(document.getChild(), groups);
    const char* separator = "[\n";
    for (const int id : DataGroup::sortGroupsBySequence(groups)) {
        const auto line = json(groups[id]).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        std::printf("%s%s", separator, line.c_str());
        separator = ",\n";
    }
    std::puts(groups.isEmpty() ? "[]" : "\n]");
    return exitDone;
}

} // namespace

void addGroupCommand(CLI::App& app, Work* work)
{
    const auto in = std::make_shared<std::string>();
    CLI::App* command =
        app.add_subcommand("groups", "Print the data groups of a description as JSON, in file order.");
    command->add_option("FILE", *in, "The description; - is standard input")->required();
    command->callback([in, work] { *work = [in] { return list(*in); }; });
}

} // namespace cli
