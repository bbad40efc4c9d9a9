// An action of the operator that talks to the open camera: it is waited for while the window stays alive, and can be
// given up. The camera library learns of that by the flag; what the action does then is its own. GUI thread only.
#pragma once

#include "sessionhost.h"
#include "waitingaction.h"
#include "waitingdialog.h"

#include <QCoreApplication>

class CameraAction
{
    Q_DECLARE_TR_FUNCTIONS(CameraAction)
public:
    CameraAction(QWidget *window, CameraWait const &wait);
    ~CameraAction();
    CameraAction(CameraAction const &) = delete;
    CameraAction &operator=(CameraAction const &) = delete;

private:
    CameraWait const m_wait; // the session and the camera may be gone at the end
    WaitingDialog m_dialog;
    WaitingAction m_action;
};
