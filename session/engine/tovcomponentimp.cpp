#include "tovcomponentimp.h"

#include "paramchanged.h"

TovComponentImp::TovComponentImp(unsigned char typeId) : TovComponentBase(typeId)
{
}

TovStatus TovComponentImp::AddNotifying(_TovStParam param)
{
    param.onChange = &ComponentParamChanged;
    return AddParam(param);
}

TovStatus TovComponentImp::AddIntParam(char const *key, std::int64_t *variable, std::int64_t defaultValue,
                                       std::int64_t minimum, std::int64_t maximum)
{
    return AddNotifying(TovIntParam(key, variable, defaultValue, minimum, maximum));
}

TovStatus TovComponentImp::AddFloatParam(char const *key, double *variable, double defaultValue, double minimum,
                                         double maximum)
{
    return AddNotifying(TovFloatParam(key, variable, defaultValue, minimum, maximum));
}

TovStatus TovComponentImp::AddBoolParam(char const *key, bool *variable, bool defaultValue)
{
    return AddNotifying(TovBoolParam(key, variable, defaultValue));
}

TovStatus TovComponentImp::AddStringParam(char const *key, char *buffer, std::uint32_t capacity,
                                          char const *defaultValue)
{
    return AddNotifying(TovStringParam(key, buffer, capacity, defaultValue));
}

TovStatus TovComponentImp::AddArrayParam(char const *key, void *block, std::uint64_t size, void const *defaultValue)
{
    return AddNotifying(TovArrayParam(key, block, size, defaultValue));
}

TovStatus TovComponentImp::AddCommand(char const *key, unsigned int (*function)(void *), void *context)
{
    return AddNotifying(TovCommandParam(key, function, context));
}
