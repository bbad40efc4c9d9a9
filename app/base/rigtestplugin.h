// The evaluation plug-in: a separately built Qt plug-in, "RigTestA.dll" beside the executable, that drives the program
// for unattended runs. The order of the virtual operations is the plug-in's binary interface.
#pragma once

#include <QtPlugin>

#include <atomic>

class QMainWindow;
class TovComponent;
namespace TovCam {
class Buffer;
class Device;
} // namespace TovCam

class RigTestPlugin
{
public:
    virtual ~RigTestPlugin() = default;

    // GUI thread, after SetComponents. The two further arguments are 0.
    virtual void ShowPanel(QMainWindow *window, int, int) = 0;
    // GUI thread, before the session goes.
    virtual void Detach(QMainWindow *window) = 0;
    // GUI thread, when a camera was connected. False makes the program forget the plug-in.
    virtual bool Attach(QMainWindow *window, TovCam::Device *device) = 0;
    // Recording thread, complete frames only; the buffer is valid during the call.
    virtual void ProcessBuffer(TovCam::Buffer *buffer) = 0;
    // Recording thread. False ends the evaluation; `*newest` starts true and may be cleared to get the oldest frame.
    virtual bool NeedNextFrame(bool *newest) = 0;
    // Not called; kept for plug-ins built against the table.
    virtual void Reserved1() = 0;
    virtual void Reserved2() = 0;
    // GUI thread, the session's state actions.
    virtual void OnStartCapturing() = 0;
    virtual void OnStop() = 0;
    virtual void PrepareToAcquition() = 0;
    // GUI thread, last step of an unattended start.
    virtual void RunAutoEvaluation() = 0;
    // GUI thread, after Attach.
    virtual void SetComponents(TovComponent *session, TovComponent *display, TovComponent *imageProcessor) = 0;
};

#define RigTestPlugin_iid "com.velmor.TovScope.RigTestPlugin/1.0"
Q_DECLARE_INTERFACE(RigTestPlugin, RigTestPlugin_iid)

// The loaded plug-in, null in normal use. Written by the GUI thread, read by any.
inline std::atomic<RigTestPlugin *> &RigTestSlot()
{
    static std::atomic<RigTestPlugin *> slot{nullptr};
    return slot;
}

inline RigTestPlugin *GetRigTest()
{
    return RigTestSlot().load(std::memory_order_relaxed);
}
