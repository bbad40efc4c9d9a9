#include "recordedconfiguration.h"

#include "imagewriter.h"
#include "tovlog.h"
#include "waitingaction.h"

#include "tovcamera.h"

#include <QFile>
#include <QSaveFile>
#include <QTemporaryDir>

#include <cstdint>
#include <cstring>

RecordedConfiguration::RecordedConfiguration(TovCam::Device *device, std::atomic<bool> const &cameraLost)
    : m_device(device),
      m_cameraLost(cameraLost)
{
}

QByteArray RecordedConfiguration::Take()
{
    QTemporaryDir const folder;
    if (m_cameraLost || !folder.isValid())
        return {};
    QFile file(folder.filePath(QStringLiteral("camera.tcfg")));
    QByteArray const name = QFile::encodeName(file.fileName());
    std::int32_t const status = WaitFor([&] { return m_device->SaveConfiguration(name.constData()); });
    if (status == 0 && file.open(QIODevice::ReadOnly))
        m_taken = file.readAll();
    else
        TovLog::Warning(static_cast<unsigned long>(status), "Session: the movie gets no configuration");
    return m_taken;
}

void RecordedConfiguration::Keep(ImageWriter &writer)
{
    if (writer.GetCompanionFolder().isEmpty())
        return;
    QByteArray const name = writer.GetCompanionFolder() + '/' + writer.GetCompanionName() + ".tcfg";
    if (m_taken.isEmpty()) {
        if (!m_cameraLost)
            SaveAs(name, writer);
        if (WaitingAction::IsCurrentGivenUp())
            writer.TellCompanionFailure(
                QStringLiteral("the camera was not waited for (%1)").arg(QFile::decodeName(name)));
        return;
    }
    auto const write = [this, &name] {
        QSaveFile file(QFile::decodeName(name));
        bool const written = file.open(QIODevice::WriteOnly) && file.write(m_taken) == m_taken.size() && file.commit();
        return written ? QString() : QStringLiteral("%1 (%2)").arg(file.errorString(), file.fileName());
    };
    if (QString const why = WaitFor(write, IfGivenUp::CallAllTheSame, Awaited::Disk); !why.isEmpty())
        writer.TellCompanionFailure(why);
}

void RecordedConfiguration::SaveAs(QByteArray const &file, ImageWriter &writer)
{
    std::int32_t const status = WaitFor([&] { return m_device->SaveConfiguration(file.constData()); });
    if (status == 0 || m_cameraLost)
        return;
    TovLog::Warning(static_cast<unsigned long>(status),
                    "Session: the configuration was not stored beside the recording");
    if (status == TOV_CAM_ERR_FILE_NOT_FOUND) {
        int const why = m_device->GetConfigurationReport().systemError;
        char const *const words = strerrordesc_np(why);
        writer.TellCompanionFailure(
            QStringLiteral("%1 (%2)").arg(QString::fromLatin1(words ? words : "no file"), QFile::decodeName(file)));
    }
}
