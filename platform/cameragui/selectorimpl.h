// The inside of the camera selector: its widgets, which selectorbuild.cpp makes, and what happens to them.
#pragma once

#include "cameralist.h"
#include "mailbox.h"
#include "systemreference.h"
#include "tovcameragui.h"

#include <memory>

class QDialogButtonBox;
class QLabel;
class QLayout;
class QModelIndex;
class QProgressBar;
class QPushButton;
class QTimer;

namespace TovGui {

class AddressEdit;
class CameraModel;
class CameraTree;

// All of it lives on the GUI thread; jobs on the search thread hold the system and the mailbox only.
struct TovCameraSelectorDialog::Impl
{
    TovCameraSelectorDialog *const dialog;
    TovCam::System *const system;
    std::shared_ptr<SystemReference> const reference = std::make_shared<SystemReference>();
    std::shared_ptr<Mailbox> const mailbox;

    CameraModel *model;
    CameraTree *tree;
    AddressEdit *address;
    QPushButton *setAddress, *add, *refresh, *connect;
    QDialogButtonBox *buttons;
    QLabel *message;
    QProgressBar *progress;
    QTimer *timer;

    TovCam::DeviceInfo *wanted = nullptr;   // last one selected; selected again when it comes back
    TovCam::DeviceInfo *accepted = nullptr; // the dialog's result
    QString wantedName;
    QString notice;          // outcome of the last thing the user asked for; shown until the next one
    int jobs = 0;            // posted and not answered
    bool searched = false;   // a first search has ended
    bool attended = false;   // the user waits for a search
    bool updating = false;   // the model changes: the view's moves of the selection are not the user's
    bool touched = false;    // a camera has been selected
    bool restored = false;   // column widths came from the settings
    std::int32_t status = 0; // of the last search

    Impl(TovCameraSelectorDialog *dialog, TovCam::System *system)
        : dialog(dialog),
          system(system),
          mailbox(std::make_shared<Mailbox>(dialog))
    {
    }

    void Build();
    QLayout *BuildMessageRow();
    QLayout *BuildAddressRow();
    QWidget *BuildButtons();
    void Connect();

    void List(bool update);
    void Refresh();
    void FindAddress();
    void SetAddress();
    void OnListed(CameraList const &list, std::int32_t result, bool update);
    void OnFound(QString const &text, TovCam::DeviceInfo *info, std::int32_t result, CameraList const &list);
    void SetList(CameraList const &list);
    void OnCurrentChanged();
    void Select(QModelIndex const &index);
    void ShowState();
    void TryAccept();
    CameraEntry const *Selected() const;
};

} // namespace TovGui
