#include "forceaddress.h"

#include "gige/gvcpanswer.h"
#include "hostfacts.h"
#include "protocol/socketaddress.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <poll.h>
#include <random>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int Tries = 3;
constexpr std::chrono::milliseconds Patience{300}; // per try
constexpr std::size_t LongestDatagram = 1024;
constexpr std::uint32_t Loopback = 127; // the first part of its addresses

using Packet = std::array<std::uint8_t, gvcp::HeaderSize + gvcp::ForceIp::Size>;

Packet MakeRequest(std::uint16_t id, std::uint64_t mac, TovCam::CameraAddress const &address)
{
    using Field = gvcp::ForceIp;
    Packet packet{};
    gvcp::WriteHeader(std::span(packet).first<gvcp::HeaderSize>(),
                      {gvcp::CommandLead(gvcp::ACKNOWLEDGE | gvcp::ALLOW_BROADCAST_ACK), gvcp::FORCEIP_CMD,
                       static_cast<std::uint16_t>(Field::Size), id});
    std::uint8_t *const body = &packet[gvcp::HeaderSize];
    StoreBig16(body + Field::MacAddressHigh, static_cast<std::uint16_t>(mac >> 32));
    StoreBig32(body + Field::MacAddressLow, static_cast<std::uint32_t>(mac));
    StoreBig32(body + Field::IpAddress, address.address);
    StoreBig32(body + Field::SubnetMask, address.mask);
    StoreBig32(body + Field::DefaultGateway, address.gateway);
    return packet;
}

std::int32_t StatusOf(GvcpAnswer const &answer)
{
    if (answer.kind == GvcpAnswer::Kind::Good)
        return TOV_CAM_ERR_OK;
    return answer.status == gvcp::GEV_STATUS_ACCESS_DENIED ? TOV_CAM_ERR_GENICAM_ACCESS : TOV_CAM_ERR_UNKNOWN;
}

// TOV_CAM_ERR_NO_DEVICE when nothing of use came.
std::int32_t AwaitAnswer(int socket, std::uint16_t id)
{
    std::array<std::uint8_t, LongestDatagram> bytes;
    for (Clock::time_point const end = Clock::now() + Patience;;) {
        auto const left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        pollfd events{socket, POLLIN, 0};
        if (left.count() <= 0 || poll(&events, 1, static_cast<int>(left.count())) <= 0)
            return TOV_CAM_ERR_NO_DEVICE;
        SocketAddress from;
        ssize_t const size = ReceiveDatagram(socket, bytes, from, MSG_TRUNC);
        if (size < 0 || static_cast<std::size_t>(size) > bytes.size() || from.port != gvcp::Port)
            continue;
        GvcpAnswer const answer =
            ReadGvcpAnswer({gvcp::FORCEIP_CMD, id, {}}, std::span(bytes).first(static_cast<std::size_t>(size)));
        if (answer.kind == GvcpAnswer::Kind::Good || answer.kind == GvcpAnswer::Kind::Refused)
            return StatusOf(answer);
    }
}

} // namespace

std::int32_t ForceAddress(TovCam::NetworkPlace const &place, TovCam::CameraAddress const &address)
{
    // What is sent to this host does not leave it.
    bool const isOwn = place.address >> 24 == Loopback || !FindAdapter(AddressText(place.address)).empty();
    std::string const adapter = isOwn ? std::string() : place.adapter;
    int const socket = OpenBroadcastSocket(INADDR_ANY, adapter); // answers come by broadcast, too
    if (socket < 0)
        return TOV_CAM_ERR_UNKNOWN;
    auto const id = static_cast<std::uint16_t>(std::random_device()() % 0xFFFF + 1);
    Packet const request = MakeRequest(id, place.mac, address);
    std::int32_t status = TOV_CAM_ERR_NO_DEVICE;
    for (int i = 0; i < Tries && status == TOV_CAM_ERR_NO_DEVICE; ++i) {
        SendDatagram(socket, request, {adapter.empty() ? place.address : INADDR_BROADCAST, gvcp::Port});
        status = AwaitAnswer(socket, id);
    }
    close(socket);
    return status;
}
