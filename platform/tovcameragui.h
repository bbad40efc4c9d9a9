// Camera widgets: the selector dialog and the feature tree. GUI thread only.
#pragma once

#include "tovcamera.h"

#include <QDialog>
#include <QString>
#include <QWidget>

#include <memory>

class QCheckBox;

#if defined(TovCameraGuiApi_EXPORTS)
#define TOV_CAMERAGUI_API __attribute__((visibility("default")))
#else
#define TOV_CAMERAGUI_API
#endif

namespace TovGui {

// Why that camera cannot be opened, as one line; empty for no failure. Any thread.
TOV_CAMERAGUI_API QString OpenFailureText(QString const &camera, TovCam::OpenFailure const &failure);

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
    // A choice of the caller's, above the buttons. The dialog's, as long as that lives; what it means and whether it is
    // kept is the caller's matter.
    QCheckBox *addOption(QString const &text, QString const &toolTip);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

// Which features are shown: those of the level and of the levels below it.
enum Visibility { Beginner = 0, Expert = 1, Guru = 2 };

// The features of one camera as a tree with an editor for each, a search field and a choice of visibility.
//
// The camera is read and written on a thread of the widget's own, so a slow or lost camera leaves the window alive: the
// last known values stay, and what waits or failed is marked. Hidden, it reads nothing.
class TOV_CAMERAGUI_API TovGenParamTreeView : public QWidget
{
    Q_OBJECT
public:
    explicit TovGenParamTreeView(QWidget *parent);
    ~TovGenParamTreeView() override;

    // Fills the tree; null empties it. The features are valid until the device's Release, before which the widget is
    // destroyed or given null; neither waits for a slow camera.
    virtual void SetGenParamArray(TovCam::ParamArray *params);
    virtual Visibility visibility() const;
    virtual void setVisibility(Visibility level);
    // What is expanded and selected, the search text and the visibility, as text. Never null; valid until the next
    // call.
    virtual char const *GetViewState();
    // Any other text is ignored; features that the camera lacks are skipped. May come before the tree is filled.
    virtual void SetViewState(char const *state);

private:
    struct TreeImpl;
    std::unique_ptr<TreeImpl> m_impl;
};

} // namespace TovGui
