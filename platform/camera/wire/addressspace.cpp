#include "addressspace.h"

#include "hostiledescription.h"
#include "packetplan.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace S = SimRegister;
namespace W = WireRegister;

namespace {

gvcp::Status StatusOf(GError *error)
{
    if (!error)
        return gvcp::GEV_STATUS_SUCCESS;
    bool const isAddress = error->code == ARV_DEVICE_ERROR_PROTOCOL_ERROR_INVALID_ADDRESS;
    g_error_free(error);
    return isAddress ? gvcp::GEV_STATUS_INVALID_ADDRESS : gvcp::GEV_STATUS_ERROR;
}

// Reading goes on with zeros up to a multiple of four bytes, which is how a host asks.
bool ReadText(std::string const &text, std::uint32_t begin, std::uint32_t address, std::span<std::uint8_t> out)
{
    std::size_t const end = (text.size() + 3) / 4 * 4;
    if (address < begin || address - begin > end || out.size() > end - (address - begin))
        return false;
    std::size_t const at = address - begin;
    std::fill(out.begin(), out.end(), std::uint8_t{0});
    if (at < text.size())
        std::copy_n(text.begin() + static_cast<std::ptrdiff_t>(at), std::min(out.size(), text.size() - at),
                    out.begin());
    return true;
}

bool IsReadOnly(std::uint32_t address)
{
    return address >= W::FramesSent;
}

} // namespace

AddressSpace::AddressSpace(SimCamera &camera) : m_camera(camera), m_wire(true, W::Begin, W::End)
{
    for (std::uint32_t const ordinary : {W::LossBurst, W::LostEvery, W::ReorderDistance})
        m_wire.SetInt(ordinary, 1);
}

gvcp::Status AddressSpace::Read(std::uint32_t address, std::span<std::uint8_t> out)
{
    auto const size = static_cast<std::uint32_t>(out.size());
    if (std::uint8_t const *const bytes = m_wire.Find(address, size)) {
        std::copy_n(bytes, size, out.begin());
        return gvcp::GEV_STATUS_SUCCESS;
    }
    if (ReadText(m_plain, PlainDescriptionAddress, address, out) ||
        ReadText(m_zipped, ZippedDescriptionAddress, address, out))
        return gvcp::GEV_STATUS_SUCCESS;
    GError *error = nullptr;
    m_camera.Read(address, size, out.data(), &error);
    return StatusOf(error);
}

gvcp::Status AddressSpace::Write(std::uint32_t address, std::span<std::uint8_t const> bytes)
{
    auto const size = static_cast<std::uint32_t>(bytes.size());
    if (std::uint8_t *const memory = m_wire.Find(address, size)) {
        if (IsReadOnly(address))
            return gvcp::GEV_STATUS_WRITE_PROTECT;
        std::vector<std::uint8_t> const before(memory, memory + size);
        std::copy(bytes.begin(), bytes.end(), memory);
        std::vector<PacketRange> ranges;
        if (ParsePacketList(m_wire.GetText(W::LostPackets), ranges))
            return gvcp::GEV_STATUS_SUCCESS;
        std::copy(before.begin(), before.end(), memory);
        return gvcp::GEV_STATUS_INVALID_PARAMETER;
    }
    GError *error = nullptr;
    m_camera.Write(address, size, bytes.data(), &error);
    return StatusOf(error);
}

StreamFaults AddressSpace::GetStreamFaults() const
{
    auto const share = [this](std::uint32_t address) {
        return std::clamp(m_wire.GetFloat(address) / 100.0, 0.0, 1.0);
    };
    auto const count = [this](std::uint32_t address) {
        return static_cast<std::uint32_t>(std::max<std::uint64_t>(m_wire.GetInt(address), 1));
    };
    // Losses of the simulated link and of the network add up.
    double const simulated = std::clamp(m_camera.GetFloat(S::SimPacketLoss) / 100.0, 0.0, 1.0);
    auto const silence = static_cast<WireSilence>(m_wire.GetInt(W::Silence));
    return {.loss = 1.0 - (1.0 - simulated) * (1.0 - share(W::PacketLoss)),
            .burst = count(W::LossBurst),
            .lostPackets = m_wire.GetText(W::LostPackets),
            .lostEvery = count(W::LostEvery),
            .reorder = share(W::Reorder),
            .reorderDistance = count(W::ReorderDistance),
            .duplicate = share(W::Duplicate),
            .truncate = share(W::Truncate),
            .wrongLength = share(W::WrongLength),
            .wrongPacketId = share(W::WrongPacketId),
            .wrongBlockId = share(W::WrongBlockId),
            .delay = static_cast<std::uint32_t>(m_wire.GetInt(W::Delay)),
            .ignoreResend = m_wire.GetInt(W::IgnoreResend) != 0,
            .silent = silence == WireSilence::Stream || silence == WireSilence::All,
            .incompleteEvery = static_cast<std::uint32_t>(m_camera.GetInt(S::SimIncompleteEvery)),
            .linkLimit = m_camera.GetFloat(S::SimLinkLimit) * 1048576.0,
            .forgery = static_cast<WireStreamForgery>(m_wire.GetInt(W::StreamForgery))};
}

ControlFaults AddressSpace::GetControlFaults() const
{
    auto const share = [this](std::uint32_t address) {
        return std::clamp(m_wire.GetFloat(address) / 100.0, 0.0, 1.0);
    };
    auto const silence = static_cast<WireSilence>(m_wire.GetInt(W::Silence));
    return {.loss = share(W::AnswerLoss),
            .wrongId = share(W::AnswerWrongId),
            .wrongLength = share(W::AnswerWrongLength),
            .delay = static_cast<std::uint32_t>(m_wire.GetInt(W::AnswerDelay)),
            .silent = silence == WireSilence::Control || silence == WireSilence::All,
            .forgery = static_cast<WireAnswerForgery>(m_wire.GetInt(W::AnswerForgery)),
            .lie = static_cast<WireRegisterLie>(m_wire.GetInt(W::RegisterLie))};
}

void AddressSpace::ResetChunks()
{
    m_wire.Clear(W::ChunkModeActive, W::FramesSent);
}

bool AddressSpace::EndsDescription(std::uint32_t address, std::uint32_t size) const
{
    auto const ends = [=](std::string const &text, std::size_t begin) {
        return address < begin + text.size() && std::size_t{address} + size >= begin + text.size();
    };
    return ends(m_plain, PlainDescriptionAddress) || ends(m_zipped, ZippedDescriptionAddress);
}

void AddressSpace::SetDescriptions(std::string plain, std::string zipped)
{
    m_plain = std::move(plain);
    m_zipped = std::move(zipped);
}
