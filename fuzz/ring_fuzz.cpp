// A block of a packet socket's ring, of any bytes: what is handed on lies inside it, and fits together.
#include "driver.h"

#include "gige/ringblock.h"

namespace {

constexpr std::size_t LongestInput = 4096; // several packets of each kind

void Demand(bool condition, char const *what)
{
    if (!condition)
        FuzzFail(what);
}

bool IsIn(std::span<std::uint8_t const> part, std::span<std::uint8_t const> whole)
{
    return part.empty() || (part.data() >= whole.data() && part.data() + part.size() <= whole.data() + whole.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    if (size > LongestInput)
        return FuzzRefused;
    std::span<std::uint8_t const> const bytes(data, size);
    RingBlock block(bytes);
    RingFrame frame;
    std::size_t frames = 0;
    int whole = 0;
    static volatile std::uint32_t sum; // of what is handed on, so that all of it is read
    while (block.Next(frame)) {
        // Each takes a header of its own.
        Demand(++frames <= size / 48 + 1, "more packets than there is room for");
        Demand(IsIn(frame.bytes, bytes), "a packet outside of the block");
        Demand(frame.size >= frame.bytes.size(), "more captured than came");
        for (bool const checked : {false, true}) {
            frame.isChecked = checked;
            RingDatagram datagram;
            RingVerdict const verdict = ReadDatagram(frame, datagram);
            if (verdict != RingVerdict::Whole && verdict != RingVerdict::CutShort)
                continue;
            Demand(IsIn(datagram.payload, frame.bytes), "a payload outside of its packet");
            Demand(datagram.payload.size() <= datagram.size && datagram.size + 28 <= frame.size,
                   "a size that cannot be");
            Demand((datagram.payload.size() == datagram.size) == (verdict == RingVerdict::Whole),
                   "neither whole nor cut");
            for (std::uint8_t const byte : datagram.payload)
                sum = sum + byte;
            whole += verdict == RingVerdict::Whole;
        }
    }
    return whole > 0 ? 0 : FuzzRefused;
}
