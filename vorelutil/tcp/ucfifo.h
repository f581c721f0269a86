#pragma once

#include <memory>
#include <vorelutil/thread/thread.h>

/// A byte ring between one writing and one reading thread that holds whole frames, each in one piece.
///
/// The writer asks for room for a frame, fills it, and commits it; only then the reader sees it. A frame that
/// does not fit before the end of the buffer starts again at its begin, so no frame is ever split and the
/// reader gets blocks of whole frames, in place.
///
/// The writer never catches up with the reader (strictly: write == read always means empty), and an empty
/// ring does not start over by itself. So a frame of n bytes is only sure to find room if the ring holds more
/// than twice n bytes: of 100 bytes, a second frame of 60 has to wait until the first is read, and read again
/// further on it waits for ever.
///
/// `startWrite` and `finishWrite` belong to the writer, `startRead` and `finishRead` to the reader.
class UcFifo
{
public:
    /// A ring of `size` bytes; a negative size acts as 0 (nothing ever fits). Throws std::bad_alloc.
    explicit UcFifo(int size);
    UcFifo(const UcFifo&) = delete;
    UcFifo& operator=(const UcFifo&) = delete;

    /// Where `n` bytes (0 or more) may be written, or null if there is no room now. Reserves nothing: a
    /// second call before `finishWrite` takes the place of the first.
    char* startWrite(int n);
    /// Commits `n` bytes, at most as many as the last `startWrite` granted.
    void finishWrite(int n);

    /// Writes the whole frames at the begin of `data`, of which `length` bytes are there, as many as have
    /// room now: each as by startWrite, a copy and finishWrite, but under one lock. A frame is a 4-byte
    /// length L and L bytes; it ends at a frame that is not there as a whole, or has a negative L. The number
    /// of bytes taken.
    int writeFrames(const char* data, int length);

    /// The unread bytes that lie in one piece, and their number in `*count` (if not null; 0 when there are
    /// none); null when nothing is readable. The block stays as it is until `finishRead`.
    char* startRead(int* count);
    /// Releases `n` bytes, at most as many as the last `startRead` gave.
    void finishRead(int n);

    /// Bytes of the buffer.
    int size() const { return m_size; }

    /// Guards the ring; recursive, so that a caller may hold it over several calls.
    IMutex& mutex() { return m_mutex; }

private:
    char* place(int n);
    void commit(int n);

    const int m_size;
    const std::unique_ptr<char[]> m_storage;
    char* const m_base; ///< its begin
    char* m_write;      ///< where the next frame goes
    char* m_read;       ///< first unread byte
    char* m_end;        ///< one past the last valid byte of the current lap; the reader goes no further
    IMutex m_mutex;     ///< guards the pointers
};
