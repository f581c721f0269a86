#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <vorelutil/platform/export.h>

/// Geometry, units and scaling of a frame as the instrument states them; loaded with
/// `FrameBuffer::setMetaData(const VRB_Meta*)`, which says what becomes of each field.
///
/// A plain record of thirteen 32-bit fields.
struct VRB_Meta
{
    std::int32_t mode;      ///< frame mode, see `FrameBuffer::Mode`
    std::int32_t xPixels;   ///< pixels per line
    std::int32_t yPixels;   ///< lines per frame
    float xPitch;           ///< distance between pixels in x
    float yPitch;           ///< distance between lines
    float xStart;           ///< x position of the first pixel
    float yStart;           ///< y position of the first line
    float rotation;         ///< scan rotation, 2^16 to the half turn
    std::int32_t xyUnit;    ///< unit code of lengths and offsets
    float sampleGain;       ///< sample value per raw count
    float sampleGainBase;   ///< reference of the gain
    float sampleOffset;     ///< offset in gain units
    std::int32_t valueUnit; ///< unit code of the sample values
};

/// The signed 32-bit samples of one measurement frame, as they arrive in blocks.
///
/// A frame is a stream of values, a set of scan lines, or an area scanned line by line, optionally with a
/// return pass on every line. Each block is tagged with the absolute position of its first sample in the
/// acquisition; the buffer finds from it where in which frame the block belongs. Integer metadata entries
/// hold the geometry, lengths, units and scaling; the buffer sizes its storage from them, tells when a
/// frame is complete, arranges it as an image (`sortData`) and writes it to files.
///
///     FrameBuffer frame;
///     frame.setMetaData(&meta);
///     frame.setActive(true);
///     if (frame.addData(block, count, position) != 0) frame.saveFrameBcr("scan.bcr", "height", true);
///
/// States: inactive (no storage, frame size 0; so it starts) and active. A new frame begins by itself in
/// `addData`; changes of the frame size and the reset key drop the samples held.
///
/// Ownership: the buffer owns its sample and sort arrays, its metadata, its copy of the last record and the
/// running log that it opened; the destructor frees the arrays and closes the log. Copies never share a log.
/// Positions, counts and geometry are combined in 64 bits: no value of an argument overflows.
///
/// Errors: storage that cannot be had is an `OomError` with an empty message, and nothing else is thrown. A
/// frame of more than 4294967295 samples is such a case. The buffer then keeps its new settings and has no
/// storage and no samples: `addData` stores nothing until storage of that size can be had (`setFrameSize`
/// tries again) or another frame size is set. Memory that the system promises but does not have cannot be
/// detected. The writers throw nothing and return codes.
///
/// Threads: no locks; a buffer belongs to one thread at a time. That holds for the const functions too:
/// `sortData` and the image writers change the unused end of the sample array and the sort array.
class VORELUTIL_EXPORT FrameBuffer
{
public:
    /// The modes (key 0x2001) with a geometry. Any other value has none: the frame is then as long as the
    /// default buffer size says.
    enum Mode : int
    {
        Stream = 2,        ///< a stream of x values
        Forward = 3,       ///< line or area scan, forward lines only
        ForwardReturn = 4, ///< scan with a forward, then a return pass on each line
        Backward = 5,      ///< line or area scan, backward lines only
        ReturnForward = 6  ///< scan with a return, then a forward pass on each line
    };

    /// The metadata keys that mean something to the buffer or its writers. Any other key is stored and
    /// given back without effect. Lengths and offsets are in the prefixed unit of their unit code.
    enum Key : int
    {
        KeyMode = 0x2001,          ///< see `Mode`
        KeyXPixels = 0x2002,       ///< pixels per line
        KeyYPixels = 0x2003,       ///< lines per frame
        KeyXLength = 0x2004,       ///< from the first pixel of a line to the last
        KeyYLength = 0x2005,       ///< from the first line to the last
        KeyXOffset = 0x2006,       ///< x position of the frame's centre
        KeyYOffset = 0x2007,       ///< y position of the frame's centre
        KeyRotation = 0x2008,      ///< scan rotation
        KeySampleDivisor = 0x200A, ///< raw counts per unit of value
        Key2010 = 0x2010,          ///< stored (default 255), not used
        KeyXyUnit = 0x2012,        ///< unit code of lengths and offsets, see vorelutil/algo/unit.h
        KeyValueUnit = 0x2013,     ///< unit code of the sample values
        KeySampleOffset = 0x2014,  ///< subtracted from every raw sample
        KeyScanSpeed = 0x2016,     ///< in thousandths of what the files state
        KeyReset = 0x2100          ///< request: a value other than 0 clears the buffer
    };

