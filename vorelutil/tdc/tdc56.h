#pragma once

/// Time stamps of a time-to-digital converter: packets of words in, events out, and back.
///
/// A plain C interface (C99) with names that are not mangled, for programs and languages of every kind.
/// Conventions, for every function below:
///
/// 1. Ownership. `tdc56Init` makes an instance, `tdc56DeInit` frees it. Arrays belong to the caller, are used
///    during the call only, and must not overlap.
/// 2. Instance. The state of one stream. Every function but `tdc56DeInit` and `tdc56Encode60b` needs a valid
///    one; null or a freed one is undefined.
/// 3. Counts are of elements (words, records), not of bytes, where nothing else is said. A count of 0 or less
///    acts as 0, and its array may be null.
/// 4. Words are 32-bit, little-endian in files and on the wire; bit 0 is the least significant one.
/// 5. Time stamps are signed 64-bit counts of the converter's clock periods. Sums and differences that leave
///    64 bits wrap.
/// 6. Channels are 0 to 7 (formats 52 and 60b: 0 to 31; format 60: 0 to 5); channel 0 is the start channel
///    (format 60: 5). Markers have the codes 100 to 104 and 200 to 203; bit 0 to 8 of a `markerMask` stands
///    for each of them, in this order, and a marker is delivered only if its bit is set.
/// 7. Errors. No function returns one. What went wrong with a stream is told through the trace log (see
///    vorelutil/trace/tracelog.h) and counted: `tdc56GetCount`, `tdc56GetOrderingErrors`,
///    `tdc56GetDroppedWords`. While sorting, only the count tells that the flat buffer overflowed. When
///    memory runs out, `tdc56Init`, `tdc56Push`, `tdc56Pop` and the decoders throw the allocator's exception
///    (C++ `std::bad_alloc`; a queue beyond the largest size: `std::length_error`), which ends a program
///    without a handler. After such an exception call `tdc56Flush` and `tdc56Reset`.
/// 8. Threads. Nothing is locked: an instance belongs to one thread at a time. Different instances are
///    independent of each other.
///
/// A paragraph that begins with "Kept" tells what may look odd, and what programs rely on.
///
/// A stream is decoded packet by packet, and the events are taken out after each (examples/count_events.c):
///
///     static PpTimest events[tdc56Capacity];
///     Tdc56Instance* const stream = tdc56Init();
///     while ((count = nextPacket(words)) > 0) { // at most 16384 words: no event gets lost
///         tdc56Decode(stream, words, count);
///         const int32_t ready = tdc56Pop(stream, events); // with offsets: again until fewer than 16384
///         ...
///     }
///     tdc56DeInit(stream);
///
/// A program that does not look at the trace log asks `tdc56GetCount` before it takes the events out: beyond
/// 16384 they are lost. One word may add more than one event in format 60, and with virtual events.
///
/// The packet formats are drawn bit by bit in docs/formats/.

// NOLINTBEGIN(modernize-deprecated-headers): C needs these.
#include <stdbool.h>
#include <stdint.h>
// NOLINTEND(modernize-deprecated-headers)
#include <vorelutil/platform/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// One event: 16 bytes, ordered by `time` alone.
typedef struct PpTimest
{
    int64_t time;       ///< time stamp, in clock periods
    uint8_t channel;    ///< channel or marker code
    uint8_t padding[7]; ///< always written as 0
} PpTimest;

/// Records that an instance's flat buffer holds, and the most that one `tdc56Pop` returns.
enum
{
    tdc56Capacity = 16384
};

/// The state of one stream: running time, high part, virtual events, carried word, events decoded so far.
typedef struct Tdc56Instance Tdc56Instance;

/// \name Instance
/// @{

/// A new instance, reset, with an empty queue. Free it with `tdc56DeInit`.
VORELUTIL_EXPORT Tdc56Instance* tdc56Init(void);

/// Frees an instance and all that it holds. Null is allowed.
VORELUTIL_EXPORT void tdc56DeInit(Tdc56Instance* instance);

/// Begins a new stream on the same instance: time 0, no high word seen, no start seen, start period 0 (is
/// measured), divider 1, sorting off, no carried word, nothing in the flat buffer, encoders as at first.
///
/// Kept: the offsets and the queued events stay as they are; call `tdc56Flush` to empty the queue.
VORELUTIL_EXPORT void tdc56Reset(Tdc56Instance* instance);

/// Time offsets of the channels 0 to 7, added to their events, channel 0's to virtual events, too. Any
/// non-zero one turns sorting on, all zero turn it off.
///
/// \param offsets 8 values in clock periods, copied; null: sorting goes off, the values stay.
/// When sorting goes on or off, everything decoded and not yet taken out is dropped, as by `tdc56Flush`.
/// While it stays on, the queue is kept, and new offsets act on later events only.
VORELUTIL_EXPORT void tdc56SetOffsets(Tdc56Instance* instance, const int32_t* offsets);

