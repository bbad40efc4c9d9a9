// A camera that does what the test says: frames when the test pushes them, a status of the test's choice at any step,
// and a log of the calls in their order. The objects belong to the test; Release only marks the device.
//
// Threads: the script, the stream and the device from any thread; the nodes are set up while nobody else uses them.
#pragma once

#include "bareparams.h"
#include "tovlosses.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

inline void StoreError(std::int32_t *error, std::int32_t status)
{
    if (error)
        *error = status;
}

// Steps of the script and the log. A step is named as its function, or for a node as the node: "StartAcquisition",
// "TLParamsLocked".
class FakeScript
{
public:
    // From now on; 0 ends it.
    void Fail(std::string const &step, std::int32_t status)
    {
        std::lock_guard const lock(m_mutex);
        m_failures[step] = status;
    }
    // Runs on the caller's thread; may throw.
    void At(std::string const &step, std::function<void()> action)
    {
        std::lock_guard const lock(m_mutex);
        m_actions[step] = std::move(action);
    }
    // "entry; entry", and forgets it.
    std::string TakeLog()
    {
        std::lock_guard const lock(m_mutex);
        return std::exchange(m_log, {});
    }
    // Misuse of the interfaces, such as giving a buffer back twice.
    std::string Violations() const
    {
        std::lock_guard const lock(m_mutex);
        return m_violations;
    }

    // For the fakes. Run logs the entry, or else the step, runs the action, and gives the status.
    std::int32_t Run(std::string const &step, std::string const &entry = {})
    {
        std::unique_lock lock(m_mutex);
        Append(m_log, entry.empty() ? step : entry);
        auto const action = m_actions[step];
        std::int32_t const status = m_failures[step];
        lock.unlock();
        if (action)
            action();
        return status;
    }
    void Expect(bool kept, std::string const &rule)
    {
        std::lock_guard const lock(m_mutex);
        if (!kept)
            Append(m_violations, rule);
    }

private:
    static void Append(std::string &log, std::string const &entry)
    {
        log += (log.empty() ? "" : "; ") + entry;
    }

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
    std::optional<TovCam::FrameLosses> losses{};
};

class FakeBuffer final : public TovCam::Buffer
{
public:
    FAKE_GIVES(_TovImage *GetImage(), &m_image);
    FAKE_GIVES(std::uint64_t GetBufferSize(), m_image.imageSize);
    FAKE_GIVES(std::uint64_t GetTimestamp(), m_image.timestamp);
    FAKE_GIVES(std::uint64_t GetFrameID(), m_image.frameID);
    FAKE_GIVES(bool IsIncomplete(), m_incomplete);
    bool GetLosses(TovCam::FrameLosses *losses) override
    {
        *losses = m_losses.value_or(TovCam::FrameLosses());
        return m_losses.has_value();
    }

private:
    friend class FakeStream;
    _TovImage m_image{};
    std::unique_ptr<std::uint8_t, void (*)(void *)> m_memory{nullptr, std::free}; // begins a page, as frames do
    bool m_incomplete = false;
    std::optional<TovCam::FrameLosses> m_losses;
    bool m_out = false; // with the application; the stream's mutex
};

class FakeStream final : public TovCam::Stream
{
public:
    explicit FakeStream(FakeScript &script) : m_script(script)
    {
        SetFormat(32, 32, TV_PIXEL_MONO8, 8);
    }

