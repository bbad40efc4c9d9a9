// The simulated cameras: the contract over each of them, their formats, their faults, and descriptions that are wrong.
#include "contract.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

TovCam::DeviceInfo *FindModel(TovCam::System *system, std::string const &model)
{
    TovCam::ObjectList *const list = system->GetInterfaceList(255);
    for (TovCam::Interface *i = list->GetFirst(); i; i = list->GetNext()) {
        for (std::uint32_t k = 0; k < i->GetDeviceCount(); ++k) {
            if (i->GetDeviceInfoByIndex(k)->GetModelName() == model)
                return i->GetDeviceInfoByIndex(k);
        }
    }
    return nullptr;
}

double MeanOf(_TovImage const *image, std::uint32_t channel = 0)
{
    _TovImage *rgb = nullptr;
    EXPECT_EQ(TovCreateImage(&rgb, {image->width, image->height}, TV_PIXEL_RGB8) & 0xFFFF, 0u);
    EXPECT_EQ(TovConvertImage(rgb, image) & 0xFFFF, 0u);
    double sum = 0;
    for (std::uint32_t y = 0; y < rgb->height; ++y) {
        for (std::uint32_t x = 0; x < rgb->width; ++x)
            sum += rgb->imageData[y * rgb->lineStep + x * 3 + channel];
    }
    double const mean = sum / (double(rgb->width) * rgb->height);
    TovReleaseImage(&rgb);
    return mean;
}

class SimTest : public CameraTest
{
protected:
    void OpenModel(char const *model = "VG-2048M")
    {
        ASSERT_NO_FATAL_FAILURE(Open(FindModel(m_system, model)));
    }
    // A small picture at some hundred frames a second.
    void OpenFast(char const *model = "VG-2048M")
    {
        OpenModel(model);
        ASSERT_EQ(m_nodes->SetIntegerValue("Width", 256), 0);
        ASSERT_EQ(m_nodes->SetIntegerValue("Height", 128), 0);
        ASSERT_EQ(m_nodes->SetFloatValue("ExposureTime", 2000.0), 0);
    }
};

ContractCamera SimCamera(char const *name, char const *model)
{
    return {name, std::bind(FindModel, std::placeholders::_1, model)};
}

INSTANTIATE_TEST_SUITE_P(Sim, CameraContract,
                         testing::Values(SimCamera("GigEMono", "VG-2048M"), SimCamera("Usb3Bayer", "VU-1920C"),
                                         SimCamera("GigEColour", "VG-1280C")),
                         testing::PrintToStringParamName());

// Every format of every camera: the header says what the table of formats says, and the picture is the same picture.
class SimModels : public SimTest, public testing::WithParamInterface<char const *>
{
};

INSTANTIATE_TEST_SUITE_P(Sim, SimModels, testing::Values("VG-2048M", "VU-1920C", "VG-1280C"));

TEST_P(SimModels, EveryFormatShowsTheSameScene)
{
    OpenModel(GetParam());
    int formats = 0;
    double reference[3] = {};
    for (std::uint32_t row = 0; row < TOV_PIXEL_TYPE_ROWS; ++row) {
        TovPixelTypeInfo const *const info = TovGetPixelTypeInfoByRow(row);
        if (!info->pfncName || m_nodes->SetEnumValueStr("PixelFormat", info->pfncName) != 0)
            continue;
        SCOPED_TRACE(info->pfncName);
        RunningCamera(m_device, 2).ForFrames(1, [&](TovCam::Buffer &buffer) {
            _TovImage const *const image = buffer.GetImage();
            EXPECT_EQ(image->pixelType, info->pixelType);
            EXPECT_EQ(image->bitDepth, info->bitDepth);
            EXPECT_EQ(image->formatClass, info->formatClass);
            EXPECT_EQ(image->bitsPerPixel, info->bitsPerPixel);
            EXPECT_EQ(image->lineStep, TovLineBytes(info->pixelType, image->width));
            for (std::uint32_t c = 0; c < 3; ++c) {
                double const mean = MeanOf(image, c);
                if (formats == 0)
                    reference[c] = mean;
                if (info->family != TOV_FAMILY_MONO || c == 1) {
                    EXPECT_NEAR(mean, reference[c], 4.0);
                }
            }
        });
        ++formats;
    }
    EXPECT_GE(formats, 7);
}

