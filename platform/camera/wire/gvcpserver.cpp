#include "gvcpserver.h"

#include "answerforger.h"

#include <algorithm>
#include <array>
#include <utility>

using namespace gvcp::bootstrap;
using std::chrono::milliseconds;

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t WaitingRequests = 16; // behind the one that is being done
constexpr std::size_t WaitingDiscoveries = 64, WaitingEvents = 64;
constexpr std::size_t KnownHosts = 16;                  // whose last acknowledges are kept
constexpr std::chrono::seconds AcknowledgeIsKept{5};    // longer than hosts repeat a request
constexpr std::size_t LongestMemory = 536;              // of READMEM_CMD and WRITEMEM_CMD
constexpr std::uint32_t Broadcast = 0xFFFFFFFF;         // the IP address
constexpr std::uint32_t LongestPending = 0xFFFF;        // ms, that a PENDING_ACK can tell
constexpr std::uint32_t PacketIds = 0x00FFFFFF;         // of a request without extended ids
constexpr std::uint16_t WrongLength = 64, WrongId = 64; // added by the faults

bool CanBeBroadcast(std::uint16_t code)
{
    return code == gvcp::DISCOVERY_CMD || code == gvcp::FORCEIP_CMD || code == gvcp::ACTION_CMD;
}

bool IsCommand(std::uint16_t code)
{
    switch (code) {
    case gvcp::DISCOVERY_CMD:
    case gvcp::FORCEIP_CMD:
    case gvcp::PACKETRESEND_CMD:
    case gvcp::READREG_CMD:
    case gvcp::WRITEREG_CMD:
    case gvcp::READMEM_CMD:
    case gvcp::WRITEMEM_CMD:
    case gvcp::ACTION_CMD:
        return true;
    default:
        return false;
    }
}

// Whether this is a command that the camera knows, with a body of the right size.
bool IsSound(gvcp::Header const &header, std::size_t packetSize)
{
    std::size_t const size = packetSize - gvcp::HeaderSize;
    if (size != header.length || size > gvcp::LongestBody)
        return false;
    auto const flag = [&](gvcp::Flag bit) {
        return (header.lead & bit) != 0;
    };
    switch (header.code) {
    case gvcp::DISCOVERY_CMD:
        return size == 0;
    case gvcp::FORCEIP_CMD:
        return size == gvcp::ForceIp::Size;
    case gvcp::PACKETRESEND_CMD:
        return size == (flag(gvcp::EXTENDED_ID) ? gvcp::ExtendedPacketResend::Size : gvcp::PacketResend::Size);
    case gvcp::READREG_CMD:
        return size > 0 && size % gvcp::RegisterSize == 0;
    case gvcp::WRITEREG_CMD:
        return size > 0 && size % gvcp::RegisterWrite::Size == 0;
    case gvcp::READMEM_CMD:
        return size == gvcp::MemoryRead::Size;
    case gvcp::WRITEMEM_CMD:
        return size > gvcp::MemoryData::Data;
    case gvcp::ACTION_CMD:
        return size == (flag(gvcp::SCHEDULED_ACTION) ? gvcp::Action::ScheduledSize : gvcp::Action::Size);
    default:
        return false;
    }
}

} // namespace

bool GvcpServer::Request::Has(gvcp::Flag flag) const
{
    return (header.lead & flag) != 0;
}

std::span<std::uint8_t const> GvcpServer::Request::Body() const
{
    return gvcp::BodyOf(bytes, header);
}

GvcpServer::GvcpServer(BootstrapMemory &memory, GvcpCamera &camera) : m_memory(memory), m_camera(camera)
{
}

void GvcpServer::Handle(std::span<std::uint8_t const> datagram, GvcpPeer from, bool broadcast, Clock::time_point now)
{
    Poll(now);
    std::optional<gvcp::Header> const header = gvcp::ReadHeader(datagram);
    if (m_faults.silent || !header)
        return;
    if (datagram[0] != gvcp::Key) {
        if (header->code == gvcp::EVENT_ACK)
            TakeEventAck(header->id, from, now);
        return;
    }
    if (header->id == 0 || (broadcast && !CanBeBroadcast(header->code)))
        return;
    Request request{*header, Bytes(datagram.begin(), datagram.end()), from, broadcast};
    bool const isSound = IsSound(*header, datagram.size());
    if (isSound && IsController(from))
        m_heard = now;
    // These are not kept waiting by what others ask for.
    if (header->code == gvcp::DISCOVERY_CMD && isSound) {
        Discover(request, now);
    } else if (header->code == gvcp::PACKETRESEND_CMD) {
        if (isSound)
            Resend(request);
    } else {
        Queue(std::move(request), now);
    }
    Poll(now);
}

