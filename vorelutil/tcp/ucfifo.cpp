#include "ucfifo.h"

#include <algorithm>
#include <mutex>

// One lap: the writer is at or ahead of the reader, and `end` equals `write`. When the writer has wrapped, it
// is behind the reader (write < read), and `end` marks where the reader has to wrap as well.

UcFifo::UcFifo(int size)
    : m_size(std::max(size, 0))
    , m_base(new char[static_cast<std::size_t>(m_size)])
    , m_write(m_base)
    , m_read(m_base)
    , m_end(m_base)
{
}

UcFifo::~UcFifo()
{
    delete[] m_base;
}

char* UcFifo::startWrite(int n)
{
    const std::lock_guard lock(m_mutex);
    if (n > m_base + m_size - m_write) {
        if (m_write < m_read || m_read - m_base <= n) return nullptr;
        m_end = m_write;
        m_write = m_base;
        return m_base;
    }
    if (m_write < m_read && m_read - m_write <= n) return nullptr;
    return m_write;
}

void UcFifo::finishWrite(int n)
{
    const std::lock_guard lock(m_mutex);
    m_write += n;
    m_end = std::max(m_end, m_write);
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