// What the tree tells of single features, as the description has it or as it follows from it.
TEST_F(SimTest, TreeKnowsTheFeatures)
{
    OpenModel();
    auto const named = [this](std::vector<std::uint32_t> const &features, char const *name) {
        return std::find(features.begin(), features.end(), FindFeature(m_nodes, name)) != features.end();
    };
    auto const info = [this](char const *name) -> TovCam::FeatureInfo const & {
        return *m_nodes->GetFeature(FindFeature(m_nodes, name));
    };
    TovCam::FeatureInfo const &exposure = info("ExposureTime");
    EXPECT_EQ(exposure.displayName, "Exposure Time");
    EXPECT_EQ(exposure.unit, "us");
    EXPECT_EQ(exposure.kind, TovCam::FeatureKind::Float);
    EXPECT_EQ(exposure.representation, TovCam::FeatureRepresentation::Logarithmic);
    EXPECT_EQ(exposure.notation, TovCam::FeatureNotation::Fixed);
    EXPECT_EQ(exposure.precision, 1);
    EXPECT_TRUE(exposure.streamable);
    EXPECT_FALSE(exposure.toolTip.empty() || exposure.description.empty());
    EXPECT_EQ(info("GevMACAddress").representation, TovCam::FeatureRepresentation::MAC);
    EXPECT_EQ(info("TLParamsLocked").visibility, TovCam::FeatureVisibility::Guru);
    EXPECT_EQ(info("TLParamsLocked").precision, -1);
    EXPECT_EQ(info("LineStatus").pollingTime, 500u); // its register's
    EXPECT_EQ(info("Width").pollingTime, 0u);
    EXPECT_EQ(info("PixelFormat").entries.front().toolTip, "Grey, 8 bits a sample.");
    EXPECT_TRUE(named(info("AnalogControl").children, "Gain"));
    EXPECT_TRUE(named(info("GainSelector").selected, "Gain"));

    struct
    {
        char const *feature, *dependent;
        bool depends;
    } const cases[] = {
        {"GainSelector", "Gain", true},          // selected
        {"TLParamsLocked", "PixelFormat", true}, // locked
        {"OffsetX", "Width", true},              // a bound, through a formula
        {"Width", "OffsetX", true},
        {"Width", "Gain", false},
        {"LUTIndex", "LUTValue", true},
        {"BinningHorizontal", "WidthMax", true},
        {"DeviceTemperatureSelector", "DeviceTemperature", true},
        {"ExposureTime", "ExposureTime", false},
    };
    for (auto const &c : cases)
        EXPECT_EQ(named(info(c.feature).dependents, c.dependent), c.depends) << c.feature << ' ' << c.dependent;

    // A lock shows at once.
    TovCam::FeatureState state;
    for (std::int64_t const locked : {1, 0}) {
        ASSERT_EQ(m_nodes->SetIntegerValue("TLParamsLocked", locked), 0);
        ASSERT_EQ(m_nodes->ReadFeature(FindFeature(m_nodes, "Width"), &state), 0);
        EXPECT_EQ(state.access, locked ? TovCam::FeatureAccess::ReadOnly : TovCam::FeatureAccess::ReadWrite);
    }
    ASSERT_EQ(m_nodes->ExecuteCommand("SimLoseCamera"), 0);
    state = {};
    std::int32_t const status = m_nodes->ReadFeature(FindFeature(m_nodes, "Gain"), &state);
    EXPECT_EQ(status != 0 ? status : state.valueStatus, TOV_CAM_ERR_NO_DEVICE);
}

