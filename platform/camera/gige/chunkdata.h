// What a camera sends along with a picture: chunks, each with its id and its length behind it.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

// The chunk with this id, in chunk data of a whole frame. Any bytes may be read: nothing where the lengths lead out of
// them before it is found.
std::optional<std::span<std::uint8_t const>> FindChunk(std::span<std::uint8_t const> chunks, std::uint32_t id);
