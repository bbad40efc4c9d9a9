// A camera that does what the test says: frames when the test pushes them, a status of the test's choice at any step,
// and a log of the calls in their order. The objects belong to the test; Release only marks the device.
//
// Threads: the script, the stream and the device from any thread; the nodes are set up while nobody else uses them.
#pragma once

#include "bareparams.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

// Steps of the script and the log. A step is named as its function, or for a node as the node: "StartAcquisition",
// "TLParamsLocked".
class FakeScript
{
public:
    void Fail(std::string const &step, std::int32_t status);        // from now on; 0 ends it
    void At(std::string const &step, std::function<void()> action); // runs on the caller's thread; may throw
    std::string TakeLog();                                          // "entry; entry", and forgets it
    std::string Violations() const; // misuse of the interfaces, such as giving a buffer back twice

    // For the fakes. Run logs the entry, or else the step, runs the action, and gives the status.
    std::int32_t Run(std::string const &step, std::string const &entry = {});
    void Expect(bool kept, std::string const &rule);

private:
    mutable std::mutex m_mutex; // guards all of it
    std::map<std::string, std::int32_t> m_failures;
    std::map<std::string, std::function<void()>> m_actions;
    std::string m_log;
    std::string m_violations;
};

struct FakeFrame
{
    std::uint64_t id = 1;
    std::uint64_t timestamp = 0;
    bool incomplete = false;
    std::int32_t error = 0; // comes with the buffer
};

class FakeBuffer final : public TovCam::Buffer
{
public:
    FAKE_GIVES(_TovImage *GetImage(), &m_image);
    FAKE_GIVES(std::uint64_t GetBufferSize(), m_image.imageSize);
    FAKE_GIVES(std::uint64_t GetTimestamp(), m_image.timestamp);
    FAKE_GIVES(std::uint64_t GetFrameID(), m_image.frameID);
    FAKE_GIVES(bool IsIncomplete(), m_incomplete);

private:
    friend class FakeStream;
    _TovImage m_image{};
    std::unique_ptr<std::uint8_t, void (*)(void *)> m_memory{nullptr, std::free}; // begins a page, as frames do
    bool m_incomplete = false;
    bool m_out = false; // with the application; the stream's mutex
};

class FakeStream final : public TovCam::Stream
{
public:
    explicit FakeStream(FakeScript &script);

    std::int32_t QueueBuffer(TovCam::Buffer *buffer) override;
    TovCam::Buffer *GetBuffer(std::uint32_t timeout, std::int32_t *error) override;
    void CancelGetBuffer() override;
    std::int32_t StartAcquisition(std::int64_t frames, std::uint32_t flags) override;
    std::int32_t StopAcquisition(std::uint32_t flags) override;
    std::int32_t AllocBufferQueue(void *context, std::uint32_t count) override;
    std::int32_t ReleaseBufferQueue() override;

    // Shape of the frames from the next AllocBufferQueue on; 32 x 32 pixels of 8-bit mono until then.
    void SetFormat(std::uint32_t width, std::uint32_t height, std::uint32_t pixelType, std::uint32_t bitDepth);
    // Fills the next free buffer; false when there is none or the stream is stopped. `paint` may write the pixels.
    bool Push(FakeFrame const &frame, std::function<void(_TovImage &)> const &paint = {});
    bool WaitForFree();                   // false when the stream has no buffers any more, or none comes back
    void PushNothing(std::int32_t error); // one GetBuffer returns nothing, with that error
    // Until a thread sleeps in GetBuffer with nothing left to take: it is then done with all that was pushed.
    bool WaitUntilDrained();
    std::size_t OutCount() const; // with the application

private:
    struct Result
    {
        FakeBuffer *buffer; // may be null
        std::int32_t error;
    };

    FakeScript &m_script;
    mutable std::mutex m_mutex;          // guards all below
    std::condition_variable m_condition; // of every change
    std::vector<std::unique_ptr<FakeBuffer>> m_buffers;
    std::deque<FakeBuffer *> m_free;
    std::deque<Result> m_filled;
    bool m_cancelled = false;
    bool m_started = false;
    int m_waiting = 0;    // threads in GetBuffer
    _TovImage m_format{}; // what the frames have in common
};

class FakeInt final : public TovCam::IntParam
{
public:
    std::int64_t value = 0;
    std::int32_t error = 0; // of reading it
    std::int64_t minimum = INT64_MIN;
    std::int64_t maximum = INT64_MAX;

    FAKE_GIVES(char const *GetName(), "");
    FAKE_GIVES(std::int64_t GetMin(std::int32_t *), minimum);
    FAKE_GIVES(std::int64_t GetMax(std::int32_t *), maximum);
    std::int64_t GetValue(std::int32_t *status) override;
};

class FakeText final : public TovCam::StringParam
{
public:
    std::string value;

    FAKE_GIVES(char const *GetName(), "");
    FAKE_GIVES(char const *GetValue(std::int32_t *), value.c_str());
};

// What is not among them is unknown to the camera.
class FakeEnum final : public TovCam::EnumParam
{
public:
    std::string value;

    FAKE_GIVES(char const *GetName(), "");
    FAKE_GIVES(char const *GetValueStr(std::int32_t *), value.c_str());
};