    /// An empty, inactive buffer with the default metadata of `initMetaData`.
    FrameBuffer();

    /// An active buffer that holds a finished block.
    ///
    /// Default metadata, then `meta` (may be null), then the start position; the buffer becomes active with
    /// the default size `count`, and the first min(count, capacity) samples of `data` are copied to the
    /// front. Kept: a frame size other than 0 resets the start position, so that `position` counts only for a
    /// buffer that can hold nothing. A null `data` or a count below 1 copies nothing. Throws `OomError`.
    FrameBuffer(const int* data, int count, int position, const VRB_Meta* meta);

    /// A copy of the settings, the metadata and the record of `other`, with storage of the same size.
    ///
    /// With `withData` also the samples, the start position and the frame counter; otherwise the copy holds
    /// no sample and counts from 0. The record is loaded first and the map replaces what came of it, so that
    /// entries that were set one by one survive. The copy has no running log. Throws `OomError`.
    FrameBuffer(const FrameBuffer& other, bool withData = true);

    /// As `init`.
    FrameBuffer& operator=(const FrameBuffer& other);

    /// Frees the storage and closes an open running log.
    ~FrameBuffer();

    /// Becomes a copy of `other` without its samples, as the constructor with `withData` false does; samples
    /// that were held here are lost. An own running log stays open, with its scaling. A null pointer and the
    /// buffer itself change nothing. Throws `OomError`.
    void init(const FrameBuffer* other);

    /// Sets the frame size used when the mode has no geometry, and whether a block in mode 0 is placed
    /// behind the samples already held (`append`) or at its position. Then as `setFrameSize`. A size below 1
    /// gives a frame size of 0.
    void setDfltBufSize(int size, bool append);

    /// Works out the frame size and the dimensions again; every change of geometry does so by itself.
    ///
    /// | state | frame size | dimensions |
    /// |---|---|---|
    /// | inactive | 0 | 0 |
    /// | mode 2 | x pixels | 1 |
    /// | modes 3, 5 | x pixels * y pixels | 1 when y pixels is below 2, else 2 |
    /// | modes 4, 6 | 2 * x pixels * y pixels | the same |
    /// | other modes | default buffer size | 0 |
    ///
    /// A pixel count below 1 in these formulas gives a frame size of 0. A capacity below the frame size is
    /// raised to it with `reallocBuffer(frame size, 0)`, which loses the samples and the sort array; it is
    /// never lowered. When the frame size or the dimensions changed, the buffer is cleared. Throws
    /// `OomError`.
    void setFrameSize();

    /// Replaces the storage: `size` zeroed samples, and a sort array of `sortSize` integers; none where the
    /// size is 0. The samples held are lost (fill 0), the start position stays.
    ///
    /// The sort array saves the image writers a temporary one; it is used when it holds at least
    /// x pixels * y pixels integers. Throws `OomError`, after which there is neither array and the capacity
    /// is 0.
    void reallocBuffer(unsigned size, unsigned sortSize);

    /// Switches the buffer on or off; nothing happens when that is its state already.
    ///
    /// Off: the samples are dropped, the storage is freed, the frame counter starts again from 0. Both then
    /// work out the frame size, which allocates when on. Throws `OomError`; the buffer is active even so.
    void setActive(bool on);

    /// Drops the samples held: fill and start position become 0. The storage and its contents stay.
    void clear();

    /// Places one block of `count` samples whose first has the absolute position `position`.
    ///
    /// Returns the number of samples that did not fit when the block ran past the end of the frame (they
    /// are not stored; the frame is complete); otherwise -1 when the frame is now complete (fill equals
    /// frame size), 0 when it is not. Nothing is stored when the frame size is 0 or greater than the
    /// capacity, when `data` is null or `count` is below 1; the result is then -1 or 0 by the same rule (so
    /// -1 while inactive).
    ///
    /// - A block whose offset, position - start position, lies within [fill, frame size) continues the frame:
    ///   it is copied to its offset. Kept: samples that were skipped keep what the array held there, usually
    ///   those of the frame before.
    /// - Any other block begins a new frame, and the frame counter goes up. Its last sample decides: the
    ///   start position is the last position rounded down to a multiple of the frame size (also below 0), the
    ///   fill ends behind that sample. Samples that belong before the new start are dropped; the array in
    ///   front of the block is left as it is.
    /// - Mode 0 (only 0) counts from the position of the block, or from the fill in append mode: a block that
    ///   begins a new frame goes to the front, and its (effective) position becomes the start position. It is
    ///   clipped to the capacity, and the rest is returned as not fitting. Kept: where the capacity is
    ///   greater than the frame size, a block in between is stored whole; the fill is then above the frame
    ///   size, the result 0, and the frame does not count as complete. Kept: in append mode the start
    ///   position moves away from 0 with the first new frame while the fill starts again, so that blocks then
    ///   keep beginning new frames.
    int addData(const int* data, int count, int position);

