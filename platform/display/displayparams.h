// The keys of a display, and the variables behind them.
#pragma once

#include "viewgeometry.h"

#include "tovmisc.h"

#include <cstdint>
#include <cstdlib>
#include <memory>

struct DisplayParams
{
    struct Commands
    {
        using Function = unsigned int (*)(void *context);
        Function zoomIn, zoomOut, centre, dumpOn, dumpOff, addFilter, deleteFilter;
    };
    struct FreeDeleter
    {
        void operator()(char *memory) const
        {
            std::free(memory);
        }
    };

    DisplayParams(); // throws std::bad_alloc
    // Binds the variables, which outlive the storage's use of them.
    void AddTo(TovParamStorage &storage, Commands const &commands, void *context);

    // By TovLoadBound and TovStoreBound; the texts by the store alone while it is in use.
    std::int64_t fit = FitWindow;
    std::int64_t initFit = FitWindow;
    double initAt[2] = {0.5, 0.5};
    double at[2] = {0.5, 0.5};
    std::int64_t viewScale = 0;
    std::int64_t dump[4] = {}; // x, y, w, h
    std::int64_t filterId = 0;
    std::int64_t filterChannels = 1;
    std::int64_t filterState = 0;
    char filterName[256] = "";
    std::unique_ptr<char, FreeDeleter> filterChannel; // large, and its pages come with the first long map
};