    std::int32_t QueueBuffer(TovCam::Buffer *buffer) override
    {
        std::lock_guard const lock(m_mutex);
        auto const found = std::find_if(m_buffers.begin(), m_buffers.end(),
                                        [buffer](auto const &own) { return own.get() == buffer && own->m_out; });
        m_script.Expect(found != m_buffers.end(), "QueueBuffer: a buffer that is out");
        if (found == m_buffers.end())
            return TOV_CAM_ERR_INVALID_ARGUMENT;
        (*found)->m_out = false;
        m_free.push_back(found->get());
        m_condition.notify_all();
        return 0;
    }
    TovCam::Buffer *GetBuffer(std::uint32_t timeout, std::int32_t *error) override
    {
        std::unique_lock lock(m_mutex);
        ++m_waiting;
        m_condition.notify_all();
        m_condition.wait_for(lock, std::chrono::milliseconds(timeout),
                             [this] { return m_cancelled || !m_filled.empty(); });
        --m_waiting;
        Result result{nullptr, 0};
        if (!std::exchange(m_cancelled, false) && !m_filled.empty()) {
            result = m_filled.front();
            m_filled.pop_front();
        }
        if (result.buffer)
            result.buffer->m_out = true;
        StoreError(error, result.error);
        return result.buffer;
    }
    void CancelGetBuffer() override
    {
        std::lock_guard const lock(m_mutex);
        m_cancelled = true;
        m_condition.notify_all();
    }
    std::int32_t StartAcquisition(std::int64_t frames, std::uint32_t flags) override
    {
        std::int32_t const status = m_script.Run("StartAcquisition", "StartAcquisition " + std::to_string(frames) +
                                                                         " " + std::to_string(flags));
        std::lock_guard const lock(m_mutex);
        m_cancelled = false;
        m_started = m_started || status == 0;
        return status;
    }
    std::int32_t StopAcquisition(std::uint32_t flags) override
    {
        std::int32_t const status = m_script.Run("StopAcquisition", "StopAcquisition " + std::to_string(flags));
        std::lock_guard const lock(m_mutex);
        m_started = m_started && status != 0;
        return status;
    }
    std::int32_t AllocBufferQueue(void *, std::uint32_t count) override
    {
        std::int32_t const status = m_script.Run("AllocBufferQueue", "AllocBufferQueue " + std::to_string(count));
        if (status != 0)
            return status;
        std::lock_guard const lock(m_mutex);
        m_script.Expect(m_buffers.empty(), "AllocBufferQueue: one queue at a time");
        for (std::uint32_t i = 0; i < count; ++i) {
            auto buffer = std::make_unique<FakeBuffer>();
            _TovImage &image = buffer->m_image;
            image = m_format;
            // One more line of 16-bit samples behind the last one.
            std::size_t const size = image.imageSize + std::size_t{image.width} * 2;
            void *memory = nullptr;
            if (posix_memalign(&memory, 4096, size) != 0)
                return TOV_CAM_ERR_UNKNOWN;
            buffer->m_memory.reset(static_cast<std::uint8_t *>(memory));
            image.imageData = static_cast<std::uint8_t *>(std::memset(memory, 0, size));
            m_free.push_back(buffer.get());
            m_buffers.push_back(std::move(buffer));
        }
        return 0;
    }
    std::int32_t ReleaseBufferQueue() override
    {
        std::int32_t const status = m_script.Run("ReleaseBufferQueue");
        m_script.Expect(OutCount() == 0, "ReleaseBufferQueue: after every buffer was given back");
        std::lock_guard const lock(m_mutex);
        m_script.Expect(!m_started, "ReleaseBufferQueue: after the stop");
        m_free.clear();
        m_filled.clear();
        m_buffers.clear();
        m_condition.notify_all();
        return status;
    }

    // Shape of the frames from the next AllocBufferQueue on; 32 x 32 pixels of 8-bit mono until then.
    void SetFormat(std::uint32_t width, std::uint32_t height, std::uint32_t pixelType, std::uint32_t bitDepth)
    {
        std::lock_guard const lock(m_mutex);
        m_format.pixelType = pixelType;
        m_format.bitDepth = bitDepth;
        m_format.bitsPerPixel = (pixelType >> 16) & 255;
        m_format.formatClass = m_format.bitsPerPixel == 8 ? TOV_CLASS_8BIT : TOV_CLASS_MONO_UNPACKED;
        m_format.width = width;
        m_format.height = height;
        m_format.lineStep = (std::uint64_t{width} * m_format.bitsPerPixel + 7) / 8;
        m_format.imageSize = static_cast<std::uint32_t>(m_format.lineStep * height);
    }
    // Fills the next free buffer; false when there is none or the stream is stopped. `paint` may write the pixels.
    bool Push(FakeFrame const &frame, std::function<void(_TovImage &)> const &paint = {})
    {
        std::lock_guard const lock(m_mutex);
        if (!m_started || m_free.empty())
            return false;
        FakeBuffer *const buffer = m_free.front();
        m_free.pop_front();
        buffer->m_image.frameID = frame.id;
        buffer->m_image.timestamp = frame.timestamp;
        buffer->m_incomplete = frame.incomplete;
        buffer->m_losses = frame.losses;
        if (paint)
            paint(buffer->m_image);
        m_filled.push_back({buffer, frame.error});
        m_condition.notify_all();
        return true;
    }
    // False when the stream has no buffers any more, or none comes back.
    bool WaitForFree()
    {
        std::unique_lock lock(m_mutex);
        m_condition.wait_for(lock, Patience, [this] { return !m_free.empty() || m_buffers.empty(); });
        return !m_free.empty();
    }
    // One GetBuffer returns nothing, with that error.
    void PushNothing(std::int32_t error)
    {
        std::lock_guard const lock(m_mutex);
        m_filled.push_back({nullptr, error});
        m_condition.notify_all();
    }
    // Until a thread sleeps in GetBuffer with nothing left to take: it is then done with all that was pushed.
    bool WaitUntilDrained()
    {
        std::unique_lock lock(m_mutex);
        return m_condition.wait_for(lock, Patience,
                                    [this] { return m_waiting > 0 && m_filled.empty() && !m_cancelled; });
    }
    // With the application.
    std::size_t OutCount() const
    {
        std::lock_guard const lock(m_mutex);
        return static_cast<std::size_t>(
            std::count_if(m_buffers.begin(), m_buffers.end(), [](auto const &buffer) { return buffer->m_out; }));
    }

private:
    static constexpr std::chrono::seconds Patience{90}; // with what another thread has to do

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
    std::int64_t GetValue(std::int32_t *status) override
    {
        StoreError(status, error);
        return value;
    }
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
    explicit FakeParams(FakeScript &script)
        : commands{"AcquisitionStart", "AcquisitionStop", "AcquisitionAbort"},
          m_script(script)
    {
        ints["TLParamsLocked"].value = 0;
        ints["GevTimestampTickFrequency"].value = 1000000;
        texts["DeviceModelName"].value = "Scripted";
        texts["DeviceUserID"].value = "bench";
        texts["DeviceSerialNumber"].value = "0042";
    }

