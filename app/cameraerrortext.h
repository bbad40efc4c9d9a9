// What a status of the camera library says to the operator. Any thread.
#pragma once

#include <QString>

#include <cstdint>

QString CameraErrorText(std::int32_t error);
