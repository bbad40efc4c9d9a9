#include "avibytes.h"

#include "failures.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/intreadwrite.h>
#include <libavutil/mathematics.h>
}

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <new>

AviBytes::~AviBytes()
{
    if (m_io) {
        av_freep(&m_io->buffer);
        avio_context_free(&m_io);
    }
}

AVIOContext *AviBytes::Make()
{
    constexpr int IoBuffer = 32 * 1024;
    auto *const buffer = static_cast<std::uint8_t *>(av_malloc(IoBuffer));
    m_io = avio_alloc_context(buffer, IoBuffer, 1, this, nullptr, &AviBytes::Write, &AviBytes::Seek);
    if (m_io)
        m_io->direct = 1; // large pieces come to us as they are
    else
        av_free(buffer);
    return m_io;
}

int AviBytes::Flush()
{
    avio_flush(m_io);
    return m_error;
}

void AviBytes::Hold()
{
    Flush();
    m_holding = true;
    m_tail = {m_file.Size(), {}};
    m_before.clear();
}

int AviBytes::Release()
{
    Flush();
    m_holding = false;
    if (!m_error)
        m_error = m_file.WriteAt(m_tail.position, m_tail.bytes.data(), m_tail.bytes.size());
    for (Piece const &piece : m_before) {
        if (!m_error)
            m_error = m_file.WriteAt(piece.position, piece.bytes.data(), piece.bytes.size());
    }
    return m_error;
}

void AviBytes::Keep(std::string_view bytes)
{
    if (m_position < m_tail.position) {
        m_before.push_back({m_position, std::string(bytes)});
        return;
    }
    std::size_t const at = std::size_t(m_position - m_tail.position);
    m_tail.bytes.resize(std::max(m_tail.bytes.size(), at + bytes.size()));
    bytes.copy(m_tail.bytes.data() + at, bytes.size());
}

int AviBytes::Write(void *self, Bytes bytes, int size)
{
    auto *const to = static_cast<AviBytes *>(self);
    std::string_view const text(reinterpret_cast<char const *>(bytes), std::size_t(size));
    if (!to->m_headWritten)
        to->FindInHead(text);
    try {
        if (to->m_holding)
            to->Keep(text);
        else if (!to->m_error)
            to->m_error = to->m_file.WriteAt(to->m_position, bytes, std::size_t(size));
    } catch (std::bad_alloc const &) { // which must not pass through the library
        to->m_error = ENOMEM;
    }
    if (to->m_error)
        return AVERROR(to->m_error);
    to->m_position += std::uint64_t(size);
    return size;
}

std::int64_t AviBytes::End() const
{
    return std::int64_t(m_holding ? m_tail.position + m_tail.bytes.size() : m_file.Size());
}

std::int64_t AviBytes::Seek(void *self, std::int64_t offset, int whence)
{
    auto *const to = static_cast<AviBytes *>(self);
    switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE:
        return to->End();
    case SEEK_SET:
        break;
    case SEEK_CUR:
        offset += std::int64_t(to->m_position);
        break;
    case SEEK_END:
        offset += to->End();
        break;
    default:
        return AVERROR(EINVAL);
    }
    to->m_position = std::uint64_t(offset);
    return offset;
}

int AviBytes::WritePadding(std::uint64_t head)
{
    constexpr std::uint64_t ChunkHead = 8;
    std::uint64_t const behind = std::uint64_t(Position()) + head;
    std::uint64_t padding = (OutFile::Page - behind % OutFile::Page) % OutFile::Page;
    if (padding == 0)
        return 0;
    if (padding < ChunkHead)
        padding += OutFile::Page;
    static constexpr std::array<std::uint8_t, OutFile::Page> zeros{};
    avio_wl32(m_io, MKTAG('J', 'U', 'N', 'K'));
    avio_wl32(m_io, std::uint32_t(padding - ChunkHead));
    avio_write(m_io, zeros.data(), int(padding - ChunkHead));
    return m_error;
}

void AviBytes::FindInHead(std::string_view bytes)
{
    // From the tags to the first of the numbers.
    constexpr std::size_t Main = 8, Rate = 28;
    if (std::size_t const at = bytes.find("avih"); m_mainAt == 0 && at != bytes.npos)
        m_mainAt = m_position + at + Main;
    if (std::size_t const at = bytes.find("strh"); m_rateAt == 0 && at != bytes.npos)
        m_rateAt = m_position + at + Rate;
}

int AviBytes::SetInHead(std::uint64_t position, std::uint32_t number)
{
    std::array<std::uint8_t, 4> bytes{};
    AV_WL32(bytes.data(), number);
    return m_file.WriteAt(position, bytes.data(), bytes.size());
}

// libavformat declares every rate above 1000 as 600, which is not what the container can hold, and cuts the upper bits
// off microseconds between frames that do not fit: 0 leaves them to the rate.
int AviBytes::CorrectHead(AVRational declared, AVRational wanted)
{
    m_headWritten = true;
    if (m_rateAt == 0 || m_mainAt == 0)
        return NoRate;
    int error = 0;
    if (av_cmp_q(declared, wanted) != 0) {
        error = SetInHead(m_rateAt, std::uint32_t(wanted.num));
        if (!error)
            error = SetInHead(m_rateAt + 4, std::uint32_t(wanted.den));
    }
    if (!error && av_rescale(1'000'000, wanted.num, wanted.den) >= UINT32_MAX)
        error = SetInHead(m_mainAt, 0);
    return error;
}

int AviBytes::CorrectCount(std::uint32_t frames)
{
    constexpr std::uint64_t Total = 16;
    return SetInHead(m_mainAt + Total, frames);
}
