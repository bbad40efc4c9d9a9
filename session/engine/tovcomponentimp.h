// The component that an engine is: changes of its parameters go to the handler that was set by SetParamChangedHandler.
#pragma once

#include "tovcomponentbase.h"

#include <cstdint>

class TovComponentImp : public TovComponentBase
{
public:
    explicit TovComponentImp(unsigned char typeId);

protected:
    // Register one parameter over a variable that holds its initial value. Constructors only.
    TovStatus AddIntParam(char const *key, std::int64_t *variable, std::int64_t defaultValue, std::int64_t minimum,
                          std::int64_t maximum);
    TovStatus AddFloatParam(char const *key, double *variable, double defaultValue, double minimum, double maximum);
    TovStatus AddBoolParam(char const *key, bool *variable, bool defaultValue);
    TovStatus AddStringParam(char const *key, char *buffer, std::uint32_t capacity, char const *defaultValue);
    TovStatus AddArrayParam(char const *key, void *block, std::uint64_t size, void const *defaultValue);
    TovStatus AddCommand(char const *key, unsigned int (*function)(void *), void *context);

private:
    TovStatus AddNotifying(_TovStParam param);
};