// Step by step, each at its turn: who has lost control must not write any more.
void GvcpServer::Poll(Clock::time_point now)
{
    for (std::optional due = NextDue(); due && *due <= now; due = NextDue()) {
        if (HeartbeatEnd() == due)
            EndControl();
        else if (!m_requests.empty() && m_requestDue == *due)
            EndNext(now);
        else if (!m_requests.empty() && m_pendingAckDue == due)
            TellPending(now);
        else if (!m_events.empty() && m_eventDue == *due)
            RepeatEvent(now);
        else {
            auto const late = std::find_if(m_discoveries.begin(), m_discoveries.end(),
                                           [&](Discovery const &discovery) { return discovery.due == *due; });
            Discovery const discovery = *late;
            m_discoveries.erase(late);
            AnswerDiscovery(discovery);
        }
    }
}

std::optional<GvcpServer::Clock::time_point> GvcpServer::NextDue() const
{
    std::optional<Clock::time_point> next = HeartbeatEnd();
    auto const add = [&next](Clock::time_point due) {
        next = next ? std::min(*next, due) : due;
    };
    if (!m_requests.empty()) {
        add(m_requestDue);
        if (m_pendingAckDue)
            add(*m_pendingAckDue);
    }
    if (!m_events.empty())
        add(m_eventDue);
    for (Discovery const &discovery : m_discoveries)
        add(discovery.due);
    return next;
}

std::vector<GvcpDatagram> GvcpServer::TakeOutgoing()
{
    return std::exchange(m_outgoing, {});
}

bool GvcpServer::IsControlled() const
{
    return m_controller.has_value();
}

std::optional<GvcpPeer> GvcpServer::GetController() const
{
    return m_controller;
}

std::uint64_t GvcpServer::CountControls() const
{
    return m_controls;
}

void GvcpServer::Reset()
{
    SetController(std::nullopt, 0);
    for (std::uint32_t const address : {StreamChannelPort, MessageChannelPort, ControlSwitchoverKey})
        m_memory.Set(address, 0);
    m_outgoing.clear();
    m_requests.clear();
    m_answered.clear();
    m_discoveries.clear();
    m_events.clear();
}

void GvcpServer::SetFaults(ControlFaults const &faults)
{
    m_faults = faults;
}

// ---- Requests ----------------------------------------------------------------------------------------------------

void GvcpServer::Queue(Request &&request, Clock::time_point now)
{
    if (Repeat(request, now) || m_requests.size() > WaitingRequests)
        return;
    m_requests.push_back(std::move(request));
    if (m_requests.size() == 1)
        BeginNext(now);
}

// A host that has not got the acknowledge sends the same request again. True where that is what it was.
bool GvcpServer::Repeat(Request const &request, Clock::time_point now)
{
    if (!request.Has(gvcp::ACKNOWLEDGE))
        return false;
    for (Request const &waiting : m_requests) {
        if (waiting.from == request.from && waiting.bytes == request.bytes)
            return true;
    }
    for (Answered const &answered : m_answered) {
        if (answered.to == request.from && answered.request == request.bytes &&
            now - answered.time < AcknowledgeIsKept) {
            SendAnswer(ReplyAddress(request), answered.status, gvcp::AcknowledgeOf(request.header.code),
                       request.header.id, answered.body);
            return true;
        }
    }
    return false;
}

// The first of the queue gets its time.
void GvcpServer::BeginNext(Clock::time_point at)
{
    if (m_requests.empty())
        return;
    Request const &request = m_requests.front();
    milliseconds const time = TimeOf(request);
    m_requestDue = at + time;
    m_pendingAckDue.reset();
    bool const tells = (m_memory.Get(GvcpConfiguration) & gvcp::gvcpconfiguration::PendingAck) != 0;
    if (tells && request.Has(gvcp::ACKNOWLEDGE) && time > milliseconds(m_memory.Get(PendingTimeout)))
        m_pendingAckDue = at;
}

