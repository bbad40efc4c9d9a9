// What a panel may ask of the GUI manager, which implements it. GUI thread only.
#pragma once

#include "sessionstate.h"

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
    // Whether the map lets the action be used. False for an action that it does not know, and in a state beyond the
    // table: that of a session whose machine has not started yet.
    static bool IsActionEnabled(QString const &action, SessionState state);

    virtual Session *GetSession() const = 0; // null when no camera is open

    // What the capture panel's buttons do.
    virtual void startStopCapture() = 0;
    virtual void snapNextImage() = 0;
    virtual void captureOptionsDlg() = 0;
    // Whether the capture panel offers all formats, or the first one alone.
    virtual bool WantsFurtherFormats() const
    {
        return false;
    }

protected:
    ~PanelHost() = default;
};
