// Keeps the camera library's system.
#pragma once

#include "tovcamera.h"

namespace TovGui {

// A counted reference to the camera library's system, which stays while a job uses it.
class SystemReference
{
public:
    SystemReference();
    ~SystemReference();
    SystemReference(SystemReference const &) = delete;
    SystemReference &operator=(SystemReference const &) = delete;
    TovCam::System *Get() const
    {
        return m_system;
    }

private:
    TovCam::System *m_system;
};

} // namespace TovGui