    std::map<std::string, FakeInt> ints;
    std::map<std::string, FakeText> texts;
    std::map<std::string, FakeEnum> enums;
    std::set<std::string> commands;
    bool absenceSilent = false;                     // a missing node is null, without an error
    std::function<void(std::string const &)> onSet; // after that integer was set
    std::function<void(std::string const &)> onGet; // before that integer or text is looked up, on the caller's thread

    TovCam::IntParam *GetInt(char const *name, std::int32_t *error) override
    {
        if (onGet)
            onGet(name);
        return Find(ints, name, absenceSilent ? nullptr : error);
    }
    TovCam::StringParam *GetString(char const *name, std::int32_t *error) override
    {
        if (onGet)
            onGet(name);
        return Find(texts, name, error);
    }
    std::int32_t SetIntegerValue(char const *name, std::int64_t value) override
    {
        std::int32_t const status = m_script.Run(name, "Set " + std::string(name) + " " + std::to_string(value));
        if (!ints.count(name))
            return TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM;
        if (status == 0) {
            ints[name].value = value;
            if (onSet)
                onSet(name);
        }
        return status;
    }
    std::int64_t GetIntegerValue(char const *name, std::int32_t *error) override
    {
        TovCam::IntParam *const node = GetInt(name, error);
        return node ? node->GetValue(error) : 0;
    }
    std::int32_t ExecuteCommand(char const *name) override
    {
        std::int32_t const status = m_script.Run(name, "Execute " + std::string(name));
        return commands.count(name) ? status : TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM;
    }
    FAKE_GIVES(TovCam::EnumParam *GetEnum(char const *name, std::int32_t *),
               enums.count(name) ? &enums[name] : nullptr);
    FAKE_GIVES(char const *GetEnumValueStr(char const *name, std::int32_t *),
               enums.count(name) ? enums[name].value.c_str() : nullptr);

private:
    template<typename Nodes>
    static typename Nodes::mapped_type *Find(Nodes &nodes, char const *name, std::int32_t *error)
    {
        auto const found = nodes.find(name);
        bool const known = found != nodes.end();
        StoreError(error, known ? 0 : TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM);
        return known ? &found->second : nullptr;
    }

    FakeScript &m_script;
};

// The camera as a search would list it, and its interface.
class FakeDeviceInfo : public TovCam::DeviceInfo, public TovCam::Interface
{
public:
    char const *host = nullptr;              // its host information
    TovCam::ParamArray *interface = nullptr; // parameters of the interface
    std::uint32_t kind = TovCam::InterfaceKindGigEVision;
    TovCam::OpenFailure failure; // set while nobody looks
    char const *vendor = "Test bench", *model = "Scripted", *serial = "0042";

