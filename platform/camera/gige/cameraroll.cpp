#include "cameraroll.h"

#include "gvcpanswer.h"

#include <algorithm>

namespace {

// Of `size` bytes: up to the first zero.
std::string Text(std::uint8_t const *bytes, std::size_t size)
{
    std::string text(bytes, std::find(bytes, bytes + size, 0));
    std::erase_if(text, [](unsigned char c) { return c < ' ' || c == 0x7F; });
    return text;
}

} // namespace

std::optional<GvcpIdentity> ReadIdentity(std::span<std::uint8_t const> body)
{
    using namespace gvcp::bootstrap;
    if (body.size() < gvcp::DiscoveryAck::Size)
        return std::nullopt;
    return GvcpIdentity{Text(&body[ManufacturerName], NameSize), Text(&body[ModelName], NameSize),
                        Text(&body[SerialNumber], IdentitySize), Text(&body[UserDefinedName], IdentitySize)};
}

TovCam::NetworkPlace ReadPlace(std::span<std::uint8_t const> body, std::uint32_t sender)
{
    using namespace gvcp::bootstrap;
    TovCam::NetworkPlace place;
    place.address = sender;
    place.mask = LoadBig32(&body[CurrentSubnetMask]);
    place.gateway = LoadBig32(&body[CurrentDefaultGateway]);
    // The upper half of the first register is reserved.
    place.mac = std::uint64_t{LoadBig16(&body[DeviceMacAddressHigh + 2])} << 32 | LoadBig32(&body[DeviceMacAddressLow]);
    return place;
}

bool GvcpIsControlled(std::uint32_t privilege)
{
    return (privilege & (gvcp::ExclusiveAccess | gvcp::ControlAccess)) != 0;
}

CameraRoll::CameraRoll(std::uint16_t discoveryId, std::uint16_t privilegeId, std::uint16_t controllerId)
    : m_discoveryId(discoveryId),
      m_privilegeId(privilegeId),
      m_controllerId(controllerId)
{
}

void CameraRoll::TakeDiscovery(std::uint32_t address, std::span<std::uint8_t const> datagram)
{
    GvcpAnswer const answer = ReadGvcpAnswer({gvcp::DISCOVERY_CMD, m_discoveryId, {}}, datagram);
    if (answer.kind != GvcpAnswer::Kind::Good)
        return;
    std::optional<GvcpIdentity> identity = ReadIdentity(answer.body);
    if (!identity)
        return;
    std::size_t there = 0;
    std::optional<bool> isControlled;
    for (Camera const &camera : m_cameras) {
        if (camera.address != address)
            continue;
        if (camera.identity == *identity || ++there == MostAtOneAddress)
            return;
        isControlled = camera.isControlled;
    }
    Camera made{address, std::move(*identity), isControlled, there > 0, ReadPlace(answer.body, address)};
    if (m_cameras.size() < MostCameras) {
        m_cameras.push_back(std::move(made));
        return;
    }
    for (std::size_t i = 0; i < m_cameras.size(); ++i) {
        Camera &victim = m_cameras[m_victim];
        m_victim = (m_victim + 1) % m_cameras.size();
        if (!victim.isControlled.has_value()) {
            victim = std::move(made);
            return;
        }
    }
}

void CameraRoll::TakePrivilege(std::uint32_t address, std::span<std::uint8_t const> datagram)
{
    GvcpAnswer const answer = ReadGvcpAnswer({gvcp::READREG_CMD, m_privilegeId, {}, gvcp::RegisterSize}, datagram);
    if (answer.kind != GvcpAnswer::Kind::Good)
        return;
    for (Camera &camera : m_cameras) {
        if (camera.address == address)
            camera.isControlled = GvcpIsControlled(LoadBig32(answer.body.data()));
    }
}

void CameraRoll::TakeController(std::uint32_t address, std::span<std::uint8_t const> datagram)
{
    GvcpAnswer const answer = ReadGvcpAnswer({gvcp::READREG_CMD, m_controllerId, {}, gvcp::RegisterSize}, datagram);
    if (m_controllerId == 0 || answer.kind != GvcpAnswer::Kind::Good)
        return;
    for (Camera &camera : m_cameras) {
        if (camera.address == address)
            camera.controller = LoadBig32(answer.body.data());
    }
}

std::vector<CameraRoll::Camera> &CameraRoll::GetCameras()
{
    return m_cameras;
}

bool CameraRoll::Has(std::uint32_t address) const
{
    return std::any_of(m_cameras.begin(), m_cameras.end(),
                       [address](Camera const &camera) { return camera.address == address; });
}

bool CameraRoll::IsComplete() const
{
    return std::all_of(m_cameras.begin(), m_cameras.end(),
                       [](Camera const &camera) { return camera.isControlled.has_value(); });
}
