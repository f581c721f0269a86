// Writes the files that the page on reading frames in Python opens: area.asc, area.bcr, line.csv, log.csv.
#include <string>
#include <vorelutil/frames/framebuffer.h>

/// Samples in tenths of a millivolt above 5, lengths in nanometres.
static void setUp(FrameBuffer* frame, int mode, int yPixels)
{
    using FB = FrameBuffer;
    const int entries[][2] = {
        {FB::KeyMode, mode},       {FB::KeyXPixels, 3},        {FB::KeyYPixels, yPixels},
        {FB::KeyXLength, 2000},    {FB::KeyXOffset, 500},      {FB::KeyXyUnit, 0x17D},
        {FB::KeyValueUnit, 0x27F}, {FB::KeySampleDivisor, 10}, {FB::KeySampleOffset, 5}};
    for (const auto& [key, value] : entries) frame->setMetaData(key, value);
    frame->setActive(true);
}

int main(int argc, char** argv)
{
    if (argc != 3) return 2;
    const std::string folder = argv[1];
    const bool matrix = std::string(argv[2]) == "matrix";
    const int samples[] = {10, 20, 30, 40};
    FrameBuffer area;
    setUp(&area, FrameBuffer::Forward, 2);
    area.addData(samples, 4, 0); // two pixels stay void
    FrameBuffer line;
    setUp(&line, FrameBuffer::Backward, 1);
    line.addData(samples, 3, 0);
    const int failed = area.saveFrameAsc((folder + "/area.asc").c_str(), "Topo", true, matrix) +
                       area.saveFrameBcr((folder + "/area.bcr").c_str(), "Topo", true) +
                       line.saveLineCsv((folder + "/line.csv").c_str(), "Topo") +
                       area.saveSimpleCsv((folder + "/log.csv").c_str(), "Topo");
    return failed == 0 ? 0 : 1;
}
