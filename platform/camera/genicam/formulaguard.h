// Makes the formulas of a GenICam description harmless, whatever a camera's registers hold.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// For a description that CheckGenicamXml has found good: gives the one for ArvGc in `guarded`. Formulas, expressions
// and constants are guarded by GuardParts, and lengths that come from a register are kept within MaxRegister,
// since ArvGc takes that much memory, and ends the program where there is none. A description that needs none of it
// stays as it is, byte for byte.
//
// 0, or TOV_CAM_ERR_GENICAM_TREE for what cannot be read.
std::int32_t GuardFormulas(std::string_view xml, std::string *guarded);