/// Number of virtual events in a start period, any value; below 2: off.
///
/// From 2 on, and with a start period of 0, each decoded channel event is preceded by the virtual events
/// (channel 0) that the time since the last start asks for: with P the time between the last two starts, one
/// at start + trunc(k * (P / divider)) for k = 1 to `divider`, as the stream passes it, in double precision
/// (which may come a clock period early). In a new stream they begin after the second start. While sorting
/// each takes a place in the queue: up to `divider` in a start period. With a start period of its own see
/// `tdc56SetStartPeriod`.
///
/// Formats 56 (starts on channel 0) and 60 (on channel 5) mark starts; 52 and 60b do not: they fold, and make
/// virtual events only from a period that 56 or 60 measured before on the same instance; 52x does neither.
/// Kept: below 2 starts are not marked, and what was measured before is used again when the divider comes
/// back. Kept: a start at time 0 is none.
VORELUTIL_EXPORT void tdc56SetDivider(Tdc56Instance* instance, int32_t divider);

/// As it was set; 1 after `tdc56Init` and `tdc56Reset`.
VORELUTIL_EXPORT int32_t tdc56GetDivider(const Tdc56Instance* instance);

/// A fixed start period in clock periods; 0: it is measured.
///
/// With a divider of 2 or more and a period that is not 0 no virtual events are made; instead each event's
/// time is folded onto one sub-period: time modulo (period / divider, rounded towards zero), never negative.
/// A period below the divider, or a negative one, folds nothing. Starts are marked meanwhile.
VORELUTIL_EXPORT void tdc56SetStartPeriod(Tdc56Instance* instance, int64_t period);

/// Whether the instance alters the stream: sorting is on, or the divider is above 1.
VORELUTIL_EXPORT bool tdc56GetActive(const Tdc56Instance* instance);
/// @}

/// \name Events
/// @{

/// Adds one event: while sorting, channels 0 to 7 go to the queue with their offset added; everything else
/// goes to the flat buffer, where what exceeds its capacity is counted and lost. Nothing else is done: it
/// does not fold, makes no virtual events, marks no start, and leaves the stream's time.
VORELUTIL_EXPORT void tdc56Push(Tdc56Instance* instance, int64_t time, uint8_t channel);

/// Drops all events: the queue's, whose memory is given back, and the flat buffer's.
VORELUTIL_EXPORT void tdc56Flush(Tdc56Instance* instance);

/// Takes out the events that are ready.
///
/// Not sorting: the flat buffer, in the order of arrival. More than 16384 counted events are told in the
/// trace log as "Sorting queue overflow: %d", with their number; the first 16384 are returned.
/// Sorting: the queued events up to the stream's time, earliest first; equal times in the order of their
/// channels, lowest first (events with the same time and channel do not differ). Later ones wait for a later
/// call. At most 16384 are returned: call again until fewer come.
///
/// Kept: while sorting, the flat buffer (markers, channels above 7) is not returned. A second instance
/// without offsets gives those.
///
/// \param output room for 16384 records.
/// \return the number of records written, 0 to 16384.
VORELUTIL_EXPORT int32_t tdc56Pop(Tdc56Instance* instance, PpTimest* output);
/// @}

/// \name State
/// @{

/// The stream's time: the latest decoded one, before folding and offsets.
VORELUTIL_EXPORT int64_t tdc56GetTime(const Tdc56Instance* instance);

/// Events that went to the flat buffer since the last `tdc56Pop` without sorting, `tdc56Flush`, `tdc56Reset`
/// or switch of sorting, those beyond its capacity included; stays at INT32_MAX when it gets there. More than
/// 16384: the rest is lost. The next `tdc56Pop` says so, but while sorting it neither does nor resets the
/// count: flush, or look at this count.
VORELUTIL_EXPORT int32_t tdc56GetCount(const Tdc56Instance* instance);

/// Events in the queue.
VORELUTIL_EXPORT uint64_t tdc56GetQueued(const Tdc56Instance* instance);

/// Event words of the formats 56, 52 and 52x that were dropped since `tdc56Reset` because no high word had
/// come before them.
VORELUTIL_EXPORT uint64_t tdc56GetDroppedWords(const Tdc56Instance* instance);

/// Packets of format 60 that were dropped, whole or from a record on, since `tdc56Reset`.
VORELUTIL_EXPORT uint64_t tdc56GetOrderingErrors(const Tdc56Instance* instance);
/// @}

/// \name Decoders
/// One packet each. Events are added as `tdc56Push` adds them, once folded or preceded by virtual events;
/// markers always go to the flat buffer.
/// @{

/// Format 56: one word a record, 28 bits of time. Any count; what one packet adds beyond the flat buffer's
/// room is lost (to an empty one 16384 words lose nothing, with the divider off).
///
/// When a word's time would lie before the stream's, its low part has wrapped before a new high word came:
/// 2^28 is added to the high part. Event words before the first high word are dropped.
VORELUTIL_EXPORT void tdc56Decode(Tdc56Instance* instance, const uint32_t* words, int count);

