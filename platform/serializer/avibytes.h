// The bytes of an AVI on their way from libavformat into a file, and what libavformat gets wrong in the head.
#pragma once

#include "outfile.h"

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/rational.h>
}

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Operations return 0, an errno value, or one of FormatFailure.
class AviBytes
{
public:
    explicit AviBytes(OutFile &file) : m_file(file)
    {
    }
    ~AviBytes();
    AviBytes(AviBytes const &) = delete;
    AviBytes &operator=(AviBytes const &) = delete;

    // What libavformat writes to; null when there is no memory.
    AVIOContext *Make();
    // Everything that it holds back goes to the file. What has gone wrong there; nothing is written after it.
    int Flush();
    int Error() const
    {
        return m_error;
    }
    void Fail(int error)
    {
        m_error = error;
    }
    std::int64_t Position() const // of the next byte
    {
        return avio_tell(m_io);
    }
    // From now on nothing reaches the file until Release, which writes what comes behind all frames first, and then
    // what changes before. An index that was cut off in the middle would pass for frames with some players.
    void Hold();
    int Release();
    // A chunk that players skip, so that a page begins `head` bytes after it.
    int WritePadding(std::uint64_t head);

    // Once the head has been written, with `declared` as the time between frames where it should be `wanted`.
    int CorrectHead(AVRational declared, AVRational wanted);
    // Of the first part; the later ones are counted in the stream's head.
    int CorrectCount(std::uint32_t frames);

private:
    // Const from FFmpeg 7 on.
    template<class T>
    static T BytesOf(int (*)(void *, T, int));
    using Bytes = decltype(BytesOf(std::declval<AVIOContext>().write_packet));

    struct Piece
    {
        std::uint64_t position;
        std::string bytes;
    };

    static int Write(void *self, Bytes bytes, int size);
    static std::int64_t Seek(void *self, std::int64_t offset, int whence);
    void Keep(std::string_view bytes);
    std::int64_t End() const;
    void FindInHead(std::string_view bytes);
    int SetInHead(std::uint64_t position, std::uint32_t number);

    OutFile &m_file;
    AVIOContext *m_io = nullptr;
    std::uint64_t m_position = 0; // where libavformat writes next
    std::uint64_t m_mainAt = 0;   // where the head has what holds for the whole movie
    std::uint64_t m_rateAt = 0;   // where it has the rate
    bool m_headWritten = false;
    bool m_holding = false;
    Piece m_tail;                // behind the frames
    std::vector<Piece> m_before; // in their order
    int m_error = 0;
};
