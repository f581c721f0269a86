#include <vorelutil/frames/framebuffer.h>

#include <cstdlib>
#include <vector>

// partial_frame OUT.bcr X Y MODE COUNT: a snapshot of a frame whose first COUNT samples have arrived. Sample
// i is 37 * i - 5000, offset 100, two counts to the nanovolt; the area is 300 nm x 200 nm around (50 nm, -40
// nm).
int main(int argc, char** argv)
{
    if (argc != 6) return 2;
    FrameBuffer frame;
    const int entries[][2] = {
        {FrameBuffer::KeyXPixels, std::atoi(argv[2])},
        {FrameBuffer::KeyYPixels, std::atoi(argv[3])},
        {FrameBuffer::KeyMode, std::atoi(argv[4])},
        {FrameBuffer::KeyXLength, 300},
        {FrameBuffer::KeyYLength, 200},
        {FrameBuffer::KeyXOffset, 50},
        {FrameBuffer::KeyYOffset, -40},
        {FrameBuffer::KeyXyUnit, 0x17D},
        {FrameBuffer::KeyValueUnit, 0x27D},
        {FrameBuffer::KeySampleDivisor, 2},
        {FrameBuffer::KeySampleOffset, 100},
        {FrameBuffer::KeyScanSpeed, 1000},
    };
    for (const auto& entry : entries) frame.setMetaData(entry[0], entry[1]);
    frame.setActive(true);
    std::vector<int> samples(std::size_t(std::atoi(argv[5])));
    for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = 37 * int(i) - 5000;
    frame.addData(samples.data(), int(samples.size()), 0);
    return frame.saveFrameBcr(argv[1], "voltage", true);
}
