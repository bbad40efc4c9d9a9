#include "blockframe.h"

#include <algorithm>
#include <cstring>

std::size_t Datagram::Copy(std::size_t offset, std::span<std::uint8_t> out) const
{
    std::size_t copied = 0;
    for (std::span<std::uint8_t const> piece : pieces) {
        std::size_t const skip = std::min(offset, piece.size());
        offset -= skip;
        std::size_t const size = std::min(piece.size() - skip, out.size() - copied);
        if (size > 0)
            std::memmove(out.data() + copied, piece.data() + skip, size);
        copied += size;
    }
    return copied;
}
