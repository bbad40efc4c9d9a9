#include "appsettings.h"
#include "tovcomponentimp.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QStandardPaths>

#include <cstring>
#include <string>
#include <vector>

namespace {

// One parameter of each kind.
class Probe : public TovComponentImp, private TovParamListener
{
public:
    Probe() : TovComponentImp(9)
    {
        _TovStParam param{};
        auto const add = [&](char const *name, std::uint32_t type) {
            param.type = type;
            param.flags = 3;
            std::strncpy(param.name, name, sizeof param.name - 1);
            m_storage.AddParam(&param);
            m_storage.AddParamChangedListener(name, this);
            param = {};
        };
        param.i = {5, 0, 100, 0, &count};
        add("Count", TOV_PARAM_INT);
        param.f = {30.0, 0.0, 120.0, 0, &rate};
        add("Rate", TOV_PARAM_FLOAT);
        param.b = {0, 0, &on};
        add("On", TOV_PARAM_BOOL);
        param.s = {"", text, sizeof text};
        add("Text", TOV_PARAM_STRING);
        param.c = {[](void *) { return 0u; }, nullptr};
        add("Command", TOV_PARAM_COMMAND);
        add(std::string(255, 'k').c_str(), TOV_PARAM_COMMAND);
    }

    std::int64_t count = 5;
    double rate = 30.0;
    bool on = false;
    char text[4096] = "";
    std::vector<std::string> changed;

private:
    void ParamChanged(_TovStParam param) override
    {
        changed.push_back(param.name);
    }
};

class Settings : public testing::Test
{
protected:
    Settings()
    {
        QDir(Folder()).removeRecursively();
    }
    static QString Folder()
    {
        return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/Velmor");
    }
    static QString const Group;
    AppSettings m_settings;
};
QString const Settings::Group = QStringLiteral("Grabber");

TEST_F(Settings, KeepAComponentFromOneRunToTheNext)
{
    QString const camera = QStringLiteral("Session_Bench 2, left_AreaCam \u00b5");
    {
        AppSettings settings;
        Probe probe;
        probe.count = 42;
        probe.rate = 1.0 / 3;
        probe.on = true;
        std::strcpy(probe.text, "a; b=\"c\",\\ \xc3\xa4 %d [x]\n");
        AppSettings::SaveTovComponentSettings(settings.GetSessionSettings(camera), Group, &probe);
    }
    Probe probe;
    AppSettings::LoadTovComponentSettings(m_settings.GetSessionSettings(camera), Group, &probe);
    EXPECT_EQ(probe.count, 42);
    EXPECT_EQ(probe.rate, 1.0 / 3);
    EXPECT_TRUE(probe.on);
    EXPECT_STREQ(probe.text, "a; b=\"c\",\\ \xc3\xa4 %d [x]\n");
    EXPECT_EQ(probe.changed, (std::vector<std::string>{"Count", "Rate", "On", "Text"})) << "loading notifies";

    Probe other;
    AppSettings::LoadTovComponentSettings(m_settings.GetSessionSettings(QStringLiteral("Session")), Group, &other);
    EXPECT_EQ(other.count, 5);
}

TEST_F(Settings, RefusedAndForeignValuesLeaveTheParameterAsItWas)
{
    QSettings *const settings = m_settings.GetSessionSettings(QStringLiteral("Session"));
    for (char const *value : {"", "x", "nan", "1e999x", "\xff"}) {
        Probe probe;
        settings->setValue(QStringLiteral("Grabber/Count"), QString::fromLatin1(value));
        settings->setValue(QStringLiteral("Grabber/Rate"), QString::fromLatin1(value));
        settings->setValue(QStringLiteral("Grabber/Command"), QStringLiteral("1"));
        settings->setValue(QStringLiteral("Grabber/NotThere"), QStringLiteral("1"));
        settings->setValue(QStringLiteral("Grabber/Text"), QString(5000, QLatin1Char('t')));
        AppSettings::LoadTovComponentSettings(settings, Group, &probe);
        EXPECT_EQ(probe.count, 5) << value;
        EXPECT_EQ(probe.rate, 30.0) << value;
        EXPECT_STREQ(probe.text, "");
        EXPECT_TRUE(probe.changed.empty());
    }
    EXPECT_EQ(settings->group(), QString());
}

TEST_F(Settings, ValuesThatDoNotFitAreNotStored)
{
    QSettings *const settings = m_settings.GetSessionSettings(QStringLiteral("Session"));
    for (std::size_t length : {1023u, 1024u}) {
        Probe probe;
        std::memset(probe.text, 't', length);
        settings->clear();
        AppSettings::SaveTovComponentSettings(settings, Group, &probe);
        EXPECT_EQ(settings->contains(QStringLiteral("Grabber/Text")), length < 1024) << length;
        EXPECT_TRUE(settings->contains(QStringLiteral("Grabber/Rate")));
        EXPECT_FALSE(settings->contains(QStringLiteral("Grabber/Command")));
    }
    AppSettings::SaveTovComponentSettings(settings, Group, nullptr);
    AppSettings::LoadTovComponentSettings(settings, Group, nullptr);
    EXPECT_EQ(settings->group(), QString());
}

TEST_F(Settings, OneObjectForACameraThroughoutARunAndNoneOutsideTheFolder)
{
    QString const hostile = QStringLiteral("Session_../../../escape");
    QSettings *const settings = m_settings.GetSessionSettings(hostile);
    EXPECT_EQ(m_settings.GetSessionSettings(hostile), settings);
    EXPECT_NE(m_settings.GetSessionSettings(QStringLiteral("Session")), settings);
    EXPECT_EQ(QFileInfo(settings->fileName()).absolutePath(), Folder());
    EXPECT_EQ(QFileInfo(m_settings.GetGlobalSettings()->fileName()).fileName(), QStringLiteral("TovScope.conf"));
}

TEST_F(Settings, AnUnreadableFileIsAnEmptyOne)
{
    QDir().mkpath(Folder());
    QFile file(Folder() + QStringLiteral("/Session.conf"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("\x00\xff[[[[\nCount=\n[Grabber\n@Invalid(\\x", 33);
    file.close();
    Probe probe;
    AppSettings::LoadTovComponentSettings(m_settings.GetSessionSettings(QStringLiteral("Session")), Group, &probe);
    EXPECT_EQ(probe.count, 5);
    EXPECT_TRUE(probe.changed.empty());
}

} // namespace
