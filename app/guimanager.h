// Between the main window's actions and the session: opens and closes cameras, turns session errors into message boxes,
// and keeps the enabled state of the actions and the window title up to date. Lives for the whole run. GUI thread only;
// the camera library's report of a lost camera arrives here as a queued call.
#pragma once

#include "panelhost.h"
#include "panelset.h"

#include <QObject>
#include <QPoint>
#include <QString>

#include <memory>
#include <optional>

class DisplayView;
class HostCheckup;
class ManagedWindow;
class Opening;
class QMainWindow;
class Reconnect;
class Session;
namespace TovCam {
class Device;
class DeviceInfo;
class System;
} // namespace TovCam

class GuiManager : public QObject, public PanelHost
{
    Q_OBJECT
public:
    static GuiState const (&s_stateMapInit)[42]; // the table of action states; the first updateGui fills s_stateMap

    explicit GuiManager(ManagedWindow *window);
    ~GuiManager() override;

    // Opens a camera that was found, as the operator who chooses it does: waits for it, and shows how far that is.
    void Open(TovCam::DeviceInfo *camera);
    // Builds the session around an opened camera, after the one in use was closed. False, with a message shown, when
    // that fails: the device is then the caller's to release, and a session in use stays if the camera was unreadable.
    bool CreateSession(TovCam::Device *device);
    // The panels around the current session; they go before it does.
    bool CreatePanels();
    void ClosePanels();
    // For the main window, which has been closed and is about to hide: stores everything first, because the camera may
    // not answer, then ends a recording and the session. Messages go to the log alone.
    void Close();
    // The part of it that stores.
    void KeepSettings();
    // Opens the first camera there is and lets the plug-in drive the program.
    void ConnectAndRunAutoEvaluation();
    // The current session, null when no camera is open.
    Session *GetSession() const override;
    bool WantsFurtherFormats() const override;
    // Modal; a nonzero code is appended to the text.
    void DisplayError(QString const &text, unsigned int code);

public slots:
    void cameraConnect();
    void cameraDisconnect();
    // Loads a file into the open camera, or else opens the camera that the file names.
    void loadConfiguration();
    void saveConfiguration(); // asks for a file only if none was loaded or saved before
    void saveConfigurationAs();
    void startAcquisition();
    void startTestBandwidth(); // asks first
    void stopAcquisitionAndCapture();
    void startStopCapture() override;
    void snapNextImage() override;
    void captureOptionsDlg() override;
    void zoomIn();
    void zoomOut();
    void zoom100();
    void zoomFitToWnd();
    void zoomSpreadToWnd();
    void centerImage();
    // Hides the panel of the sending action if it can be seen, and otherwise shows it in front of what covers it.
    void viewPlayerPanel();
    // Opens an inspection view of that pixel at that point of the screen, or brings the open one there.
    void inspect(QPoint position, QPoint pixel);
    // Shows or hides the inspection view; opens it at the pointer, or else in the middle of the picture.
    void viewInspection();
    void showBasicParameters();
    void showExpertParameters();
    void showCameraInfoDlg();
    void showAboutDlg();
    void showHostFindings(); // modeless
    void updateGui();
    void sessionStateError(void *session, unsigned char err);
    void sessionCameraDisconnected(void *session, unsigned char reason);

private:
    bool TakeSystem();
    void LoadProducer();
    DisplayView *CurrentDisplay() const;
    QMainWindow *MainWindow() const;
    void ShowCritical(QString const &text);
    void OpenConfiguration(QString const &path);
    void Use(TovCam::Device *device, Opening const &opening);
    void BuildReconnect();
    void Reopen(TovCam::DeviceInfo *camera);
    void PostDeferred(void *session);
    QString ConfigurationPlace(QString const &fileName) const;
    bool AskConfigurationFile(QString const &title);

    ManagedWindow *m_window;
    Session *m_session = nullptr;                  // owned
    TovCam::System *m_system = nullptr;            // got on first use
    PanelSet m_panels;                             // of the session
    std::unique_ptr<Reconnect> m_reconnect;        // goes before the system
    std::unique_ptr<HostCheckup> m_hostCheckup;    // likewise
    QString m_configurationFile;                   // last loaded or saved
    int m_openStateErrors = 0;                     // error messages open inside an action of the state machine
    std::optional<unsigned char> m_deferredReason; // of a disconnection that waits for them, or for an action
    bool m_lossOnScreen = false;                   // the message about a lost camera is open
    bool m_closed = false;                         // the window: nobody is there to read a message
};
