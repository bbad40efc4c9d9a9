// Reading a node of a known kind that has been found readable. With the device's lock held; 0, or a status of the
// camera library.
#pragma once

#include "nodeaccess.h"

// ArvGc relies on a text in a register having a terminator; this does not.
std::int32_t ReadText(ArvGcFeatureNode *node, std::string *text);
// Value and its status, and a register's length. Of an enumeration whose register holds no entry's value the number
// stays, with TOV_CAM_ERR_GENICAM_OUT_OF_RANGE.
void ReadValue(ArvGcFeatureNode *node, TovCam::FeatureInfo const &info, TovCam::FeatureState &state);
// Range and increment of numbers, room of texts.
void ReadLimits(ArvGcFeatureNode *node, TovCam::FeatureKind kind, TovCam::FeatureState &state);
// Whether the command has ended. Where the camera cannot be asked, it has ended once it was accepted.
std::int32_t ReadCommandDone(ArvGcFeatureNode *node, bool *done);