// A camera that takes its time over an access holds up neither the end of the connection nor the next one.
TEST_F(SimTest, ReleaseDoesNotWaitForASlowAccess)
{
    OpenModel();
    std::uint32_t const gain = FindFeature(m_nodes, "Gain");
    ASSERT_EQ(m_nodes->SetIntegerValue("SimSlowDelay", 1500), 0);
    ASSERT_EQ(m_nodes->SetStringValue("SimSlowFeature", "Gain"), 0);
    TovCam::ParamArray *const nodes = m_nodes;
    auto slow = std::async(std::launch::async, [nodes, gain, hold = nodes->Hold()] {
        TovCam::FeatureState state;
        return nodes->ReadFeature(gain, &state);
    });
    EXPECT_EQ(slow.wait_for(200ms), std::future_status::timeout);
    std::shared_ptr<void> hold = nodes->Hold();
    Clock::time_point const begin = Clock::now();
    Close();
    TovCam::FeatureState state;
    EXPECT_EQ(nodes->ReadFeature(gain, &state), TOV_CAM_ERR_NO_DEVICE);
    EXPECT_NE(nodes->GetFeature(gain), nullptr);
    OpenModel();
    EXPECT_GT(m_nodes->GetIntegerValue("Width", nullptr), 0);
    EXPECT_LT(Clock::now() - begin, 1200ms);
    EXPECT_EQ(slow.wait_for(0ms), std::future_status::timeout);
    hold.reset(); // the access alone keeps what it needs
    slow.wait();
}

// The mosaic's colours are where its name says: red bars are bright on red pixels alone.
TEST_F(SimTest, MosaicsBeginWithTheirColours)
{
    OpenModel("VU-1920C");
    ASSERT_EQ(m_nodes->SetEnumValueStr("TestPattern", "ColorBar"), 0);
    struct
    {
        char const *format;
        std::uint32_t redX, redY;
    } const cases[] = {{"BayerGR8", 1, 0}, {"BayerRG8", 0, 0}, {"BayerGB8", 0, 1}, {"BayerBG8", 1, 1}};
    for (auto const &c : cases) {
        SCOPED_TRACE(c.format);
        ASSERT_EQ(m_nodes->SetEnumValueStr("PixelFormat", c.format), 0);
        RunningCamera(m_device, 2).ForFrames(1, [&c](TovCam::Buffer &buffer) {
            _TovImage const *const image = buffer.GetImage();
            std::uint32_t const redBar = image->width * 5 / 8 + 32; // the sixth of eight, an even column
            for (std::uint32_t i = 0; i < 4; ++i)
                EXPECT_EQ(image->imageData[i / 2 * image->lineStep + redBar + i % 2],
                          i % 2 == c.redX && i / 2 == c.redY ? 255 : 0);
        });
    }
}

TEST_F(SimTest, LightShowsInThePicture)
{
    OpenModel();
    auto const brightness = [this] {
        double mean = -1;
        RunningCamera(m_device, 2).ForFrames(1, [&mean](auto &buffer) { mean = MeanOf(buffer.GetImage()); });
        return mean;
    };
    double const normal = brightness();
    EXPECT_EQ(m_nodes->SetFloatValue("ExposureTime", 5000.0), 0);
    EXPECT_NEAR(brightness(), normal / 2, 3);
    EXPECT_EQ(m_nodes->SetFloatValue("Gain", 6.0), 0);
    EXPECT_NEAR(brightness(), normal, 4);
    EXPECT_EQ(m_nodes->SetIntegerValue("BlackLevel", 255), 0);
    EXPECT_NEAR(brightness(), normal + 14, 3);
    EXPECT_EQ(m_nodes->ExecuteCommand("UserSetLoad"), 0);
    EXPECT_NEAR(brightness(), normal, 1);
    EXPECT_EQ(m_nodes->SetFloatValue("Gain", std::numeric_limits<double>::quiet_NaN()),
              TOV_CAM_ERR_GENICAM_OUT_OF_RANGE);
}

