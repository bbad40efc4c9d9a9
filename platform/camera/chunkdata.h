// What a camera sends along with a picture: chunks, each with its id and its length behind it.
#pragma once

#include <bit>
#include <cstdint>
#include <optional>
#include <span>

// The chunk with this id, in chunk data of a whole frame. `order` is that of ids and lengths: GigE Vision has them
// big-endian, USB3 Vision little-endian. Any bytes may be read: nothing where the lengths lead out of them before it is
// found.
std::optional<std::span<std::uint8_t const>> FindChunk(std::span<std::uint8_t const> chunks, std::uint32_t id,
                                                       std::endian order = std::endian::big);
