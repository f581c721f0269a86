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

struct Place
{
    const XmlDocNode* node;
    std::size_t level; ///< the root's is 0
};

/// The first element in document order to which the whole `path` leads or, where it leads to none, the first
/// of those to which most of it does. The root has its first name.
Place follow(const XmlDocNode& root, const std::vector<std::string>& path)
{
    Place best = {&root, 0};
    std::vector<Place> open = {best}; // the next one last
    while (!open.empty()) {
        const Place place = open.back();
        open.pop_back();
        if (place.level > best.level) best = place;
        if (best.level + 1 == path.size()) break;
        const std::size_t level = place.level + 1;
        const auto& children = place.node->children;
        for (auto child = children.rbegin(); child != children.rend(); ++child)
            if ((*child)->name == path[level]) open.push_back({*child, level});
    }
    return best;
}

int get(const XmlArguments& arguments)
{
    XmlDoc document;
    readDocument(arguments.in, &document);
    const XmlDocNode& root = *document.getChild();
    const auto& path = arguments.path;
    const auto missing = [](const XmlDocNode& last, const std::string& what) {
        diagnose("Not found", last.file + " line " + std::to_string(last.line) + ": " + what);
        return int(exitFailed);
    };
    if (root.name != path.front())
        return missing(root, "the root is \"" + root.name + "\", not \"" + path.front() + '"');
    const auto [node, level] = follow(root, path);
    std::string walked = path.front();
    for (std::size_t i = 1; i <= level; ++i) walked += '/' + path[i];
    if (level + 1 < path.size()) return missing(*node, "no element \"" + path[level + 1] + "\" in " + walked);
    const auto found = node->attributes.find(arguments.attribute);
    if (found == node->attributes.end())
        return missing(*node, "no attribute \"" + arguments.attribute + "\" in " + walked);
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
        addFile(*command, "FILE", &arguments->in, "The document; - is standard input")->required();
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
        ->add_option_function<std::string>(
            "PATH", take,
            "ELEMENT/...@ATTR: the elements from the root on (included), then the "
            "attribute, of the first element with that path")
        ->required();
}

} // namespace cli
