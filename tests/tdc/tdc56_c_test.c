#include <stdio.h>
#include <vorelutil/tdc/tdc56.h>

/* The interface from C: a stream is encoded, decoded with offsets and taken out in order. */

static int faults = 0;

static void check(bool holds, const char* what)
{
    if (!holds) {
        printf("wrong: %s\n", what);
        ++faults;
    }
}

static PpTimest output[tdc56Capacity];

int main(void)
{
    static const PpTimest events[] = {{50, 1, {0}}, {120, 0, {0}}, {300000000, 2, {0}}};
    static const int32_t offsets[8] = {0, 100, 0, 0, 0, 0, 0, 0};
    uint32_t words[8] = {0x10000000}; /* the high word 0 */
    int count = 3;
    Tdc56Instance* instance = tdc56Init();

    check(sizeof(PpTimest) == 16, "size of a record");
    check(tdc56Encode(instance, events, &count, words + 1, 7) == 4 && count == 3, "encoding");

    tdc56SetOffsets(instance, offsets);
    check(tdc56GetActive(instance), "active with offsets");
    tdc56Decode(instance, words, 5);
    check(tdc56GetTime(instance) == 300000000 && tdc56GetQueued(instance) == 3, "decoding");
    check(tdc56Pop(instance, output) == 3, "number of events");
    check(output[0].time == 120 && output[0].channel == 0, "first event");
    check(output[1].time == 150 && output[1].channel == 1, "second event");
    check(output[2].time == 300000000 && output[2].channel == 2, "third event");

    tdc56SetOffsets(instance, NULL);
    tdc56Push(instance, 7, 3);
    check(tdc56Pop(instance, output) == 1 && output[0].time == 7 && output[0].channel == 3,
          "without offsets");
    tdc56DeInit(instance);
    tdc56DeInit(NULL);
    return faults == 0 ? 0 : 1;
}
