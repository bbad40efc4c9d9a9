// Packets as text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

// Pairs of digits; blanks between them do not count.
inline Bytes FromHex(std::string_view text)
{
    Bytes bytes;
    std::string pair;
    for (char const c : text) {
        if (c == ' ')
            continue;
        pair += c;
        if (pair.size() == 2) {
            bytes.push_back(static_cast<std::uint8_t>(std::stoul(pair, nullptr, 16)));
            pair.clear();
        }
    }
    return bytes;
}
