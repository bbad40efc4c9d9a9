#include "fakecamera.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

namespace {

void store(std::int32_t *error, std::int32_t status)
{
    if (error)
        *error = status;
}

void append(std::string &log, std::string const &entry)
{
    log += (log.empty() ? "" : "; ") + entry;
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

void FakeScript::Note(std::string const &text)
{
    std::lock_guard const lock(m_mutex);
    append(m_log, text);
}

std::string FakeScript::Violations() const
{
    std::lock_guard const lock(m_mutex);
    return m_violations;
}

std::int32_t FakeScript::Run(std::string const &step, std::string const &entry)
{
    std::function<void()> action;
    std::int32_t status = 0;
    {
        std::lock_guard const lock(m_mutex);
        append(m_log, entry);
        if (auto const found = m_actions.find(step); found != m_actions.end())
            action = found->second;
        if (auto const found = m_failures.find(step); found != m_failures.end())
            status = found->second;
    }
    if (action)
        action();
    return status;
}

void FakeScript::Violation(std::string const &text)
{
    std::lock_guard const lock(m_mutex);
    append(m_violations, text);
}

_TovImage *FakeBuffer::GetImage()
{
    return &m_image;
}

std::uint64_t FakeBuffer::GetBufferSize()
{
    return m_size;
}

std::uint64_t FakeBuffer::GetTimestamp()
{
    return m_image.timestamp;
}

std::uint64_t FakeBuffer::GetFrameID()
{
    return m_image.frameID;
}

bool FakeBuffer::IsIncomplete()
{
    return m_incomplete;
}

std::int32_t FakeStream::QueueBuffer(TovCam::Buffer *buffer)
{
    std::lock_guard const lock(m_mutex);
    auto const found = std::find_if(m_buffers.begin(), m_buffers.end(),
                                    [buffer](auto const &candidate) { return candidate.get() == buffer; });
    if (found == m_buffers.end()) {
        m_script.Violation("QueueBuffer: not a buffer of the stream");
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    }
    if ((*found)->m_place != FakeBuffer::Place::Out) {
        m_script.Violation("QueueBuffer: the stream has it already");
        return TOV_CAM_ERR_INVALID_ARGUMENT;
    }
    (*found)->m_place = FakeBuffer::Place::Stream;
    m_free.push_back(found->get());
    m_condition.notify_all();
    return 0;
}

TovCam::Buffer *FakeStream::GetBuffer(std::uint32_t timeout, std::int32_t *error)
{
    std::unique_lock lock(m_mutex);
    auto const ready = [this] {
        return m_cancelled || !m_filled.empty();
    };
    if (!ready()) {
        ++m_sleeping;
        m_condition.notify_all();
        if (timeout == TovCam::WaitForever)
            m_condition.wait(lock, ready);
        else
            m_condition.wait_for(lock, std::chrono::milliseconds(timeout), ready);
        --m_sleeping;
    }
    if (m_cancelled || m_filled.empty()) {
        m_cancelled = false;
        store(error, 0);
        return nullptr;
    }
    FakeBuffer *const buffer = m_filled.front();
    m_filled.pop_front();
    if (!buffer) {
        store(error, m_errors.front());
        m_errors.pop_front();
        return nullptr;
    }
    buffer->m_place = FakeBuffer::Place::Out;
    store(error, buffer->m_error);
    return buffer;
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
    if (status == 0)
        m_started = false;
    return status;
}

std::int32_t FakeStream::AllocBufferQueue(void *, std::uint32_t count)
{
    std::int32_t const status = m_script.Run("AllocBufferQueue", "AllocBufferQueue " + std::to_string(count));
    if (status != 0)
        return status;
    std::lock_guard const lock(m_mutex);
    if (!m_buffers.empty()) {
        m_script.Violation("AllocBufferQueue: there is a queue already");
        return TOV_CAM_ERR_INVALID_STATE;
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        auto buffer = std::make_unique<FakeBuffer>();
        _TovImage &image = buffer->m_image;
        image.pixelType = m_pixelType;
        image.bitDepth = m_bitDepth;
        image.bitsPerPixel = (m_pixelType >> 16) & 255;
        image.formatClass = image.bitsPerPixel == 8 ? TOV_CLASS_8BIT : TOV_CLASS_MONO_UNPACKED;
        image.width = m_width;
        image.height = m_height;
        image.lineStep = (std::uint64_t{m_width} * image.bitsPerPixel + 7) / 8;
        image.imageSize = static_cast<std::uint32_t>(image.lineStep * m_height);
        // One more line of 16-bit samples behind the last one.
        buffer->m_memory.resize(image.imageSize + std::size_t{m_width} * 2);
        image.imageData = buffer->m_memory.data();
        m_free.push_back(buffer.get());
        m_buffers.push_back(std::move(buffer));
    }
    return 0;
}

std::int32_t FakeStream::ReleaseBufferQueue()
{
    std::int32_t const status = m_script.Run("ReleaseBufferQueue", "ReleaseBufferQueue");
    std::lock_guard const lock(m_mutex);
    if (m_started)
        m_script.Violation("ReleaseBufferQueue: the stream runs");
    if (CountOut())
        m_script.Violation("ReleaseBufferQueue: a buffer is still out");
    m_free.clear();
    m_filled.clear();
    m_errors.clear();
    m_buffers.clear();
    m_condition.notify_all();
    return status;
}

void FakeStream::SetFormat(std::uint32_t width, std::uint32_t height, std::uint32_t pixelType, std::uint32_t bitDepth)
{
    std::lock_guard const lock(m_mutex);
    m_width = width;
    m_height = height;
    m_pixelType = pixelType;
    m_bitDepth = bitDepth;
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
    buffer->m_size = buffer->m_image.imageSize;
    buffer->m_incomplete = frame.incomplete;
    buffer->m_error = frame.error;
    if (paint)
        paint(buffer->m_image);
    buffer->m_place = FakeBuffer::Place::Filled;
    m_filled.push_back(buffer);
    m_condition.notify_all();
    return true;
}

bool FakeStream::WaitForFree(std::size_t count)
{
    std::unique_lock lock(m_mutex);
    m_condition.wait(lock, [this, count] { return m_free.size() >= count || m_buffers.empty(); });
    return !m_buffers.empty();
}

void FakeStream::PushNothing(std::int32_t error)
{
    std::lock_guard const lock(m_mutex);
    m_filled.push_back(nullptr);
    m_errors.push_back(error);
    m_condition.notify_all();
}

bool FakeStream::WaitUntilDrained(int milliseconds)
{
    std::unique_lock lock(m_mutex);
    return m_condition.wait_for(lock, std::chrono::milliseconds(milliseconds),
                                [this] { return m_sleeping > 0 && m_filled.empty() && !m_cancelled; });
}

std::size_t FakeStream::FreeCount() const
{
    std::lock_guard const lock(m_mutex);
    return m_free.size();
}

std::size_t FakeStream::OutCount() const
{
    std::lock_guard const lock(m_mutex);
    return CountOut();
}

std::size_t FakeStream::CountOut() const
{
    return static_cast<std::size_t>(std::count_if(m_buffers.begin(), m_buffers.end(), [](auto const &buffer) {
        return buffer->m_place == FakeBuffer::Place::Out;
    }));
}

struct FakeParams::Node
{
    struct Int final : TovCam::IntParam
    {
        std::string name;
        std::int64_t value = 0;
        std::int64_t minimum = 0;
        std::int64_t maximum = 0;
        FakeScript *script = nullptr;

        char const *GetName() override
        {
            return name.c_str();
        }
        std::int64_t GetValue(std::int32_t *error) override
        {
            store(error, script->Run("Read " + name, "Read " + name));
            return value;
        }
        std::int64_t GetMin(std::int32_t *error) override
        {
            store(error, 0);
            return minimum;
        }
        std::int64_t GetMax(std::int32_t *error) override
        {
            store(error, 0);
            return maximum;
        }
    };
    struct Text final : TovCam::StringParam
    {
        std::string name;
        std::string value;

        char const *GetName() override
        {
            return name.c_str();
        }
        char const *GetValue(std::int32_t *error) override
        {
            store(error, 0);
            return value.c_str();
        }
    };
    struct Enum final : TovCam::EnumParam
    {
        std::string name;
        std::string value;

        char const *GetName() override
        {
            return name.c_str();
        }
        char const *GetValueStr(std::int32_t *error) override
        {
            store(error, 0);
            return value.c_str();
        }
    };

    Kind kind;
    Int number;
    Text text;
    Enum choice;
};

FakeParams::FakeParams(FakeScript &script) : m_script(script)
{
}

FakeParams::~FakeParams() = default;

FakeParams::Node &FakeParams::make(std::string const &name, Kind kind)
{
    auto &node = m_nodes[name];
    if (!node)
        node = std::make_unique<Node>();
    node->kind = kind;
    node->number.name = node->text.name = node->choice.name = name;
    node->number.script = &m_script;
    return *node;
}

FakeParams::Node *FakeParams::find(char const *name, Kind kind, std::int32_t *error)
{
    auto const found = m_nodes.find(name);
    if (found == m_nodes.end()) {
        store(error, TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM);
        return nullptr;
    }
    if (found->second->kind != kind) {
        store(error, TOV_CAM_ERR_GENICAM_PARAM_TYPE);
        return nullptr;
    }
    store(error, 0);
    return found->second.get();
}

void FakeParams::SetInt(std::string const &name, std::int64_t value, std::int64_t minimum, std::int64_t maximum)
{
    std::lock_guard const lock(m_mutex);
    Node::Int &node = make(name, Kind::Int).number;
    node.value = value;
    node.minimum = minimum;
    node.maximum = maximum;
}

void FakeParams::SetText(std::string const &name, std::string const &value)
{
    std::lock_guard const lock(m_mutex);
    make(name, Kind::Text).text.value = value;
}

void FakeParams::SetEnum(std::string const &name, std::string const &value)
{
    std::lock_guard const lock(m_mutex);
    make(name, Kind::Enum).choice.value = value;
}

void FakeParams::AddCommand(std::string const &name)
{
    std::lock_guard const lock(m_mutex);
    make(name, Kind::Command);
}

void FakeParams::Remove(std::string const &name)
{
    std::lock_guard const lock(m_mutex);
    m_nodes.erase(name);
}

void FakeParams::SetAbsenceSilent(bool silent)
{
    std::lock_guard const lock(m_mutex);
    m_absenceSilent = silent;
}

TovCam::EnumParam *FakeParams::GetEnum(char const *name, std::int32_t *error)
{
    std::lock_guard const lock(m_mutex);
    Node *const node = find(name, Kind::Enum, m_absenceSilent ? nullptr : error);
    return node ? &node->choice : nullptr;
}

TovCam::IntParam *FakeParams::GetInt(char const *name, std::int32_t *error)
{
    std::lock_guard const lock(m_mutex);
    Node *const node = find(name, Kind::Int, m_absenceSilent ? nullptr : error);
    return node ? &node->number : nullptr;
}

TovCam::StringParam *FakeParams::GetString(char const *name, std::int32_t *error)
{
    std::lock_guard const lock(m_mutex);
    Node *const node = find(name, Kind::Text, m_absenceSilent ? nullptr : error);
    return node ? &node->text : nullptr;
}

char const *FakeParams::GetEnumValueStr(char const *name, std::int32_t *error)
{
    std::lock_guard const lock(m_mutex);
    Node *const node = find(name, Kind::Enum, error);
    return node ? node->choice.value.c_str() : nullptr;
}

std::int32_t FakeParams::SetIntegerValue(char const *name, std::int64_t value)
{
    std::int32_t const status = m_script.Run(name, "Set " + std::string(name) + " " + std::to_string(value));
    std::lock_guard const lock(m_mutex);
    std::int32_t error = status;
    Node *const node = find(name, Kind::Int, status ? nullptr : &error);
    if (node && !error)
        node->number.value = value;
    return error;
}

std::int64_t FakeParams::GetIntegerValue(char const *name, std::int32_t *error)
{
    std::lock_guard const lock(m_mutex);
    Node *const node = find(name, Kind::Int, error);
    return node ? node->number.value : 0;
}

std::int32_t FakeParams::ExecuteCommand(char const *name)
{
    std::int32_t const status = m_script.Run(name, "Execute " + std::string(name));
    std::lock_guard const lock(m_mutex);
    std::int32_t error = status;
    find(name, Kind::Command, status ? nullptr : &error);
    return error;
}

std::int32_t FakeParams::SetEnumValueStr(char const *name, char const *value)
{
    std::lock_guard const lock(m_mutex);
    std::int32_t error = 0;
    if (Node *const node = find(name, Kind::Enum, &error))
        node->choice.value = value;
    return error;
}

std::int32_t FakeParams::SetFloatValue(char const *, double)
{
    return TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM;
}

double FakeParams::GetFloatValue(char const *, std::int32_t *error)
{
    store(error, TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM);
    return 0;
}

std::int32_t FakeParams::SetBooleanValue(char const *, bool)
{
    return TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM;
}

std::int32_t FakeParams::SetStringValue(char const *name, char const *value)
{
    std::lock_guard const lock(m_mutex);
    std::int32_t error = 0;
    if (Node *const node = find(name, Kind::Text, &error))
        node->text.value = value;
    return error;
}

TovCam::DeviceInfo *FakeInterface::GetFirstDeviceInfo()
{
    return nullptr;
}

std::uint32_t FakeInterface::GetInterfaceKind()
{
    return kind;
}

char const *FakeInterface::GetInterfaceDescription()
{
    return "Scripted interface";
}

char const *FakeInterface::GetDriverVersion()
{
    return "1.0";
}

TovCam::ParamArray *FakeInterface::GetInterfaceParameters(std::int32_t *error)
{
    store(error, 0);
    return nullptr;
}

std::uint32_t FakeInterface::GetDeviceCount()
{
    return 0;
}

TovCam::DeviceInfo *FakeInterface::GetDeviceInfoByIndex(std::uint32_t)
{
    return nullptr;
}

TovCam::Interface *FakeDeviceInfo::GetInterface()
{
    return &interface;
}

char const *FakeDeviceInfo::GetDisplayName()
{
    return "Scripted camera";
}

char const *FakeDeviceInfo::GetHostInformation()
{
    return nullptr;
}

char const *FakeDeviceInfo::GetVendorName()
{
    return "Test bench";
}

char const *FakeDeviceInfo::GetModelName()
{
    return "Scripted";
}

char const *FakeDeviceInfo::GetSerialNumber()
{
    return "0042";
}

char const *FakeDeviceInfo::GetUserID()
{
    return "bench";
}

char const *FakeDeviceInfo::GetAddress()
{
    return "";
}

TovCam::DeviceInfo::AccessStatus FakeDeviceInfo::GetAccessStatus()
{
    return AccessFree;
}

FakeDevice::FakeDevice()
{
    params.SetInt("TLParamsLocked", 0, 0, 1);
    params.SetInt("GevTimestampTickFrequency", 1000000);
    for (char const *command : {"AcquisitionStart", "AcquisitionStop", "AcquisitionAbort"})
        params.AddCommand(command);
    params.SetText("DeviceModelName", "Scripted");
    params.SetText("DeviceUserID", "bench");
    params.SetText("DeviceSerialNumber", "0042");
}

void FakeDevice::SetParametersReadable(bool readable, std::int32_t error)
{
    m_parametersError = error;
    m_readable = readable;
}

void FakeDevice::Emit(std::uint32_t event, void const *data, unsigned long size)
{
    std::lock_guard const lock(m_eventMutex);
    for (Subscription const &subscription : std::vector<Subscription>(m_subscriptions)) {
        if (subscription.id == event)
            subscription.callback(data, size, subscription.user);
    }
}

void FakeDevice::LoseConnection()
{
    std::thread([this] { Emit(TovCam::EventConnectionLost); }).join();
}

std::size_t FakeDevice::SubscriberCount() const
{
    std::lock_guard const lock(m_eventMutex);
    return m_subscriptions.size();
}

int FakeDevice::ReleaseCount() const
{
    return m_released;
}

void FakeDevice::Release()
{
    script.Run("Release", "Release");
    ++m_released;
    std::lock_guard const lock(m_eventMutex);
    m_subscriptions.clear();
}

TovCam::Stream *FakeDevice::GetStreamByIndex(std::uint32_t index)
{
    return index == 0 ? &stream : nullptr;
}

TovCam::DeviceInfo *FakeDevice::GetDeviceInfo()
{
    return &info;
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
    store(error, m_readable ? 0 : m_parametersError.load());
    return m_readable ? &params : nullptr;
}

std::int32_t FakeDevice::ReadRegister(std::uint64_t, void *buffer, std::size_t size)
{
    std::memset(buffer, 0, size);
    return script.Run("ReadRegister", "ReadRegister");
}

std::int32_t FakeDevice::SaveConfiguration(char const *path)
{
    return script.Run("SaveConfiguration", std::string("SaveConfiguration ") + path);
}

std::int32_t FakeDevice::LoadConfiguration(char const *path)
{
    return script.Run("LoadConfiguration", std::string("LoadConfiguration ") + path);
}
