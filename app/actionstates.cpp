#include "actionstates.h"

#include <QAction>
#include <QMenu>
#include <QMenuBar>

// Disconnected, Idle, Acquisition, Capturing. "actionHexDump" is the row of an action that this window lacks;
// "actionSettings" has no row and stays as the form sets it.
PanelHost::GuiState const ActionStates::s_table[42] = {
    {"actionLoadConfiguration", {true, true, false, false}},
    {"actionSaveConfiguration", {false, true, true, true}},
    {"actionSaveConfigurationAs", {false, true, true, true}},
    {"actionSaveGenICamXML", {false, true, true, true}},
    {"actionExit", {true, true, true, true}},
    {"actionConnect", {true, true, true, true}},
    {"actionDisconnect", {false, true, true, true}},
    {"actionCameraInformation", {false, true, true, true}},
    {"actionPlay", {false, true, false, false}},
    {"actionTestBandwidth", {false, true, false, false}},
    {"actionStop", {false, false, true, true}},
    {"actionRecord", {false, false, true, true}},
    {"actionSnap", {false, false, true, false}},
    {"actionGenICamTree", {false, true, true, true}},
    {"actionCamConfig_BasicView", {false, true, true, true}},
    {"actionCamConfig_ExpertView", {false, true, true, true}},
    {"actionLog", {false, true, true, true}},
    {"actionCapture", {false, true, true, true}},
    {"actionStatistics", {false, true, true, true}},
    {"actionHexDump", {false, true, true, true}},
    {"actionInspectionView", {false, true, true, true}},
    {"actionHistogramPanel", {false, true, true, true}},
    {"actionColorizeHistogram", {false, true, true, true}},
    {"actionStretchHistogram", {false, true, true, true}},
    {"actionImageProcessing", {true, true, true, true}},
    {"actionDefaultPanelsLayout", {true, true, true, true}},
    {"actionBrowseRecordingFolder", {true, true, true, true}},
    {"actionOpenLastRecordedFile", {false, true, true, true}},
    {"actionBuffer", {true, true, true, false}},
    {"actionTextOverlay", {true, true, true, false}},
    {"actionDisplayOptions", {true, true, true, false}},
    {"actionCaptureOptions", {true, true, true, false}},
    {"actionApplicationOptions", {true, true, true, false}},
    {"actionZoomIn", {false, true, true, true}},
    {"actionZoomOut", {false, true, true, true}},
    {"actionActualSize", {false, true, true, true}},
    {"actionFitToWindow", {false, true, true, true}},
    {"actionSpreadToWindow", {false, true, true, true}},
    {"actionFullScreen", {false, true, true, true}},
    {"actionCenterImage", {false, true, true, true}},
    {"actionHelp", {true, true, true, true}},
    {"actionAbout", {true, true, true, false}},
};

void ActionStates::Apply(QMenuBar const *menus, SessionState state)
{
    if (PanelHost::s_stateMap.isEmpty()) {
        for (PanelHost::GuiState const &row : s_table)
            PanelHost::s_stateMap.insert(QString::fromLatin1(row.objectName), row);
    }
    auto const all = menus->findChildren<QMenu *>();
    for (QMenu const *menu : all) {
        auto const actions = menu->actions();
        for (QAction *action : actions) {
            QString const name = action->objectName();
            if (!PanelHost::s_stateMap.contains(name))
                continue;
            action->setEnabled(PanelHost::IsActionEnabled(name, state));
            // Has no effect: the action is not checkable.
            if (name == QLatin1String("actionRecord"))
                action->setChecked(state == SessionStateCapturing);
        }
    }
}
