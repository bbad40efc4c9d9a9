// What the states of a session do: the actions of its machine, in their order.
#include "session.h"

#include "acquisitionsequence.h"
#include "grabbingfifo.h"
#include "imagewriter.h"
#include "noticeboard.h"
#include "recordedconfiguration.h"
#include "rigtestplugin.h"
#include "sessionhost.h"
#include "waitingaction.h"

#include <QCoreApplication>
#include <QFinalState>
#include <QState>

#include <cstdio>

namespace {

void SayOnStandardOutput(char const *text)
{
    std::puts(text);
    std::fflush(stdout);
}

} // namespace

bool Session::InitStateMachine()
{
    auto *const root = new QState;
    auto *const idle = new QState(root);
    auto *const acquisition = new QState(root);
    auto *const capturing = new QState(root);
    auto *const final = new QFinalState;
    root->setInitialState(idle);
    m_stateMachine.addState(root);
    m_stateMachine.addState(final);
    m_stateMachine.setInitialState(root);

    connect(idle, &QState::entered, this, &Session::enterIdle);
    connect(idle, &QState::exited, this, &Session::exitIdle);
    connect(acquisition, &QState::entered, this, &Session::enterAcquisition);
    connect(acquisition, &QState::exited, this, &Session::exitAcquisition);
    connect(capturing, &QState::entered, this, &Session::enterCapturing);
    connect(capturing, &QState::exited, this, &Session::exitCapturing);
    connect(&m_stateMachine, &QStateMachine::finished, this, &Session::enterDisconnected);

    // While capturing, signalStopAcquisition does nothing: whoever stops the acquisition has to stop capturing first.
    root->addTransition(this, &Session::signalCameraStateDisconnected, final);
    idle->addTransition(this, &Session::signalStartAcquisition, acquisition);
    acquisition->addTransition(this, &Session::signalStopAcquisition, idle);
    acquisition->addTransition(this, &Session::signalStartCapturing, capturing);
    capturing->addTransition(this, &Session::signalStopCapturing, acquisition);
    // Not in the event loop of a wait, before everything is there.
    WaitingAction::WhenOver(&m_stateMachine, [this] { m_stateMachine.start(); });
    return true;
}

// By the writer. An action that waits for the camera comes first.
void Session::stopCapturing()
{
    WaitingAction::WhenOver(this, [this] { emit signalStopCapturing(); });
}

void Session::stopCapturingAndAcquisition()
{
    WaitingAction::WhenOver(this, [this] {
        emit signalStopCapturing();
        emit signalStopAcquisition();
    });
}

// Of a session that ends while it records.
void Session::StopWriter()
{
    try {
        if (m_writer->IsWriting())
            m_writer->StopWriting();
    } catch (...) { // the files may be broken; the camera is closed all the same
    }
}

void Session::enterIdle()
{
    if (m_state == SessionStateAcquisition || m_state == SessionStateCapturing) {
        bool const isAll = !WaitingAction::Current();
        bool givenUp = false;
        Wait(tr("Stopping %1").arg(GetPlainName()), [&] {
            StopAcquisition();
            givenUp = WaitingAction::IsCurrentGivenUp();
        });
        if (isAll && givenUp)
            NoticeBoard::Instance().Report(NoticeTopic::Camera, NoticeLevel::Warning,
                                           tr("%1 was not waited for: it may not have stopped").arg(GetPlainName()));
    }
    m_grabber->SetState(SessionStateIdle);
    m_state = SessionStateIdle;
    emit signalUpdateGui();
}

void Session::StopAcquisition()
{
    try {
        m_sequence->Stop();
        LogLosses();
        if (RigTestPlugin *const plugin = GetRigTest()) {
            SayOnStandardOutput("GetRigTest()->OnStop()");
            plugin->OnStop();
        }
    } catch (...) { // what still runs is stopped before the next start, or at the end
    }
}

void Session::exitIdle()
{
}

void Session::enterAcquisition()
{
    if (m_state == SessionStateIdle) {
        bool started = false;
        bool givenUp = false;
        Wait(tr("Starting %1").arg(GetPlainName()), [&] { started = StartAcquisition(&givenUp); });
        if (!started) {
            // The machine is in Acquisition while the state stays Idle; the answer to this signal takes it back. The
            // operator who has given up needs no telling.
            if (givenUp)
                emit signalStopAcquisition();
            else
                emit signalSessionStateError(this, SessionErrorStartAcquisition);
            return;
        }
    }
    m_state = SessionStateAcquisition;
    m_grabber->SetState(SessionStateAcquisition);
    emit signalUpdateGui();
}

bool Session::StartAcquisition(bool *givenUp)
{
    m_sequence->StopWhatStillRuns();
    m_lossBase = m_writer->GetLossCounts();
    try {
        if (RigTestPlugin *const plugin = GetRigTest()) {
            SayOnStandardOutput("GetRigTest()->PrepareToAcquition()");
            plugin->PrepareToAcquition();
        }
        m_sequence->Start();
        return true;
    } catch (...) {
        *givenUp = WaitingAction::IsCurrentGivenUp();
        m_sequence->RecoverFromFailedStart();
        return false;
    }
}

void Session::exitAcquisition()
{
}

void Session::enterCapturing()
{
    try {
        if (RigTestPlugin *const plugin = GetRigTest())
            plugin->OnStartCapturing();
        m_grabber->SetState(SessionStateCapturing);
        m_writer->SetCompanions(m_window->WantsCompanions());
        m_writer->StartWriting();
    } catch (...) {
        // The machine stays in Capturing with the state that was, in which Stop does nothing: the operator has to
        // disconnect.
        emit signalSessionStateError(this, SessionErrorStartCapturing);
        return;
    }
    m_state = SessionStateCapturing;
    emit signalUpdateGui();
}

void Session::exitCapturing()
{
    bool failed = false;
    Wait(tr("Ending the recording of %1").arg(GetPlainName()), [&] {
        try {
            RecordedConfiguration configuration(m_device, m_cameraLost);
            m_writer->StopWriting([&] { return configuration.Take(); });
            QCoreApplication::removePostedEvents(&m_writerReports);
            configuration.Keep(*m_writer);
        } catch (...) {
            failed = true;
        }
    });
    if (failed)
        emit signalSessionStateError(this, SessionErrorStopCapturing);
    // The state stays SessionStateCapturing until the next action has written it.
}

void Session::enterDisconnected()
{
    enterIdle();
    m_grabber->SetState(SessionStateDisconnected);
    m_state = SessionStateDisconnected;
    emit signalUpdateGui();
}

void Session::exitDisconnected()
{
}

void Session::startTestBW()
{
    m_window->RunBandwidthTest(this);
}
