#include "systemreference.h"

namespace TovGui {

SystemReference::SystemReference() : m_system(TovCam_GetSystem())
{
}

SystemReference::~SystemReference()
{
    if (m_system)
        m_system->Release();
}

} // namespace TovGui
