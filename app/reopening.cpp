// The GUI manager's part in opening a lost camera again.
#include "guimanager.h"
#include "opening.h"
#include "reconnect.h"

#include "tovcamera.h"

#include <QMainWindow>

void GuiManager::BuildReconnect()
{
    m_reconnect = std::make_unique<Reconnect>(m_window);
    connect(m_reconnect.get(), &Reconnect::changed, this, &GuiManager::updateGui);
    connect(m_reconnect.get(), &Reconnect::back, this, &GuiManager::Reopen);
}

// As Open, but without messages: where it fails, the camera is waited for again.
void GuiManager::Reopen(TovCam::DeviceInfo *camera)
{
    constexpr std::uint32_t FullAccess = 2;
    Opening opening(MainWindow(), [this] { return tr("Opening %1 again").arg(m_reconnect->GetName()); });
    opening.Follow(camera);
    TovCam::Device *const device = WaitFor([camera] { return TovCam_CreateDevice(camera, FullAccess, nullptr); });
    bool const isOpen = device && m_reconnect->PutSettings(device) && !opening.IsCancelled() && CreateSession(device);
    if (isOpen)
        CreatePanels();
    else if (device)
        WaitFor([device] { device->Release(); }, IfGivenUp::CallAllTheSame);
    bool const isGivenUp = opening.IsCancelled();
    if (isOpen && (isGivenUp || opening.IsOverdue()))
        cameraDisconnect();
    if (isGivenUp)
        m_reconnect->GivenUp();
    else if (m_session)
        m_reconnect->Opened(m_session);
    else
        m_reconnect->Failed();
}
