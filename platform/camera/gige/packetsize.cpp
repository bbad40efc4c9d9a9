#include "packetsize.h"

#include "receiver.h"
#include "tovcamera.h"

#include <algorithm>

namespace {

using namespace std::chrono_literals;
using namespace gvcp::bootstrap;

constexpr std::uint32_t LoopbackPacketSize = 8192, UsualMtu = 1500;
constexpr std::uint32_t Step = 4;      // sizes are multiples of it
constexpr std::uint32_t Nearness = 32; // to the largest size, which is enough
constexpr auto AnswerPatience = 50ms;
constexpr int Tries = 2;

class NoFrames final : public FrameSink
{
    bool TakeBuffer(BlockBuffer &) override
    {
        return false;
    }
    void Deliver(BlockFrame const &) override
    {
    }
    void GiveBack(BlockBuffer const &) override
    {
    }
};

bool Carries(StreamControl &control, Receiver &receiver, std::uint32_t size)
{
    using namespace gvcp::packetsize;
    for (int i = 0; i < Tries; ++i) {
        if (control.WriteRegister(StreamChannelPacketSize, FireTestPacket | DoNotFragment | size) != TOV_CAM_ERR_OK)
            return false;
        if (receiver.AwaitTestPacket(size, AnswerPatience))
            return true;
    }
    return false;
}

// 0 where no test packet comes.
std::uint32_t FindSize(StreamControl &control, Receiver &receiver, std::uint32_t largest)
{
    if (Carries(control, receiver, largest))
        return largest;
    std::uint32_t good = gvsp::SmallestPacket, bad = largest;
    if (!Carries(control, receiver, good))
        return 0;
    if (largest > UsualMtu && Carries(control, receiver, UsualMtu))
        good = UsualMtu;
    while (bad - good > Nearness) {
        std::uint32_t const size = (good + (bad - good) / 2) / Step * Step;
        (Carries(control, receiver, size) ? good : bad) = size;
    }
    return good;
}

} // namespace

std::int32_t NegotiatePacketSize(StreamControl &control, std::uint32_t mtu)
{
    using namespace gvcp::packetsize;
    std::uint32_t before = 0;
    if (std::int32_t const status = control.ReadRegister(StreamChannelPacketSize, before); status != TOV_CAM_ERR_OK)
        return status;
    before &= ~std::uint32_t{FireTestPacket};
    auto const set = [&](std::uint32_t size) {
        control.WriteRegister(StreamChannelPacketSize, (before & ~std::uint32_t{Mask}) | size);
    };
    if (control.GetHostAddress() >> 24 == 127) {
        set(LoopbackPacketSize);
        return TOV_CAM_ERR_OK;
    }
    NoFrames nobody;
    StreamStatistics uncounted;
    Receiver receiver(control, nobody, uncounted);
    if (!receiver.Open(1 << 20) ||
        control.WriteRegister(StreamChannelDestinationAddress, control.GetHostAddress()) != TOV_CAM_ERR_OK ||
        control.WriteRegister(StreamChannelPort, receiver.GetPort()) != TOV_CAM_ERR_OK)
        return TOV_CAM_ERR_OK;
    std::uint32_t const largest =
        std::clamp<std::uint32_t>(mtu != 0 ? mtu : UsualMtu, gvsp::SmallestPacket, Mask) / Step * Step;
    std::uint32_t const size = FindSize(control, receiver, largest);
    control.WriteRegister(StreamChannelPort, 0);
    set(size != 0 ? size : before & Mask);
    return TOV_CAM_ERR_OK;
}
