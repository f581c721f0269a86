/* Counts the events of each channel in a file of time-stamp words, format 56:  count_events FILE
 *
 *   cc count_events.c $(pkg-config --cflags --libs vorelutil) -o count_events
 *
 * Where the library is not installed in a system folder, pkg-config needs PKG_CONFIG_PATH, and the program
 * LD_LIBRARY_PATH or an -rpath. */
#include <inttypes.h>
#include <stdio.h>
#include <vorelutil/tdc/tdc56.h>

int main(int argc, char** argv)
{
    static uint32_t words[tdc56Capacity]; /* one word is one event at most: the buffer cannot overflow */
    static PpTimest events[tdc56Capacity];
    uint64_t counts[8] = {0};
    FILE* const file = argc == 2 ? fopen(argv[1], "rb") : NULL;
    if (file == NULL) {
        fprintf(stderr, "count_events: %s\n", argc == 2 ? "the file does not open" : "one file is needed");
        return 1;
    }

    Tdc56Instance* const stream = tdc56Init();
    size_t read = 0;
    while ((read = fread(words, sizeof words[0], tdc56Capacity, file)) > 0) {
        tdc56Decode(stream, words, (int)read);
        const int32_t count = tdc56Pop(stream, events);
        for (int32_t i = 0; i < count; ++i) ++counts[events[i].channel];
    }
    for (int channel = 0; channel < 8; ++channel)
        if (counts[channel] > 0) printf("%d %" PRIu64 "\n", channel, counts[channel]);
    if (tdc56GetDroppedWords(stream) > 0)
        fprintf(stderr, "count_events: %" PRIu64 " words before the first high word\n",
                tdc56GetDroppedWords(stream));
    tdc56DeInit(stream);
    const int failed = ferror(file);
    fclose(file);
    return failed ? 1 : 0;
}