// The time of the first of the queue is over.
void GvcpServer::EndNext(Clock::time_point now)
{
    Clock::time_point const end = m_requestDue;
    Request const request = std::move(m_requests.front());
    m_requests.pop_front();
    Execute(request, now);
    // It could not ask for anything else meanwhile.
    if (IsSound(request.header, request.bytes.size()) && IsController(request.from))
        m_heard = now;
    BeginNext(end);
}

// How long a request keeps the camera busy.
milliseconds GvcpServer::TimeOf(Request const &request) const
{
    std::span<std::uint8_t const> const body = request.Body();
    milliseconds time(m_faults.delay);
    if (!IsSound(request.header, request.bytes.size()))
        return time;
    auto const address = [&](std::size_t at) {
        return LoadBig32(&body[at]);
    };
    switch (request.header.code) {
    case gvcp::READREG_CMD:
        for (std::size_t at = 0; at < body.size(); at += gvcp::RegisterSize)
            time += m_camera.DelayOf(address(at), gvcp::RegisterSize);
        break;
    case gvcp::WRITEREG_CMD:
        for (std::size_t at = 0; at < body.size(); at += gvcp::RegisterWrite::Size)
            time += m_camera.DelayOf(address(at), gvcp::RegisterSize);
        break;
    case gvcp::READMEM_CMD:
        time += m_camera.DelayOf(address(gvcp::MemoryRead::Address), LoadBig16(&body[gvcp::MemoryRead::Count]));
        break;
    case gvcp::WRITEMEM_CMD:
        time += m_camera.DelayOf(address(gvcp::MemoryData::Address),
                                 static_cast<std::uint32_t>(body.size() - gvcp::MemoryData::Data));
        break;
    default:
        break;
    }
    return time;
}

// The host is to wait for longer.
void GvcpServer::TellPending(Clock::time_point now)
{
    Request const &request = m_requests.front();
    m_pendingAckDue.reset();
    auto const left = std::chrono::ceil<milliseconds>(m_requestDue - now);
    if (left.count() <= 0)
        return;
    auto const told = std::min<milliseconds::rep>(left.count(), LongestPending);
    if (left.count() > told)
        m_pendingAckDue = now + milliseconds(told);
    std::array<std::uint8_t, gvcp::PendingAck::Size> body{};
    StoreBig16(&body[gvcp::PendingAck::TimeToCompletion], static_cast<std::uint16_t>(told));
    SendAnswer(ReplyAddress(request), gvcp::GEV_STATUS_SUCCESS, gvcp::PENDING_ACK, request.header.id, body);
}

void GvcpServer::Execute(Request const &request, Clock::time_point now)
{
    if (!IsCommand(request.header.code))
        return Acknowledge(request, gvcp::GEV_STATUS_NOT_IMPLEMENTED, {}, now);
    if (!IsSound(request.header, request.bytes.size())) {
        if (!request.broadcast)
            Acknowledge(request, gvcp::GEV_STATUS_INVALID_HEADER, {}, now);
        return;
    }
    switch (request.header.code) {
    case gvcp::FORCEIP_CMD:
        return ForceIp(request, now);
    case gvcp::READREG_CMD:
        return ReadRegisters(request, now);
    case gvcp::WRITEREG_CMD:
        return WriteRegisters(request, now);
    case gvcp::READMEM_CMD:
        return ReadMemory(request, now);
    case gvcp::WRITEMEM_CMD:
        return WriteMemory(request, now);
    case gvcp::ACTION_CMD:
        return Act(request, now);
    default:
        return;
    }
}

void GvcpServer::Acknowledge(Request const &request, gvcp::Status status, std::span<std::uint8_t const> body,
                             Clock::time_point now)
{
    if (!request.Has(gvcp::ACKNOWLEDGE))
        return;
    std::erase_if(m_answered, [&](Answered const &answered) { return answered.to == request.from; });
    if (m_answered.size() >= KnownHosts)
        m_answered.pop_front();
    m_answered.push_back({request.from, request.bytes, status, Bytes(body.begin(), body.end()), now});
    SendAnswer(ReplyAddress(request), status, gvcp::AcknowledgeOf(request.header.code), request.header.id, body);
}

