#include "tdc56.h"

#include "instance.h"

#include <algorithm>
#include <vorelutil/trace/tracelog.h>

Tdc56Instance* tdc56Init(void)
{
    return new Tdc56Instance;
}

void tdc56DeInit(Tdc56Instance* instance)
{
    delete instance;
}

void tdc56Reset(Tdc56Instance* instance)
{
    instance->time = 0;
    instance->highBase = -1;
    instance->lastStart = 0;
    instance->measuredPeriod = 0;
    instance->startPeriod = 0;
    instance->carryWord = 0;
    instance->virtualCount = 0;
    instance->count = 0;
    instance->lastEncodedHigh = 0;
    instance->divider = 1;
    instance->sorting = false;
    instance->droppedWords = 0;
    instance->orderingErrors = 0;
}

void tdc56SetOffsets(Tdc56Instance* instance, const int32_t* offsets)
{
    bool sorting = false;
    if (offsets != nullptr) {
        std::copy_n(offsets, std::size(instance->offsets), instance->offsets);
        sorting = std::any_of(std::begin(instance->offsets), std::end(instance->offsets),
                              [](std::int32_t offset) { return offset != 0; });
    }
    if (sorting != instance->sorting) tdc56Flush(instance);
    instance->sorting = sorting;
}

void tdc56SetDivider(Tdc56Instance* instance, int32_t divider)
{
    instance->divider = divider;
}

int32_t tdc56GetDivider(const Tdc56Instance* instance)
{
    return instance->divider;
}

void tdc56SetStartPeriod(Tdc56Instance* instance, int64_t period)
{
    instance->startPeriod = period;
}

bool tdc56GetActive(const Tdc56Instance* instance)
{
    return instance->sorting || instance->divider > 1;
}

void tdc56Push(Tdc56Instance* instance, int64_t time, uint8_t channel)
{
    instance->add(time, channel);
}

void tdc56Flush(Tdc56Instance* instance)
{
    instance->queue.clear();
    instance->count = 0;
}

int32_t tdc56Pop(Tdc56Instance* instance, PpTimest* output)
{
    if (instance->sorting)
        return static_cast<std::int32_t>(instance->queue.pop(instance->time, output, tdc56Capacity));

    const std::int32_t count = instance->count;
    const std::int32_t taken = std::min<std::int32_t>(count, tdc56Capacity);
    std::copy_n(instance->buffer, taken, output);
    traceError(count <= tdc56Capacity, "Sorting queue overflow: %d", count);
    instance->count = 0;
    return taken;
}

int64_t tdc56GetTime(const Tdc56Instance* instance)
{
    return instance->time;
}

int32_t tdc56GetCount(const Tdc56Instance* instance)
{
    return instance->count;
}

uint64_t tdc56GetQueued(const Tdc56Instance* instance)
{
    return instance->queue.size();
}

uint64_t tdc56GetDroppedWords(const Tdc56Instance* instance)
{
    return instance->droppedWords;
}

uint64_t tdc56GetOrderingErrors(const Tdc56Instance* instance)
{
    return instance->orderingErrors;
}
