// Writes the files that the page on reading frames in Python opens: area.asc, area.bcr, line.csv, log.csv.
#include <cstdio>
#include <string>
#include <vorelutil/frames/framebuffer.h>

namespace {

/// Samples in tenths of a millivolt above 5, lengths in nanometres.
void setUp(FrameBuffer* frame, int mode, int yPixels)
{
    frame->setMetaData(FrameBuffer::KeyMode, mode);
    frame->setMetaData(FrameBuffer::KeyXPixels, 3);
    frame->setMetaData(FrameBuffer::KeyYPixels, yPixels);
    frame->setMetaData(FrameBuffer::KeyXLength, 2000);
    frame->setMetaData(FrameBuffer::KeyXOffset, 500);
    frame->setMetaData(FrameBuffer::KeyXyUnit, 0x17D);
    frame->setMetaData(FrameBuffer::KeyValueUnit, 0x27F);
    frame->setMetaData(FrameBuffer::KeySampleDivisor, 10);
    frame->setMetaData(FrameBuffer::KeySampleOffset, 5);
    frame->setActive(true);
}

} // namespace

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
