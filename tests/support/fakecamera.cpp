#include "fakecamera.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

namespace {

constexpr std::chrono::seconds Patience{90}; // with what another thread has to do

void Store(std::int32_t *error, std::int32_t status)
{
    if (error)
        *error = status;
}

void Append(std::string &log, std::string const &entry)
{
    log += (log.empty() ? "" : "; ") + entry;
}

template<typename Nodes>
auto *Find(Nodes &nodes, char const *name, std::int32_t *error)
{
    auto const found = nodes.find(name);
    bool const known = found != nodes.end();
    Store(error, known ? 0 : TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM);
    return known ? &found->second : nullptr;
}

} // namespace

void FakeScript::Fail(std::string const &step, std::int32_t status)
{
    std::lock_guard const lock(m_mutex);
    m_failures[step] = status;
}

void FakeScript::At(std::string const &step, std::function<void()> action)
{
    std::lock_guard const lock(m_mutex);
    m_actions[step] = std::move(action);
}

std::string FakeScript::TakeLog()
{
    std::lock_guard const lock(m_mutex);
    return std::exchange(m_log, {});
}

std::string FakeScript::Violations() const
{
    std::lock_guard const lock(m_mutex);
    return m_violations;
}

std::int32_t FakeScript::Run(std::string const &step, std::string const &entry)
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

void FakeScript::Expect(bool kept, std::string const &rule)
{
    std::lock_guard const lock(m_mutex);
    if (!kept)
        Append(m_violations, rule);
}

FakeStream::FakeStream(FakeScript &script) : m_script(script)
{
    SetFormat(32, 32, TV_PIXEL_MONO8, 8);
}

std::int32_t FakeStream::QueueBuffer(TovCam::Buffer *buffer)
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

TovCam::Buffer *FakeStream::GetBuffer(std::uint32_t timeout, std::int32_t *error)
{
    std::unique_lock lock(m_mutex);
    ++m_waiting;
    m_condition.notify_all();
    m_condition.wait_for(lock, std::chrono::milliseconds(timeout), [this] { return m_cancelled || !m_filled.empty(); });
    --m_waiting;
    Result result{nullptr, 0};
    if (!std::exchange(m_cancelled, false) && !m_filled.empty()) {
        result = m_filled.front();
        m_filled.pop_front();
    }
    if (result.buffer)
        result.buffer->m_out = true;
    Store(error, result.error);
    return result.buffer;
}

void FakeStream::CancelGetBuffer()
{
    std::lock_guard const lock(m_mutex);
    m_cancelled = true;
    m_condition.notify_all();
}

std::int32_t FakeStream::StartAcquisition(std::int64_t frames, std::uint32_t flags)
{
    std::int32_t const status =
        m_script.Run("StartAcquisition", "StartAcquisition " + std::to_string(frames) + " " + std::to_string(flags));
    std::lock_guard const lock(m_mutex);
    m_cancelled = false;
    m_started = m_started || status == 0;
    return status;
}

std::int32_t FakeStream::StopAcquisition(std::uint32_t flags)
{
    std::int32_t const status = m_script.Run("StopAcquisition", "StopAcquisition " + std::to_string(flags));
    std::lock_guard const lock(m_mutex);
    m_started = m_started && status != 0;
    return status;
}

std::int32_t FakeStream::AllocBufferQueue(void *, std::uint32_t count)
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

std::int32_t FakeStream::ReleaseBufferQueue()
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

void FakeStream::SetFormat(std::uint32_t width, std::uint32_t height, std::uint32_t pixelType, std::uint32_t bitDepth)
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

bool FakeStream::Push(FakeFrame const &frame, std::function<void(_TovImage &)> const &paint)
{
    std::lock_guard const lock(m_mutex);
    if (!m_started || m_free.empty())
        return false;
    FakeBuffer *const buffer = m_free.front();
    m_free.pop_front();
    buffer->m_image.frameID = frame.id;
    buffer->m_image.timestamp = frame.timestamp;
    buffer->m_incomplete = frame.incomplete;
    if (paint)
        paint(buffer->m_image);
    m_filled.push_back({buffer, frame.error});
    m_condition.notify_all();
    return true;
}

