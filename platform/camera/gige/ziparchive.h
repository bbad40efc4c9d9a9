// Zip archives in memory: as much of them as descriptions of cameras need.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

// Whether the bytes begin as those of an archive do.
bool IsZipArchive(std::span<std::uint8_t const> bytes);

// The first file of the archive, stored or deflated. Nothing where a length, an offset or the checksum is wrong, where
// it is encrypted or packed in another way, or where it unpacks to more than `limit` bytes. Takes any bytes.
std::optional<std::string> UnpackFirstFile(std::span<std::uint8_t const> archive, std::size_t limit);
