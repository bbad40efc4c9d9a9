// Lines of a text file of any length, one after another in bounded memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

// One thread at a time.
class LineReader
{
public:
    static constexpr std::size_t Longest = 10000; // of a line; more than a quoted path takes

    enum class Got {
        Line,
        TooLong, // a line that is skipped
        Cut,     // what follows the last line end, to which nothing belongs
        End,
    };

    LineReader() = default;
    ~LineReader();
    LineReader(LineReader const &) = delete;
    LineReader &operator=(LineReader const &) = delete;

    // Takes over a descriptor, or -1; reads from `offset` on.
    void Take(int file, std::uint64_t offset = 0);
    // Back to where Take began.
    void Rewind();
    bool IsOpen() const
    {
        return m_file >= 0;
    }
    // `line` is without its end, and valid until the next call. A line end between quotes belongs to the line, if
    // `quotes`; a quote that is never closed is an ordinary character.
    Got Next(std::string_view &line, bool quotes);
    // Why the end came too early: an errno value, otherwise 0.
    int Error() const
    {
        return m_error;
    }

private:
    bool Fill();
    std::string_view TakeLine(std::size_t length);
    bool SkipLine();

    int m_file = -1;
    std::uint64_t m_first = 0;      // where reading began
    std::uint64_t m_next = 0;       // in the file, of what comes into the buffer next
    std::uint64_t m_plainUntil = 0; // in the file: up to here quotes are ordinary
    std::vector<char> m_buffer;
    std::size_t m_at = 0, m_end = 0; // what of the buffer was not given away yet
    int m_error = 0;
};
