#include "gvcpclient.h"

#include "genicam/xmlcheck.h"

#include "tovcamera.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <netinet/in.h>
#include <poll.h>
#include <string_view>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;

constexpr std::uint16_t ControlPort = 3956;
constexpr std::uint16_t DiscoveryCommand = 0x0002;
constexpr std::uint16_t ReadRegisterCommand = 0x0080;
constexpr std::uint16_t ReadMemoryCommand = 0x0084;
constexpr std::uint16_t PendingAnswer = 0x0089;
constexpr std::size_t HeaderSize = 8;
constexpr std::size_t MemoryBlock = 512; // what every camera can answer in one packet
constexpr int Tries = 3;
constexpr std::chrono::milliseconds Patience{250}; // a try's; a camera answers within a few, a loaded host later
constexpr std::chrono::milliseconds PendingLimit{500};

void PutBig16(Bytes &bytes, std::uint32_t value)
{
    bytes.push_back(static_cast<std::uint8_t>(value >> 8));
    bytes.push_back(static_cast<std::uint8_t>(value));
}

void PutBig32(Bytes &bytes, std::uint32_t value)
{
    PutBig16(bytes, value >> 16);
    PutBig16(bytes, value & 0xFFFF);
}

std::uint32_t GetBig16(std::uint8_t const *bytes)
{
    return std::uint32_t(bytes[0]) << 8 | bytes[1];
}

std::uint32_t GetBig32(std::uint8_t const *bytes)
{
    return GetBig16(bytes) << 16 | GetBig16(bytes + 2);
}

std::uint32_t GetLittle16(std::uint8_t const *bytes)
{
    return std::uint32_t(bytes[1]) << 8 | bytes[0];
}

std::uint32_t GetLittle32(std::uint8_t const *bytes)
{
    return GetLittle16(bytes + 2) << 16 | GetLittle16(bytes);
}

// A text field: up to its first zero.
std::string GetText(std::uint8_t const *bytes, std::size_t size)
{
    return std::string(bytes, std::find(bytes, bytes + size, 0));
}

} // namespace

GvcpClient::GvcpClient(std::string const &address)
{
    sockaddr_in remote{};
    remote.sin_family = AF_INET;
    remote.sin_port = htons(ControlPort);
    if (inet_pton(AF_INET, address.c_str(), &remote.sin_addr) != 1)
        return;
    m_socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    // Connected, so that only this camera is heard, and a host without a camera refuses at once.
    if (m_socket >= 0 && connect(m_socket, reinterpret_cast<sockaddr *>(&remote), sizeof remote) != 0) {
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
    sockaddr_in local{};
    socklen_t size = sizeof local;
    char text[INET_ADDRSTRLEN];
    if (m_socket < 0 || getsockname(m_socket, reinterpret_cast<sockaddr *>(&local), &size) != 0 ||
        !inet_ntop(AF_INET, &local.sin_addr, text, sizeof text))
        return {};
    return text;
}

bool GvcpClient::Request(std::uint16_t command, Bytes const &payload, Bytes &answer)
{
    if (m_socket < 0)
        return false;
    if (++m_requestId == 0)
        m_requestId = 1;
    Bytes packet{0x42, 0x01}; // a command that wants an answer
    PutBig16(packet, command);
    PutBig16(packet, static_cast<std::uint32_t>(payload.size()));
    PutBig16(packet, m_requestId);
    packet.insert(packet.end(), payload.begin(), payload.end());

    for (int attempt = 0; attempt < Tries; ++attempt) {
        if (send(m_socket, packet.data(), packet.size(), 0) < 0)
            return false;
        bool waits = false; // the camera has asked for more time, which it gets once
        for (Clock::time_point end = Clock::now() + Patience;;) {
            auto const left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
            pollfd events{m_socket, POLLIN, 0};
            if (left.count() <= 0 || poll(&events, 1, static_cast<int>(left.count())) <= 0)
                break;
            answer.resize(2048);
            ssize_t const size = recv(m_socket, answer.data(), answer.size(), 0);
            if (size < 0)
                return false; // refused: nobody is there
            if (static_cast<std::size_t>(size) < HeaderSize || GetBig16(&answer[6]) != m_requestId)
                continue;
            if (GetBig16(&answer[2]) == PendingAnswer && !waits) {
                waits = true;
                end = Clock::now() + PendingLimit;
                continue;
            }
            if (GetBig16(&answer[2]) != command + 1u || GetBig16(&answer[0]) != 0)
                return false;
            std::size_t const length = GetBig16(&answer[4]);
            if (HeaderSize + length > static_cast<std::size_t>(size))
                return false;
            answer.resize(HeaderSize + length);
            answer.erase(answer.begin(), answer.begin() + HeaderSize);
            return true;
        }
    }
    return false;
}

bool GvcpClient::Discover(GvcpIdentity &identity)
{
    Bytes answer;
    if (!Request(DiscoveryCommand, {}, answer) || answer.size() < 0xF8)
        return false;
    identity.vendor = GetText(&answer[0x48], 32);
    identity.model = GetText(&answer[0x68], 32);
    identity.serial = GetText(&answer[0xD8], 16);
    identity.userID = GetText(&answer[0xE8], 16);
    return true;
}

bool GvcpClient::ReadRegister(std::uint32_t address, std::uint32_t &value)
{
    Bytes payload, answer;
    PutBig32(payload, address);
    if (!Request(ReadRegisterCommand, payload, answer) || answer.size() < 4)
        return false;
    value = GetBig32(answer.data());
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
        Bytes payload, answer;
        PutBig32(payload, static_cast<std::uint32_t>(address - skip + offset));
        PutBig32(payload, static_cast<std::uint32_t>(block));
        if (!Request(ReadMemoryCommand, payload, answer) || answer.size() < 4 + block)
            return false;
        data.insert(data.end(), answer.begin() + 4, answer.begin() + 4 + block);
    }
    data.erase(data.begin(), data.begin() + skip);
    data.resize(size);
    return true;
}