    FAKE_GIVES(TovCam::OpenFailure GetOpenFailure(), failure);
    FAKE_GIVES(TovCam::Interface *GetInterface(), this);
    FAKE_GIVES(char const *GetDisplayName(), "Scripted camera");
    FAKE_GIVES(char const *GetHostInformation(), host);
    FAKE_GIVES(char const *GetVendorName(), vendor);
    FAKE_GIVES(char const *GetModelName(), model);
    FAKE_GIVES(char const *GetSerialNumber(), serial);
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
    std::atomic<std::uint64_t> silence{0};

    std::uint64_t GetSilence() override
    {
        return silence;
    }
    // With false GetCameraParameters gives null and that error.
    void SetParametersReadable(bool readable, std::int32_t error = TOV_CAM_ERR_GENICAM_TREE)
    {
        m_parametersError = error;
        m_readable = readable;
    }
    // The camera goes away: event 1004 from a thread of its own. Returns when the callbacks have.
    void LoseConnection()
    {
        std::thread([this] {
            std::lock_guard const lock(m_eventMutex);
            for (Subscription const &subscription : m_subscriptions) {
                if (subscription.id == TovCam::EventConnectionLost)
                    subscription.callback(nullptr, 0, subscription.user);
            }
        }).join();
    }
    int ReleaseCount() const
    {
        return m_released;
    }

    void Release() override
    {
        script.Run("Release");
        ++m_released;
        std::lock_guard const lock(m_eventMutex);
        script.Expect(m_subscriptions.empty(), "Release: after the last unsubscription");
        m_subscriptions.clear();
    }
    std::int32_t RegisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user) override
    {
        std::int32_t const status = script.Run("RegisterEvent", "RegisterEvent " + std::to_string(id));
        std::lock_guard const lock(m_eventMutex);
        if (status == 0)
            m_subscriptions.push_back({id, callback, user});
        return status;
    }
    std::int32_t UnregisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user) override
    {
        std::int32_t const status = script.Run("UnregisterEvent", "UnregisterEvent " + std::to_string(id));
        std::lock_guard const lock(m_eventMutex);
        return std::erase(m_subscriptions, Subscription{id, callback, user}) ? status : TOV_CAM_ERR_INVALID_ARGUMENT;
    }
    TovCam::ParamArray *GetCameraParameters(std::int32_t *error) override
    {
        StoreError(error, m_readable ? 0 : m_parametersError.load());
        return m_readable ? &params : nullptr;
    }
    FAKE_GIVES(TovCam::Stream *GetStreamByIndex(std::uint32_t index), index == 0 ? &stream : nullptr);
    FAKE_GIVES(TovCam::DeviceInfo *GetDeviceInfo(), &info);
    FAKE_GIVES(std::int32_t ReadRegister(std::uint64_t, void *, std::size_t), TOV_CAM_ERR_UNKNOWN);
    FAKE_GIVES(std::int32_t SaveConfiguration(char const *path),
               UnlessGivenUp(script.Run("SaveConfiguration", std::string("SaveConfiguration ") + path)));
    FAKE_GIVES(std::int32_t LoadConfiguration(char const *path),
               UnlessGivenUp(script.Run("LoadConfiguration", std::string("LoadConfiguration ") + path)));
    FAKE_GIVES(void SetGiveUp(std::shared_ptr<std::atomic<bool> const> const &flag), void(m_givenUp = flag));
    bool IsGivenUp() const
    {
        return m_givenUp && *m_givenUp;
    }
    FAKE_GIVES(TovCam::ConfigurationReport GetConfigurationReport(), configuration);
    TovCam::ConfigurationReport configuration;
    FAKE_GIVES(TovCam::CaptureFailure GetCaptureFailure(), failure);
    TovCam::CaptureFailure failure;

private:
    std::int32_t UnlessGivenUp(std::int32_t status) const
    {
        return IsGivenUp() ? TOV_CAM_ERR_NO_DEVICE : status;
    }
    struct Subscription
    {
        std::uint32_t id;
        TovCam::EventCallback callback;
        void *user;
        bool operator==(Subscription const &) const = default;
    };
    mutable std::mutex m_eventMutex;           // held while callbacks run, so that unsubscribing waits for them
    std::vector<Subscription> m_subscriptions; // m_eventMutex
    std::shared_ptr<std::atomic<bool> const> m_givenUp;
    std::atomic<bool> m_readable{true};
    std::atomic<std::int32_t> m_parametersError{0};
    std::atomic<int> m_released{0};
};
