// What components share: the records that describe their parameters to a storage, and a component that forwards every
// access to the storage it holds. All of it is inline, for the application and the platform's libraries alike.
#pragma once

#include "tovmisc.h"

#include <cstdint>
#include <cstring>

// ---- Records for TovParamStorage::AddParam, each over a variable that holds its initial value. They notify nobody
// until onChange is set. A key is cut to what a record holds.

inline _TovStParam TovMakeParam(TovParamType type, char const *key)
{
    _TovStParam param;
    std::memset(&param, 0, sizeof param);
    param.type = type;
    param.flags = 3; // a constant of every record; the storage does not look at it
    std::strncpy(param.name, key, sizeof param.name - 1);
    return param;
}

inline _TovStParam TovIntParam(char const *key, std::int64_t *variable, std::int64_t defaultValue, std::int64_t minimum,
                               std::int64_t maximum)
{
    _TovStParam param = TovMakeParam(TOV_PARAM_INT, key);
    param.i = {defaultValue, minimum, maximum, 0, variable};
    return param;
}

inline _TovStParam TovFloatParam(char const *key, double *variable, double defaultValue, double minimum, double maximum)
{
    _TovStParam param = TovMakeParam(TOV_PARAM_FLOAT, key);
    param.f = {defaultValue, minimum, maximum, 0, variable};
    return param;
}

inline _TovStParam TovBoolParam(char const *key, bool *variable, bool defaultValue)
{
    _TovStParam param = TovMakeParam(TOV_PARAM_BOOL, key);
    param.b = {0, defaultValue, variable};
    return param;
}

// `capacity` is the buffer's bytes, the terminator included; `defaultValue` outlives the storage.
inline _TovStParam TovStringParam(char const *key, char *buffer, std::uint32_t capacity, char const *defaultValue)
{
    _TovStParam param = TovMakeParam(TOV_PARAM_STRING, key);
    param.s = {defaultValue, buffer, capacity};
    return param;
}

// `size` is that of the block and of its default, which outlives the storage.
inline _TovStParam TovArrayParam(char const *key, void *block, std::uint64_t size, void const *defaultValue)
{
    _TovStParam param = TovMakeParam(TOV_PARAM_ARRAY, key);
    param.a = {{0, 0}, defaultValue, size, block, size};
    return param;
}

inline _TovStParam TovCommandParam(char const *key, unsigned int (*function)(void *), void *context)
{
    _TovStParam param = TovMakeParam(TOV_PARAM_COMMAND, key);
    param.c = {function, context};
    return param;
}

// A component over a storage of its own. Threads as in tovmisc.h.
class TovComponentBase : public TovComponent
{
public:
    explicit TovComponentBase(unsigned char typeId) : m_typeId(typeId)
    {
    }

    unsigned char GetComponentTypeID() override
    {
        return m_typeId;
    }
    unsigned int GetParamCount() override
    {
        return m_storage.GetParamCount();
    }
    TovStatus GetParamName(unsigned int index, char *name, unsigned int *length) override
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
    TovStatus GetParamAsString(char const *key, char *buffer, unsigned int *length, char const *format) override
    {
        return m_storage.GetParamAsString(key, buffer, length, format);
    }
    TovStatus SetParamAsString(char const *key, char const *value) override
    {
        return m_storage.SetParamAsString(key, value, true);
    }
    TovStatus SetParamBool(char const *key, bool value) override
    {
        return m_storage.SetParamBool(key, value, true);
    }
    TovStatus SetParamInt(char const *key, long value) override
    {
        return m_storage.SetParamInt(key, value, true);
    }
    TovStatus SetParamFloat(char const *key, double value) override
    {
        return m_storage.SetParamFloat(key, value, true);
    }
    TovStatus SetParamString(char const *key, char const *value) override
    {
        return m_storage.SetParamString(key, value, true);
    }
    TovStatus SetParamArray(char const *key, void const *data, unsigned int size) override
    {
        return m_storage.SetParamArray(key, data, size, true);
    }
    TovStatus GetParamBool(char const *key, bool *value) override
    {
        return m_storage.GetParamBool(key, value);
    }
    TovStatus GetParamInt(char const *key, long *value) override
    {
        return m_storage.GetParamInt(key, value);
    }
    TovStatus GetParamFloat(char const *key, double *value) override
    {
        return m_storage.GetParamFloat(key, value);
    }
    TovStatus GetParamString(char const *key, char *buffer, unsigned int *length) override
    {
        return m_storage.GetParamString(key, buffer, length);
    }
    TovStatus GetParamArray(char const *key, void *data, unsigned int *size) override
    {
        return m_storage.GetParamArray(key, data, size);
    }
    TovStatus RunCommand(char const *key) override
    {
        return m_storage.RunCommand(key);
    }

protected:
    // Constructors only.
    TovStatus AddParam(_TovStParam const &param)
    {
        return m_storage.AddParam(&param);
    }

    TovParamStorage m_storage{0};

private:
    unsigned char m_typeId;
};
