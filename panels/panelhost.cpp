#include "panelhost.h"

QMap<QString, PanelHost::GuiState> PanelHost::s_stateMap;

bool PanelHost::IsActionEnabled(QString const &action, SessionState state)
{
    auto const row = s_stateMap.constFind(action);
    return row != s_stateMap.constEnd() && state >= SessionStateDisconnected && state <= SessionStateCapturing &&
           row->enabled[state];
}
