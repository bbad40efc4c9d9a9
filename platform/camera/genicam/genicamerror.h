// Errors of Aravis as statuses of this library.
#pragma once

#include "tovcamera.h"

#include <arv.h>

// Of a GError from ArvGc or from register access; 0 for null.
std::int32_t StatusFromError(GError const *error);

// Where one call of Aravis puts its GError, which is freed with the slot.
class ErrorSlot
{
public:
    ErrorSlot() = default;
    ErrorSlot(ErrorSlot const &) = delete;
    ErrorSlot &operator=(ErrorSlot const &) = delete;
    ~ErrorSlot()
    {
        g_clear_error(&m_error);
    }
    operator GError **()
    {
        return &m_error;
    }
    std::int32_t Status() const
    {
        return StatusFromError(m_error);
    }

private:
    GError *m_error = nullptr;
};
