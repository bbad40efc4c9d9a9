#include "panelhost.h"

QMap<QString, PanelHost::GuiState> PanelHost::s_stateMap;
