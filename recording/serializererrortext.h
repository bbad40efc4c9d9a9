// What a status of the serializer says to the operator, where the serializer has no words of its own. Any thread.
#pragma once

#include <QString>

#include <cstdint>

QString SerializerErrorText(std::int32_t status);
