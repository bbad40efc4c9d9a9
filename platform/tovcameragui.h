// Camera widgets: the selector dialog. GUI thread only.
#pragma once

#include "tovcamera.h"

#include <QDialog>

#include <memory>

#if defined(TovCameraGuiApi_EXPORTS)
#define TOV_CAMERAGUI_API __attribute__((visibility("default")))
#else
#define TOV_CAMERAGUI_API
#endif

namespace TovGui {

// Modal list of the cameras, grouped by interface, which refreshes itself. Accepted by its button, a double click or
// Enter on a camera.
class TOV_CAMERAGUI_API TovCameraSelectorDialog : public QDialog
{
    Q_OBJECT
public:
    TovCameraSelectorDialog(TovCam::System *system, QWidget *parent);
    ~TovCameraSelectorDialog() override;
    // The camera that was selected when the dialog was accepted, or null.
    TovCam::DeviceInfo *selectedCamera() const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace TovGui