// A host in another subnet, which has no address of the camera's to hear from, may ask for a broadcast.
GvcpPeer GvcpServer::ReplyAddress(Request const &request) const
{
    bool const allows = (request.header.code == gvcp::DISCOVERY_CMD || request.header.code == gvcp::FORCEIP_CMD) &&
                        request.Has(gvcp::ALLOW_BROADCAST_ACK);
    std::uint32_t const difference = request.from.address ^ m_memory.Get(CurrentIpAddress);
    bool const isNear = (difference & m_memory.Get(CurrentSubnetMask)) == 0;
    return allows && !isNear ? GvcpPeer{Broadcast, request.from.port} : request.from;
}

void GvcpServer::SendAnswer(GvcpPeer to, gvcp::Status status, std::uint16_t code, std::uint16_t id,
                            std::span<std::uint8_t const> body)
{
    if (m_faults.silent || Hits(m_faults.loss))
        return;
    auto length = static_cast<std::uint16_t>(body.size());
    if (Hits(m_faults.wrongId))
        id = static_cast<std::uint16_t>(id + WrongId);
    if (Hits(m_faults.wrongLength))
        length = static_cast<std::uint16_t>(length + WrongLength);
    Bytes packet(gvcp::HeaderSize + body.size());
    gvcp::WriteHeader(std::span(packet).first<gvcp::HeaderSize>(), {status, code, length, id});
    std::copy(body.begin(), body.end(), packet.begin() + gvcp::HeaderSize);
    GvcpDatagram answer{to, std::move(packet)};
    if (code != gvcp::DISCOVERY_ACK && m_faults.forgery != WireAnswerForgery::Off)
        ForgeAnswer(m_faults.forgery, std::move(answer), m_random, m_outgoing);
    else
        m_outgoing.push_back(std::move(answer));
}

bool GvcpServer::Hits(double probability)
{
    return probability > 0.0 && std::uniform_real_distribution(0.0, 1.0)(m_random) < probability;
}

// ---- Commands ----------------------------------------------------------------------------------------------------

void GvcpServer::Discover(Request const &request, Clock::time_point now)
{
    if (!request.Has(gvcp::ACKNOWLEDGE) || m_discoveries.size() >= WaitingDiscoveries)
        return;
    milliseconds delay(0);
    // Many cameras must not answer a broadcast all at once.
    if (request.Has(gvcp::ALLOW_BROADCAST_ACK))
        delay =
            milliseconds(std::uniform_int_distribution<std::uint32_t>(0, m_memory.Get(DiscoveryAckDelay))(m_random));
    m_discoveries.push_back({request.header.id, ReplyAddress(request), now + delay});
}

void GvcpServer::AnswerDiscovery(Discovery const &discovery)
{
    std::span<std::uint8_t const> const identity = m_memory.Bytes(0, gvcp::DiscoveryAck::Size);
    Bytes body(identity.begin(), identity.end());
    if (m_faults.lie == WireRegisterLie::Names)
        LieAbout(m_faults.lie, 0, body, m_random);
    SendAnswer(discovery.to, gvcp::GEV_STATUS_SUCCESS, gvcp::DISCOVERY_ACK, discovery.id, body);
}

void GvcpServer::ForceIp(Request const &request, Clock::time_point now)
{
    using Field = gvcp::ForceIp;
    std::uint8_t const *const body = request.Body().data();
    if (LoadBig16(body + Field::MacAddressHigh) != (m_memory.Get(DeviceMacAddressHigh) & 0xFFFF) ||
        LoadBig32(body + Field::MacAddressLow) != m_memory.Get(DeviceMacAddressLow))
        return;
    if (IsControlled())
        return Acknowledge(request, gvcp::GEV_STATUS_ACCESS_DENIED, {}, now);
    std::uint32_t const address = LoadBig32(body + Field::IpAddress);
    std::uint32_t const mask = LoadBig32(body + Field::SubnetMask);
    std::uint32_t const gateway = LoadBig32(body + Field::DefaultGateway);
    // The acknowledge belongs to the old address.
    std::size_t const before = m_outgoing.size();
    Acknowledge(request, gvcp::GEV_STATUS_SUCCESS, {}, now);
    bool const answered = m_outgoing.size() > before;
    if (address == 0) // the address is to be found anew, and would be the same
        return;
    if (m_camera.TakeAddress(address, mask, gateway)) {
        m_memory.Set(CurrentIpAddress, address);
        m_memory.Set(CurrentSubnetMask, mask);
        m_memory.Set(CurrentDefaultGateway, gateway);
        return;
    }
    if (answered && m_outgoing.size() > before)
        StoreBig16(m_outgoing[before].bytes.data(), gvcp::GEV_STATUS_ERROR);
    std::erase_if(m_answered, [&](Answered const &last) { return last.to == request.from; });
}

