// What of this computer is unfit for a camera: what, why, and the line that mends it. Modeless; GUI thread only.
#pragma once

#include "tovdoctor.h"

#include <QDialog>
#include <QString>

#include <vector>

class HostFindingsDialog : public QDialog
{
    Q_OBJECT
public:
    // `camera`: its name. In the order of the findings.
    HostFindingsDialog(QWidget *parent, QString const &camera, std::vector<TovCam::HostFinding> const &findings);

signals:
    // Whether the operator wants to hear nothing more about that camera.
    void quietChosen(bool quiet);

private:
    QWidget *MakeFinding(TovCam::HostFinding const &finding);
};
