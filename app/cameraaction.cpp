#include "cameraaction.h"

#include <QCoreApplication>

namespace {

WaitingDialog::Step StepOf()
{
    WaitingAction const *const action = WaitingAction::Current();
    if (!action || action->GetAwaited() == Awaited::Camera)
        return {QCoreApplication::translate("CameraAction", "Waiting for the camera's answer")};
    return {QCoreApplication::translate("CameraAction", "Waiting for the disk, which cannot be given up"), 0, 0, true};
}

} // namespace

CameraAction::CameraAction(QWidget *window, CameraWait const &wait)
    : m_wait(wait),
      m_dialog(
          window, wait.what.isEmpty() ? std::function<QString()>() : [what = wait.what] { return what; }, StepOf,
          std::nullopt),
      m_action(m_dialog, [givenUp = wait.givenUp] { *givenUp = true; }, wait.limit)
{
    if (wait.what.isEmpty())
        m_action.OutlastEventLoops();
}

CameraAction::~CameraAction()
{
    WaitingAction const *const whole = WaitingAction::Current();
    if (!whole || whole == &m_action || !whole->IsGivenUp())
        *m_wait.givenUp = false; // what was put off may ask the camera again
    m_action.End();
}
