#include "gvcpclient.h"

#include "gvcpanswer.h"
#include "protocol/socketaddress.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;

constexpr std::size_t MemoryBlock = 512;    // what every camera can answer in one packet
constexpr std::size_t LongestAnswer = 2048; // more than any
constexpr int Tries = 3;
constexpr std::chrono::milliseconds Patience{250}; // per try; a camera answers within a few, a loaded host takes longer
constexpr std::chrono::milliseconds PendingLimit{500};

} // namespace

GvcpClient::GvcpClient(std::string const &address)
{
    std::optional<std::uint32_t> const camera = ParseAddress(address);
    if (!camera)
        return;
    m_address = *camera;
    m_socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    // Connected, so that only this camera is heard, and a host without a camera refuses at once.
    if (m_socket >= 0 && !ConnectSocket(m_socket, {*camera, gvcp::Port})) {
        close(m_socket);
        m_socket = -1;
    }
}

GvcpClient::~GvcpClient()
{
    if (m_socket >= 0)
        close(m_socket);
}

std::string GvcpClient::GetLocalAddress() const
{
    std::uint32_t const local = AddressOfSocket(m_socket).address;
    return local != 0 ? AddressText(local) : std::string();
}

bool GvcpClient::Request(std::uint16_t command, std::span<std::uint8_t const> body, Bytes &answer)
{
    if (m_socket < 0)
        return false;
    m_requestId = gvcp::NextRequestId(m_requestId);
    Bytes packet(gvcp::HeaderSize + body.size());
    gvcp::WriteHeader(
        std::span(packet).first<gvcp::HeaderSize>(),
        {gvcp::CommandLead(gvcp::ACKNOWLEDGE), command, static_cast<std::uint16_t>(body.size()), m_requestId});
    std::copy(body.begin(), body.end(), packet.begin() + gvcp::HeaderSize);

    std::array<std::uint8_t, LongestAnswer> received;
    for (int attempt = 0; attempt < Tries; ++attempt) {
        if (send(m_socket, packet.data(), packet.size(), 0) < 0)
            return false;
        bool waits = false; // the camera has asked for more time, which it gets once
        for (Clock::time_point end = Clock::now() + Patience;;) {
            auto const left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
            pollfd events{m_socket, POLLIN, 0};
            if (left.count() <= 0 || poll(&events, 1, static_cast<int>(left.count())) <= 0)
                break;
            ssize_t const size = recv(m_socket, received.data(), received.size(), MSG_DONTWAIT | MSG_TRUNC);
            if (size < 0 && errno != EAGAIN)
                return false; // refused: no camera there
            if (size < 0 || static_cast<std::size_t>(size) > received.size())
                continue;
            GvcpAnswer const told =
                ReadGvcpAnswer({command, m_requestId, body}, std::span(received).first(static_cast<std::size_t>(size)));
            if (told.kind == GvcpAnswer::Kind::Pending && !waits) {
                waits = true;
                end = Clock::now() + PendingLimit;
            } else if (told.kind == GvcpAnswer::Kind::Refused) {
                return false;
            } else if (told.kind == GvcpAnswer::Kind::Good) {
                answer.assign(told.body.begin(), told.body.end());
                return true;
            }
        }
    }
    return false;
}

bool GvcpClient::Discover(GvcpIdentity &identity, TovCam::NetworkPlace *place)
{
    Bytes answer;
    std::optional<GvcpIdentity> told;
    if (!Request(gvcp::DISCOVERY_CMD, {}, answer) || !(told = ReadIdentity(answer)))
        return false;
    identity = std::move(*told);
    if (place)
        *place = ReadPlace(answer, m_address);
    return true;
}

bool GvcpClient::ReadRegister(std::uint32_t address, std::uint32_t &value)
{
    std::array<std::uint8_t, sizeof address> body;
    StoreBig32(body.data(), address);
    Bytes answer;
    if (!Request(gvcp::READREG_CMD, body, answer) || answer.size() < sizeof value)
        return false;
    value = LoadBig32(answer.data());
    return true;
}

bool GvcpClient::ReadMemory(std::uint32_t address, std::size_t size, Bytes &data)
{
    data.clear();
    // Requests are whole registers.
    std::uint32_t const skip = address % 4;
    std::size_t const end = (skip + size + 3) / 4 * 4;
    for (std::size_t offset = 0; offset < end; offset += MemoryBlock) {
        std::size_t const block = std::min(MemoryBlock, end - offset);
        std::array<std::uint8_t, gvcp::MemoryRead::Size> body{};
        StoreBig32(&body[gvcp::MemoryRead::Address], static_cast<std::uint32_t>(address - skip + offset));
        StoreBig16(&body[gvcp::MemoryRead::Count], static_cast<std::uint16_t>(block));
        Bytes answer;
        if (!Request(gvcp::READMEM_CMD, body, answer) || answer.size() < gvcp::MemoryData::Data + block)
            return false;
        auto const read = answer.begin() + gvcp::MemoryData::Data;
        data.insert(data.end(), read, read + static_cast<std::ptrdiff_t>(block));
    }
    data.erase(data.begin(), data.begin() + skip);
    data.resize(size);
    return true;
}
