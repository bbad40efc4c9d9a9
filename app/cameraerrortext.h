// The camera library's statuses in words for the operator. Any thread.
#pragma once

#include <QString>

#include <cstdint>

QString CameraErrorText(std::int32_t error);