// Those up to the first that cannot be read.
void GvcpServer::ReadRegisters(Request const &request, Clock::time_point now)
{
    std::span<std::uint8_t const> const body = request.Body();
    Bytes values(body.size());
    gvcp::Status status = gvcp::GEV_STATUS_SUCCESS;
    std::size_t at = 0;
    for (; at < body.size(); at += gvcp::RegisterSize) {
        status = Read(request.from, LoadBig32(&body[at]), std::span(values).subspan(at, gvcp::RegisterSize));
        if (status != gvcp::GEV_STATUS_SUCCESS)
            break;
    }
    Acknowledge(request, status, std::span(values).first(at), now);
}

// Up to the first that cannot be written, whose index the host is told.
void GvcpServer::WriteRegisters(Request const &request, Clock::time_point now)
{
    using Field = gvcp::RegisterWrite;
    std::span<std::uint8_t const> body = request.Body();
    gvcp::Status status = gvcp::GEV_STATUS_SUCCESS;
    std::uint16_t index = 0;
    for (; !body.empty(); body = body.subspan(Field::Size), ++index) {
        status =
            Write(request.from, LoadBig32(&body[Field::Address]), body.subspan(Field::Value, gvcp::RegisterSize), now);
        if (status != gvcp::GEV_STATUS_SUCCESS)
            break;
    }
    std::array<std::uint8_t, gvcp::WriteAck::Size> answer{};
    StoreBig16(&answer[gvcp::WriteAck::Index], index);
    Acknowledge(request, status, answer, now);
}

void GvcpServer::ReadMemory(Request const &request, Clock::time_point now)
{
    std::span<std::uint8_t const> const body = request.Body();
    std::uint16_t const count = LoadBig16(&body[gvcp::MemoryRead::Count]);
    if (count == 0 || count > LongestMemory)
        return Acknowledge(request, gvcp::GEV_STATUS_INVALID_PARAMETER, {}, now);
    // The answer begins with the address, as the request does.
    Bytes answer(gvcp::MemoryData::Data + count);
    std::copy_n(body.begin(), gvcp::RegisterSize, answer.begin());
    gvcp::Status const status =
        Read(request.from, LoadBig32(body.data()), std::span(answer).subspan(gvcp::MemoryData::Data));
    if (status != gvcp::GEV_STATUS_SUCCESS)
        answer.clear();
    Acknowledge(request, status, answer, now);
}

void GvcpServer::WriteMemory(Request const &request, Clock::time_point now)
{
    std::span<std::uint8_t const> const body = request.Body();
    std::span<std::uint8_t const> const data = body.subspan(gvcp::MemoryData::Data);
    gvcp::Status const status = Write(request.from, LoadBig32(&body[gvcp::MemoryData::Address]), data, now);
    std::array<std::uint8_t, gvcp::WriteAck::Size> answer{};
    if (status == gvcp::GEV_STATUS_SUCCESS)
        StoreBig16(&answer[gvcp::WriteAck::Index], static_cast<std::uint16_t>(data.size()));
    Acknowledge(request, status, answer, now);
}

