#include "displayparams.h"

#include "tovcomponentbase.h"

#include <new>

namespace {

// A stretch over 16 bits is 65,536 entries of 22 characters.
constexpr std::uint32_t MapCapacity = 2u << 20;

} // namespace

DisplayParams::DisplayParams() : filterChannel(static_cast<char *>(std::calloc(MapCapacity, 1)))
{
    if (!filterChannel)
        throw std::bad_alloc();
}

void DisplayParams::AddTo(TovParamStorage &storage, Commands const &commands, void *context)
{
    auto const add = [&storage](_TovStParam const &param) {
        storage.AddParam(&param);
    };
    auto const addCommand = [&](char const *key, Commands::Function function) {
        add(TovCommandParam(key, function, context));
    };
    auto const addInt = [&](char const *key, std::int64_t *value, std::int64_t minimum, std::int64_t maximum) {
        add(TovIntParam(key, value, *value, minimum, maximum));
    };
    auto const addUnit = [&](char const *key, double *value) {
        add(TovFloatParam(key, value, *value, 0.0, 1.0));
    };
    auto const addText = [&](char const *key, char *value, std::uint32_t capacity) {
        add(TovStringParam(key, value, capacity, ""));
    };

    addCommand("display.zoom.in", commands.zoomIn);
    addCommand("display.zoom.out", commands.zoomOut);
    addCommand("display.atcenter", commands.centre);
    addInt("display.fit", &fit, FitNone, FitActual);
    addCommand("display.dump.on", commands.dumpOn);
    addCommand("display.dump.off", commands.dumpOff);
    addInt("display.init.fit", &initFit, FitNone, FitActual);
    addUnit("display.init.at.x", &initAt[0]);
    addUnit("display.init.at.y", &initAt[1]);
    addUnit("display.at.x", &at[0]);
    addUnit("display.at.y", &at[1]);
    addInt("display.view.scale", &viewScale, 0, std::int64_t(ViewState::MaxScale));
    char const *const dumpKeys[] = {"dump.x", "dump.y", "dump.w", "dump.h"};
    for (int i = 0; i < 4; ++i)
        addInt(dumpKeys[i], &dump[i], INT32_MIN, INT32_MAX);
    addInt("filter.id", &filterId, INT64_MIN, INT64_MAX);
    addText("filter.name", filterName, sizeof filterName);
    addInt("filter.channels", &filterChannels, 0, INT32_MAX);
    addText("filter.channel.0", filterChannel.get(), MapCapacity);
    addInt("filter.state", &filterState, 0, INT32_MAX);
    addCommand("filter.add", commands.addFilter);
    addCommand("filter.del", commands.deleteFilter);
}
