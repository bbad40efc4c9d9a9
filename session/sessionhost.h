// What a session asks of the window it lives in. The main window implements it. GUI thread only.
#pragma once

class QMainWindow;
class QSettings;
class QString;
class QWidget;
class Session;

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

protected:
    ~SessionHost() = default;
};
