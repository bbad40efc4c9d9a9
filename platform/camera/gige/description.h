// The GenICam description of a GigE Vision camera: where the camera says that it lies, and what lies there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

class ControlChannel;
class OpenWatch;

// Where a description lies in the camera's memory.
struct DescriptionPlace
{
    std::uint32_t address = 0;
    std::size_t size = 0;
    bool isArchive = false; // by its name
};

// Of "Local:name;address;size", numbers in hexadecimal, with an optional "?SchemaVersion=1.0.0". Nothing for all else,
// such as a file of this host or of a server, and for what is empty, too large or not within 32 bits of addresses.
std::optional<DescriptionPlace> ParseDescriptionUrl(std::string_view url);

// Reads the description once, unpacks and checks it. That of the second URL is taken where the first one's is no good.
// 0; TOV_CAM_ERR_GENICAM_TREE when neither is good, and in `why`, which may be null, what is wrong with the first one;
// TOV_CAM_ERR_NO_DEVICE when the camera does not answer or the opening is over.
std::int32_t DownloadDescription(ControlChannel &camera, OpenWatch &watch, std::string &xml,
                                 std::string *why = nullptr);
