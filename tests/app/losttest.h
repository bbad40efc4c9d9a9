// A window that waits for lost cameras, and an operator who closes its messages or is not there.
#pragma once

#include "window.h"

#include "cameralookout.h"
#include "noticeboard.h"

#include "tovcamera.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <utility>

class LostTest : public WindowTest
{
protected:
    LostTest()
    {
        CameraLookout::s_period = std::chrono::milliseconds(10);
        SetChoice("Camera/Reconnect", true);
        NewWindow();
        QObject::connect(&m_operator, &QTimer::timeout, [this] { Act(); });
        m_operator.start(5);
    }
    ~LostTest() override
    {
        m_operator.stop();
        m_window.reset();
        m_system->Release();
    }
    static void SetChoice(char const *key, bool on)
    {
        QSettings(QStringLiteral("Velmor"), QStringLiteral("TovScope")).setValue(QString::fromLatin1(key), on);
    }
    static bool IsTold(QString const &text)
    {
        auto const notices = NoticeBoard::Instance().Notices();
        return std::any_of(notices.begin(), notices.end(),
                           [&](Notice const &notice) { return notice.text.startsWith(text); });
    }
    TovCam::ParamArray *Nodes()
    {
        return Current()->GetDevice()->GetCameraParameters(nullptr);
    }
    // As others look for it, so that the window has had the time to do so as well.
    void LookTwice(CameraLookout::Camera const &camera, bool isThere)
    {
        CameraLookout lookout;
        int looks = 0;
        QObject::connect(&lookout, &CameraLookout::looked,
                         [&](TovCam::DeviceInfo *info, bool free) { looks += isThere ? info && free : !info; });
        lookout.Begin(m_system, camera);
        EXPECT_TRUE(Eventually([&] { return looks >= 2; }));
    }

    TovCam::System *const m_system = TovCam_GetSystem();
    bool m_attended = false;
    std::string m_message;             // on the screen
    std::function<void()> m_meanwhile; // while it is there

private:
    void Act()
    {
        auto *const box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (std::exchange(m_box, box) != box)
            m_since = std::chrono::steady_clock::now();
        m_message = box ? box->text().toStdString() : "";
        if (box && m_meanwhile)
            std::exchange(m_meanwhile, {})();
        else if (box && m_attended)
            box->accept();
        else if (box && std::chrono::steady_clock::now() - m_since > Patience) { // it would stay for good
            ADD_FAILURE() << "nothing closes the message: " << m_message;
            box->accept();
        }
    }

    QTimer m_operator;
    QMessageBox *m_box = nullptr; // only compared
    std::chrono::steady_clock::time_point m_since;
};
