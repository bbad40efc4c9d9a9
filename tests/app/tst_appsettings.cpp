#include "appsettings.h"
#include "tovcomponentimp.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QStandardPaths>

#include <cstring>

namespace {

class Probe : public TovComponentImp
{
public:
    Probe() : TovComponentImp(9)
    {
        _TovStParam param{};
        auto const add = [&](std::uint32_t type, char const *name) {
            param.type = type;
            param.flags = 3;
            std::strcpy(param.name, name);
            m_storage.AddParam(&param);
        };
        param.i = {5, 0, 100, 0, &count};
        add(TOV_PARAM_INT, "Count");
        param.f = {30.0, 0.0, 120.0, 0, &rate};
        add(TOV_PARAM_FLOAT, "Rate");
        param.s = {"none", text, sizeof text};
        add(TOV_PARAM_STRING, "Text");
    }
    std::int64_t count = 5;
    double rate = 30.0;
    char text[4096] = "none";
};

class Settings : public testing::Test
{
protected:
    Settings()
    {
        QDir(m_folder).removeRecursively();
        QDir().mkpath(m_folder);
    }
    // Saves or loads in a run of its own.
    void Run(void (*what)(QSettings *, QString const &, TovComponent *), QString const &camera, Probe &probe)
    {
        AppSettings settings;
        QSettings *const session = settings.GetSessionSettings(camera);
        EXPECT_EQ(settings.GetSessionSettings(camera), session);
        what(session, QStringLiteral("Grabber"), nullptr);
        what(session, QStringLiteral("Grabber"), &probe);
        EXPECT_EQ(session->group(), QString());
    }
    QString const m_folder =
        QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/Velmor");
};

TEST_F(Settings, KeepAComponentFromOneRunToTheNext)
{
    // A name that must not lead out of the folder, and the longest text that is kept.
    QString const camera = QStringLiteral("Session_../../../Bench 2, left_AreaCam \u00b5");
    for (std::size_t length : {1023u, 1024u}) {
        Probe saved;
        saved.count = 42;
        saved.rate = 1.0 / 3;
        std::memset(saved.text, 't', length);
        std::memcpy(saved.text, "a; b=\"c\",\\ \xc3\xa4 %d [x]\n", 21);
        QDir(m_folder).removeRecursively();
        Run(AppSettings::SaveTovComponentSettings, camera, saved);
        EXPECT_EQ(QDir(m_folder).entryList(QDir::Files).size(), 1);
        Probe loaded;
        Run(AppSettings::LoadTovComponentSettings, camera, loaded);
        EXPECT_EQ(loaded.count, 42);
        EXPECT_EQ(loaded.rate, 1.0 / 3);
        EXPECT_STREQ(loaded.text, length < 1024 ? saved.text : "none");
    }
}

TEST_F(Settings, WhatIsBrokenMissingOrRefusedLeavesTheParameterAsItWas)
{
    for (QByteArray const &content :
         {QByteArray("\x00\xff[[[[\nCount=\n[Grabber\n@Invalid(\\x", 33), QByteArray("[Grabber]\nCount=\nRate=\n"),
          QByteArray("[Grabber]\nCount=x\nRate=x\nNotThere=1\n"), QByteArray("[Grabber]\nCount=nan\nRate=nan\n"),
          QByteArray("[Grabber]\nCount=\xff\nRate=1e999x\n"), "[Grabber]\nText=" + QByteArray(5000, 't')}) {
        QFile file(m_folder + QStringLiteral("/Session.conf"));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
        file.close();
        Probe probe;
        Run(AppSettings::LoadTovComponentSettings, QStringLiteral("Session"), probe);
        EXPECT_EQ(probe.count, 5) << content.constData();
        EXPECT_EQ(probe.rate, 30.0) << content.constData();
        EXPECT_STREQ(probe.text, "none");
    }
}

} // namespace