TEST_F(SimTest, NodesTellWhatTheyAllow)
{
    OpenModel();
    EXPECT_EQ(m_nodes->SetIntegerValue("Width", 1000), TOV_CAM_ERR_GENICAM_OUT_OF_RANGE); // between two steps
    EXPECT_EQ(m_nodes->SetIntegerValue("SensorWidth", 1), TOV_CAM_ERR_GENICAM_ACCESS);
    EXPECT_EQ(m_nodes->SetFloatValue("AcquisitionFrameRate", 10), TOV_CAM_ERR_GENICAM_ACCESS); // not available
    EXPECT_EQ(m_nodes->SetBooleanValue("AcquisitionFrameRateEnable", true), 0);
    EXPECT_EQ(m_nodes->SetFloatValue("AcquisitionFrameRate", 10), 0);
    EXPECT_NEAR(m_nodes->GetFloatValue("ResultingFrameRate", nullptr), 10.0, 1e-6);
    EXPECT_EQ(m_nodes->SetEnumValueStr("TestPattern", "ColorBar"),
              TOV_CAM_ERR_GENICAM_ACCESS); // an entry of colour cameras
    EXPECT_EQ(m_nodes->SetStringValue("DeviceUserID", "bench 4"), 0);
    EXPECT_STREQ(m_nodes->GetString("DeviceUserID", nullptr)->GetValue(nullptr), "bench 4");
    EXPECT_EQ(m_nodes->SetStringValue("DeviceUserID", std::string(65, 'x').c_str()), TOV_CAM_ERR_GENICAM_OUT_OF_RANGE);
    // A selector gives each of its features one value for each of its own.
    EXPECT_EQ(m_nodes->SetFloatValue("TimerDelay", 7.0), 0);
    EXPECT_EQ(m_nodes->SetEnumValueStr("TimerSelector", "Timer1"), 0);
    EXPECT_EQ(m_nodes->GetFloatValue("TimerDelay", nullptr), 0.0);
    // Region and binning keep within the sensor.
    EXPECT_EQ(m_nodes->SetIntegerValue("BinningHorizontal", 2), 0);
    EXPECT_EQ(m_nodes->GetIntegerValue("Width", nullptr), 1024);
    EXPECT_EQ(m_nodes->SetIntegerValue("OffsetX", 8), TOV_CAM_ERR_GENICAM_OUT_OF_RANGE);
    EXPECT_EQ(m_nodes->SetIntegerValue("PixelClock", 100), 0);
    EXPECT_EQ(m_nodes->SetIntegerValue("SimClockStep", 8), 0);
    EXPECT_EQ(m_nodes->GetIntegerValue("PixelClockInfo", nullptr), 96);
}

TEST_F(SimTest, CamerasSayWhatTheirSensorIs)
{
    struct
    {
        char const *model;
        std::int32_t registerStatus;
        std::uint32_t sensorClass;
        std::int64_t family; // -1: no such node
    } const cases[] = {{"VG-2048M", 0, 4, 2}, {"VU-1920C", 0, 12, 1}, {"VG-1280C", TOV_CAM_ERR_GENICAM_GENERIC, 0, -1}};
    for (auto const &c : cases) {
        SCOPED_TRACE(c.model);
        OpenModel(c.model);
        std::uint32_t value = 0;
        EXPECT_EQ(m_device->ReadRegister(0x20006004, &value, 4), c.registerStatus);
        EXPECT_EQ(value >> 24 & 15, c.sensorClass);
        std::int32_t error = 0;
        std::int64_t const family = m_nodes->GetIntegerValue("FamilyID", &error);
        EXPECT_EQ(error == 0 ? family : -1, c.family);
        Close();
    }
}

TEST_F(SimTest, AcquisitionModesAndTriggersCountFrames)
{
    OpenFast();
    struct
    {
        char const *mode;
        int frames;
        bool triggered;
    } const cases[] = {{"SingleFrame", 1, false}, {"MultiFrame", 7, false}, {"Continuous", 1, true}};
    EXPECT_EQ(m_nodes->ExecuteCommand("TriggerSoftware"), TOV_CAM_ERR_GENICAM_ACCESS);
    for (auto const &c : cases) {
        SCOPED_TRACE(c.mode);
        EXPECT_EQ(m_nodes->SetEnumValueStr("AcquisitionMode", c.mode), 0);
        if (c.frames == 7) {
            EXPECT_EQ(m_nodes->SetIntegerValue("AcquisitionFrameCount", 7), 0);
        }
        EXPECT_EQ(m_nodes->SetEnumValueStr("TriggerMode", c.triggered ? "On" : "Off"), 0);
        RunningCamera camera(m_device);
        if (c.triggered) {
            EXPECT_EQ(m_stream->GetBuffer(100, nullptr), nullptr);
            EXPECT_EQ(m_nodes->ExecuteCommand("TriggerSoftware"), 0);
        }
        camera.ForFrames(c.frames, [](auto &) {});
        EXPECT_EQ(m_stream->GetBuffer(200, nullptr), nullptr);
    }
}

