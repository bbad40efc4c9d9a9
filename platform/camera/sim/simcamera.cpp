#include "simcamera.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <thread>

namespace R = SimRegister;

namespace {

// Degrees Celsius at a place in the camera after running for `seconds`.
double Temperature(std::uint32_t place, double seconds)
{
    double const rise = place == 0 ? 14.0 : 9.0;
    return 27.0 + rise * (1.0 - std::exp(-seconds / 120.0)) + 0.3 * std::sin(seconds / 7.0 + place);
}

bool Fail(GError **error, ArvDeviceError code, char const *text)
{
    g_set_error_literal(error, ARV_DEVICE_ERROR, code, text);
    return false;
}

// The settings, which UserSetLoad resets: they end where the read-only information begins.
constexpr std::uint32_t SettingsBegin = R::Width, SettingsEnd = R::FirmwareNumbers;

constexpr auto GiveUpPeriod = std::chrono::milliseconds(10); // a delay looks so often whether it is waited for
constexpr std::uint32_t LongestLogged = 0x10000;             // bytes of an access; no register is as long

} // namespace

SimCamera::SimCamera(SimModel const &model, SimStream &stream, EventHub &events)
    : SimMemory(model.kind == TovCam::InterfaceKindGigEVision, R::Begin, R::End),
      m_model(model),
      m_stream(stream),
      m_events(events),
      m_packets(MakeSimPackets(model.kind))
{
    PowerUp();
}

void SimCamera::SetNodeMap(ArvGc *nodeMap)
{
    m_nodeMap = nodeMap;
}

// ---- Memory ------------------------------------------------------------------------------------------------------

std::uint8_t *SimCamera::FindBytes(std::uint64_t address, std::uint32_t size)
{
    if (std::uint8_t *const bytes = Find(address, size))
        return bytes;
    if (m_model.sensorClass != 0 && address == R::SensorClass && size == m_sensorClass.size())
        return m_sensorClass.data();
    return nullptr;
}

void SimCamera::PowerUp()
{
    SetText(R::Vendor, "Velmor");
    SetText(R::Model, m_model.name);
    SetText(R::Family, m_model.family);
    SetText(R::Version, "1.3");
    SetText(R::Info, "Simulated camera");
    SetText(R::Serial, m_model.serial);
    if (GetText(R::UserID).empty())
        SetText(R::UserID, m_model.userID);
    SetText(R::FirmwareText, "1.3.0");

    Clear(SettingsBegin, SettingsEnd);
    SetInt(R::SensorWidth, m_model.sensorWidth);
    SetInt(R::SensorHeight, m_model.sensorHeight);
    SetInt(R::Width, m_model.sensorWidth);
    SetInt(R::Height, m_model.sensorHeight);
    SetInt(R::BinningHorizontal, 1);
    SetInt(R::BinningVertical, 1);
    SetInt(R::PixelFormat, m_model.pixelFormat);
    SetInt(R::AcquisitionFrameCount, 10);
    SetFloat(R::AcquisitionFrameRate, 10.0);
    SetFloat(R::ExposureTime, 10000.0);
    SetInt(R::PixelClock, 64);
    SetInt(R::LineTime, 1600);
    SetInt(R::PacketSize, 1500);
    SetInt(R::BlackLevel, 32);
    SetFloat(R::Gamma, 1.0);
    for (std::uint32_t i = 0; i < 3; ++i)
        SetFloat(R::BalanceRatio + 8 * i, 1.0);
    for (std::uint32_t i = 0; i < 2; ++i) {
        SetInt(R::LineMode + 8 * i, i);
        SetFloat(R::TimerDuration + 8 * i, 100.0);
    }
    SetInt(R::TickFrequency, m_model.tickFrequency, 8);

    // Version, image, build, customer, register set, logic, configuration memory, XML, transport (two).
    constexpr std::uint32_t Numbers[] = {0x130, 1, 0x2a7, 0, 0x12, 0x1f04, 0x16, 0x103, 0x110, 0x20};
    for (std::uint32_t i = 0; i < std::size(Numbers); ++i)
        SetInt(R::FirmwareNumbers + 8 * i, Numbers[i]);
    SetInt(R::IPAddress, 0xC0000200u + m_model.sensorWidth % 250); // a network reserved for examples
    SetInt(R::MACAddress, 0x02005E100000u + m_model.sensorWidth, 8);
    SetInt(R::FamilyID, m_model.familyID);
    SetFloat(R::LinkSpeed, m_model.linkSpeed);
    SetInt(R::SensorColour, m_model.colour);
    if (GetInt(R::SimClockStep) == 0)
        SetInt(R::SimClockStep, 1);
    for (std::uint32_t i = 0; i < R::LutEntries; ++i)
        SetInt(R::LUT + 4 * i, i * 4095 / (R::LutEntries - 1));
    for (std::size_t i = 0; i < m_sensorClass.size(); ++i)
        m_sensorClass[IsBigEndian() ? 3 - i : i] =
            static_cast<std::uint8_t>(std::uint64_t{m_model.sensorClass} << 24 >> (8 * i));
}

