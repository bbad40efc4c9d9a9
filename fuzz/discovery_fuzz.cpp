// Datagrams of any bytes as answers to a search for cameras. An input is a row of them, each behind a head as in Head.
#include "driver.h"

#include "gige/cameraroll.h"

#include <algorithm>

namespace {

constexpr std::uint16_t DiscoveryId = 7, PrivilegeId = 8, ControllerId = 9;
constexpr std::size_t LongestInput = 4096;

struct Head // big-endian
{
    static constexpr std::size_t IsPrivilege = 0, Repeats = 1, Address = 2, Length = 4, Size = 6;
};

void Demand(bool condition, char const *what)
{
    if (!condition)
        FuzzFail(what);
}

void Check(CameraRoll &roll)
{
    namespace bootstrap = gvcp::bootstrap;
    Demand(roll.GetCameras().size() <= CameraRoll::MostCameras, "more cameras than are kept");
    for (CameraRoll::Camera const &camera : roll.GetCameras()) {
        GvcpIdentity const &is = camera.identity;
        Demand(is.vendor.size() <= bootstrap::NameSize && is.model.size() <= bootstrap::NameSize &&
                   is.serial.size() <= bootstrap::IdentitySize && is.userID.size() <= bootstrap::IdentitySize,
               "a text that is longer than its field");
        for (std::string const *text : {&is.vendor, &is.model, &is.serial, &is.userID})
            Demand(std::none_of(text->begin(), text->end(), [](unsigned char c) { return c < ' ' || c == 0x7F; }),
                   "a control character");
        std::size_t there = 0;
        for (CameraRoll::Camera const &other : roll.GetCameras()) {
            there += other.address == camera.address;
            Demand(&other == &camera || other.address != camera.address || other.identity != is, "a camera twice");
        }
        Demand(there <= CameraRoll::MostAtOneAddress, "too many at one address");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    if (size > LongestInput)
        return FuzzRefused;
    bool const takesCrowds = IsOneOf(64, data, size);
    CameraRoll roll(DiscoveryId, PrivilegeId, ControllerId);
    std::span<std::uint8_t const> input(data, size);
    while (input.size() >= Head::Size) {
        std::uint8_t const *const head = input.data();
        std::uint32_t const address = LoadBig16(head + Head::Address);
        std::size_t const length = std::min<std::size_t>(LoadBig16(head + Head::Length), input.size() - Head::Size);
        std::span<std::uint8_t const> const datagram = input.subspan(Head::Size, length);
        // One datagram stands for a crowd; large ones take long.
        std::uint32_t const repeats = takesCrowds ? head[Head::Repeats] : head[Head::Repeats] % 8;
        for (std::uint32_t i = 0; i <= repeats; ++i) {
            if ((head[Head::IsPrivilege] & 1) != 0) {
                roll.TakePrivilege(address + i, datagram);
                roll.TakeController(address + i, datagram);
            } else {
                roll.TakeDiscovery(address + i, datagram);
            }
        }
        input = input.subspan(Head::Size + length);
    }
    Check(roll);
    return roll.GetCameras().empty() ? FuzzRefused : 0;
}
