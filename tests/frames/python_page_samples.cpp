// Writes the files that the page on reading frames in Python opens: area.asc, area.bcr, line.csv, log.csv.
#include "buffers.h"

#include <string>

int main(int argc, char** argv)
{
    if (argc != 3) return 2;
    const std::string folder = argv[1];
    const bool matrix = std::string(argv[2]) == "matrix";
    using FB = FrameBuffer;
    FrameBuffer area, line;
    for (FrameBuffer* frame : {&area, &line}) { // tenths of a millivolt above 5, lengths in nanometres
        set(frame, {{FB::KeyXLength, 2000}, {FB::KeyXOffset, 500}, {FB::KeyXyUnit, 0x17D}});
        set(frame, {{FB::KeyValueUnit, 0x27F}, {FB::KeySampleDivisor, 10}, {FB::KeySampleOffset, 5}});
    }
    activate(&area, FB::Forward, 3, 2, {10, 20, 30, 40}); // two pixels stay void
    activate(&line, FB::Backward, 3, 1, {10, 20, 30});
    const int failed = area.saveFrameAsc((folder + "/area.asc").c_str(), "Topo", true, matrix) +
                       area.saveFrameBcr((folder + "/area.bcr").c_str(), "Topo", true) +
                       line.saveLineCsv((folder + "/line.csv").c_str(), "Topo") +
                       area.saveSimpleCsv((folder + "/log.csv").c_str(), "Topo");
    return failed == 0 ? 0 : 1;
}
