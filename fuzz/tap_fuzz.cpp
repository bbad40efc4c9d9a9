// A stored capture of any bytes through the tap: file, framing, the buffer with its zeros, and the decoders behind it.
// The build chooses the kind of camera.
#include "driver.h"

#include "packettap/gigeframing.h"
#include "packettap/packetsource.h"
#include "packettap/usbframing.h"
#include "protocol/byteorder.h"

#include "logstringmaker.h"
#include "tovcamera.h"

#include <algorithm>

namespace {

constexpr std::size_t ControlHeader = FUZZ_USB ? 12 : 8;
constexpr std::size_t LengthAt = 4; // in the header of a GigE camera's packet
constexpr std::size_t StreamHeader = FUZZ_USB ? 1 : 8;
constexpr std::size_t Shown = FUZZ_USB ? UsbFraming::StreamBytesShown : GigEFraming::StreamBytesShown;

// Whether a file says that it holds what another kind of camera sends: its limits are others.
bool IsOfOther(std::uint8_t const *data, std::size_t size)
{
    constexpr std::size_t LinkTypeAt = 20;
    if (size < LinkTypeAt + 4)
        return false;
    // In the byte order that the file begins with.
    bool const isLittle = data[0] == 0xD4 || data[0] == 0x4D;
    unsigned const type = isLittle ? LoadLittle16(data + LinkTypeAt) : LoadBig16(data + LinkTypeAt + 2);
    return UsbFraming::Knows(static_cast<int>(type)) != FUZZ_USB;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    if (UsbEndpoints endpoints; FUZZ_USB && ParseUsbDescriptors(data, size, endpoints))
        return 0;
    if (IsOfOther(data, size))
        return FuzzRefused;
    // The file is only read.
    std::FILE *const file = size > 0 ? fmemopen(const_cast<std::uint8_t *>(data), size, "rb") : nullptr;
    std::int32_t status = 0;
    std::unique_ptr<PacketSource> const source = file ? OpenCaptureFile(file, &status) : nullptr;
    if (!source)
        return FuzzRefused;
    FUZZ_MAKER maker;
    static PacketBuffer buffer; // what one input leaves there must not show in the next
    int packets = 0;
    // A list of 4,096 events, by the length that a packet tells, takes as long as hundreds of other packets: seldom.
    bool const takesLong = IsOneOf(100, data, size);
    auto const take = [&](TapPacket const &packet) {
        ++packets;
        bool const stream = packet.channel == TovCam::EventStreamChannel;
        if (packet.captured > packet.size || packet.size > UsbFraming::LongestTransfer)
            FuzzFail("a length that cannot be");
        if (packet.captured < (stream ? std::min(packet.size, Shown) : packet.size) ||
            packet.size < (stream ? StreamHeader : ControlHeader))
            FuzzFail("not whole");
        auto const *const bytes = static_cast<std::uint8_t const *>(buffer.Lay(packet));
        std::uint8_t const *const behind = bytes + packet.size;
        if (!std::equal(packet.bytes, packet.bytes + packet.captured, bytes) || behind[0] != 0 ||
            behind[PacketBuffer::ZeroTail - 1] != 0)
            FuzzFail("not the packet with zeros behind it");
        if (!FUZZ_USB && !stream && bytes[LengthAt] != 0 && !takesLong)
            return true;
        QString const line = stream ? maker.MakeStreamLogString(bytes, packet.size)
                             : packet.channel == TovCam::EventControlChannel
                                 ? maker.MakeControlLogString(bytes, packet.size)
                                 : maker.MakeEventLogString(bytes, packet.size);
        if (line.isEmpty())
            FuzzFail("a packet without a line");
        return true;
    };
    while (source->Read(take, std::chrono::milliseconds(0))) {
    }
    return packets > 0 ? 0 : FuzzRefused;
}
