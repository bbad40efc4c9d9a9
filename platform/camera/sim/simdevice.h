// An open simulated camera: an ArvDevice whose registers are a SimCamera's, and the TovCam::Device around it.
#pragma once

#include "simmodel.h"

#include "backend.h"

// Null on failure. `model` outlives the device.
TovCam::Device *OpenSimDevice(SimModel const &model, DeviceInfoImpl *info, std::int32_t *error);
