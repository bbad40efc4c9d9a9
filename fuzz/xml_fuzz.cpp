// A camera's description from the wire: checked, loaded, and each of its features looked at, read and written.
#include "driver.h"
#include "memorycamera.h"

#include "genicam/chunkvalue.h"
#include "genicam/configuration.h"
#include "genicam/guardedgenicam.h"

#include <algorithm>
#include <array>
#include <cstring>

// What registers hold decides what formulas, lengths and indices come to: the largest, the smallest, -1, and something
// else each time.
static void ReadExtremes(MemoryCamera &camera)
{
    NodeMap &nodes = camera.GetNodes();
    std::vector<std::uint8_t> const before = camera.memory;
    for (int const kind : {0, 1, 2, 3}) {
        std::uint8_t *const memory = camera.memory.data();
        std::memset(memory, kind == 0 ? 0xff : 0, before.size());
        for (std::size_t i = 0; (kind == 1 || kind == 2) && i < before.size(); i += 8)
            memory[kind == 1 ? i : i + 7] = 0x80;
        camera.isUnsteady = kind == 3;
        for (std::uint32_t i = 0; i < nodes.GetFeatureCount(); ++i) {
            TovCam::FeatureState state;
            nodes.ReadFeature(i, &state);
            if (state.access >= TovCam::FeatureAccess::WriteOnly)
                nodes.WriteFeature(i, state.value);
        }
    }
    camera.isUnsteady = false;
    camera.memory = before;
}

// Each feature as one that comes with the frames, in a chunk of the memory's bytes.
static void ReadFromChunk(MemoryCamera &camera, char const *name)
{
    constexpr std::uint8_t Trailer[] = {0, 0, 0, 0x12, 0, 0, 0, 100}; // the id is the corpus's
    std::array<std::uint8_t, 108> chunks;
    std::copy_n(camera.memory.begin(), 100, chunks.begin());
    std::copy(std::begin(Trailer), std::end(Trailer), chunks.begin() + 100);
    ArvGc *const genicam = GetGuardedGenicam(camera.GetDevice(), nullptr);
    std::unique_ptr<ChunkValue> const value = ChunkValue::Make(arv_gc_get_node(genicam, name));
    for (std::size_t frame = 0; value && frame < 2; ++frame) {
        value->Read(chunks, std::endian::big);
        chunks[frame] = 0xff;
    }
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    MemoryCamera camera(std::string(reinterpret_cast<char const *>(data), size));
    NodeMap &nodes = camera.GetNodes();
    if (nodes.GetStatus() != TOV_CAM_ERR_OK)
        return FuzzRefused;
    std::uint32_t const count = nodes.GetFeatureCount();
    for (std::uint32_t i = 0; i < count; ++i) {
        TovCam::FeatureInfo const *const info = nodes.GetFeature(i);
        TovCam::FeatureState state;
        bool done;
        nodes.ReadFeature(i, &state);
        nodes.IsCommandDone(i, &done);
        ReadFromChunk(camera, info->name.c_str());
        for (std::vector<std::uint32_t> const *list : {&info->children, &info->selected, &info->dependents}) {
            for (std::uint32_t const other : *list) {
                if (other >= count)
                    FuzzFail("a feature that is none");
            }
        }
        for (std::uint32_t const entry : state.available) {
            if (entry >= info->entries.size())
                FuzzFail("an entry that is none");
        }
        if (state.access == TovCam::FeatureAccess::ReadWrite) {
            nodes.WriteFeature(i, state.value);
            state.value.integer = state.maximum;
            state.value.real = state.realMaximum;
            nodes.WriteFeature(i, state.value);
        } else if (state.access == TovCam::FeatureAccess::WriteOnly) {
            nodes.WriteFeature(i, state.value);
        }
        for (char const *name : {info->name.c_str()}) {
            nodes.GetIntegerValue(name, nullptr);
            nodes.GetFloatValue(name, nullptr);
            nodes.GetEnumValueStr(name, nullptr);
            if (TovCam::StringParam *const text = nodes.GetString(name, nullptr))
                text->GetValue(nullptr);
        }
    }
    if (IsOneOf(4, data, size))
        ReadExtremes(camera);
    if (!IsOneOf(8, data, size))
        return count > 1 ? 0 : FuzzRefused;
    Configuration configuration;
    configuration.camera.model = "x";
    if (configuration.Take(nodes) == TOV_CAM_ERR_OK) {
        Configuration copy;
        if (copy.Parse(configuration.ToText()) != TOV_CAM_ERR_OK)
            FuzzFail("a configuration that cannot be read again");
        copy.Apply(nodes, true);
    }
    return count > 1 ? 0 : FuzzRefused;
}
