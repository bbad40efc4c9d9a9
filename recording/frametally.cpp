#include "frametally.h"

#include <algorithm>

void FrameTally::Clear()
{
    m_written = m_saved = m_unwanted = m_failed = 0;
    m_savedIncomplete.store(0, std::memory_order_relaxed);
    m_underWay.clear();
    m_readableKnown = false;
}

void FrameTally::AddUnwanted()
{
    ++m_unwanted;
}

void FrameTally::AddFailed()
{
    ++m_failed;
}

void FrameTally::AddWritten(bool incomplete, std::int64_t readable)
{
    ++m_written;
    m_underWay.push_back(incomplete);
    m_readableKnown = readable >= 0;
    Settle(m_readableKnown ? readable : m_written);
}

void FrameTally::Settle(std::int64_t readable)
{
    std::int64_t incomplete = SavedIncomplete();
    while (m_saved < readable && !m_underWay.empty()) {
        ++m_saved;
        incomplete += m_underWay.front();
        m_underWay.pop_front();
    }
    m_savedIncomplete.store(incomplete, std::memory_order_relaxed);
}

std::int64_t FrameTally::Close(std::int64_t readable)
{
    bool const known = readable >= 0;
    // Where the number was known before and is not any more, the last known one counts.
    Settle(known ? readable : m_readableKnown ? m_saved : m_written);
    // A removed file has lost its frames, and a file may hold frames that were refused with an error.
    std::int64_t const tried = m_written + m_failed;
    if (known)
        m_saved = std::min(readable, tried);
    m_savedIncomplete.store(std::min(SavedIncomplete(), m_saved), std::memory_order_relaxed);
    std::int64_t const lost = tried - m_saved - m_failed;
    m_failed = tried - m_saved;
    return lost;
}
