// What the GUI manager asks of the main window beyond what a session does. The main window implements it. GUI thread
// only.
#pragma once

#include "sessionhost.h"

class RigTestPlugin;

class ManagedWindow : public SessionHost
{
public:
    virtual QSettings *GetGlobalSettings() = 0; // never null
    virtual RigTestPlugin *GetRigTest() = 0;    // null in normal use
    virtual void ForgetRigTest() = 0;
    // No pixel is under the pointer any more.
    virtual void clearCoordinatesAndValue()
    {
    }

protected:
    ~ManagedWindow() = default;
};
