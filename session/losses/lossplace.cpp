#include "lossplace.h"

namespace {

constexpr char const *Words[] = {"camera", "network", "adapter",   "socket", "receiver",
                                 "fifo",   "disk",    "recording", "unknown"};
static_assert(std::size(Words) == LossPlaceCount);

} // namespace

char const *WordOf(LossPlace place)
{
    return Words[static_cast<std::size_t>(place)];
}

std::string LossPlaces::Words() const
{
    std::string words;
    for (std::size_t i = 0; i < LossPlaceCount; ++i) {
        auto const place = static_cast<LossPlace>(i);
        if (Has(place))
            words.append(words.empty() ? "" : "+").append(WordOf(place));
    }
    return words;
}

LossTally operator-(LossTally const &after, LossTally const &before)
{
    LossTally since = after;
    for (std::size_t i = 0; i < LossPlaceCount; ++i) {
        since.places[i].missing -= before.places[i].missing;
        since.places[i].incomplete -= before.places[i].incomplete;
        since.places[i].packets -= before.places[i].packets;
    }
    return since;
}
