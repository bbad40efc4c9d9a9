#include "chunkfacts.h"

#include "genicam/chunkvalue.h"
#include "genicam/guardedgenicam.h"

#include <initializer_list>
#include <limits>
#include <string_view>

namespace {

// The first of these features that the camera has and that comes with the frames; its node as well.
std::unique_ptr<ChunkValue> FindFirst(ArvGc *genicam, std::initializer_list<char const *> names, ArvGcNode **node)
{
    for (char const *name : names) {
        *node = arv_gc_get_node(genicam, name);
        ErrorSlot error;
        if (!ARV_IS_GC_FEATURE_NODE(*node) || !arv_gc_feature_node_is_implemented(ARV_GC_FEATURE_NODE(*node), error) ||
            error.Status() != TOV_CAM_ERR_OK)
            continue;
        if (std::unique_ptr<ChunkValue> value = ChunkValue::Make(*node))
            return value;
    }
    return nullptr;
}

// Microseconds are what the standard has, and what is meant where nothing is said.
double MicrosecondsOf(ArvGcNode *node)
{
    char const *const text = ARV_IS_GC_FLOAT(node)     ? arv_gc_float_get_unit(ARV_GC_FLOAT(node))
                             : ARV_IS_GC_INTEGER(node) ? arv_gc_integer_get_unit(ARV_GC_INTEGER(node))
                                                       : nullptr;
    std::string_view const unit = text ? text : "";
    return unit == "ns" ? 1e-3 : unit == "ms" ? 1e3 : unit == "s" ? 1e6 : 1.0;
}

} // namespace

ChunkFacts::ChunkFacts(std::endian order) : m_order(order)
{
}

ChunkFacts::~ChunkFacts() = default;

std::shared_ptr<ChunkFacts const> ChunkFacts::Find(ArvDevice *device, std::endian order)
{
    ArvGc *const genicam = GetGuardedGenicam(device, nullptr);
    if (!genicam)
        return nullptr;
    std::shared_ptr<ChunkFacts> facts(new ChunkFacts(order));
    ArvGcNode *node = nullptr;
    facts->m_gain = FindFirst(genicam, {"ChunkGain", "ChunkGainAbs", "ChunkGainAll", "ChunkGainRaw"}, &node);
    facts->m_exposure = FindFirst(genicam, {"ChunkExposureTime", "ChunkExposureTimeAbs"}, &node);
    if (facts->m_exposure)
        facts->m_microseconds = MicrosecondsOf(node);
    return facts->m_exposure || facts->m_gain ? facts : nullptr;
}

void ChunkFacts::Read(std::span<std::uint8_t const> chunks, TovCam::FrameFacts &facts) const
{
    constexpr double None = std::numeric_limits<double>::quiet_NaN();
    facts.exposure = m_exposure ? m_exposure->Read(chunks, m_order) * m_microseconds : None;
    facts.gain = m_gain ? m_gain->Read(chunks, m_order) : None;
}