bool FakeStream::WaitForFree()
{
    std::unique_lock lock(m_mutex);
    m_condition.wait_for(lock, Patience, [this] { return !m_free.empty() || m_buffers.empty(); });
    return !m_free.empty();
}

void FakeStream::PushNothing(std::int32_t error)
{
    std::lock_guard const lock(m_mutex);
    m_filled.push_back({nullptr, error});
    m_condition.notify_all();
}

bool FakeStream::WaitUntilDrained()
{
    std::unique_lock lock(m_mutex);
    return m_condition.wait_for(lock, Patience, [this] { return m_waiting > 0 && m_filled.empty() && !m_cancelled; });
}

std::size_t FakeStream::OutCount() const
{
    std::lock_guard const lock(m_mutex);
    return static_cast<std::size_t>(
        std::count_if(m_buffers.begin(), m_buffers.end(), [](auto const &buffer) { return buffer->m_out; }));
}

std::int64_t FakeInt::GetValue(std::int32_t *status)
{
    Store(status, error);
    return value;
}

FakeParams::FakeParams(FakeScript &script)
    : commands{"AcquisitionStart", "AcquisitionStop", "AcquisitionAbort"},
      m_script(script)
{
    ints["TLParamsLocked"].value = 0;
    ints["GevTimestampTickFrequency"].value = 1000000;
    texts["DeviceModelName"].value = "Scripted";
    texts["DeviceUserID"].value = "bench";
    texts["DeviceSerialNumber"].value = "0042";
}

TovCam::IntParam *FakeParams::GetInt(char const *name, std::int32_t *error)
{
    if (onGet)
        onGet(name);
    return Find(ints, name, absenceSilent ? nullptr : error);
}

TovCam::StringParam *FakeParams::GetString(char const *name, std::int32_t *error)
{
    if (onGet)
        onGet(name);
    return Find(texts, name, error);
}

std::int32_t FakeParams::SetIntegerValue(char const *name, std::int64_t value)
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

std::int64_t FakeParams::GetIntegerValue(char const *name, std::int32_t *error)
{
    TovCam::IntParam *const node = GetInt(name, error);
    return node ? node->GetValue(error) : 0;
}

std::int32_t FakeParams::ExecuteCommand(char const *name)
{
    std::int32_t const status = m_script.Run(name, "Execute " + std::string(name));
    return commands.count(name) ? status : TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM;
}

void FakeDevice::SetParametersReadable(bool readable, std::int32_t error)
{
    m_parametersError = error;
    m_readable = readable;
}

void FakeDevice::LoseConnection()
{
    std::thread([this] {
        std::lock_guard const lock(m_eventMutex);
        for (Subscription const &subscription : m_subscriptions) {
            if (subscription.id == TovCam::EventConnectionLost)
                subscription.callback(nullptr, 0, subscription.user);
        }
    }).join();
}

int FakeDevice::ReleaseCount() const
{
    return m_released;
}

void FakeDevice::Release()
{
    script.Run("Release");
    ++m_released;
    std::lock_guard const lock(m_eventMutex);
    script.Expect(m_subscriptions.empty(), "Release: after the last unsubscription");
    m_subscriptions.clear();
}

std::int32_t FakeDevice::RegisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user)
{
    std::int32_t const status = script.Run("RegisterEvent", "RegisterEvent " + std::to_string(id));
    std::lock_guard const lock(m_eventMutex);
    if (status == 0)
        m_subscriptions.push_back({id, callback, user});
    return status;
}

std::int32_t FakeDevice::UnregisterEvent(std::uint32_t id, TovCam::EventCallback callback, void *user)
{
    std::int32_t const status = script.Run("UnregisterEvent", "UnregisterEvent " + std::to_string(id));
    std::lock_guard const lock(m_eventMutex);
    return std::erase(m_subscriptions, Subscription{id, callback, user}) ? status : TOV_CAM_ERR_INVALID_ARGUMENT;
}

TovCam::ParamArray *FakeDevice::GetCameraParameters(std::int32_t *error)
{
    Store(error, m_readable ? 0 : m_parametersError.load());
    return m_readable ? &params : nullptr;
}
