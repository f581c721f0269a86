#include "apps/timestamps/eventcsv.h"
#include "apps/timestamps/streamencoder.h"
#include "streams.h"
#include "tdccommands.h"
#include "terminal.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <vorelutil/trace/error.h>

namespace cli {
namespace {

struct EncodeArguments
{
    timestamps::Format format = timestamps::Format::F56;
    std::string in;
    std::string out = "-";
};

int encode(const EncodeArguments& arguments)
{
    if (arguments.format == timestamps::Format::F60b)
        diagnose("Note", "format 60b, in the form in which it is written, does not read back");
    InputStream in(arguments.in, arguments.out != "-" || !isTerminal(stdout));
    OutputStream out(arguments.out);
    timestamps::EventCsvReader reader([&](void* data, std::size_t size) { return in.read(data, size); },
                                      in.name());
    timestamps::StreamEncoder encoder(arguments.format);
    const auto write = [&](const void* data, std::size_t size) { out.write(data, size); };
    std::vector<PpTimest> events(eventsAtOnce);
    std::uint64_t done = 0;
    while (const std::size_t count = reader.read(events.data(), events.size())) {
        const std::size_t encoded = encoder.encode(events.data(), count, write);
        done += encoded;
        if (encoded < count) throw FormatError(encoder.problem(), reader.place(done));
    }
    out.finish();
    return exitDone;
}

} // namespace

void addTdcEncode(CLI::App& tdc, Work* work)
{
    auto arguments = std::make_shared<EncodeArguments>();
    CLI::App* const command =
        tdc.add_subcommand("encode", "Events to packet words. Formats 56, 52 and 60 read back; 60b, in the "
                                     "form in which it is written, does not.");
    addFormat(*command, {"56", "52", "60", "60b"}, &arguments->format);
    addFile(*command, "IN", &arguments->in, "CSV with the header time,channel; - is standard input")
        ->required();
    addFile(*command, "-o", &arguments->out, "Packet words; -, the default, is standard output");
    command->callback([arguments, work] {
        refuseSameFile(arguments->in, arguments->out);
        *work = [arguments] { return encode(*arguments); };
    });
}

} // namespace cli