// ---- Access ------------------------------------------------------------------------------------------------------

bool SimCamera::Read(std::uint64_t address, std::uint32_t size, std::uint8_t *out, GError **error)
{
    if (m_asking) {
        std::uint8_t const *const bytes = FindBytes(address, size);
        if (!bytes)
            return Fail(error, ARV_DEVICE_ERROR_PROTOCOL_ERROR_INVALID_ADDRESS, "No such register");
        std::copy_n(bytes, size, out);
        return true;
    }
    if (m_lost)
        return Fail(error, ARV_DEVICE_ERROR_NOT_CONNECTED, "The camera is gone");
    Delay(address, size);
    Refresh(address, size);
    std::uint8_t const *const bytes = FindBytes(address, size);
    Log(false, !bytes, address, bytes, size);
    if (!bytes)
        return Fail(error, ARV_DEVICE_ERROR_PROTOCOL_ERROR_INVALID_ADDRESS, "No such register");
    std::copy_n(bytes, size, out);
    return true;
}

bool SimCamera::Write(std::uint64_t address, std::uint32_t size, std::uint8_t const *bytes, GError **error)
{
    if (m_lost)
        return Fail(error, ARV_DEVICE_ERROR_NOT_CONNECTED, "The camera is gone");
    Delay(address, size);
    std::uint8_t *const memory = FindBytes(address, size);
    // The register that sets the fault stays writable, so that it can be taken back.
    bool const failing = address != R::SimFailFeature && IsFeatureAt(R::SimFailFeature, address, size);
    Log(true, !memory || failing, address, bytes, size);
    if (!memory || memory == m_sensorClass.data())
        return Fail(error, ARV_DEVICE_ERROR_PROTOCOL_ERROR_INVALID_ADDRESS, "No such register");
    if (failing)
        return Fail(error, ARV_DEVICE_ERROR_PROTOCOL_ERROR, "The camera refuses");
    std::copy_n(bytes, size, memory);
    React(static_cast<std::uint32_t>(address));
    return true;
}

std::chrono::milliseconds SimCamera::DelayOf(std::uint64_t address, std::uint32_t size)
{
    std::uint64_t delay = GetInt(R::SimAccessDelay);
    // The registers that set the delay stay fast, so that it can be taken back.
    if (address != R::SimSlowFeature && address != R::SimSlowDelay && IsFeatureAt(R::SimSlowFeature, address, size))
        delay += GetInt(R::SimSlowDelay);
    return std::chrono::milliseconds(std::min<std::uint64_t>(delay, 10000));
}

void SimCamera::SetSleeps(bool sleeps)
{
    m_sleeps = sleeps;
}

void SimCamera::SetGiveUpWatch(GiveUpWatch const *watch)
{
    m_giveUp = watch;
}

