#include "appsettings.h"

#include "tovmisc.h"
#include "tovplaintext.h"

#include <QEvent>

#include <system_error>

namespace {

QString const Organisation = QStringLiteral("Velmor");
QString const Application = QStringLiteral("TovScope");

constexpr unsigned int NameBytes = 256;
constexpr unsigned int ValueBytes = 1024;

// Calls `f` with the name of each of the component's parameters, inside the group.
template<typename F>
void ForEachParam(QSettings *settings, QString const &group, TovComponent *component, F f)
{
    if (!settings || !component)
        return;
    unsigned int const count = component->GetParamCount();
    settings->beginGroup(group);
    for (unsigned int index = 0; index < count; ++index) {
        char name[NameBytes];
        unsigned int length = NameBytes;
        if (TovSucceeded(component->GetParamName(index, name, &length)))
            f(static_cast<char const *>(name), QString::fromUtf8(name));
    }
    settings->endGroup();
}

} // namespace

AppSettings::AppSettings() : m_globalSettings(std::make_unique<QSettings>(Organisation, Application))
{
    m_globalSettings->installEventFilter(this);
}

AppSettings::~AppSettings()
{
    if (m_storing.joinable())
        m_storing.join();
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
        // The name contains text from the camera and becomes a file name: it must not lead out of the folder.
        settings = std::make_unique<QSettings>(Organisation, TovPlainFileName(name));
        settings->installEventFilter(this);
    }
    return settings.get();
}

// In place of what QSettings does when it is told that it has changed: storing itself, at once.
bool AppSettings::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() != QEvent::UpdateRequest)
        return QObject::eventFilter(watched, event);
    m_changed.push_back(static_cast<QSettings *>(watched));
    StoreNext();
    return true;
}

void AppSettings::StoreNext()
{
    if (m_storing.joinable() || m_changed.empty())
        return;
    QSettings *const settings = m_changed.front();
    m_changed.pop_front();
    try {
        m_storing = std::thread([this, settings, name = settings->applicationName()] {
            QSettings(Organisation, name).sync(); // all those of one file share what has changed
            QMetaObject::invokeMethod(
                this,
                [this, settings] {
                    m_storing.join();
                    settings->sync(); // has nothing left to write, and tells the next change again
                    StoreNext();
                },
                Qt::QueuedConnection);
        });
    } catch (std::system_error const &) { // no thread is to be had
        settings->sync();
        StoreNext();
    }
}

void AppSettings::SaveTovComponentSettings(QSettings *settings, QString const &group, TovComponent *component)
{
    ForEachParam(settings, group, component, [&](char const *name, QString const &key) {
        char value[ValueBytes];
        unsigned int length = ValueBytes;
        if (TovSucceeded(component->GetParamAsString(name, value, &length, nullptr)))
            settings->setValue(key, QString::fromUtf8(value));
    });
}

void AppSettings::LoadTovComponentSettings(QSettings *settings, QString const &group, TovComponent *component)
{
    ForEachParam(settings, group, component, [&](char const *name, QString const &key) {
        if (settings->contains(key))
            component->SetParamAsString(name, settings->value(key).toString().toUtf8().constData());
    });
}
