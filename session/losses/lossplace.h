// The places at which frames get lost, on their way from the camera to the disk.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

enum class LossPlace : std::uint8_t {
    Camera,    // did not send them, or sent what is no picture
    Network,   // packets went missing on the wire or in a switch
    Adapter,   // the network card had no room, or the system behind it
    Socket,    // the receive buffer was smaller than it should be
    Receiver,  // did not come to read packets, or to give buffers back
    Fifo,      // the recording was slower than the camera
    Disk,      // was slower than the camera, or refused
    Recording, // could not convert them
    Unknown,   // the camera's library does not tell
};
constexpr std::size_t LossPlaceCount = 9;

// A word for tables and files.
char const *WordOf(LossPlace place);

// Some of the places.
class LossPlaces
{
public:
    void Add(LossPlace place)
    {
        m_bits |= BitOf(place);
    }
    void Add(LossPlaces const &other)
    {
        m_bits |= other.m_bits;
    }
    void Remove(LossPlace place)
    {
        m_bits &= ~BitOf(place);
    }
    bool Has(LossPlace place) const
    {
        return (m_bits & BitOf(place)) != 0;
    }
    // Their words in the order of the way, with '+' in between; empty for none.
    std::string Words() const;

    bool operator==(LossPlaces const &) const = default;

private:
    static std::uint32_t BitOf(LossPlace place)
    {
        return std::uint32_t{1} << static_cast<unsigned>(place);
    }

    std::uint32_t m_bits = 0;
};

// Frames, by the place that has cost them.
struct LossTally
{
    struct Frames
    {
        std::int64_t missing = 0, incomplete = 0;
        std::int64_t packets = 0; // that the incomplete ones lack
    };
    std::array<Frames, LossPlaceCount> places;

    Frames &At(LossPlace place)
    {
        return places[static_cast<std::size_t>(place)];
    }
    Frames const &At(LossPlace place) const
    {
        return places[static_cast<std::size_t>(place)];
    }
};
// What came since.
LossTally operator-(LossTally const &after, LossTally const &before);
