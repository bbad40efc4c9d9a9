// A component over one storage.
#pragma once

#include "tovmisc.h"

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
    TovParamStorage m_storage;

private:
    unsigned char m_typeId;
};
