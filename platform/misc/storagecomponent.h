// A component over a storage that its owner holds, for platform libraries that expose their values by key.
#pragma once

#include "tovmisc.h"

#include <cstring>

class StorageComponent : public TovComponent
{
public:
    // The storage outlives the component.
    StorageComponent(unsigned char typeId, TovParamStorage &storage) : m_storage(storage), m_typeId(typeId)
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
            return (TovStatus(m_typeId) << 16) | TOV_PARAM_ERR_BUFFER;
        }
        std::memcpy(name, param.name, needed);
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

private:
    TovParamStorage &m_storage;
    unsigned char m_typeId;
};