TEST_F(SimTest, FaultsShowInTheFrames)
{
    OpenFast();
    // Sets it, and counts the incomplete ones of so many frames, whose numbers the test sees.
    auto const incomplete = [this](int frames, std::int32_t status, std::function<void(bool, std::uint64_t)> see = {}) {
        EXPECT_EQ(status, 0);
        int count = 0;
        RunningCamera(m_device).ForFrames(frames, [&](TovCam::Buffer &buffer) {
            count += buffer.IsIncomplete();
            if (see)
                see(buffer.IsIncomplete(), buffer.GetFrameID());
        });
        return count;
    };
    incomplete(40, m_nodes->SetIntegerValue("SimIncompleteEvery", 5),
               [](bool broken, std::uint64_t id) { EXPECT_EQ(broken, id % 5 == 0) << id; });
    ASSERT_EQ(m_nodes->SetIntegerValue("SimIncompleteEvery", 0), 0);
    incomplete(40, m_nodes->SetIntegerValue("SimMissingEvery", 4),
               [](bool, std::uint64_t id) { EXPECT_NE(id % 4, 0u); });
    ASSERT_EQ(m_nodes->SetIntegerValue("SimMissingEvery", 0), 0);

    // 23 packets a frame: one in a hundred lost spoils a fifth of the frames, and asking again spares nearly all.
    int const lossy = incomplete(200, m_nodes->SetFloatValue("SimPacketLoss", 1.0));
    EXPECT_GT(lossy, 10);
    EXPECT_LT(lossy, 90);
    EXPECT_EQ(incomplete(200, m_nodes->SetBooleanValue("SimResend", true)), 0);
    EXPECT_EQ(incomplete(5, m_nodes->SetFloatValue("SimPacketLoss", 100.0)), 5);
    ASSERT_EQ(m_nodes->SetFloatValue("SimPacketLoss", 0.0), 0);

    double const rate = 256 * 128 * m_nodes->GetFloatValue("ResultingFrameRate", nullptr) / 1048576.0;
    EXPECT_EQ(incomplete(10, m_nodes->SetFloatValue("SimLinkLimit", rate * 0.9)), 10);
    EXPECT_EQ(incomplete(10, m_nodes->SetFloatValue("SimLinkLimit", rate * 1.1)), 0);
}

TEST_F(SimTest, NamedFeaturesFailAndDawdle)
{
    OpenModel();
    auto const fails = [this](char const *feature, std::function<std::int32_t()> const &touch) {
        SCOPED_TRACE(feature);
        ASSERT_EQ(m_nodes->SetStringValue("SimFailFeature", feature), 0);
        EXPECT_EQ(touch(), TOV_CAM_ERR_GENICAM_GENERIC);
        EXPECT_EQ(m_nodes->SetIntegerValue("BlackLevel", 3), 0);
        ASSERT_EQ(m_nodes->SetStringValue("SimFailFeature", ""), 0);
    };
    fails("AcquisitionStart", [this] { return m_nodes->ExecuteCommand("AcquisitionStart"); });
    fails("TLParamsLocked", [this] { return m_nodes->SetIntegerValue("TLParamsLocked", 0); });
    fails("Gain", [this] { return m_nodes->SetFloatValue("Gain", 3.0); });
    fails("PixelFormat", [this] { return m_nodes->SetEnumValueStr("PixelFormat", "Mono12"); });
    fails("ReverseX", [this] { return m_nodes->SetBooleanValue("ReverseX", true); });
    ASSERT_EQ(m_nodes->SetStringValue("SimSlowFeature", "BlackLevel"), 0);
    ASSERT_EQ(m_nodes->SetIntegerValue("SimSlowDelay", 120), 0);
    ASSERT_EQ(m_nodes->SetIntegerValue("SimAccessDelay", 60), 0);
    for (auto const &[feature, delay] : {std::pair("BlackLevel", 120ms), std::pair("Width", 60ms)}) {
        Clock::time_point const begin = Clock::now();
        m_nodes->GetIntegerValue(feature, nullptr);
        EXPECT_GE(Clock::now() - begin, delay);
    }
}

