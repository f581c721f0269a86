#include "ucfifo.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <mutex>

// One lap: the writer is at or ahead of the reader, and `end` equals `write`. When the writer has wrapped, it
// is behind the reader (write < read), and `end` marks where the reader has to wrap as well.

namespace {

constexpr int lengthSize = 4; ///< of the length in front of a frame's payload

} // namespace

UcFifo::UcFifo(int size)
    : m_size(std::max(size, 0))
    , m_storage(new char[static_cast<std::size_t>(m_size)])
    , m_base(m_storage.get())
    , m_write(m_base)
    , m_read(m_base)
    , m_end(m_base)
{
}

/// startWrite, under the lock.
char* UcFifo::place(int n)
{
    if (n > m_base + m_size - m_write) {
        if (m_write < m_read || m_read - m_base <= n) return nullptr;
        m_end = m_write;
        m_write = m_base;
        return m_base;
    }
    if (m_write < m_read && m_read - m_write <= n) return nullptr;
    return m_write;
}

/// finishWrite, under the lock.
void UcFifo::commit(int n)
{
    m_write += n;
    m_end = std::max(m_end, m_write);
}

char* UcFifo::startWrite(int n)
{
    const std::lock_guard lock(m_mutex);
    return place(n);
}

void UcFifo::finishWrite(int n)
{
    const std::lock_guard lock(m_mutex);
    commit(n);
}

int UcFifo::writeFrames(const char* data, int length)
{
    const std::lock_guard lock(m_mutex);
    int taken = 0;  // bytes that have their place
    int copied = 0; // those of them that are there already; the rest follows each other in the ring, too
    char* target = m_write;
    while (length - taken >= lengthSize) {
        std::int32_t payload = 0;
        std::memcpy(&payload, data + taken, lengthSize);
        if (payload < 0 || payload > length - taken - lengthSize) break;
        char* const start = place(lengthSize + payload);
        if (start == nullptr) break;
        if (start != target + (taken - copied)) { // it has wrapped
            std::memcpy(target, data + copied, static_cast<std::size_t>(taken - copied));
            copied = taken;
            target = start;
        }
        commit(lengthSize + payload);
        taken += lengthSize + payload;
    }
    std::memcpy(target, data + copied, static_cast<std::size_t>(taken - copied));
    return taken;
}

char* UcFifo::startRead(int* count)
{
    const std::lock_guard lock(m_mutex);
    if (m_read >= m_end && m_read > m_write) {
        m_read = m_base;
        m_end = m_write;
    }
    const auto readable = static_cast<int>(m_end - m_read);
    if (count != nullptr) *count = std::max(readable, 0);
    return readable < 1 ? nullptr : m_read;
}

void UcFifo::finishRead(int n)
{
    const std::lock_guard lock(m_mutex);
    m_read += n;
}
