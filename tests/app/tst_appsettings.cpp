#include "../panels/values.h"
#include "appsettings.h"
#include "wait.h"

#include <QDir>
#include <QStandardPaths>

namespace {

class Settings : public testing::Test
{
protected:
    Settings()
    {
        QDir(m_folder).removeRecursively();
        QDir().mkpath(m_folder);
    }
    // Saves or loads in a run of its own.
    void Run(void (*what)(QSettings *, QString const &, TovComponent *), QString const &camera, Values &values)
    {
        AppSettings settings;
        QSettings *const session = settings.GetSessionSettings(camera);
        EXPECT_EQ(settings.GetSessionSettings(camera), session);
        what(session, QStringLiteral("Grabber"), nullptr);
        what(session, QStringLiteral("Grabber"), &values);
        EXPECT_EQ(session->group(), QString());
    }
    QString const m_folder =
        QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/Velmor");
};

TEST_F(Settings, KeepAComponentFromOneRunToTheNext)
{
    // A name that must not lead out of the folder, and is too long for a file.
    QString const camera = QStringLiteral("Session_../../../Bench 2, left_AreaCam \u00b5\n\u202E") + QString(300, u'x');
    std::string const text("a; b=\"c\",\\ \xc3\xa4 %d [x]\n" + std::string(220, 't'));
    Values saved, loaded;
    saved.SetParamInt("Count", 42);
    saved.SetParamFloat("Rate", 1.0 / 3);
    saved.SetParamString("Text", text.c_str());
    Run(AppSettings::SaveTovComponentSettings, camera, saved);
    EXPECT_EQ(QDir(m_folder).entryList(QDir::Files).size(), 1);
    Run(AppSettings::LoadTovComponentSettings, camera, loaded);
    EXPECT_EQ(loaded.Text("Count"), "42");
    EXPECT_EQ(FloatOf(&loaded, "Rate"), 1.0 / 3);
    EXPECT_EQ(loaded.Text("Text"), text);
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
        Values values;
        Run(AppSettings::LoadTovComponentSettings, QStringLiteral("Session"), values);
        EXPECT_EQ(values.Text("Count") + values.Text("Rate") + values.Text("Text"), "50.5start") << content.constData();
    }
}

// The thread that stores hears of later changes, too, and of those to several files at once.
TEST_F(Settings, EachChangeReachesItsFile)
{
    int argc = 1;
    char name[] = "tst_appsettings", *argv[] = {name, nullptr};
    QCoreApplication const application(argc, argv);
    AppSettings settings;
    for (int value = 1; value <= 3; ++value) {
        for (QSettings *const one : {settings.GetGlobalSettings(), settings.GetSessionSettings(QStringLiteral("A"))})
            one->setValue(QStringLiteral("Value"), value);
        for (char const *const conf : {"/TovScope.conf", "/A.conf"}) {
            EXPECT_TRUE(Eventually([&] {
                QFile file(m_folder + QString::fromLatin1(conf));
                return file.open(QIODevice::ReadOnly) && file.readAll().contains("Value=" + QByteArray::number(value));
            })) << conf
                << value;
        }
    }
}

} // namespace
