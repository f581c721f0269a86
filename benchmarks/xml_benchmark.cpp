// Documents: read from a file and destroyed, written, and the memory that a tree takes, beside other trees.
// The files are of 1 MB, and of VORELUTIL_XML_MB millions of bytes (2, so that a brief run stays brief).
// The names of the attributes come in order, as in files that were written here; a reader of a sorted map
// gains by that.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <pugixml.hpp>
#include <QDomDocument>
#include <QFile>
#include <string>
#include <sys/wait.h>
#include <tinyxml2.h>
#include <unistd.h>
#include <vorelutil/xml/xmldoc.h>

namespace {

std::string smallPath, largePath;

/// The bytes from the beginning of a tag to its last attribute: a name for each level, 9 attributes.
std::string element(int level, unsigned number)
{
    static constexpr const char* names[] = {"Groups", "Group", "Channel", "Signal"};
    static constexpr const char* units[] = {"V", "nm", "&lt;none&gt;", "kHz"};
    char text[512];
    const int length =
        std::snprintf(text, sizeof text,
                      "<%s Abbrev=\"G%u\" Algorithm=\"+(*(x,%u.%03u),offset)\" Bin=\"%u\" Enabled=\"true\" "
                      "Id=\"0x%X\" Name=\"Measured value %u &amp; more\" Sequence=\"%u\" Trigger=\"%u\" "
                      "Unit=\"%s\"",
                      names[level], number, number % 7, number % 1000, number % 2, number * 2654435761U,
                      number, number / 3, number % 11, units[number % 4]);
    return std::string(2 * static_cast<std::size_t>(level), ' ')
        .append(text, static_cast<std::size_t>(length));
}

/// Four levels: groups of 4 channels of 12 signals.
bool writeDocument(const std::string& path, std::size_t bytes)
{
    std::string text = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n" + element(0, 0) + ">\n";
    for (unsigned number = 1; text.size() < bytes;) {
        text += element(1, number++) + ">\n";
        for (int channel = 0; channel < 4; ++channel) {
            text += element(2, number++) + ">\n";
            for (int signal = 0; signal < 12; ++signal) text += element(3, number++) + "/>\n";
            text += "    </Channel>\n";
        }
        text += "  </Group>\n";
    }
    text += "</Groups>\n";
    std::ofstream file(path, std::ios::binary);
    file << text;
    return static_cast<bool>(file.flush());
}

// Each tree is read and destroyed; `look`, if there is one, sees it in between. False: reading failed.

template <class Look> bool readOurs(const std::string& path, const Look& look)
{
    XmlDoc doc;
    doc.readFile(path);
    return look(doc);
}

template <class Look> bool readToolkit(const std::string& path, const Look& look)
{
    QFile file(QString::fromStdString(path));
    QDomDocument doc;
    return file.open(QIODevice::ReadOnly) && doc.setContent(&file) && look(doc);
}

template <class Look> bool readTiny(const std::string& path, const Look& look)
{
    tinyxml2::XMLDocument doc;
    return doc.LoadFile(path.c_str()) == tinyxml2::XML_SUCCESS && look(doc);
}

constexpr auto ignore = [](const auto&) { return true; };

struct Ours
{
    static bool read(const std::string& path) { return readOurs(path, ignore); }
};

struct Toolkit
{
    static bool read(const std::string& path) { return readToolkit(path, ignore); }
};

struct Tiny
{
    static bool read(const std::string& path) { return readTiny(path, ignore); }
};

bool areEqual(const XmlDocNode& ours, const QDomElement& theirs)
{
    const QDomNamedNodeMap attributes = theirs.attributes();
    bool same = theirs.tagName().toStdString() == ours.name &&
                static_cast<std::size_t>(attributes.size()) == ours.attributes.size();
    for (const auto& [name, value] : ours.attributes)
        same = same && theirs.attribute(QString::fromStdString(name)).toStdString() == value;
    QDomElement child = theirs.firstChildElement();
    for (const XmlDocNode* node : ours.children) {
        same = same && areEqual(*node, child);
        child = child.nextSiblingElement();
    }
    return same && child.isNull();
}

bool areEqual(const XmlDocNode& ours, const tinyxml2::XMLElement* theirs)
{
    if (theirs == nullptr || theirs->Name() != ours.name) return false;
    bool same = true;
    const tinyxml2::XMLAttribute* attribute = theirs->FirstAttribute();
    for (const auto& [name, value] : ours.attributes) {
        same = same && attribute != nullptr && attribute->Name() == name && attribute->Value() == value;
        if (attribute != nullptr) attribute = attribute->Next();
    }
    const tinyxml2::XMLElement* child = theirs->FirstChildElement();
    for (const XmlDocNode* node : ours.children) {
        same = same && areEqual(*node, child);
        if (child != nullptr) child = child->NextSiblingElement();
    }
    return same && attribute == nullptr && child == nullptr;
}

struct AppendTo final : pugi::xml_writer
{
    void write(const void* data, std::size_t size) override
    {
        text.append(static_cast<const char*>(data), size);
    }
    std::string text;
};

std::string writePeer(const pugi::xml_document& doc)
{
    AppendTo writer;
    doc.save(writer, "  ");
    return std::move(writer.text);
}

/// Whether all trees of the file are equal, and what both writers write is.
bool treesAgree(const std::string& path)
{
    return readOurs(path, [&](const XmlDoc& ours) {
        const XmlDocNode& root = *ours.getChild();
        pugi::xml_document peer;
        XmlDoc again;
        const bool loaded = static_cast<bool>(peer.load_file(path.c_str()));
        again.setContent(writePeer(peer), path);
        const std::string text = ours.write(true);
        const bool same = loaded && text.size() > 900000 && again.write(true) == text;
        return same &&
               readToolkit(path,
                           [&](const QDomDocument& doc) { return areEqual(root, doc.documentElement()); }) &&
               readTiny(path,
                        [&](const tinyxml2::XMLDocument& doc) { return areEqual(root, doc.RootElement()); });
    });
}

bool skipUnlessRight(benchmark::State& state)
{
    static const bool right = treesAgree(smallPath) && treesAgree(largePath);
    if (!right) state.SkipWithError("the trees differ");
    return !right;
}

template <class Tree> void read(benchmark::State& state, const std::string& path)
{
    if (skipUnlessRight(state)) return;
    Tree::read(path); // the heap is as this tree leaves it, not the one before
    for (auto unused : state) {
        (void)unused;
        if (!Tree::read(path)) state.SkipWithError("reading failed");
    }
}

void writeOurs(benchmark::State& state, const std::string& path)
{
    if (skipUnlessRight(state)) return;
    XmlDoc doc;
    doc.readFile(path);
    benchmark::DoNotOptimize(doc.write(true));
    for (auto unused : state) {
        (void)unused;
        benchmark::DoNotOptimize(doc.write(true));
    }
}

void writePugi(benchmark::State& state, const std::string& path)
{
    if (skipUnlessRight(state)) return;
    pugi::xml_document doc;
    doc.load_file(path.c_str());
    benchmark::DoNotOptimize(writePeer(doc));
    for (auto unused : state) {
        (void)unused;
        benchmark::DoNotOptimize(writePeer(doc));
    }
}

/// Greatest resident memory of this process so far, in KB.
long peakMemory()
{
    std::ifstream status("/proc/self/status");
    std::string word;
    long amount = 0;
    while (status >> word && word != "VmHWM:") {
    }
    status >> amount;
    return amount;
}

/// What a child process does: prints by how much the file makes its greatest memory grow.
int measureMemory(const char* tree, const std::string& first, const std::string& path)
{
    bool (*const read)(const std::string&) = std::strcmp(tree, "ours") == 0 ? Ours::read : Toolkit::read;
    const bool ready = read(first);
    const long before = peakMemory();
    if (!ready || !read(path)) return 1;
    std::printf("%ld\n", peakMemory() - before);
    return 0;
}

/// Result: KB; below 0: it failed.
long memoryOf(const char* tree, const std::string& path)
{
    const std::string first = path + ".first";
    std::ofstream(first) << "<a/>";
    int ends[2];
    if (pipe(ends) != 0) return -1;
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        execl("/proc/self/exe", "benchmark_xml", "--memory", tree, first.c_str(), path.c_str(), nullptr);
        _exit(1);
    }
    close(ends[1]);
    char text[32] = "";
    const ssize_t length = ::read(ends[0], text, sizeof text - 1);
    close(ends[0]);
    int status = -1;
    waitpid(child, &status, 0);
    return length > 0 && status == 0 ? std::strtol(text, nullptr, 10) : -1;
}

