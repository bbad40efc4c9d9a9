// Writing a node of a known kind that has been found writable. With the device's lock held; 0, or a status of the
// camera library.
#pragma once

#include "nodeaccess.h"

std::int32_t WriteInteger(ArvGcFeatureNode *node, std::int64_t value);
std::int32_t WriteFloat(ArvGcFeatureNode *node, double value);
std::int32_t WriteBoolean(ArvGcFeatureNode *node, bool value);
std::int32_t WriteEntry(ArvGcFeatureNode *node, char const *name); // an enumeration, by its entry
std::int32_t WriteString(ArvGcFeatureNode *node, char const *value);
std::int32_t WriteRegister(ArvGcFeatureNode *node, std::string const &bytes); // as long as the register
std::int32_t ExecuteNode(ArvGcFeatureNode *node);
// The value is of the kind in `info`. An enumeration is written by its entry's name or, where that is empty, by its
// number.
std::int32_t WriteValue(ArvGcFeatureNode *node, TovCam::FeatureInfo const &info, TovCam::FeatureValue const &value);
