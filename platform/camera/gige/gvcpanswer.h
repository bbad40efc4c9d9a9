// What a datagram is to a request that waits for its acknowledge.
#pragma once

#include "protocol/gigevision.h"

#include <algorithm>
#include <chrono>

struct GvcpRequest
{
    static constexpr std::size_t AnySize = ~std::size_t{0};

    std::uint16_t command = 0;
    std::uint16_t id = 0;
    std::span<std::uint8_t const> body;
    std::size_t answerSize = AnySize; // of the acknowledge's body, where the camera does not refuse
};

struct GvcpAnswer
{
    enum class Kind : std::uint8_t {
        Malformed, // no packet, or one that does not fit the request
        Stale,     // of another request
        Pending,   // the camera asks for `time`
        Refused,   // with `status`
        Good       // `body` is as long as was asked for
    };
    Kind kind = Kind::Malformed;
    std::uint16_t status = 0;
    std::chrono::milliseconds time{0};
    std::span<std::uint8_t const> body = {}; // within the datagram
};

// Takes any bytes. The answer to a READMEM_CMD tells the address that was asked for.
inline GvcpAnswer ReadGvcpAnswer(GvcpRequest const &request, std::span<std::uint8_t const> datagram)
{
    using Kind = GvcpAnswer::Kind;
    constexpr std::uint16_t RefusalMask = 0x8000; // of a status
    std::optional<gvcp::Header> const header = gvcp::ReadHeader(datagram);
    if (!header || datagram.size() != gvcp::HeaderSize + header->length)
        return {};
    if (header->id != request.id)
        return {.kind = Kind::Stale};
    std::span<std::uint8_t const> const body = gvcp::BodyOf(datagram, *header);
    if (header->code == gvcp::PENDING_ACK && body.size() >= gvcp::PendingAck::Size)
        return {.kind = Kind::Pending,
                .time = std::chrono::milliseconds(LoadBig16(&body[gvcp::PendingAck::TimeToCompletion]))};
    if (header->code != gvcp::AcknowledgeOf(request.command))
        return {};
    if ((header->lead & RefusalMask) != 0)
        return {.kind = Kind::Refused, .status = header->lead};
    if (request.answerSize != GvcpRequest::AnySize && body.size() != request.answerSize)
        return {};
    if (request.command == gvcp::READMEM_CMD &&
        (body.size() < gvcp::MemoryData::Data || request.body.size() < gvcp::MemoryData::Data ||
         !std::equal(body.begin(), body.begin() + gvcp::MemoryData::Data, request.body.begin())))
        return {};
    return {.kind = Kind::Good, .body = body};
}
