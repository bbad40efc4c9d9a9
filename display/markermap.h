// The colour map that shows the pixels beyond two markers, or stretches what lies between them, as the text that the
// renderer's filter "cmap.base" takes. Any thread.
#pragma once

#include <string>

// On a scale of `range` values.
struct MarkerPair
{
    long lo;
    long hi;
    long range;

    bool IsValid() const; // lo is on the scale, and below hi
};

// `colorize` turns what lies up to lo green, and from hi on red; `stretch` spreads what lies between them over all
// greys. The pair is valid and the range at least 2.
std::string MarkerMap(MarkerPair const &markers, bool colorize, bool stretch);
