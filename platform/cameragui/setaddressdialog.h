// The dialog that gives a GigE Vision camera another address, wherever the camera is. GUI thread only.
#pragma once

#include "cameralist.h"
#include "systemreference.h"

#include "tovdoctor.h"

#include <QDialog>

#include <memory>
#include <vector>

class QGridLayout;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QRadioButton;

namespace TovGui {

class Mailbox;

// Modal. What talks to the camera and looks for it afterwards runs on the search thread. Accepted when the camera has
// what was asked for and was found there; after a failure it stays open, for another try.
class SetAddressDialog : public QDialog
{
    Q_OBJECT
public:
    // `others` may hold the camera itself.
    SetAddressDialog(CameraEntry camera, std::vector<CameraEntry> const &others,
                     std::shared_ptr<SystemReference> system, QWidget *parent);
    ~SetAddressDialog() override;

    // Whether the camera has another address, be it only for now; the rest is valid then.
    bool HasSet() const;
    CameraList const &GetList() const;
    TovCam::DeviceInfo *GetCamera() const; // null: it was not found
    QString const &GetOutcome() const;     // for the operator

private:
    struct Field
    {
        QLineEdit *edit = nullptr;
        QLabel *error = nullptr;
    };
    struct Outcome // of a job
    {
        std::int32_t forced = 0, kept = 0;
        CameraList list;
        TovCam::DeviceInfo *found = nullptr;
    };

    void Build();
    Field AddField(QGridLayout *grid, QString const &label, QString const &name, QString const &toolTip);
    void Propose();
    void Check();
    QString CheckAddress(TovCam::CameraAddress const &address) const;
    void ShowState();
    void Begin();
    void TellProgress(QString const &text);
    void Done(Outcome const &outcome);
    QString WhyNot(Outcome const &outcome) const;

    CameraEntry m_camera;
    std::vector<TovCam::DeviceInfo *> m_others;
    std::shared_ptr<SystemReference> const m_system;
    std::shared_ptr<Mailbox> const m_mailbox;

    QLabel *m_present = nullptr, *m_state = nullptr;
    Field m_address, m_mask, m_gateway;
    QRadioButton *m_forNow = nullptr, *m_forGood = nullptr;
    QProgressBar *m_progress = nullptr;
    QPushButton *m_set = nullptr;

    TovCam::CameraAddress m_wanted; // what is typed, where it is sound
    bool m_isSound = false;
    bool m_working = false;
    bool m_hasSet = false;
    CameraList m_list;
    TovCam::DeviceInfo *m_found = nullptr;
    QString m_outcome;
};

} // namespace TovGui
