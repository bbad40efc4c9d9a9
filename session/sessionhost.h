// What a session asks of the window it lives in. The main window implements it. GUI thread only.
#pragma once

#include <QString>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class QMainWindow;
class QSettings;
class QWidget;
class Session;

// How an action waits for the open camera.
struct CameraWait
{
    QString what;                                   // it does, for the operator; empty where nothing is to be shown
    std::shared_ptr<std::atomic<bool>> givenUp;     // set from the moment it is given up to its end
    std::optional<std::chrono::milliseconds> limit; // at which it is given up; without one by the operator alone
};

class SessionHost
{
public:
    // Never null.
    virtual QSettings *GetSessionSettings(QString const &name) = 0;
    // Puts the live picture into the window; the widget stays the session's.
    virtual bool AddDisplayWidget(QWidget *widget) = 0;
    virtual bool RemoveDisplayWidget(QWidget *widget) = 0;
    // The pointer over the picture: r or b of -1 means a monochrome value in g.
    virtual void setCoordinatesAndValue(int x, int y, int r, int g, int b) = 0;
    virtual QMainWindow *GetMainWindow() = 0;
    // Runs the bandwidth test on that session, modally. The session may go meanwhile.
    virtual void RunBandwidthTest(Session *session) = 0;
    // Whether recordings leave files beside their frames.
    virtual bool WantsCompanions()
    {
        return true;
    }
    // Runs an action whose calls of the camera library go through WaitFor. The session may go in it.
    virtual void Wait(CameraWait const & /*wait*/, std::function<void()> const &action)
    {
        action();
    }

protected:
    ~SessionHost() = default;
};
