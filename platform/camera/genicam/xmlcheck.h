// Whether a GenICam description can be given to ArvGc, which trusts it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// No camera's description comes near this.
constexpr std::size_t GenicamXmlLimit = 8u << 20;

// 0, or TOV_CAM_ERR_GENICAM_TREE: empty, larger than GenicamXmlLimit, not well-formed, not a register description; one
// whose nodes refer to each other in a circle, in an endless chain, or so that one value costs an absurd number of
// others or absurdly long formulas; one whose registers have absurd lengths; or one with a document type, whose
// entities could stand for anything. Bounds may well refer to each other's features (Width and OffsetX do): reading a
// value never reads its bounds. `why` says in a few words what is wrong; it may be null.
std::int32_t CheckGenicamXml(void const *xml, std::size_t size, std::string *why = nullptr);