void GvcpServer::Resend(Request const &request)
{
    std::uint32_t const host = request.from.address;
    bool const mayAsk =
        (m_controller && m_controller->address == host) || m_memory.Get(StreamChannelDestinationAddress) == host;
    if (!mayAsk)
        return;
    std::uint8_t const *const body = request.Body().data();
    GvcpResend resend{};
    resend.extended = request.Has(gvcp::EXTENDED_ID);
    std::uint16_t channel;
    if (resend.extended) {
        using Field = gvcp::ExtendedPacketResend;
        channel = LoadBig16(body + Field::StreamChannelIndex);
        resend.blockId = LoadBig64(body + Field::BlockId);
        resend.first = LoadBig32(body + Field::FirstPacketId);
        resend.last = LoadBig32(body + Field::LastPacketId);
    } else {
        using Field = gvcp::PacketResend;
        channel = LoadBig16(body + Field::StreamChannelIndex);
        resend.blockId = LoadBig16(body + Field::BlockId);
        resend.first = LoadBig32(body + Field::FirstPacketId) & PacketIds;
        resend.last = LoadBig32(body + Field::LastPacketId) & PacketIds;
    }
    if (channel == 0 && resend.blockId != 0 && resend.first <= resend.last)
        m_camera.Resend(resend);
}

void GvcpServer::Act(Request const &request, Clock::time_point now)
{
    using Field = gvcp::Action;
    bool const isFree = (m_memory.Get(GvcpConfiguration) & gvcp::gvcpconfiguration::UnconditionalAction) != 0;
    std::uint8_t const *const body = request.Body().data();
    if ((!IsControlled() && !isFree) || LoadBig32(body + Field::DeviceKey) != m_memory.Get(ActionDeviceKey))
        return;
    std::uint32_t const key = LoadBig32(body + Field::GroupKey), mask = LoadBig32(body + Field::GroupMask);
    bool matches[BootstrapMemory::Actions];
    for (std::uint32_t i = 0; i < BootstrapMemory::Actions; ++i) {
        matches[i] = key == m_memory.Get(ActionGroupKey + i * ActionStep) &&
                     (mask & m_memory.Get(ActionGroupMask + i * ActionStep)) != 0;
    }
    if (std::none_of(std::begin(matches), std::end(matches), [](bool match) { return match; }))
        return;
    if (request.Has(gvcp::SCHEDULED_ACTION)) {
        // There is no clock that host and camera share. Hosts of before 2.0 do not know this status.
        bool const tells = (m_memory.Get(GvcpConfiguration) & gvcp::gvcpconfiguration::ExtendedStatusCodes20) != 0;
        return Acknowledge(request, tells ? gvcp::GEV_STATUS_NO_REF_TIME : gvcp::GEV_STATUS_ERROR, {}, now);
    }
    for (std::uint32_t i = 0; i < BootstrapMemory::Actions; ++i) {
        if (matches[i])
            m_camera.Act(i);
    }
    Acknowledge(request, gvcp::GEV_STATUS_SUCCESS, {}, now);
}

// ---- Memory and control ------------------------------------------------------------------------------------------

gvcp::Status GvcpServer::Read(GvcpPeer from, std::uint32_t address, std::span<std::uint8_t> out)
{
    if (address % gvcp::RegisterSize != 0 || out.size() % gvcp::RegisterSize != 0)
        return gvcp::GEV_STATUS_BAD_ALIGNMENT;
    bool const isExclusive = (m_memory.Get(ControlChannelPrivilege) & gvcp::ExclusiveAccess) != 0;
    bool const asksForPrivilege = address == ControlChannelPrivilege && out.size() == gvcp::RegisterSize;
    if (isExclusive && !IsController(from) && !asksForPrivilege)
        return gvcp::GEV_STATUS_ACCESS_DENIED;
    std::uint64_t const end = std::uint64_t{address} + out.size();
    if (end > (BootstrapMemory::Covers(address) ? std::uint64_t{ManufacturerRegisters} : std::uint64_t{1} << 32))
        return gvcp::GEV_STATUS_INVALID_ADDRESS;
    gvcp::Status const status =
        BootstrapMemory::Covers(address) ? m_memory.Read(address, out) : m_camera.Read(address, out);
    if (m_faults.lie != WireRegisterLie::Off)
        LieAbout(m_faults.lie, address, out, m_random);
    return status;
}

