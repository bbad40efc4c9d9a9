// The camera's feature tree in a dock, with its view state kept by kind of camera. GUI thread only.
#pragma once

#include "playerpanel.h"
#include "ui_cameragenparampanel.h"

#include "tovcameragui.h"

class CamGenParamPanelImpl : public PlayerPanel, private Ui::CameraGenParamPanel
{
    Q_OBJECT
public:
    explicit CamGenParamPanelImpl(QMainWindow *window);

    TovGui::Visibility visibility() const;
    void setVisibility(TovGui::Visibility level);

    // The session is not null, and outlives the panel.
    void SetCurrentSession(Session *session) override;
    bool SaveStateToSessionSettings(QSettings *settings, QString const &name) override;
    bool LoadStateFromSessionSettings(QSettings *settings, QString const &name) override;

private:
    TovGui::TovGenParamTreeView *m_tree;
};
