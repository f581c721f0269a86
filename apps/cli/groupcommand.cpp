#include "cli.h"
#include "xmlinput.h"

#include <apps/descriptions/grouplist.h>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

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

int list(const std::string& in)
{
    XmlDoc document;
    const std::string source = readDocument(in, &document);
    const descriptions::GroupList list = descriptions::listGroups(document, source);
    for (const descriptions::Problem& problem : list.problems) {
        std::string place = document.getChild()->file;
        if (problem.line > 0) place += " line " + std::to_string(problem.line);
        diagnose("Note", place + ": " + problem.text.toStdString());
    }
    const char* separator = "[\n";
    for (const descriptions::Group& group : list.groups) {
        const auto line = json(group.group).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        std::printf("%s%s", separator, line.c_str());
        separator = ",\n";
    }
    std::puts(list.groups.isEmpty() ? "[]" : "\n]");
    return exitDone;
}

} // namespace

void addGroupCommand(CLI::App& app, Work* work)
{
    const auto in = std::make_shared<std::string>();
    CLI::App* command =
        app.add_subcommand("groups", "Print the data groups of a description as JSON, in file order.");
    addFile(*command, "FILE", in.get(), "The description; - is standard input")->required();
    command->callback([in, work] { *work = [in] { return list(*in); }; });
}

} // namespace cli
