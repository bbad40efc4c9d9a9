// A camera that is being opened at the operator's wish: it is waited for, its progress can be seen, and it can be given
// up. The limit of time and how far it is are the camera library's (TovCam::OpenProgress); reading what a session needs
// of the opened camera is part of it. GUI thread only.
#pragma once

#include "waitingaction.h"
#include "waitingdialog.h"

#include "tovcamera.h"

#include <QCoreApplication>
#include <QString>

#include <functional>

class Opening
{
    Q_DECLARE_TR_FUNCTIONS(Opening)
public:
    // `what`: the action, as one line. It is asked for only if it is to be shown.
    Opening(QWidget *window, std::function<QString()> what);
    ~Opening();
    Opening(Opening const &) = delete;
    Opening &operator=(Opening const &) = delete;

    // The camera's information, or the system, that opens; it outlives this.
    template<typename Opener>
    void Follow(Opener *opener)
    {
        opener->SetOpenProgress(&m_progress);
        m_forget = [opener] {
            opener->SetOpenProgress(nullptr);
        };
    }
    // Nothing more is to be said. What is open goes.
    bool IsCancelled() const;
    // It took too long, whoever noticed.
    bool IsOverdue() const;
    // What the message about a camera that could not be opened leaves out, to the board and the log; nothing where
    // nothing is known.
    void TellWhy(QString const &camera, TovCam::OpenFailure const &failure) const;

private:
    WaitingDialog::Step Step() const;

    TovCam::OpenProgress m_progress;
    std::function<void()> m_forget;
    WaitingDialog m_dialog;
    WaitingAction m_action;
};
