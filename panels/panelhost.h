// What a panel may ask of the GUI manager, which implements it. GUI thread only.
#pragma once

#include <QMap>
#include <QString>

class Session;

class PanelHost
{
public:
    // The enabled state of one action, by the session's state.
    struct GuiState
    {
        char objectName[255]; // zero-padded
        bool enabled[4];      // indexed by SessionState
    };
    // By the action's object name; filled before the first panel is made.
    static QMap<QString, GuiState> s_stateMap;

    virtual Session *GetSession() const = 0; // null when no camera is open

    // What the capture panel's buttons do.
    virtual void startStopCapture() = 0;
    virtual void snapNextImage() = 0;
    virtual void captureOptionsDlg() = 0;

protected:
    ~PanelHost() = default;
};