class FakeParams final : public BareParams
{
public:
    explicit FakeParams(FakeScript &script);

    std::map<std::string, FakeInt> ints;
    std::map<std::string, FakeText> texts;
    std::map<std::string, FakeEnum> enums;
    std::set<std::string> commands;
    bool absenceSilent = false;                     // a missing node is null, without an error
    std::function<void(std::string const &)> onSet; // after that integer was set
    std::function<void(std::string const &)> onGet; // before that integer or text is looked up, on the caller's thread

    TovCam::IntParam *GetInt(char const *name, std::int32_t *error) override;
    TovCam::StringParam *GetString(char const *name, std::int32_t *error) override;
    std::int32_t SetIntegerValue(char const *name, std::int64_t value) override;
    std::int64_t GetIntegerValue(char const *name, std::int32_t *error) override;
    std::int32_t ExecuteCommand(char const *name) override;
    FAKE_GIVES(TovCam::EnumParam *GetEnum(char const *name, std::int32_t *),
               enums.count(name) ? &enums[name] : nullptr);
    FAKE_GIVES(char const *GetEnumValueStr(char const *name, std::int32_t *),
               enums.count(name) ? enums[name].value.c_str() : nullptr);

private:
    FakeScript &m_script;
};

// The camera as a search would list it, and its interface.
class FakeDeviceInfo : public TovCam::DeviceInfo, public TovCam::Interface
{
public:
    char const *host = nullptr;              // its host information
    TovCam::ParamArray *interface = nullptr; // parameters of the interface
    std::uint32_t kind = TovCam::InterfaceKindGigEVision;

    FAKE_GIVES(TovCam::Interface *GetInterface(), this);
    FAKE_GIVES(char const *GetDisplayName(), "Scripted camera");
    FAKE_GIVES(char const *GetHostInformation(), host);
    FAKE_GIVES(char const *GetVendorName(), "Test bench");
    FAKE_GIVES(char const *GetModelName(), "Scripted");
    FAKE_GIVES(char const *GetSerialNumber(), "0042");
    FAKE_GIVES(char const *GetUserID(), "bench");
    FAKE_GIVES(char const *GetAddress(), "");
    FAKE_GIVES(AccessStatus GetAccessStatus(), AccessFree);

    FAKE_GIVES(TovCam::DeviceInfo *GetFirstDeviceInfo(), this);
    FAKE_GIVES(std::uint32_t GetInterfaceKind(), kind);
    FAKE_GIVES(char const *GetInterfaceDescription(), "Scripted interface");
    FAKE_GIVES(char const *GetDriverVersion(), "1.0");
    FAKE_GIVES(TovCam::ParamArray *GetInterfaceParameters(std::int32_t *), interface);
    FAKE_GIVES(std::uint32_t GetDeviceCount(), 1);
    FAKE_GIVES(TovCam::DeviceInfo *GetDeviceInfoByIndex(std::uint32_t index), index == 0 ? this : nullptr);
};

// A camera with the nodes that a start needs: "TLParamsLocked", "AcquisitionStart", "AcquisitionStop",
// "AcquisitionAbort", a tick frequency of 1,000,000 and the three texts of its identity.
class FakeDevice final : public TovCam::Device
{
public:
    FakeScript script;
    FakeParams params{script};
    FakeStream stream{script};
    FakeDeviceInfo info;

    // With false GetCameraParameters gives null and that error.
    void SetParametersReadable(bool readable, std::int32_t error = TOV_CAM_ERR_GENICAM_TREE);
    // The camera goes away: event 1004 from a thread of its own. Returns when the callbacks have.
    void LoseConnection();
    int ReleaseCount() const;

    void Release() override;
    std::int32_t RegisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user) override;
    std::int32_t UnregisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user) override;
    TovCam::ParamArray *GetCameraParameters(std::int32_t *error) override;
    FAKE_GIVES(TovCam::Stream *GetStreamByIndex(std::uint32_t index), index == 0 ? &stream : nullptr);
    FAKE_GIVES(TovCam::DeviceInfo *GetDeviceInfo(), &info);
    FAKE_GIVES(std::int32_t ReadRegister(std::uint64_t, void *, std::size_t), TOV_CAM_ERR_UNKNOWN);
    FAKE_GIVES(std::int32_t SaveConfiguration(char const *path),
               script.Run("SaveConfiguration", std::string("SaveConfiguration ") + path));
    FAKE_GIVES(std::int32_t LoadConfiguration(char const *path),
               script.Run("LoadConfiguration", std::string("LoadConfiguration ") + path));
    FAKE_GIVES(TovCam::ConfigurationReport GetConfigurationReport(), configuration);
    TovCam::ConfigurationReport configuration;
    FAKE_GIVES(TovCam::CaptureFailure GetCaptureFailure(), failure);
    TovCam::CaptureFailure failure;

private:
    struct Subscription
    {
        std::uint32_t id;
        TovCam::EventCallback callback;
        void *user;
        bool operator==(Subscription const &) const = default;
    };
    mutable std::mutex m_eventMutex;           // held while callbacks run, so that unsubscribing waits for them
    std::vector<Subscription> m_subscriptions; // m_eventMutex
    std::atomic<bool> m_readable{true};
    std::atomic<std::int32_t> m_parametersError{0};
    std::atomic<int> m_released{0};
};
