// Reading a node of a known kind that has been found readable. With the device's lock held; 0, or a status of the
// camera library.
#pragma once

#include "nodeaccess.h"

// Of a text that stands in a register: ArvGc trusts it to have an end.
std::int32_t ReadText(ArvGcFeatureNode *node, std::string *text);
// Value and its status, and a register's length. Of an enumeration whose register holds no entry's value the number
// stays, with TOV_CAM_ERR_GENICAM_OUT_OF_RANGE.
void ReadValue(ArvGcFeatureNode *node, TovCam::FeatureInfo const &info, TovCam::FeatureState &state);
// Range and increment of numbers, room of texts.
void ReadLimits(ArvGcFeatureNode *node, TovCam::FeatureKind kind, TovCam::FeatureState &state);
// Whether the command has ended. A camera that cannot be asked has done it when it has taken the command.
std::int32_t ReadCommandDone(ArvGcFeatureNode *node, bool *done);
