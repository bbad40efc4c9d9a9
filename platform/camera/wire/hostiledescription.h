// The descriptions that a camera on the network serves: its own, and those that are made to hurt whoever reads them.
#pragma once

#include "wireregisters.h"

#include <cstdint>
#include <string>
#include <string_view>

// Where they lie in the camera's memory.
constexpr std::uint32_t PlainDescriptionAddress = 0x100000, ZippedDescriptionAddress = 0x400000;

// What a host finds there, and the texts of the URL registers. The first URL names the archive. What is wrong with an
// archive alone leaves the plain text good, to which a host can turn.
struct ServedDescription
{
    std::string plain;
    std::string zipped; // with one entry; no bytes for WireDescription::Empty
    std::string firstUrl, secondUrl;
};

// The files are called as the model. `good` is the camera's own description; what is made of it takes some megabytes at
// most. For WireDescription::ChangesOnce it is what the second download brings.
ServedDescription MakeDescription(WireDescription kind, std::string_view model, std::string_view good);

// A zip file with one deflated entry. Throws std::length_error for a content above 4 GB.
std::string MakeZip(std::string_view name, std::string_view content);
