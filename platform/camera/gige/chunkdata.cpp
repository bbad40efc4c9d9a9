#include "chunkdata.h"

#include "protocol/gigevision.h"

std::optional<std::span<std::uint8_t const>> FindChunk(std::span<std::uint8_t const> chunks, std::uint32_t id)
{
    using Field = gvsp::ChunkTrailer;
    constexpr int Most = 4096; // in a frame; empty ones could be without number
    for (int i = 0; i < Most && chunks.size() >= Field::Size; ++i) {
        std::uint8_t const *const trailer = &chunks[chunks.size() - Field::Size];
        std::uint32_t const length = LoadBig32(trailer + Field::Length);
        chunks = chunks.first(chunks.size() - Field::Size);
        if (length > chunks.size())
            break;
        if (LoadBig32(trailer + Field::ChunkId) == id)
            return chunks.last(length);
        chunks = chunks.first(chunks.size() - length);
    }
    return std::nullopt;
}