/// Format 52: one word a record, 26 bits of time, channels 0 to 31, markers. Event words before the first
/// high word are dropped. Markers carry the unfolded time.
///
/// Kept: no correction for a low part that wraps before a new high word comes. Kept: starts are not marked
/// (see `tdc56SetDivider`).
VORELUTIL_EXPORT void tdc56Decode52(Tdc56Instance* instance, const uint32_t* words, int count,
                                    uint32_t markerMask);

/// Format 52x: one word a record, 28 bits of time; wraps as format 56 does. Writes the events straight to the
/// caller's array: no buffer, no offsets, no virtual events, no markers.
///
/// \param output room for `count` records. \return the number of records written.
VORELUTIL_EXPORT int tdc56Decode52x(Tdc56Instance* instance, const uint32_t* words, int count,
                                    PpTimest* output);

/// Format 60: records of two words, the first with bit 31 clear, the second with bit 31 set; 1 to 3 events or
/// an absolute time each. Markers carry the unfolded time.
///
/// Kept: while the time is 0, at first or later, records with events are skipped.
///
/// A first word at the end is kept for the next packet, whose first word completes it; a second word at the
/// beginning that has no partner is skipped. A packet of one word completes such a record or begins one. When
/// words 0 and 1 have the same bit 31 the packet is out of step: nothing is decoded and the kept word stays.
/// A record whose words are not a first and a second one is told in the trace log ("Ordering error index
/// ..."); the rest of the packet is dropped, events before it stay delivered, and no word is kept. A record
/// may add up to 27 events (27 markers of three carriers), more with virtual events.
///
/// \return the word kept for the next packet, 0 when there is none; with a count of 0 or less the one kept
/// before; after an ordering error 0, out of step word 0.
VORELUTIL_EXPORT int tdc56Decode60(Tdc56Instance* instance, const uint32_t* words, int count,
                                   uint32_t markerMask);

/// Format 60b: a stream of records of 3, 4, 5 or 8 bytes. A record that the end cuts delivers nothing, and
/// its beginning is not kept: see `tdc56Cut60b`. Delta records count only while the stream's time is not
/// negative. Markers carry the unfolded time.
///
/// Kept: starts are not marked (see `tdc56SetDivider`).
///
/// \param length above 0: in 32-bit words; below 0: minus the length in bytes; 0: nothing is decoded.
VORELUTIL_EXPORT void tdc56Decode60b(Tdc56Instance* instance, const uint8_t* data, int length,
                                     uint32_t markerMask);

/// Where to cut a stream of format 60b: the bytes that its leading whole records take.
///
/// \param length in bytes. \return 0 to `length`.
VORELUTIL_EXPORT int tdc56Cut60b(const uint8_t* data, int length);
/// @}

/// \name Encoders
/// Events to one packet of test data. `*count` is the number of events on entry, and of those consumed on
/// return; the others go to the next call. The instance keeps the high part or time that was last written;
/// nothing beyond `capacity` is written. Time stamps are to ascend from 1 on; what does not fit the format's
/// bits is cut off.
/// @{

/// Format 56. A high word is written when the high part of an event's time has grown, also as the packet's
/// last word.
///
/// Kept: the high word carries the event's channel too. Kept: a high part that becomes smaller is not
/// written, and the first one only if it is not 0: a reader needs a high word 0 first.
///
/// \param capacity of `output`, in words. \return words written.
VORELUTIL_EXPORT int tdc56Encode(Tdc56Instance* instance, const PpTimest* events, int* count,
                                 uint32_t* output, int capacity);

/// Format 52, as `tdc56Encode`, with markers (codes from 100 on).
VORELUTIL_EXPORT int tdc56Encode52(Tdc56Instance* instance, const PpTimest* events, int* count,
                                   uint32_t* output, int capacity);

/// Format 60: an absolute-time record with the first event's time, then a record of two words an event.
/// Marker codes go to the 5000-clock grid, as a carrier with their flag.
///
/// \param capacity in words; an odd one is rounded down. Below 2, or without events: nothing is written and
/// consumed; 2 or 3: the absolute time is written and nothing consumed. \return words written.
VORELUTIL_EXPORT int tdc56Encode60(Tdc56Instance* instance, const PpTimest* events, int* count,
                                   uint32_t* output, int capacity);

/// Format 60b, in the form in which this library has always written it.
///
/// Kept: its records do not have the type bits that `tdc56Decode60b` reads (absolute: type 0, then a record
/// of 3 bytes; 3 bytes: type 1; 5 bytes: no type byte, and the fifth byte is left as it was): what it writes
/// does not read back. Events at 0 or before write nothing, and every event counts as consumed.
///
/// \param instance not used, may be null. \param capacity of `output`, in 32-bit words: bytes beyond it are
/// not stored, though the position advances. \return position / 4, rounded down, which may exceed `capacity`
/// by 2.
VORELUTIL_EXPORT int tdc56Encode60b(Tdc56Instance* instance, const PpTimest* events, int* count,
                                    uint8_t* output, int capacity);
/// @}

#ifdef __cplusplus
}

/// By time alone.
inline bool operator<(const PpTimest& a, const PpTimest& b)
{
    return a.time < b.time;
}
#endif
