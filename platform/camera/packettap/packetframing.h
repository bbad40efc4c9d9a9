// From captured frames to the packets of a camera's protocol. The bytes may come from anybody: no length in them is
// trusted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// As captured: `captured` bytes of the `length` it had on the wire.
struct CapturedFrame
{
    std::uint8_t const *bytes;
    std::size_t captured, length;
};

// A packet of the camera, from the protocol's first byte on. Of a stream packet only the beginning may be there.
struct TapPacket
{
    std::uint32_t channel; // TovCam::EventID
    std::uint8_t const *bytes;
    std::size_t captured; // at most `size`
    std::size_t size;     // on the wire
};

// For one camera and one capture. Used by the thread that reads it.
class PacketFraming
{
public:
    virtual ~PacketFraming() = default;
    // False for whatever is not a whole packet of one of the camera's channels.
    virtual bool Unpack(CapturedFrame const &frame, TapPacket &packet) = 0;
    // Packets of the camera's channels of which too little was captured, those of a stream that nobody wants left out.
    std::uint64_t GetCutShort() const
    {
        return m_cutShort;
    }
    void SetStreamWanted(bool wanted)
    {
        m_streamWanted = wanted;
    }

protected:
    // False, and counted, for one that is not whole.
    bool AcceptStream(bool whole)
    {
        m_cutShort += !whole && m_streamWanted;
        return whole;
    }
    bool AcceptMessage(bool whole)
    {
        m_cutShort += !whole;
        return whole;
    }

private:
    bool m_streamWanted = true;
    std::uint64_t m_cutShort = 0;
};

// Packets with zeros behind them, more of them than any length that a decoder might trust.
class PacketBuffer
{
public:
    static constexpr std::size_t ZeroTail = 0x20000;

    // Two parts that follow each other; the rest up to `size`, and beyond it, is zero. Good until the next call.
    void const *Lay(std::uint8_t const *head, std::size_t headSize, std::uint8_t const *body, std::size_t bodySize,
                    std::size_t size);
    void const *Lay(TapPacket const &packet);

private:
    std::vector<std::uint8_t> m_bytes;
    std::size_t m_used = 0;
};
