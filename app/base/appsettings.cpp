#include "appsettings.h"

#include "tovmisc.h"

namespace {

QString const Organisation = QStringLiteral("Velmor");
QString const Application = QStringLiteral("TovScope");

constexpr unsigned int NameBytes = 256;
constexpr unsigned int ValueBytes = 1024;

bool paramName(TovComponent *component, unsigned int index, char (&name)[NameBytes])
{
    unsigned int length = NameBytes;
    return TovSucceeded(component->GetParamName(index, name, &length));
}

} // namespace

AppSettings::AppSettings() : m_globalSettings(std::make_unique<QSettings>(Organisation, Application))
{
}

AppSettings::~AppSettings()
{
    m_globalSettings.reset();
    m_sessionSettings.clear();
}

QSettings *AppSettings::GetGlobalSettings()
{
    return m_globalSettings.get();
}

QSettings *AppSettings::GetSessionSettings(QString const &name)
{
    std::unique_ptr<QSettings> &settings = m_sessionSettings[name];
    if (!settings) {
        // The name carries text of the camera and becomes a file name: it must not lead out of the folder.
        QString fileName = name;
        fileName.replace(QLatin1Char('/'), QLatin1Char('_')).remove(QChar(0));
        settings = std::make_unique<QSettings>(Organisation, fileName);
    }
    return settings.get();
}

void AppSettings::SaveTovComponentSettings(QSettings *settings, QString const &group, TovComponent *component)
{
    if (!settings || !component)
        return;
    unsigned int const count = component->GetParamCount();
    settings->beginGroup(group);
    for (unsigned int index = 0; index < count; ++index) {
        char name[NameBytes];
        if (!paramName(component, index, name))
            continue;
        char value[ValueBytes];
        unsigned int length = ValueBytes;
        if (!TovSucceeded(component->GetParamAsString(name, value, &length, nullptr)))
            continue;
        settings->setValue(QString::fromUtf8(name), QString::fromUtf8(value));
    }
    settings->endGroup();
}

void AppSettings::LoadTovComponentSettings(QSettings *settings, QString const &group, TovComponent *component)
{
    if (!settings || !component)
        return;
    unsigned int const count = component->GetParamCount();
    settings->beginGroup(group);
    for (unsigned int index = 0; index < count; ++index) {
        char name[NameBytes];
        if (!paramName(component, index, name))
            continue;
        QString const key = QString::fromUtf8(name);
        if (settings->contains(key))
            component->SetParamAsString(name, settings->value(key).toString().toUtf8().constData());
    }
    settings->endGroup();
}
