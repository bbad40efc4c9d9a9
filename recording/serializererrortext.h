// The serializer's statuses in words for the operator, where the serializer gives none itself. Any thread.
#pragma once

#include <QString>

#include <cstdint>

QString SerializerErrorText(std::int32_t status);
