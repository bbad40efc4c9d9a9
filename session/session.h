// One connected camera and everything that lives as long as the connection. A state machine decides what start, record
// and stop mean in which order; a failing engine becomes a signal, never an exception out of the machine.
//
// Threads: the GUI thread, except for CameraDisconnectCallback, which comes on a thread of the camera library and only
// emits a signal.
#pragma once

#include "sessionstate.h"
#include "tovcomponentimp.h"

#include "tovcamera.h"

#include <QObject>
#include <QSettings>
#include <QStateMachine>
#include <QString>

class DisplayView;
class GrabbingFifo;
class SessionHost;

class Session : public QObject, public TovComponentImp, private TovParamListener
{
    Q_OBJECT
public:
    // Takes over the device once it has been built. Throws TovScopeException or std::exception when a component cannot
    // be built; the device is then still the caller's.
    Session(QObject *parent, TovCam::Device *device, SessionHost *window);
    ~Session() override;

    TovComponent *GetGrabber();
    TovComponent *GetDisplay();
    DisplayView *GetDisplayView();
    SessionState GetState() const; // all ones until the machine has entered Idle
    TovCam::Device *GetDevice() const;
    QSettings *GetSettings() const;
    QString const &GetSettingsName() const;
    QString const &GetTitle() const;

    // The callback for the lost connection; `user` is the session.
    static void CameraDisconnectCallback(void const *data, unsigned long size, void *user);

signals:
    void signalStartAcquisition();
    void signalStopAcquisition();
    void signalStartCapturing();
    void signalStopCapturing();
    void signalSessionClosed();
    void signalCameraStateDisconnected();
    void signalUpdateGui();
    void signalSessionStateError(void *session, unsigned char err);
    void signalCameraDisconnected(void *session, unsigned char reason);

public slots:
    void stopCapturing();
    void stopCapturingAndAcquisition();
    void enterIdle();
    void exitIdle();
    void enterAcquisition();
    void exitAcquisition();
    void enterCapturing();
    void exitCapturing();
    void enterDisconnected();
    void exitDisconnected();

private:
    void ParamChanged(_TovStParam param) override;

    // Further private members are the implementation's.
    SessionState m_state;
};
