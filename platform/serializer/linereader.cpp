#include "linereader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <unistd.h>

LineReader::~LineReader()
{
    if (m_file >= 0)
        close(m_file);
}

void LineReader::Take(int file, std::uint64_t offset)
{
    if (m_file >= 0)
        close(m_file);
    m_file = file;
    m_first = offset;
    Rewind();
}

void LineReader::Rewind()
{
    m_next = m_first;
    m_plainUntil = 0;
    m_at = m_end = 0;
    m_error = 0;
}

// More bytes behind those in the buffer; false at the file's end.
bool LineReader::Fill()
{
    m_buffer.resize(8 * Longest);
    std::copy(m_buffer.begin() + std::ptrdiff_t(m_at), m_buffer.begin() + std::ptrdiff_t(m_end), m_buffer.begin());
    m_end -= m_at;
    m_at = 0;
    while (m_file >= 0 && m_error == 0) {
        ssize_t const read = pread(m_file, m_buffer.data() + m_end, m_buffer.size() - m_end, off_t(m_next));
        if (read < 0 && errno == EINTR)
            continue;
        if (read < 0)
            m_error = errno;
        if (read <= 0)
            break;
        m_end += std::size_t(read);
        m_next += std::uint64_t(read);
        return true;
    }
    return false;
}

std::string_view LineReader::TakeLine(std::size_t length)
{
    std::string_view const line(m_buffer.data() + m_at, length);
    m_at += length + 1;
    return line;
}

// To the beginning of the next one; false where there is none.
bool LineReader::SkipLine()
{
    for (;;) {
        char const *const begin = m_buffer.data() + m_at;
        if (void const *end = std::memchr(begin, '\n', m_end - m_at)) {
            m_at += std::size_t(static_cast<char const *>(end) - begin) + 1;
            return true;
        }
        m_at = m_end;
        if (!Fill())
            return false;
    }
}

LineReader::Got LineReader::Next(std::string_view &line, bool quotes)
{
    constexpr std::size_t None = ~std::size_t(0);
    std::size_t length = 0, firstEnd = None;
    bool inside = false;
    line = {};
    if (m_next - (m_end - m_at) < m_plainUntil)
        quotes = false;
    for (; length <= Longest && (m_at + length < m_end || Fill()); ++length) {
        char const c = m_buffer[m_at + length];
        inside = inside != (quotes && c == '"');
        if (c == '\n' && !inside) {
            line = TakeLine(length);
            return Got::Line;
        }
        if (c == '\n')
            firstEnd = std::min(firstEnd, length);
    }
    if (firstEnd != None) {
        // Told once: looking for the other quote from every line on would take long.
        m_plainUntil = m_next - (m_end - m_at) + length;
        line = TakeLine(firstEnd);
        return Got::Line;
    }
    if (length > Longest)
        return SkipLine() ? Got::TooLong : Got::Cut;
    m_at = m_end;
    return length > 0 ? Got::Cut : Got::End;
}
