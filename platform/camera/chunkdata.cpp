#include "chunkdata.h"

#include "protocol/gigevision.h"

// Both transports have the same fields there.
std::optional<std::span<std::uint8_t const>> FindChunk(std::span<std::uint8_t const> chunks, std::uint32_t id,
                                                       std::endian order)
{
    using Field = gvsp::ChunkTrailer;
    constexpr int Most = 4096; // in a frame; empty ones could be without number
    auto const load = order == std::endian::big ? LoadBig32 : LoadLittle32;
    for (int i = 0; i < Most && chunks.size() >= Field::Size; ++i) {
        std::uint8_t const *const trailer = &chunks[chunks.size() - Field::Size];
        std::uint32_t const length = load(trailer + Field::Length);
        chunks = chunks.first(chunks.size() - Field::Size);
        if (length > chunks.size())
            break;
        if (load(trailer + Field::ChunkId) == id)
            return chunks.last(length);
        chunks = chunks.first(chunks.size() - length);
    }
    return std::nullopt;
}