TEST_F(SimTest, ALostCameraTellsAndComesBack)
{
    OpenFast();
    ExpectLoss([this] { EXPECT_EQ(m_nodes->ExecuteCommand("SimLoseCamera"), 0); });
    Close();
    OpenModel();
    EXPECT_EQ(m_nodes->GetIntegerValue("Width", nullptr), 2048);
}

// ---- Descriptions ------------------------------------------------------------------------------------------------

std::string Described(std::string const &nodes)
{
    return "<?xml version=\"1.0\"?><RegisterDescription ModelName=\"m\" VendorName=\"v\" SchemaMajorVersion=\"1\" "
           "SchemaMinorVersion=\"1\" SchemaSubMinorVersion=\"0\">" +
           nodes + "<Port Name=\"Device\"/></RegisterDescription>";
}

std::string Repeat(int count, std::function<std::string(int)> const &part)
{
    std::string all;
    for (int i = 0; i < count; ++i)
        all += part(i);
    return all;
}

std::string Integer(std::string const &name, std::string const &content)
{
    return "<Integer Name=\"" + name + "\">" + content + "</Integer>";
}

std::string Link(std::string const &name, std::string const &to)
{
    return Integer(name, "<pValue>" + to + "</pValue>");
}

std::string Register(std::string const &name, std::string const &place)
{
    return "<IntReg Name=\"" + name + "\">" + place + "<Length>4</Length><pPort>Device</pPort></IntReg>";
}

std::string Knife(std::string const &name, std::string const &x, std::string const &formula)
{
    return "<IntSwissKnife Name=\"" + name + "\"><pVariable Name=\"X\">" + x + "</pVariable><pVariable Name=\"Y\">" +
           x + "</pVariable><Formula>" + formula + "</Formula></IntSwissKnife>";
}

std::string N(int i)
{
    return "N" + std::to_string(i);
}

