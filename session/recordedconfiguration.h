// The camera's configuration, which belongs to a recording: in the movie, where that has a place for it, and beside the
// files. It is what the camera has when the recording ends. The camera is waited for, as WaitFor does.
//
// For one recording. GUI thread.
#pragma once

#include <QByteArray>

#include <atomic>

class ImageWriter;
namespace TovCam {
class Device;
}

class RecordedConfiguration
{
public:
    // A camera that is gone has none, and that is no failure.
    RecordedConfiguration(TovCam::Device *device, std::atomic<bool> const &cameraLost);

    // For the movie, before it is closed; empty where the camera does not give it.
    QByteArray Take();
    // Beside the recording that has just ended. What was taken is not asked for again.
    void Keep(ImageWriter &writer);

private:
    void SaveAs(QByteArray const &file, ImageWriter &writer);

    TovCam::Device *m_device;
    std::atomic<bool> const &m_cameraLost;
    QByteArray m_taken;
};
