// A camera that does what the test says: frames when the test pushes them, a status of the test's choice at any step,
// and a log of the calls in their order. The objects belong to the test; Release only marks the device.
//
// Threads: everything may be called from any thread.
#pragma once

#include "tovcamera.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
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
    void Note(std::string const &text);                             // the test's own entries
    // Misuse of the interfaces, such as giving a buffer back twice.
    std::string Violations() const;

    // For the fakes: logs `entry`, runs the action, and gives the status.
    std::int32_t Run(std::string const &step, std::string const &entry);
    void Violation(std::string const &text);

private:
    mutable std::mutex m_mutex; // guards all of it
    std::map<std::string, std::int32_t> m_failures;
    std::map<std::string, std::function<void()>> m_actions;
    std::string m_log;
    std::string m_violations;
};

class FakeBuffer final : public TovCam::Buffer
{
public:
    _TovImage *GetImage() override;
    std::uint64_t GetBufferSize() override;
    std::uint64_t GetTimestamp() override;
    std::uint64_t GetFrameID() override;
    bool IsIncomplete() override;

private:
    friend class FakeStream;
    enum class Place { Stream, Filled, Out };
    _TovImage m_image{};
    std::vector<std::uint8_t> m_memory;
    std::uint64_t m_size = 0;
    bool m_incomplete = false;
    std::int32_t m_error = 0;
    Place m_place = Place::Stream; // the stream's mutex
};

struct FakeFrame
{
    std::uint64_t id = 1;
    std::uint64_t timestamp = 0;
    bool incomplete = false;
    std::int32_t error = 0; // comes with the buffer
};

class FakeStream final : public TovCam::Stream
{
public:
    explicit FakeStream(FakeScript &script) : m_script(script)
    {
    }

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
    bool WaitForFree(std::size_t count = 1); // false when the stream has no buffers any more
    // Makes one GetBuffer return nothing, with that error.
    void PushNothing(std::int32_t error);
    // Until a thread sleeps in GetBuffer with nothing left to take: it is then done with all that was pushed.
    bool WaitUntilDrained(int milliseconds = 5000);
    std::size_t FreeCount() const; // with the stream, and empty
    std::size_t OutCount() const;  // with the application

private:
    std::size_t CountOut() const; // with m_mutex held

    FakeScript &m_script;
    mutable std::mutex m_mutex;          // guards all below
    std::condition_variable m_condition; // of every change
    std::vector<std::unique_ptr<FakeBuffer>> m_buffers;
    std::deque<FakeBuffer *> m_free;
    std::deque<FakeBuffer *> m_filled; // null: nothing, with the error in m_errors
    std::deque<std::int32_t> m_errors;
    bool m_cancelled = false;
    bool m_started = false;
    int m_sleeping = 0;
    std::uint32_t m_width = 32;
    std::uint32_t m_height = 32;
    std::uint32_t m_pixelType = TV_PIXEL_MONO8;
    std::uint32_t m_bitDepth = 8;
};

// Nodes exist when they were set. Commands exist when they were added.
class FakeParams final : public TovCam::ParamArray
{
public:
    explicit FakeParams(FakeScript &script);
    ~FakeParams();

    void SetInt(std::string const &name, std::int64_t value, std::int64_t minimum = INT64_MIN,
                std::int64_t maximum = INT64_MAX);
    void SetText(std::string const &name, std::string const &value);
    void SetEnum(std::string const &name, std::string const &value);
    void AddCommand(std::string const &name);
    void Remove(std::string const &name);
    // With it GetInt, GetEnum and GetString of a missing node give null and leave 0 in the error.
    void SetAbsenceSilent(bool silent);