gvcp::Status GvcpServer::Write(GvcpPeer from, std::uint32_t address, std::span<std::uint8_t const> bytes,
                               Clock::time_point now)
{
    if (address % gvcp::RegisterSize != 0 || bytes.size() % gvcp::RegisterSize != 0)
        return gvcp::GEV_STATUS_BAD_ALIGNMENT;
    // Nothing that can be written lies beside it.
    if (address == ControlChannelPrivilege && bytes.size() == gvcp::RegisterSize)
        return WritePrivilege(from, LoadBig32(bytes.data()), now);
    if (!IsController(from))
        return gvcp::GEV_STATUS_ACCESS_DENIED;
    if (BootstrapMemory::Covers(address))
        return WriteBootstrap(address, bytes);
    if (std::uint64_t{address} + bytes.size() > std::uint64_t{1} << 32)
        return gvcp::GEV_STATUS_INVALID_ADDRESS;
    return m_camera.Write(address, bytes);
}

gvcp::Status GvcpServer::WriteBootstrap(std::uint32_t address, std::span<std::uint8_t const> bytes)
{
    gvcp::Status status = m_memory.CheckWrite(address, bytes.size());
    while (status == gvcp::GEV_STATUS_SUCCESS && !bytes.empty()) {
        BootstrapMemory::Register const place = BootstrapMemory::RegisterAt(address);
        auto const size = std::min<std::size_t>(place.address + place.size - address, bytes.size());
        std::span<std::uint8_t const> const held = m_memory.Bytes(place.address, place.size);
        Bytes const before(held.begin(), held.end());
        m_memory.Write(address, bytes.first(size));
        status = m_camera.React(place.address);
        if (status != gvcp::GEV_STATUS_SUCCESS)
            std::copy(before.begin(), before.end(), m_memory.Bytes(place.address, place.size).begin());
        if (std::uint32_t const commands = BootstrapMemory::CommandBits(place.address); commands != 0)
            m_memory.Set(place.address, m_memory.Get(place.address) & ~commands);
        address += static_cast<std::uint32_t>(size);
        bytes = bytes.subspan(size);
    }
    if (!IsMessageChannelOpen())
        m_events.clear();
    return status;
}

// Takes control, changes or releases it.
gvcp::Status GvcpServer::WritePrivilege(GvcpPeer from, std::uint32_t value, Clock::time_point now)
{
    constexpr std::uint32_t Any = gvcp::ExclusiveAccess | gvcp::ControlAccess;
    std::uint32_t const privilege = value & (Any | gvcp::ControlSwitchover);
    if (m_controller && !IsController(from)) {
        // The controller may allow to be replaced by who knows the key.
        bool const canSwitch = m_memory.Get(ControlChannelPrivilege) == (gvcp::ControlAccess | gvcp::ControlSwitchover);
        bool const knowsKey = value >> gvcp::SwitchoverKeyShift == m_memory.Get(ControlSwitchoverKey);
        if (!canSwitch || !knowsKey || (privilege & Any) == 0)
            return gvcp::GEV_STATUS_ACCESS_DENIED;
    }
    if ((privilege & Any) == 0) {
        if (m_controller)
            EndControl();
        return gvcp::GEV_STATUS_SUCCESS;
    }
    SetController(from, privilege);
    m_heard = now;
    return gvcp::GEV_STATUS_SUCCESS;
}

bool GvcpServer::IsController(GvcpPeer peer) const
{
    return m_controller == peer;
}

void GvcpServer::SetController(std::optional<GvcpPeer> controller, std::uint32_t privilege)
{
    if (controller && controller != m_controller)
        ++m_controls;
    m_controller = controller;
    m_memory.Set(ControlChannelPrivilege, privilege);
    m_memory.Set(PrimaryApplicationPort, controller ? controller->port : 0);
    m_memory.Set(PrimaryApplicationIpAddress, controller ? controller->address : 0);
}

// Released or lost.
void GvcpServer::EndControl()
{
    // Nothing that it got as the controller is true any more, if it asks the same again.
    std::erase_if(m_answered, [this](Answered const &answered) { return m_controller == answered.to; });
    SetController(std::nullopt, 0);
    for (std::uint32_t const address : {StreamChannelPort, MessageChannelPort, ControlSwitchoverKey})
        m_memory.Set(address, 0);
    m_events.clear();
    m_camera.ControlEnded();
}

// When control ends if nothing more is heard.
std::optional<GvcpServer::Clock::time_point> GvcpServer::HeartbeatEnd() const
{
    if (!m_controller || (m_memory.Get(GvcpConfiguration) & gvcp::gvcpconfiguration::HeartbeatDisable) != 0)
        return std::nullopt;
    // A host that waits for an answer sends nothing else.
    if (std::any_of(m_requests.begin(), m_requests.end(),
                    [this](Request const &request) { return IsController(request.from); }))
        return std::nullopt;
    return m_heard + milliseconds(m_memory.Get(HeartbeatTimeout));
}