void memory(benchmark::State& state, const char* tree)
{
    if (skipUnlessRight(state)) return;
    long kilobytes = 0;
    for (auto unused : state) {
        (void)unused;
        kilobytes = memoryOf(tree, largePath);
    }
    if (kilobytes <= 0) state.SkipWithError("the child process failed");
    state.counters["peak_KB"] = static_cast<double>(kilobytes);
}

void registerAll()
{
    for (const bool large : {false, true}) {
        const std::string& path = large ? largePath : smallPath;
        const auto add = [&](const std::string& name, auto* work) {
            benchmark::RegisterBenchmark((name + (large ? "_large" : "_1MB")).c_str(), work, path)
                ->Unit(benchmark::kMillisecond);
        };
        add("Read/ours", read<Ours>);
        add("Read/peer_QDomDocument", read<Toolkit>);
        add("Read/peer_tinyxml2", read<Tiny>);
        add("Write/ours", writeOurs);
        add("Write/peer_pugixml", writePugi);
    }
    benchmark::RegisterBenchmark("Memory/ours_large", memory, "ours")->Iterations(1);
    benchmark::RegisterBenchmark("Memory/peer_QDomDocument_large", memory, "toolkit")->Iterations(1);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 5 && std::strcmp(argv[1], "--memory") == 0) return measureMemory(argv[2], argv[3], argv[4]);
    const char* const size = std::getenv("VORELUTIL_XML_MB");
    const auto megabytes = std::max<std::size_t>(size != nullptr ? std::strtoull(size, nullptr, 10) : 0, 2);
    std::string folder = (std::filesystem::temp_directory_path() / "xml-XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    smallPath = folder + "/small.xml";
    largePath = folder + "/large.xml";
    const bool ready = writeDocument(smallPath, 1000000) && writeDocument(largePath, megabytes * 1000000);
    if (ready) {
        registerAll();
        benchmark::Initialize(&argc, argv);
        benchmark::RunSpecifiedBenchmarks();
    }
    std::filesystem::remove_all(folder);
    return ready ? 0 : 1;
}