TEST(SimDescriptions, AreUsedOrRefused)
{
    std::string const plain = Described(Integer("Width", "<Value>5</Value>"));
    struct
    {
        char const *name;
        std::string xml;
        bool usable = false;
    } const cases[] = {
        {"plain", plain, true},
        {"padded", plain + std::string(100, '\0'), true},
        {"empty", ""},
        {"text", "no description at all"},
        {"zeros", std::string(5000, '\0')},
        {"truncated", plain.substr(0, 190)},
        {"another root", "<?xml version=\"1.0\"?><html><body/></html>"},
        {"mismatched", Described("<Integer Name=\"A\"></Float>")},
        {"too large", Described("<!--" + std::string(9 << 20, 'x') + "-->")},
        {"deep elements", Described(Repeat(5000, [](int) { return "<Group>"; }))},
        {"entities",
         "<?xml version=\"1.0\"?><!DOCTYPE r [<!ENTITY N0 \"aaaaaaaaaa\">" +
             Repeat(20,
                    [](int i) {
                        std::string const last = "&" + N(i) + ";";
                        return "<!ENTITY " + N(i + 1) + " \"" + last + last + last + "\">";
                    }) +
             "]><RegisterDescription><String Name=\"S\"><Value>&N20;</Value></String></RegisterDescription>"},
        {"self-reference", Described(Link("A", "A"))},
        {"circle", Described(Link("A", "B") + Link("B", "C<!-- -->C") + Link("CC", "A"))},
        {"circle through an address", Described(Link("A", "R") + Register("R", "<pAddress>A</pAddress>"))},
        {"circle through an offset", Described(Register("R", "<Address>0</Address><pIndex pOffset=\"R\">B</pIndex>"))},
        {"circle through a structure",
         Described("<StructReg Comment=\"s\"><pAddress>R</pAddress><Length>4</Length><pPort>Device</pPort>"
                   "<StructEntry Name=\"R\"><Bit>3</Bit></StructEntry></StructReg>")},
        {"circle of formulas", Described(Knife("K", "K", "X+1"))},
        {"circle of categories", Described("<Category Name=\"Root\"><pFeature>C</pFeature></Category>"
                                           "<Category Name=\"C\"><pFeature>Root</pFeature></Category>")},
        {"long chain", Described(Repeat(50000, [](int i) { return Link(N(i), N(i + 1)); }))},
        {"avalanche", Described(Repeat(60, [](int i) { return Knife(N(i), N(i + 1), "X+Y"); }))},
        // What real cameras do, and what only looks like a circle.
        {"mutual bounds",
         Described(Integer("W", "<Value>5</Value><pMax>M</pMax>") + Integer("O", "<Value>5</Value><pMax>P</pMax>") +
                   Knife("M", "O", "9-X") + Knife("P", "W", "9-X")),
         true},
        {"missing nodes", Described(Link("A", "Nowhere")), true},
    };
    std::string const path = testing::TempDir() + "/sim_" + std::to_string(getpid()) + ".xml";
    setenv("TOV_SIM_CAMERA_XML", path.c_str(), 1);
    for (auto const &c : cases) {
        SCOPED_TRACE(c.name);
        std::ofstream(path, std::ios::binary) << c.xml;
        TovCam::System *const system = TovCam_GetSystem();
        TovCam::Device *const device = TovCam_CreateDevice(FindModel(system, "VG-XML"), 2, nullptr);
        ASSERT_NE(device, nullptr);
        std::int32_t error = 1;
        TovCam::ParamArray *const nodes = device->GetCameraParameters(&error);
        EXPECT_EQ(nodes != nullptr, c.usable);
        EXPECT_EQ(error, c.usable ? 0 : TOV_CAM_ERR_GENICAM_TREE);
        for (char const *node : {"Width", "A", "R", "K", "N0", "W", "O"}) {
            if (!nodes)
                break;
            nodes->GetIntegerValue(node, nullptr);
            nodes->SetIntegerValue(node, 3);
            nodes->ExecuteCommand(node);
        }
        device->Release();
        system->Release();
    }
    unsetenv("TOV_SIM_CAMERA_XML");
    std::remove(path.c_str());
}

// ---- Packets -----------------------------------------------------------------------------------------------------

// Keeps packets as hexadecimal text, which reads well in a failure.
struct Packets
{
    std::mutex mutex;
    std::vector<std::string> list;
    bool zerosBehind = true;

    static void Take(void const *data, unsigned long size, void *user)
    {
        auto *const self = static_cast<Packets *>(user);
        auto const *const bytes = static_cast<std::uint8_t const *>(data);
        std::lock_guard<std::mutex> lock(self->mutex);
        self->list.push_back(Hex(bytes, size));
        for (std::size_t i = size; i < size + 0x10100; ++i)
            self->zerosBehind = self->zerosBehind && bytes[i] == 0;
    }
    static std::string Hex(std::uint8_t const *bytes, std::size_t size)
    {
        std::string text;
        for (std::size_t i = 0; i < size; ++i) {
            text += "0123456789ABCDEF"[bytes[i] >> 4];
            text += "0123456789ABCDEF"[bytes[i] & 15];
        }
        return text;
    }
    // The packets up to the one that begins like this.
    std::vector<std::string> Until(std::string const &begin)
    {
        std::vector<std::string> seen;
        EXPECT_TRUE(Eventually([&] {
            std::lock_guard<std::mutex> lock(mutex);
            seen = list;
            return !seen.empty() && seen.back().rfind(begin, 0) == 0;
        }));
        return seen;
    }
};