void SimCamera::Delay(std::uint64_t address, std::uint32_t size)
{
    if (!m_sleeps)
        return;
    using Clock = std::chrono::steady_clock;
    auto const end = Clock::now() + DelayOf(address, size);
    for (auto now = Clock::now(); now < end && !(m_giveUp && m_giveUp->IsOver()); now = Clock::now())
        std::this_thread::sleep_until(std::min<Clock::time_point>(end, now + GiveUpPeriod));
}

// Whether these bytes belong to the feature named in a text register.
bool SimCamera::IsFeatureAt(std::uint32_t nameRegister, std::uint64_t address, std::uint32_t size)
{
    std::string const name = GetText(nameRegister);
    if (name.empty() || !m_nodeMap)
        return false;
    ArvGcNode *node = arv_gc_get_node(m_nodeMap, name.c_str());
    for (int links = 0; node && links < 10; ++links) {
        if (ARV_IS_GC_REGISTER(node)) {
            m_asking = true;
            std::uint64_t const begin = arv_gc_register_get_address(ARV_GC_REGISTER(node), nullptr);
            std::uint64_t const length = arv_gc_register_get_length(ARV_GC_REGISTER(node), nullptr);
            m_asking = false;
            return address < begin + length && begin < address + size;
        }
        ArvGcNode *next = nullptr;
        for (ArvDomNode *child = arv_dom_node_get_first_child(ARV_DOM_NODE(node)); child;
             child = arv_dom_node_get_next_sibling(child)) {
            if (ARV_IS_GC_PROPERTY_NODE(child) &&
                arv_gc_property_node_get_node_type(ARV_GC_PROPERTY_NODE(child)) == ARV_GC_PROPERTY_NODE_TYPE_P_VALUE)
                next = arv_gc_property_node_get_linked_node(ARV_GC_PROPERTY_NODE(child));
        }
        node = next;
    }
    return false;
}

void SimCamera::Log(bool write, bool failed, std::uint64_t address, std::uint8_t const *bytes, std::uint32_t size)
{
    if (!m_events.IsWanted(TovCam::EventControlChannel) || size > LongestLogged)
        return;
    try { // an exception would go through the node map's C code
        m_stream.Post(m_packets->Control({write, failed, address, bytes, size}));
    } catch (std::bad_alloc const &) {
        m_stream.NoteMissed();
    }
}

// ---- Behaviour ---------------------------------------------------------------------------------------------------

SimFormat SimCamera::CurrentFormat() const
{
    SimFormat f;
    TovPixelTypeInfo const *const info = TovGetPixelTypeInfoByPfnc(static_cast<std::uint32_t>(GetInt(R::PixelFormat)));
    f.pixelType = info ? info->pixelType : std::uint32_t{TV_PIXEL_MONO8};
    f.width = static_cast<std::uint32_t>(GetInt(R::Width));
    f.height = static_cast<std::uint32_t>(GetInt(R::Height));
    f.offsetX = static_cast<std::uint32_t>(GetInt(R::OffsetX));
    f.offsetY = static_cast<std::uint32_t>(GetInt(R::OffsetY));
    f.binningX = static_cast<std::uint32_t>(GetInt(R::BinningHorizontal));
    f.binningY = static_cast<std::uint32_t>(GetInt(R::BinningVertical));
    f.reverseX = GetInt(R::ReverseX) != 0;
    f.reverseY = GetInt(R::ReverseY) != 0;
    return f;
}

std::int32_t SimCamera::GetFormat(SimFormat &format)
{
    if (m_lost)
        return TOV_CAM_ERR_NO_DEVICE;
    format = CurrentFormat();
    return TOV_CAM_ERR_OK;
}

