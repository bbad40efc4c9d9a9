// A component over one storage.
#pragma once

#include "tovmisc.h"

#include <cstdint>

class TovComponentImp : public TovComponent
{
public:
    explicit TovComponentImp(unsigned char typeId);

    unsigned char GetComponentTypeID() override;
    unsigned int GetParamCount() override;
    TovStatus GetParamName(unsigned int index, char *name, unsigned int *length) override;
    TovStatus GetParamAsString(char const *key, char *buffer, unsigned int *length, char const *format) override;
    TovStatus SetParamAsString(char const *key, char const *value) override;
    TovStatus SetParamBool(char const *key, bool value) override;
    TovStatus SetParamInt(char const *key, long value) override;
    TovStatus SetParamFloat(char const *key, double value) override;
    TovStatus SetParamString(char const *key, char const *value) override;
    TovStatus SetParamArray(char const *key, void const *data, unsigned int size) override;
    TovStatus GetParamBool(char const *key, bool *value) override;
    TovStatus GetParamInt(char const *key, long *value) override;
    TovStatus GetParamFloat(char const *key, double *value) override;
    TovStatus GetParamString(char const *key, char *buffer, unsigned int *length) override;
    TovStatus GetParamArray(char const *key, void *data, unsigned int *size) override;
    TovStatus RunCommand(char const *key) override;

protected:
    // Register one parameter over a variable that holds its initial value. Constructors only.
    TovStatus AddIntParam(char const *key, std::int64_t *variable, std::int64_t defaultValue, std::int64_t minimum,
                          std::int64_t maximum);
    TovStatus AddFloatParam(char const *key, double *variable, double defaultValue, double minimum, double maximum);
    TovStatus AddBoolParam(char const *key, bool *variable, bool defaultValue);
    TovStatus AddStringParam(char const *key, char *buffer, std::uint32_t capacity, char const *defaultValue);
    TovStatus AddArrayParam(char const *key, void *block, std::uint64_t size, void const *defaultValue);
    TovStatus AddCommand(char const *key, unsigned int (*function)(void *), void *context);

    TovParamStorage m_storage{0};

private:
    unsigned char m_typeId;
};