    /// True when the frame is complete: the fill equals the frame size, and that is not 0.
    bool getFilled() const;

    /// The samples, with the fill in `count` (may be null); null when there is no storage.
    ///
    /// The array belongs to the buffer. It is valid until storage is replaced: by a change of the frame
    /// size, `reallocBuffer`, `setActive(false)`, assignment or the destructor.
    const int* getData(unsigned* count) const;

    /// Arranges the samples as an image of x pixels * y pixels in row order, and returns the number placed.
    ///
    /// `out` has room for x pixels * y pixels integers, whatever the mode; pixels that get no sample are set
    /// to `fill`. `forward` selects the pass: forward lines go from left to right, backward lines are
    /// mirrored within their row, and lines of the other pass are skipped. Lines of mode 3 are forward; mode
    /// 4 alternates forward and backward, mode 6 backward and forward; those of any other mode are backward.
    /// The slow axis alternates: in frames of even number (start position 0: frame 0) rows run upwards, in
    /// odd ones downwards.
    ///
    /// A frame that lacks exactly one sample is completed by repeating its last one; otherwise the sample
    /// array is zeroed behind the fill. Kept: both happen in the buffer's own array, though the function is
    /// const; the fill does not change. A negative start position places nothing, and lines that begin
    /// beyond position 2147483647 are not placed. Pixels that are hit twice count twice (possible where the
    /// frame is longer than the image). Returns at most INT_MAX; 0 for a null `out` or an image without
    /// pixels.
    int sortData(int* out, bool forward, int fill) const;

    /// The metadata entry of `key`, or `dflt` when there is none.
    int findMeta(int key, int dflt) const;

    /// Stores or replaces an entry. The geometry keys (0x2001, 0x2002, 0x2003), when the value is a new one,
    /// set the frame size again; 0x2100 with a value other than 0 clears the buffer. Throws `OomError`.
    void setMetaData(int key, int value);

    /// Keeps a copy of the record and stores its fields, in this order; a null pointer does nothing.
    ///
    /// | key | value |
    /// |---|---|
    /// | 0x2001, 0x2002, 0x2003 | mode, x pixels, y pixels |
    /// | 0x2004, 0x2005 | x length = (x pixels - 1) * x pitch; y length likewise |
    /// | 0x200A | 1 / sample gain |
    /// | 0x2012, 0x2013 | x/y unit, value unit |
    /// | 0x2008 | rotation * pi / 65536 |
    /// | 0x2006, 0x2007 | x offset = x start + x length / 2; y offset likewise |
    /// | 0x2014 | sample offset / (sample gain / sample gain base) |
    ///
    /// Lengths and the gain ratio are products in single precision, the rest is double; each result is
    /// rounded with `algoNearest` (INT_MIN for what does not fit, so for a gain of 0). Kept: the geometry
    /// keys take effect one after the other, so that an active buffer passes through mixtures of the old and
    /// the new geometry; load the record before `setActive` where a mixture could be too large. Throws
    /// `OomError`, after which the entries behind the failing one are not stored.
    void setMetaData(const VRB_Meta* meta);

    /// Empties the metadata and stores the defaults: mode 0, x and y pixels 1, x length 1, sample divisor 1,
    /// 0x2010 = 255, both units 128 (none). The frame size follows.
    ///
    /// Kept: the y length has no default entry (the x length is written twice). The record copy stays.
    void initMetaData();

    /// What the buffer is set to and holds; the names are those of the descriptions above.
    bool isActive() const { return m_active; }
    int mode() const { return m_mode; }
    int xPixels() const { return m_xPixels; }
    int yPixels() const { return m_yPixels; }
    /// In 64 bits: a frame that begins just outside the 32-bit range of the positions stays exact.
    std::int64_t startPosition() const { return m_startPosition; }
    unsigned frameSize() const { return m_frameSize; }
    unsigned dimensions() const { return m_dimensions; }
    unsigned capacity() const { return m_capacity; }
    unsigned filled() const { return m_fill; }
    unsigned frameCounter() const { return m_frameCounter; } ///< new frames begun since activation