// Whatever was written, the region stays on the sensor. The node map's ranges agree.
void SimCamera::FitFormat()
{
    auto const fit = [this](std::uint32_t binning, std::uint32_t sensor, std::uint32_t size, std::uint32_t offset,
                            std::uint32_t step, std::uint32_t offsetStep) {
        std::uint64_t const factor = std::clamp<std::uint64_t>(GetInt(binning), 1, 4);
        std::uint64_t const room = GetInt(sensor) / factor / step * step;
        std::uint64_t const extent = std::clamp<std::uint64_t>(GetInt(size) / step * step, 32, room);
        SetInt(binning, factor);
        SetInt(size, extent);
        SetInt(offset, std::min(GetInt(offset), room - extent) / offsetStep * offsetStep);
    };
    fit(R::BinningHorizontal, R::SensorWidth, R::Width, R::OffsetX, 16, 8);
    fit(R::BinningVertical, R::SensorHeight, R::Height, R::OffsetY, 2, 2);
}

std::uint64_t SimCamera::PixelClock() const
{
    std::uint64_t const step = std::max<std::uint64_t>(GetInt(R::SimClockStep), 1);
    return std::max(GetInt(R::PixelClock) / step * step, step);
}

double SimCamera::SensorPeriod() const
{
    SimFormat const format = CurrentFormat();
    TovPixelTypeInfo const *const info = TovGetPixelTypeInfo(format.pixelType);
    // More bits take longer to leave the sensor; colours are computed behind it.
    double const effort = std::max(1.0, info->family == TOV_FAMILY_RGB ? 1.0 : info->bitsPerPixel / 8.0);
    double const columns = format.width * format.binningX;
    double line; // us
    if (m_model.familyID == 1)
        line = std::max(static_cast<double>(GetInt(R::LineTime)) / 74.25, effort * (columns + 120.0) / 297.0);
    else if (m_model.familyID == 2)
        line = effort * (columns + 160.0) / (2.0 * static_cast<double>(PixelClock()));
    else
        line = effort * (columns + 100.0) / 40.0;
    return line * (format.height + 24) * 1e-6;
}

double SimCamera::FramePeriod() const
{
    double period = std::max(SensorPeriod(), GetFloat(R::ExposureTime) * 1e-6);
    double const limit = GetFloat(R::AcquisitionFrameRate);
    if (GetInt(R::AcquisitionFrameRateEnable) != 0 && limit > 0.0)
        period = std::max(period, 1.0 / limit);
    return std::clamp(period, 1e-6, 100.0);
}

// The output tells that frames run.
std::uint64_t SimCamera::LineLevel(std::uint32_t line, bool running) const
{
    return GetInt(R::LineInverter + 8 * line) ^ std::uint64_t{line == 1 && running};
}

SimSettings SimCamera::CurrentSettings() const
{
    SimSettings s;
    s.look.exposure = GetFloat(R::ExposureTime);
    double tenths = 0.0;
    for (std::uint32_t i = 0; i < 4; ++i)
        tenths += static_cast<double>(GetInt(R::GainRaw + 8 * i));
    s.look.gain = std::pow(10.0, tenths / 200.0);
    s.look.black = static_cast<double>(GetInt(R::BlackLevel)) / 4095.0;
    s.look.gamma = GetFloat(R::Gamma);
    for (std::uint32_t i = 0; i < 3; ++i)
        s.look.balance[i] = GetFloat(R::BalanceRatio + 8 * i);
    s.look.useTable = GetInt(R::LUTEnable) != 0;
    if (s.look.useTable) {
        for (std::uint32_t i = 0; i < R::LutEntries; ++i)
            s.look.table[i] = static_cast<std::uint16_t>(GetInt(R::LUT + 4 * i));
    }
    s.look.pattern = static_cast<SimPattern>(GetInt(R::TestPattern));
    s.faults.packetLoss = GetFloat(R::SimPacketLoss) / 100.0;
    s.faults.resend = GetInt(R::SimResend) != 0;
    s.faults.incompleteEvery = static_cast<std::uint32_t>(GetInt(R::SimIncompleteEvery));
    s.faults.missingEvery = static_cast<std::uint32_t>(GetInt(R::SimMissingEvery));
    s.faults.linkLimit = GetFloat(R::SimLinkLimit) * 1048576.0;
    s.period = static_cast<std::int64_t>(FramePeriod() * 1e9);
    s.triggered = GetInt(R::TriggerMode) != 0;
    s.packetSize = static_cast<std::uint32_t>(GetInt(R::PacketSize));
    s.exposureEndEvent = GetInt(R::EventNotification) != 0;
    s.frameStartEvent = GetInt(R::EventNotification + 8) != 0;
    for (std::uint32_t i = 0; i < 2; ++i)
        s.lines |= std::uint32_t{LineLevel(i, true) != 0} << i;
    return s;
}