    TovCam::EnumParam *GetEnum(char const *name, std::int32_t *error) override;
    TovCam::IntParam *GetInt(char const *name, std::int32_t *error) override;
    TovCam::StringParam *GetString(char const *name, std::int32_t *error) override;
    char const *GetEnumValueStr(char const *name, std::int32_t *error) override;
    std::int32_t SetIntegerValue(char const *name, std::int64_t value) override;
    std::int64_t GetIntegerValue(char const *name, std::int32_t *error) override;
    std::int32_t ExecuteCommand(char const *name) override;
    std::int32_t SetEnumValueStr(char const *name, char const *value) override;
    std::int32_t SetFloatValue(char const *name, double value) override;
    double GetFloatValue(char const *name, std::int32_t *error) override;
    std::int32_t SetBooleanValue(char const *name, bool value) override;
    std::int32_t SetStringValue(char const *name, char const *value) override;

private:
    enum class Kind { Int, Text, Enum, Command };
    struct Node;
    // With m_mutex held.
    Node *find(char const *name, Kind kind, std::int32_t *error);
    Node &make(std::string const &name, Kind kind);

    FakeScript &m_script;
    std::mutex m_mutex; // guards m_nodes and their values
    std::map<std::string, std::unique_ptr<Node>> m_nodes;
    bool m_absenceSilent = false;
};

class FakeInterface final : public TovCam::Interface
{
public:
    std::uint32_t kind = TovCam::InterfaceKindGigEVision; // set before use

    TovCam::DeviceInfo *GetFirstDeviceInfo() override;
    std::uint32_t GetInterfaceKind() override;
    char const *GetInterfaceDescription() override;
    char const *GetDriverVersion() override;
    TovCam::ParamArray *GetInterfaceParameters(std::int32_t *error) override;
    std::uint32_t GetDeviceCount() override;
    TovCam::DeviceInfo *GetDeviceInfoByIndex(std::uint32_t index) override;
};

class FakeDeviceInfo final : public TovCam::DeviceInfo
{
public:
    TovCam::Interface *GetInterface() override;
    char const *GetDisplayName() override;
    char const *GetHostInformation() override;
    char const *GetVendorName() override;
    char const *GetModelName() override;
    char const *GetSerialNumber() override;
    char const *GetUserID() override;
    char const *GetAddress() override;
    AccessStatus GetAccessStatus() override;

    FakeInterface interface;
};

// A camera with the nodes that a start needs: "TLParamsLocked", "AcquisitionStart", "AcquisitionStop",
// "AcquisitionAbort", a tick frequency of 1,000,000 and the three texts of its identity.
class FakeDevice final : public TovCam::Device
{
public:
    FakeDevice();

    FakeScript script;
    FakeParams params{script};
    FakeStream stream{script};
    FakeDeviceInfo info;

    // With false GetCameraParameters gives null and that error.
    void SetParametersReadable(bool readable, std::int32_t error = TOV_CAM_ERR_GENICAM_TREE);
    // Calls every subscriber of the event on the calling thread.
    void Emit(std::uint32_t event, void const *data = nullptr, unsigned long size = 0);
    // The camera goes away: event 1004 from a thread of its own. Returns when the callbacks have.
    void LoseConnection();
    std::size_t SubscriberCount() const;
    int ReleaseCount() const;

    void Release() override;
    TovCam::Stream *GetStreamByIndex(std::uint32_t index) override;
    TovCam::DeviceInfo *GetDeviceInfo() override;
    std::int32_t RegisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user) override;
    std::int32_t UnregisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user) override;
    TovCam::ParamArray *GetCameraParameters(std::int32_t *error) override;
    std::int32_t ReadRegister(std::uint64_t address, void *buffer, std::size_t size) override;
    std::int32_t SaveConfiguration(char const *path) override;
    std::int32_t LoadConfiguration(char const *path) override;

private:
    struct Subscription
    {
        std::uint32_t id;
        TovCam::EventCallback callback;
        void *user;
        bool operator==(Subscription const &) const = default;
    };
    // Held while callbacks run, so that unsubscribing waits for them; recursive for one that unsubscribes itself.
    mutable std::recursive_mutex m_eventMutex;
    std::vector<Subscription> m_subscriptions; // m_eventMutex
    std::atomic<bool> m_readable{true};
    std::atomic<std::int32_t> m_parametersError{0};
    std::atomic<int> m_released{0};
};
