// Looks, once a camera has been opened, whether this computer is fit for its frames, and tells the operator only if it
// is not: by a notice, whose details are in a window beside the main one. Nothing waits for it, and nothing is asked.
//
// What was told of a camera is not told again in this run of the program unless there is something else to tell, and
// never again of cameras that the operator has named ("Camera/QuietHostCheck" in the settings).
//
// GUI thread; features and host are read on a thread of its own, which the end waits for.
#pragma once

#include "tovdoctor.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <map>
#include <memory>
#include <thread>
#include <vector>

class HostFindingsDialog;
class ManagedWindow;
class Session;

class HostCheckup : public QObject
{
    Q_OBJECT
public:
    HostCheckup(ManagedWindow *window, QObject *parent); // the window outlives it
    ~HostCheckup() override;

    // The session's camera is open, and remains the library's while this lives. Simulated cameras need nothing of the
    // host, and an evaluation plug-in is not told anything.
    void Examine(Session *session);
    // Withdraws what was told; the window with the details stays.
    void SessionClosed();
    void ShowDetails();

signals:
    // The camera that was opened last has been looked at, or was to be left alone; what there is to tell has been.
    void examined();

private:
    struct Patient // the camera
    {
        TovCam::DeviceInfo *info = nullptr;
        TovCam::ParamArray *nodes = nullptr; // as long as `hold` is there
        std::shared_ptr<void> hold;
        QString name, key; // for the operator; in the settings
    };

    void Begin(Patient const &patient);
    void Done(int number, std::vector<TovCam::HostFinding> findings);
    void Tell();
    void Withdraw();
    bool IsQuiet(QString const &key) const;
    void SetQuiet(QString const &key, bool quiet);

    ManagedWindow *m_window;
    int m_number = 0;     // of the last examination
    Patient m_patient;    // of that
    bool m_waits = false; // for the end of the one before
    bool m_runs = false;
    std::thread m_thread;
    std::vector<TovCam::HostFinding> m_findings;
    bool m_told = false;
    std::map<QString, QStringList> m_known; // by camera: what was found last
    QPointer<HostFindingsDialog> m_dialog;
};