// Brings registers up to date whose value comes from elsewhere.
void SimCamera::Refresh(std::uint64_t address, std::uint32_t size)
{
    auto const asked = [=](std::uint32_t reg, std::uint32_t length) {
        return address < std::uint64_t{reg} + length && reg < address + size;
    };
    double const seconds = static_cast<double>(m_stream.GetTicks()) / static_cast<double>(m_model.tickFrequency);
    if (asked(R::PixelClockInfo, 4))
        SetInt(R::PixelClockInfo, PixelClock());
    if (asked(R::AcquisitionActive, 4))
        SetInt(R::AcquisitionActive, m_stream.IsRunning());
    if (asked(R::PayloadSize, 4))
        SetInt(R::PayloadSize, CurrentFormat().Payload());
    if (asked(R::ResultingFrameRate, 8))
        SetFloat(R::ResultingFrameRate, 1.0 / FramePeriod());
    if (asked(R::SensorFrameRate, 8))
        SetFloat(R::SensorFrameRate, 1.0 / std::max(SensorPeriod(), GetFloat(R::ExposureTime) * 1e-6));
    if (asked(R::Uptime, 4))
        SetInt(R::Uptime, static_cast<std::uint64_t>(seconds));
    for (std::uint32_t i = 0; i < 2; ++i) {
        if (asked(R::Temperature + 8 * i, 8))
            SetFloat(R::Temperature + 8 * i, Temperature(i, seconds));
        if (asked(R::LineStatus + 8 * i, 4))
            SetInt(R::LineStatus + 8 * i, LineLevel(i, m_stream.IsRunning()));
    }
}

void SimCamera::React(std::uint32_t address)
{
    switch (address) {
    case R::AcquisitionStart: {
        FitFormat();
        std::uint64_t const mode = GetInt(R::AcquisitionMode);
        std::int64_t const count = static_cast<std::int64_t>(GetInt(R::AcquisitionFrameCount));
        m_stream.Begin(CurrentFormat(), CurrentSettings(),
                       mode == 1   ? 1
                       : mode == 2 ? std::max<std::int64_t>(count, 1)
                                   : -1);
        return;
    }
    case R::AcquisitionStop:
    case R::AcquisitionAbort:
        m_stream.End();
        return;
    case R::TriggerSoftware:
        m_stream.Trigger();
        return;
    case R::TimestampLatch:
        SetInt(R::TimestampValue, m_stream.GetTicks(), 8);
        return;
    case R::TimestampReset:
        m_stream.ResetTicks();
        return;
    case R::SimLoseCamera:
        m_lost = true;
        m_stream.Lose();
        return;
    case R::DeviceReset:
    case R::UserSetLoad:
        m_stream.End();
        PowerUp();
        break;
    case R::Width:
    case R::Height:
    case R::OffsetX:
    case R::OffsetY:
    case R::BinningHorizontal:
    case R::BinningVertical:
        FitFormat();
        return;
    case R::LineTime: {
        std::uint64_t const step = std::max<std::uint64_t>(GetInt(R::SimClockStep), 1);
        SetInt(R::LineTime, std::max(GetInt(R::LineTime) / step * step, step));
        break;
    }
    default:
        break;
    }
    if (m_stream.IsRunning()) {
        m_stream.Apply(CurrentSettings());
    }
}