bool GvcpIsControlled(std::uint32_t privilege)
{
    return (privilege & 0x3) != 0; // exclusive or control
}

namespace {

// The part of the archive that Aravis follows: its directory, and the first file in it, which it unpacks.
bool IsArchiveSane(GvcpClient &camera, std::uint32_t address, std::size_t size)
{
    constexpr std::size_t TailSize = 22, EntrySize = 46, LocalSize = 30, DirectoryLimit = 4096;
    if (size < TailSize)
        return false;
    std::size_t const reach = std::min<std::size_t>(size, 1024); // a comment may follow the tail
    Bytes end, entry, local;
    if (!camera.ReadMemory(static_cast<std::uint32_t>(address + size - reach), reach, end))
        return false;
    std::uint8_t const tailMark[] = {'P', 'K', 5, 6};
    auto const tail = std::find_end(end.begin(), end.end(), std::begin(tailMark), std::end(tailMark));
    if (static_cast<std::size_t>(end.end() - tail) < TailSize)
        return false;
    std::size_t const directorySize = GetLittle32(&tail[12]);
    std::size_t const directory = GetLittle32(&tail[16]);
    if (directory + directorySize > size || directorySize < EntrySize || directorySize > DirectoryLimit ||
        !camera.ReadMemory(static_cast<std::uint32_t>(address + directory), directorySize, entry))
        return false;
    // Every entry of the directory lies within it.
    for (std::size_t at = 0, left = GetLittle16(&tail[10]); left > 0; --left) {
        if (at + EntrySize > entry.size() || GetLittle32(&entry[at]) != 0x02014B50)
            return false;
        std::size_t const packed = GetLittle32(&entry[at + 20]), unpacked = GetLittle32(&entry[at + 24]);
        std::size_t const offset = GetLittle32(&entry[at + 42]);
        if (unpacked > GenicamXmlLimit || offset + LocalSize + packed > size ||
            !camera.ReadMemory(static_cast<std::uint32_t>(address + offset), LocalSize, local) ||
            GetLittle32(local.data()) != 0x04034B50 ||
            offset + LocalSize + GetLittle16(&local[26]) + GetLittle16(&local[28]) + packed > size)
            return false;
        at += EntrySize + GetLittle16(&entry[at + 28]) + GetLittle16(&entry[at + 30]) + GetLittle16(&entry[at + 32]);
    }
    return GetLittle16(&tail[10]) > 0;
}

enum class Source { None, Sane, Hostile };

// "Local:name;address;size", numbers in hexadecimal.
Source CheckUrl(GvcpClient &camera, std::string const &url)
{
    std::size_t const scheme = url.find(':');
    if (scheme == std::string::npos)
        return Source::None;
    // A file of this host or of another server is nothing a camera has a say in.
    if (strncasecmp(url.c_str(), "local", std::max<std::size_t>(scheme, 5)) != 0)
        return Source::Hostile;
    std::size_t const first = url.find(';');
    std::size_t const second = first == std::string::npos ? first : url.find(';', first + 1);
    if (second == std::string::npos)
        return Source::Hostile;
    unsigned long long const address = std::strtoull(url.c_str() + first + 1, nullptr, 16);
    unsigned long long const size = std::strtoull(url.c_str() + second + 1, nullptr, 16);
    if (size == 0 || size > GenicamXmlLimit || address + size > 0x100000000ull)
        return Source::Hostile;
    std::string_view const name(url.data() + scheme + 1, first - scheme - 1);
    bool const zipped = name.size() >= 4 && strncasecmp(name.data() + name.size() - 4, ".zip", 4) == 0;
    if (zipped && !IsArchiveSane(camera, static_cast<std::uint32_t>(address), size))
        return Source::Hostile;
    return Source::Sane;
}

} // namespace

std::int32_t CheckDescriptionSource(GvcpClient &camera)
{
    bool sane = false;
    for (std::uint32_t const address : {0x0200u, 0x0400u}) {
        Bytes bytes;
        if (!camera.ReadMemory(address, 512, bytes))
            continue;
        Source const source = CheckUrl(camera, GetText(bytes.data(), bytes.size()));
        if (source == Source::Hostile)
            return TOV_CAM_ERR_GENICAM_TREE;
        sane = sane || source == Source::Sane;
    }
    return sane ? TOV_CAM_ERR_OK : TOV_CAM_ERR_GENICAM_TREE;
}
