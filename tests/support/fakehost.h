// A window for a session, and an evaluation plug-in. What they are called for are steps of a camera's script.
#pragma once

#include "fakecamera.h"
#include "rigtestplugin.h"
#include "sessionhost.h"

#include <QMainWindow>
#include <QSettings>
#include <QTemporaryDir>

#include <optional>

class FakeHost : public SessionHost
{
public:
    explicit FakeHost(FakeScript &script) : m_script(script)
    {
    }
    QSettings *GetSessionSettings(QString const &name) override
    {
        m_settings.emplace(m_folder.filePath(name + QStringLiteral(".ini")), QSettings::IniFormat);
        return &*m_settings;
    }
    bool AddDisplayWidget(QWidget *widget) override
    {
        widget->setParent(&window);
        return m_script.Run("AddDisplayWidget") == 0;
    }
    FAKE_GIVES(bool RemoveDisplayWidget(QWidget *), m_script.Run("RemoveDisplayWidget") == 0);
    FAKE_GIVES(void setCoordinatesAndValue(int, int, int, int, int), void());
    FAKE_GIVES(QMainWindow *GetMainWindow(), &window);
    FAKE_GIVES(void RunBandwidthTest(Session *), void());
    FAKE_GIVES(bool WantsCompanions(), companions);

    QMainWindow window;
    bool companions = true;

private:
    FakeScript &m_script;
    QTemporaryDir m_folder;
    std::optional<QSettings> m_settings;
};

// The loaded one while it lives.
class FakePlugin : public RigTestPlugin
{
public:
    explicit FakePlugin(FakeScript &script) : m_script(script)
    {
        RigTestSlot() = this;
    }
    ~FakePlugin() override
    {
        RigTestSlot() = nullptr;
    }
    FAKE_GIVES(void ShowPanel(QMainWindow *, int, int), void());
    FAKE_GIVES(void Detach(QMainWindow *), void());
    FAKE_GIVES(bool Attach(QMainWindow *, TovCam::Device *), true);
    FAKE_GIVES(void ProcessBuffer(TovCam::Buffer *), void());
    FAKE_GIVES(bool NeedNextFrame(bool *), false);
    FAKE_GIVES(void Reserved1(), void());
    FAKE_GIVES(void Reserved2(), void());
    FAKE_GIVES(void OnStartCapturing(), void(m_script.Run("OnStartCapturing")));
    FAKE_GIVES(void OnStop(), void(m_script.Run("OnStop")));
    FAKE_GIVES(void PrepareToAcquition(), void(m_script.Run("PrepareToAcquition")));
    FAKE_GIVES(void RunAutoEvaluation(), void());
    FAKE_GIVES(void SetComponents(TovComponent *, TovComponent *, TovComponent *), void());

private:
    FakeScript &m_script;
};
