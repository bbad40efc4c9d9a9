#include "tovcomponentimp.h"

#include "paramchanged.h"

#include <cstring>

namespace {

// A constant of the parameter record; the storage does not look at it.
constexpr std::uint32_t ParamFlags = 3;

_TovStParam makeRecord(TovParamType type, char const *key)
{
    _TovStParam param;
    std::memset(&param, 0, sizeof param);
    param.type = type;
    param.flags = ParamFlags;
    std::strncpy(param.name, key, sizeof param.name - 1);
    param.onChange = &ComponentParamChanged;
    return param;
}

} // namespace

TovComponentImp::TovComponentImp(unsigned char typeId) : m_typeId(typeId)
{
}

unsigned char TovComponentImp::GetComponentTypeID()
{
    return m_typeId;
}

unsigned int TovComponentImp::GetParamCount()
{
    return m_storage.GetParamCount();
}

TovStatus TovComponentImp::GetParamName(unsigned int index, char *name, unsigned int *length)
{
    _TovStParam param;
    if (TovStatus const status = m_storage.GetParamByIdx(index, &param); !TovSucceeded(status))
        return status;
    unsigned int const needed = static_cast<unsigned int>(std::strlen(param.name)) + 1;
    if (needed > *length) {
        *length = needed;
        return (TovStatus{GetComponentTypeID()} << 16) | TOV_PARAM_ERR_BUFFER;
    }
    std::strncpy(name, param.name, *length);
    return TOV_PARAM_OK;
}

TovStatus TovComponentImp::GetParamAsString(char const *key, char *buffer, unsigned int *length, char const *format)
{
    return m_storage.GetParamAsString(key, buffer, length, format);
}

TovStatus TovComponentImp::SetParamAsString(char const *key, char const *value)
{
    return m_storage.SetParamAsString(key, value, true);
}

TovStatus TovComponentImp::SetParamBool(char const *key, bool value)
{
    return m_storage.SetParamBool(key, value, true);
}

TovStatus TovComponentImp::SetParamInt(char const *key, long value)
{
    return m_storage.SetParamInt(key, value, true);
}

TovStatus TovComponentImp::SetParamFloat(char const *key, double value)
{
    return m_storage.SetParamFloat(key, value, true);
}

TovStatus TovComponentImp::SetParamString(char const *key, char const *value)
{
    return m_storage.SetParamString(key, value, true);
}

TovStatus TovComponentImp::SetParamArray(char const *key, void const *data, unsigned int size)
{
    return m_storage.SetParamArray(key, data, size, true);
}

TovStatus TovComponentImp::GetParamBool(char const *key, bool *value)
{
    return m_storage.GetParamBool(key, value);
}

TovStatus TovComponentImp::GetParamInt(char const *key, long *value)
{
    return m_storage.GetParamInt(key, value);
}

TovStatus TovComponentImp::GetParamFloat(char const *key, double *value)
{
    return m_storage.GetParamFloat(key, value);
}

TovStatus TovComponentImp::GetParamString(char const *key, char *buffer, unsigned int *length)
{
    return m_storage.GetParamString(key, buffer, length);
}

TovStatus TovComponentImp::GetParamArray(char const *key, void *data, unsigned int *size)
{
    return m_storage.GetParamArray(key, data, size);
}

TovStatus TovComponentImp::RunCommand(char const *key)
{
    return m_storage.RunCommand(key);
}

TovStatus TovComponentImp::AddIntParam(char const *key, std::int64_t *variable, std::int64_t defaultValue,
                                       std::int64_t minimum, std::int64_t maximum)
{
    _TovStParam param = makeRecord(TOV_PARAM_INT, key);
    param.i = {defaultValue, minimum, maximum, 0, variable};
    return m_storage.AddParam(&param);
}

TovStatus TovComponentImp::AddFloatParam(char const *key, double *variable, double defaultValue, double minimum,
                                         double maximum)
{
    _TovStParam param = makeRecord(TOV_PARAM_FLOAT, key);
    param.f = {defaultValue, minimum, maximum, 0, variable};
    return m_storage.AddParam(&param);
}

TovStatus TovComponentImp::AddBoolParam(char const *key, bool *variable, bool defaultValue)
{
    _TovStParam param = makeRecord(TOV_PARAM_BOOL, key);
    param.b = {0, defaultValue, variable};
    return m_storage.AddParam(&param);
}

TovStatus TovComponentImp::AddStringParam(char const *key, char *buffer, std::uint32_t capacity,
                                          char const *defaultValue)
{
    _TovStParam param = makeRecord(TOV_PARAM_STRING, key);
    param.s = {defaultValue, buffer, capacity};
    return m_storage.AddParam(&param);
}

TovStatus TovComponentImp::AddArrayParam(char const *key, void *block, std::uint64_t size, void const *defaultValue)
{
    _TovStParam param = makeRecord(TOV_PARAM_ARRAY, key);
    param.a = {{0, 0}, defaultValue, size, block, size};
    return m_storage.AddParam(&param);
}

TovStatus TovComponentImp::AddCommand(char const *key, unsigned int (*function)(void *), void *context)
{
    _TovStParam param = makeRecord(TOV_PARAM_COMMAND, key);
    param.c = {function, context};
    return m_storage.AddParam(&param);
}