TEST_F(SimTest, RegisterTrafficReadsAsPackets)
{
    std::uint32_t value = 0;
    Packets gige, usb;
    OpenModel();
    ASSERT_EQ(m_device->RegisterEvent(TovCam::EventControlChannel, Packets::Take, &gige), 0);
    EXPECT_EQ(m_device->ReadRegister(0x1000, &value, 4), 0); // the width
    EXPECT_EQ(m_nodes->SetIntegerValue("BlackLevel", 7), 0);
    std::vector<std::string> list = gige.Until("00000083");
    ASSERT_GE(list.size(), 4u);
    std::uint8_t const id = static_cast<std::uint8_t>(list.size() / 2);
    EXPECT_EQ(list[0], "420100800004000100001000");
    EXPECT_EQ(list[1], "000000810004000100000800");
    EXPECT_EQ(list[list.size() - 2], "42010082000800" + Packets::Hex(&id, 1) + "0000110000000007");
    EXPECT_EQ(list.back(), "00000083000400" + Packets::Hex(&id, 1) + "00000001");
    EXPECT_TRUE(gige.zerosBehind);
    Close();

    OpenModel("VU-1920C");
    ASSERT_EQ(m_device->RegisterEvent(TovCam::EventControlChannel, Packets::Take, &usb), 0);
    EXPECT_EQ(m_device->ReadRegister(0x20006004, &value, 4), 0);
    list = usb.Until("5533564300000108");
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0], "55335643004000080C000000046000200000000000000400");
    EXPECT_EQ(list[1], "5533564300000108040000000000000C");
    Close();
}

TEST_F(SimTest, FramesAndEventsReadAsPackets)
{
    for (bool const usb : {false, true}) {
        SCOPED_TRACE(usb);
        OpenFast(usb ? "VU-1920C" : "VG-2048M");
        Packets stream, events;
        ASSERT_EQ(m_nodes->SetEnumValueStr("EventNotification", "On"), 0);
        ASSERT_EQ(m_nodes->SetEnumValueStr("AcquisitionMode", "SingleFrame"), 0);
        ASSERT_EQ(m_device->RegisterEvent(TovCam::EventStreamChannel, Packets::Take, &stream), 0);
        ASSERT_EQ(m_device->RegisterEvent(TovCam::EventEventChannel, Packets::Take, &events), 0);
        std::string pixels, payload;
        RunningCamera(m_device, 2).ForFrames(1, [&pixels](TovCam::Buffer &buffer) {
            pixels = Packets::Hex(buffer.GetImage()->imageData, buffer.GetBufferSize());
        });
        Close();
        std::vector<std::string> const &list = stream.list;
        ASSERT_GE(list.size(), 3u);
        for (std::size_t i = 1; i + 1 < list.size(); ++i) {
            EXPECT_TRUE(usb || list[i].substr(8, 2) == "03");
            payload += list[i].substr(usb ? 0 : 16);
        }
        EXPECT_TRUE(payload == pixels); // half a million digits, better not printed
        EXPECT_EQ(list.front().size(), usb ? 104u : 88u);
        if (usb) {
            EXPECT_EQ(list.front().substr(0, 16), "5533564C00003400");
            EXPECT_EQ(list.front().substr(64, 16), "0001000080000000");
            EXPECT_EQ(list.back().substr(40), "008000000000000080000000");
        } else {
            std::uint8_t const last = static_cast<std::uint8_t>(list.size() - 1);
            EXPECT_EQ(list.front().substr(0, 24), "000000010100000000000001");
            EXPECT_EQ(list.front().substr(40, 24), "010800010000010000000080");
            EXPECT_EQ(list.back(), "00000001020000" + Packets::Hex(&last, 1) + "0000000100000080");
        }
        EXPECT_TRUE(stream.zerosBehind);
        ASSERT_EQ(events.list.size(), 1u);
        EXPECT_EQ(events.list[0].size(), usb ? 64u : 48u);
        EXPECT_EQ(events.list[0].substr(0, 8), usb ? "55335645" : "420100C0");
    }
}

} // namespace