// ---- Events ------------------------------------------------------------------------------------------------------

GvcpPeer GvcpServer::MessageHost() const
{
    return {m_memory.Get(MessageChannelDestinationAddress),
            static_cast<std::uint16_t>(m_memory.Get(MessageChannelPort))};
}

bool GvcpServer::IsMessageChannelOpen() const
{
    GvcpPeer const host = MessageHost();
    return host.address != 0 && host.port != 0;
}

void GvcpServer::SendEvent(std::uint16_t event, std::uint64_t blockId, std::uint64_t timestamp, Clock::time_point now)
{
    if (!IsMessageChannelOpen() || m_events.size() >= WaitingEvents)
        return;
    bool const isExtended = (m_memory.Get(GvspConfiguration) & gvcp::gvspconfiguration::BlockId64) != 0;
    bool const asks =
        m_memory.Get(MessageChannelTransmissionTimeout) != 0 || m_memory.Get(MessageChannelRetryCount) != 0;
    m_eventId = gvcp::NextRequestId(m_eventId);
    auto const flags = static_cast<std::uint8_t>((isExtended ? gvcp::EXTENDED_ID : 0) | (asks ? gvcp::ACKNOWLEDGE : 0));
    std::size_t const size = isExtended ? gvcp::ExtendedEventRecord::Size : gvcp::EventRecord::Size;
    Bytes packet(gvcp::HeaderSize + size);
    gvcp::WriteHeader(std::span(packet).first<gvcp::HeaderSize>(),
                      {gvcp::CommandLead(flags), gvcp::EVENT_CMD, static_cast<std::uint16_t>(size), m_eventId});
    std::uint8_t *const body = &packet[gvcp::HeaderSize];
    // These two have the same places in both forms.
    StoreBig16(body + gvcp::EventRecord::EventId, event);
    StoreBig16(body + gvcp::EventRecord::StreamChannelIndex, blockId == 0 ? gvcp::NoStreamChannel : 0);
    if (isExtended) {
        StoreBig64(body + gvcp::ExtendedEventRecord::BlockId, blockId);
        StoreBig64(body + gvcp::ExtendedEventRecord::Timestamp, timestamp);
    } else {
        StoreBig16(body + gvcp::EventRecord::BlockId, blockId == 0 ? 0 : gvsp::BlockId16(blockId));
        StoreBig64(body + gvcp::EventRecord::Timestamp, timestamp);
    }
    m_events.push_back({m_eventId, asks, std::move(packet)});
    if (m_events.size() == 1)
        TransmitEvents(now);
}

// Sends the first, and those after it until one waits for its acknowledge.
void GvcpServer::TransmitEvents(Clock::time_point now)
{
    for (; !m_events.empty(); m_events.pop_front()) {
        Transmit(m_events.front());
        std::uint32_t const timeout = m_memory.Get(MessageChannelTransmissionTimeout);
        if (timeout == 0 || !m_events.front().asks)
            continue;
        m_eventRetries = m_memory.Get(MessageChannelRetryCount);
        m_eventDue = now + milliseconds(timeout);
        return;
    }
}

void GvcpServer::Transmit(Event const &event)
{
    if (!m_faults.silent)
        m_outgoing.push_back({MessageHost(), event.bytes, true});
}

// The first has not been acknowledged in time.
void GvcpServer::RepeatEvent(Clock::time_point now)
{
    if (m_eventRetries == 0) {
        m_events.pop_front();
        return TransmitEvents(now);
    }
    --m_eventRetries;
    Transmit(m_events.front());
    // At least that, also where the host has changed it to 0 meanwhile.
    m_eventDue = now + milliseconds(std::max(1u, m_memory.Get(MessageChannelTransmissionTimeout)));
}

void GvcpServer::TakeEventAck(std::uint16_t id, GvcpPeer from, Clock::time_point now)
{
    if (m_events.empty() || m_events.front().id != id || from != MessageHost())
        return;
    m_events.pop_front();
    TransmitEvents(now);
}
