// Which of the main window's actions may be used in which state of the session. GUI thread only.
#pragma once

#include "panelhost.h"
#include "sessionstate.h"

class QMenuBar;

class ActionStates
{
public:
    static PanelHost::GuiState const s_table[42];

    // Enables and disables the actions of all menus, and with them their buttons. The first call also fills
    // PanelHost::s_stateMap. An action without a row stays as it is.
    static void Apply(QMenuBar const *menus, SessionState state);
};