    // Files. The formats, with examples, are in docs/formats/. The writers read the buffer and never change
    // the metadata or the samples held (behind the fill the image writers do, as `sortData`); numbers have a
    // decimal point in every locale; null texts act as "". The channel is written as it is: a line feed in
    // it breaks the lines of the header.
    //
    // The image and line writers return 0 written; 1 nothing to write (inactive, no samples, no pixel that
    // received one), no file is made; 2 the file could not be opened; 3 no memory for the image (also for an
    // image of more than 4294967295 pixels). Kept: a short write, as on a full disk, is not detected.
    // They throw nothing.
    //
    // A sample s is written as (s - entry 0x2014) * scale, where scale is the factor of the value unit
    // (entry 0x2013) divided by entry 0x200A. That division is skipped without the entry (the
    // default metadata always has one); an entry of 0 gives "inf", "-inf", "nan" and "-nan" as the C runtime
    // prints them.

    /// Text image snapshot (docs/formats/text-snapshot.md): one value a line, or with `matrix` one image row
    /// a line. Pixels without a sample are written as a sample of 0.
    int saveFrameAsc(const char* path, const char* channel, bool forward, bool matrix) const;

    /// Binary image snapshot (docs/formats/binary-snapshot.md): a text header of 2048 bytes, then big-endian
    /// single-precision values, 7F000000 for a pixel without a sample. Kept: `channel` is not written; a
    /// sample of 2147483642 reads as a pixel without one; "voidpixels" is the number of pixels less that of
    /// the samples placed, at least 0, and so too low where pixels are hit twice (see `sortData`).
    int saveFrameBcr(const char* path, const char* channel, bool forward) const;

    /// Two-column export of the current line or stream (docs/formats/line-export.md).
    ///
    /// Kept: the division by entry 0x200A is not skipped when there is none (the default metadata always
    /// has one), so that the values are then infinite or not a number; a frame of one pixel a line states
    /// two.
    int saveLineCsv(const char* path, const char* channel) const;

    /// Opens the running log (docs/formats/running-log.md) and writes its header; closes one that is open.
    ///
    /// Returns 0; without a path (null or "") 0 as well, and nothing is opened; 2 when the file could not be
    /// opened. The scale and the sample offset of this moment hold for the whole log. Throws nothing.
    int startPermCsv(const char* path, const char* channel);

    /// Appends values to the running log, one a line; returns 0. Nothing happens when no log is open,
    /// `values` is null or `count` is below 1. Nothing is flushed: lines reach the file when the stream does
    /// so by itself or the log is closed. Throws nothing.
    int savePermCsv(const int* values, int count) const;

    /// Writes the samples held as a log of their own and closes it; a running log is closed before.
    ///
    /// Returns what `startPermCsv` returns. Without samples the file has its header only.
    int saveSimpleCsv(const char* path, const char* channel);

private:
    struct FreeArray
    {
        void operator()(int* array) const;
    };
    struct CloseFile
    {
        void operator()(std::FILE* file) const;
    };
    using Array = std::unique_ptr<int[], FreeArray>;
    using File = std::unique_ptr<std::FILE, CloseFile>;
    struct SortedImage;

    static Array allocate(std::uint64_t count);
    std::uint64_t wantedFrameSize(unsigned* dimensions) const;
    void copySettings(const FrameBuffer& other);
    int beginFrame(const int* data, std::int64_t count, std::int64_t position);
    int beginPlainFrame(const int* data, std::int64_t count, std::int64_t position);
    int completion() const;
    std::uint64_t imagePixels() const;
    std::uint64_t completeTail() const;
    bool isForwardLine(std::int64_t line) const;
    bool coversImage(std::uint64_t held, bool forward) const;
    std::uint64_t arrange(int* out, bool forward, int fill) const;
    int sortImage(bool forward, int fill, SortedImage* image) const;
    void writeLog(const int* values, std::size_t count) const;

    Array m_samples;
    Array m_sorted; ///< scratch for the image writers, optional
    bool m_active = false;
    bool m_append = false;
    std::int32_t m_defaultSize = 0;
    std::int32_t m_mode = 0;
    std::int32_t m_xPixels = 1;
    std::int32_t m_yPixels = 1;
    std::int64_t m_startPosition = 0; ///< absolute position of the first sample
    std::uint32_t m_frameSize = 0;    ///< samples per complete frame
    std::uint32_t m_dimensions = 0;
    std::uint32_t m_capacity = 0;       ///< length of m_samples
    std::uint32_t m_sortedCapacity = 0; ///< length of m_sorted
    std::uint32_t m_fill = 0;           ///< samples held; never above the capacity
    std::uint32_t m_frameCounter = 0;
    std::map<std::int32_t, std::int32_t> m_metaData;
    std::optional<VRB_Meta> m_record;
    File m_log;
    double m_logScale = 1;        ///< value per raw count in the running log
    std::int32_t m_logOffset = 0; ///< subtracted from what is logged
};
