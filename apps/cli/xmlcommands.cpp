#include "cli.h"
#include "xmlinput.h"

#include <algorithm>
#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <utility>
#include <vector>
#include <vorelutil/trace/error.h>

namespace cli {
namespace {

struct XmlArguments
{
    std::string in;
    bool compact = false;
    std::vector<std::string> path; ///< names of elements, the root's first
    std::string attribute;
};

/// Blanks and line feeds that indentation adds to a document, or more than `most`: they grow with the square
/// of the depth.
std::uint64_t indentation(const XmlDocNode& root, std::uint64_t most)
{
    std::vector<std::pair<const XmlDocNode*, std::uint64_t>> open = {{&root, 0}}; // and its level
    std::uint64_t sum = 0;
    while (!open.empty() && sum <= most) {
        const auto [node, level] = open.back();
        open.pop_back();
        sum += 2 * (1 + 2 * level); // before the start tag and before the end tag
        for (const XmlDocNode* child : node->children) open.emplace_back(child, level + 1);
    }
    return sum;
}

int format(const XmlArguments& arguments)
{
    constexpr std::uint64_t mostBlanks = std::uint64_t(1) << 30;
    XmlDoc document;
    readDocument(arguments.in, &document);
    const XmlDocNode& root = *document.getChild();
    if (!arguments.compact && indentation(root, mostBlanks) > mostBlanks)
        throw FormatError("too deep for indentation: use --compact", root.file);
    const std::string text = document.write(!arguments.compact);
    std::fwrite(text.data(), 1, text.size(), stdout); // `run` tells a failure
    return exitDone;
}

int get(const XmlArguments& arguments)
{
    const auto missing = [](const std::string& what) {
        diagnose("Not found", what);
        return int(exitFailed);
    };
    XmlDoc document;
    readDocument(arguments.in, &document);
    const XmlDocNode* node = document.getChild();
    std::string walked = arguments.path.front();
    if (node->name != walked) return missing("the root is \"" + node->name + "\", not \"" + walked + '"');
    for (std::size_t i = 1; i < arguments.path.size(); ++i) {
        node = node->findNode(arguments.path[i]);
        if (node == nullptr) return missing("no element \"" + arguments.path[i] + "\" in " + walked);
        walked += '/' + arguments.path[i];
    }
    const auto found = node->attributes.find(arguments.attribute);
    if (found == node->attributes.end())
        return missing("no attribute \"" + arguments.attribute + "\" in " + walked);
    std::fwrite(found->second.data(), 1, found->second.size(), stdout);
    std::fputc('\n', stdout);
    return exitDone;
}

/// Cuts "root/element/...@attribute".
void takePath(const std::string& text, XmlArguments* arguments)
{
    const std::size_t at = text.find('@');
    const auto refuse = [&] { throw CLI::ValidationError("PATH", '"' + text + "\" is no ELEMENT/...@ATTR"); };
    if (at == std::string::npos || text.find('@', at + 1) != std::string::npos ||
        text.find('/', at) != std::string::npos)
        refuse();
    arguments->attribute = text.substr(at + 1);
    arguments->path.clear();
    for (std::size_t begin = 0; begin <= at;) {
        const std::size_t end = std::min(text.find('/', begin), at);
        arguments->path.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    const auto& path = arguments->path;
    if (arguments->attribute.empty() || std::find(path.begin(), path.end(), std::string()) != path.end())
        refuse();
}

} // namespace

void addXmlCommands(CLI::App& app, Work* work)
{
    const auto arguments = std::make_shared<XmlArguments>();
    CLI::App* xml = app.add_subcommand("xml", "XML documents in the subset of the descriptions.");
    xml->require_subcommand(1);
    const auto finish = [&](CLI::App* command, int (*function)(const XmlArguments&)) {
        command->add_option("FILE", arguments->in, "The document; - is standard input")->required();
        command->callback(
            [arguments, work, function] { *work = [arguments, function] { return function(*arguments); }; });
    };

    CLI::App* command = xml->add_subcommand(
        "format", "Print the document as the library writes it, its attributes by name, without comments.");
    finish(command, format);
    command->add_flag("--compact", arguments->compact, "All on one line after the declaration");

    command = xml->add_subcommand("get", "Print an attribute's value, for instance of Groups/Group@Name.");
    finish(command, get);
    const auto take = [arguments](const std::string& text) { takePath(text, arguments.get()); };
    command
        ->add_option_function<std::string>("PATH", take,
                                           "ELEMENT/...@ATTR: the elements from the root on (included), the "
                                           "first of each name, then the attribute")
        ->required();
}

} // namespace cli
