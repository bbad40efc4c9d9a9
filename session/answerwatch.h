// Tells the operator while the camera does not answer, by a line on the board that counts the seconds. Its loss, which
// ends the session, is known only later. GUI thread.
#pragma once

#include <QBasicTimer>
#include <QObject>
#include <QString>

namespace TovCam {
class Device;
}

class AnswerWatch : public QObject
{
    Q_OBJECT
public:
    // The device outlives it. `camera`: its name. The line goes with the object, too.
    AnswerWatch(TovCam::Device *device, QString camera);
    ~AnswerWatch() override;

protected:
    void timerEvent(QTimerEvent *event) override;

private:
    TovCam::Device *const m_device;
    QString const m_camera;
    QBasicTimer m_timer;
};
