// The simulated cameras: the contract over each of them, their formats, their faults, and descriptions that are wrong.
#include "contract.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
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

ContractCamera SimCameraNamed(char const *name, char const *model)
{
    return {name, [model](TovCam::System *system) {
                return FindModel(system, model);
            }};
}

std::string NameOf(testing::TestParamInfo<ContractCamera> const &info)
{
    return info.param.name;
}

auto const s_allCameras =
    testing::Values(SimCameraNamed("GigEMono", "VG-2048M"), SimCameraNamed("Usb3Bayer", "VU-1920C"),
                    SimCameraNamed("GigEColour", "VG-1280C"));

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

class SimTest : public testing::Test
{
protected:
    void Open(char const *model = "VG-2048M")
    {
        m_device = TovCam_CreateDevice(FindModel(m_system, model), 2, nullptr);
        ASSERT_NE(m_device, nullptr);
        m_nodes = m_device->GetCameraParameters(nullptr);
        m_stream = m_device->GetStreamByIndex(0);
    }
    // A small picture at some hundred frames a second.
    void OpenFast(char const *model = "VG-2048M")
    {
        Open(model);
        ASSERT_EQ(m_nodes->SetIntegerValue("Width", 256), 0);
        ASSERT_EQ(m_nodes->SetIntegerValue("Height", 128), 0);
        ASSERT_EQ(m_nodes->SetFloatValue("ExposureTime", 2000.0), 0);
    }
    ~SimTest() override
    {
        if (m_device)
            m_device->Release();
        m_system->Release();
    }

    TovCam::System *m_system = TovCam_GetSystem();
    TovCam::Device *m_device = nullptr;
    TovCam::ParamArray *m_nodes = nullptr;
    TovCam::Stream *m_stream = nullptr;
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Sim, CameraContract, s_allCameras, NameOf);

// Every format of every camera: the header says what the table of formats says, and the picture is the same picture.
class SimFormats : public CameraContract
{
};

INSTANTIATE_TEST_SUITE_P(Sim, SimFormats, s_allCameras, NameOf);

TEST_P(SimFormats, EveryFormatShowsTheSameScene)
{
    TovCam::Device *const device = Open();
    TovCam::ParamArray *const nodes = device->GetCameraParameters(nullptr);
    int formats = 0;
    double reference[3] = {};
    for (std::uint32_t row = 0; row < TOV_PIXEL_TYPE_ROWS; ++row) {
        TovPixelTypeInfo const *const info = TovGetPixelTypeInfoByRow(row);
        if (!info->pfncName || nodes->SetEnumValueStr("PixelFormat", info->pfncName) != 0)
            continue;
        SCOPED_TRACE(info->pfncName);
        RunningCamera camera(device, 2);
        TovCam::Buffer *const buffer = camera.Next();
        ASSERT_NE(buffer, nullptr);
        _TovImage const *const image = buffer->GetImage();
        EXPECT_EQ(image->pixelType, info->pixelType);
        EXPECT_EQ(image->bitDepth, info->bitDepth);
        EXPECT_EQ(image->formatClass, info->formatClass);
        EXPECT_EQ(image->bitsPerPixel, info->bitsPerPixel);
        EXPECT_EQ(image->lineStep, TovLineBytes(info->pixelType, image->width));
        bool const grey = info->family == TOV_FAMILY_MONO;
        for (std::uint32_t c = 0; c < 3; ++c) {
            double const mean = MeanOf(image, c);
            if (formats == 0) {
                reference[c] = mean;
            } else if (!grey || c == 1) {
                EXPECT_NEAR(mean, reference[c], 4.0);
            }
        }
        camera.stream->QueueBuffer(buffer);
        ++formats;
    }
    EXPECT_GE(formats, 7);
    device->Release();
}

// The mosaic's colours are where its name says: red bars are bright on red pixels alone.
TEST_F(SimTest, MosaicsBeginWithTheirColours)
{
    Open("VU-1920C");
    ASSERT_EQ(m_nodes->SetEnumValueStr("TestPattern", "ColorBar"), 0);
    struct
    {
        char const *format;
        int redX, redY;
    } const cases[] = {{"BayerGR8", 1, 0}, {"BayerRG8", 0, 0}, {"BayerGB8", 0, 1}, {"BayerBG8", 1, 1}};
    for (auto const &c : cases) {
        SCOPED_TRACE(c.format);
        ASSERT_EQ(m_nodes->SetEnumValueStr("PixelFormat", c.format), 0);
        RunningCamera camera(m_device, 2);
        TovCam::Buffer *const buffer = camera.Next();
        ASSERT_NE(buffer, nullptr);
        _TovImage const *const image = buffer->GetImage();
        std::uint32_t const redBar = image->width * 5 / 8 + 32; // the sixth of eight, an even column
        for (int y = 0; y < 2; ++y) {
            for (int x = 0; x < 2; ++x)
                EXPECT_EQ(image->imageData[std::uint32_t(y) * image->lineStep + redBar + std::uint32_t(x)],
                          x == c.redX && y == c.redY ? 255 : 0);
        }
        camera.stream->QueueBuffer(buffer);
    }
}

TEST_F(SimTest, LightShowsInThePicture)
{
    Open();
    auto const brightness = [this] {
        RunningCamera camera(m_device, 2);
        TovCam::Buffer *const buffer = camera.Next();
        double const mean = buffer ? MeanOf(buffer->GetImage()) : -1;
        camera.stream->QueueBuffer(buffer);
        return mean;
    };
    double const normal = brightness();
    EXPECT_EQ(m_nodes->SetFloatValue("ExposureTime", 5000.0), 0);
    EXPECT_NEAR(brightness(), normal / 2, 3);
    EXPECT_EQ(m_nodes->SetFloatValue("Gain", 6.0), 0);
    EXPECT_NEAR(m_nodes->GetFloatValue("Gain", nullptr), 6.0, 1e-9);
    EXPECT_NEAR(brightness(), normal, 4);
    EXPECT_EQ(m_nodes->SetIntegerValue("BlackLevel", 255), 0);
    EXPECT_NEAR(brightness(), normal + 14, 3);
    EXPECT_EQ(m_nodes->ExecuteCommand("UserSetLoad"), 0);
    EXPECT_NEAR(brightness(), normal, 1);
    EXPECT_EQ(m_nodes->SetFloatValue("Gain", 25.0), TOV_CAM_ERR_GENICAM_OUT_OF_RANGE);
    EXPECT_EQ(m_nodes->SetFloatValue("Gain", std::numeric_limits<double>::quiet_NaN()),
              TOV_CAM_ERR_GENICAM_OUT_OF_RANGE);
}

TEST_F(SimTest, NodesTellWhatTheyAllow)
{
    Open();
    std::int32_t error = 0;
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
    EXPECT_EQ(m_nodes->GetInt("BinningSelector", &error), nullptr);
    EXPECT_EQ(error, TOV_CAM_ERR_GENICAM_PARAM_TYPE);
}

TEST(SimCameras, SayWhatTheirSensorIs)
{
    struct
    {
        char const *model;
        std::int32_t registerStatus;
        std::uint32_t sensorClass;
        std::int64_t family; // -1: no such node
    } const cases[] = {{"VG-2048M", 0, 4, 2}, {"VU-1920C", 0, 12, 1}, {"VG-1280C", TOV_CAM_ERR_GENICAM_GENERIC, 0, -1}};
    TovCam::System *const system = TovCam_GetSystem();
    for (auto const &c : cases) {
        SCOPED_TRACE(c.model);
        TovCam::Device *const device = TovCam_CreateDevice(FindModel(system, c.model), 2, nullptr);
        ASSERT_NE(device, nullptr);
        std::uint32_t value = 0;
        EXPECT_EQ(device->ReadRegister(0x20006004, &value, 4), c.registerStatus);
        EXPECT_EQ(value >> 24 & 15, c.sensorClass);
        std::int32_t error = 0;
        std::int64_t const family = device->GetCameraParameters(nullptr)->GetIntegerValue("FamilyID", &error);
        EXPECT_EQ(error == 0 ? family : -1, c.family);
        device->Release();
    }
    system->Release();
}

TEST_F(SimTest, AcquisitionModesAndTriggersCountFrames)
{
    OpenFast();
    auto const count = [this](auto during) {
        RunningCamera camera(m_device, 4);
        during();
        // The first frame may take long, the others follow at once.
        int frames = 0;
        while (TovCam::Buffer *const buffer = camera.stream->GetBuffer(frames == 0 ? 10000 : 300, nullptr)) {
            ++frames;
            camera.stream->QueueBuffer(buffer);
        }
        return frames;
    };
    EXPECT_EQ(m_nodes->SetEnumValueStr("AcquisitionMode", "SingleFrame"), 0);
    EXPECT_EQ(count([] {}), 1);
    EXPECT_EQ(m_nodes->SetEnumValueStr("AcquisitionMode", "MultiFrame"), 0);
    EXPECT_EQ(m_nodes->SetIntegerValue("AcquisitionFrameCount", 7), 0);
    EXPECT_EQ(count([] {}), 7);
    EXPECT_EQ(m_nodes->SetEnumValueStr("AcquisitionMode", "Continuous"), 0);
    EXPECT_EQ(m_nodes->ExecuteCommand("TriggerSoftware"), TOV_CAM_ERR_GENICAM_ACCESS);
    EXPECT_EQ(m_nodes->SetEnumValueStr("TriggerMode", "On"), 0);
    EXPECT_EQ(count([this] { EXPECT_EQ(m_nodes->ExecuteCommand("TriggerSoftware"), 0); }), 1);
}

TEST_F(SimTest, FaultsShowInTheFrames)
{
    struct Seen
    {
        int frames = 0, incomplete = 0;
        std::uint64_t gaps = 0;
    };
    auto const look = [this](int frames) {
        Seen seen;
        RunningCamera camera(m_device, 8);
        std::uint64_t last = 0;
        for (int i = 0; i < frames; ++i) {
            TovCam::Buffer *const buffer = camera.Next();
            if (!buffer)
                break;
            ++seen.frames;
            seen.incomplete += buffer->IsIncomplete();
            if (i > 0)
                seen.gaps += buffer->GetFrameID() - last - 1;
            last = buffer->GetFrameID();
            camera.stream->QueueBuffer(buffer);
        }
        return seen;
    };
    OpenFast();
    ASSERT_EQ(m_nodes->SetIntegerValue("SimIncompleteEvery", 5), 0);
    EXPECT_EQ(look(40).incomplete, 8);
    ASSERT_EQ(m_nodes->SetIntegerValue("SimIncompleteEvery", 0), 0);
    ASSERT_EQ(m_nodes->SetIntegerValue("SimMissingEvery", 4), 0);
    EXPECT_GE(look(40).gaps, 13u); // every fourth number is never seen
    ASSERT_EQ(m_nodes->SetIntegerValue("SimMissingEvery", 0), 0);

    // 23 packets a frame: one in a hundred lost spoils a fifth of the frames, and asking again spares nearly all.
    ASSERT_EQ(m_nodes->SetFloatValue("SimPacketLoss", 1.0), 0);
    Seen const lossy = look(200);
    EXPECT_GT(lossy.incomplete, 10);
    EXPECT_LT(lossy.incomplete, 90);
    ASSERT_EQ(m_nodes->SetBooleanValue("SimResend", true), 0);
    EXPECT_EQ(look(200).incomplete, 0);
    ASSERT_EQ(m_nodes->SetFloatValue("SimPacketLoss", 100.0), 0);
    EXPECT_EQ(look(5).incomplete, 5);
    ASSERT_EQ(m_nodes->SetFloatValue("SimPacketLoss", 0.0), 0);

    double const rate = 256 * 128 * m_nodes->GetFloatValue("ResultingFrameRate", nullptr) / 1048576.0;
    ASSERT_EQ(m_nodes->SetFloatValue("SimLinkLimit", rate * 0.9), 0);
    EXPECT_EQ(look(10).incomplete, 10);
    ASSERT_EQ(m_nodes->SetFloatValue("SimLinkLimit", rate * 1.1), 0);
    EXPECT_EQ(look(10).incomplete, 0);
}

TEST_F(SimTest, NamedFeaturesFailAndDawdle)
{
    Open();
    for (char const *feature : {"AcquisitionStart", "TLParamsLocked", "Gain", "PixelFormat", "ReverseX"}) {
        SCOPED_TRACE(feature);
        ASSERT_EQ(m_nodes->SetStringValue("SimFailFeature", feature), 0);
        auto const touch = [this, feature] {
            std::map<std::string, std::function<std::int32_t()>> const writes{
                {"AcquisitionStart",
                 [this] {
                     return m_nodes->ExecuteCommand("AcquisitionStart");
                 }},
                {"TLParamsLocked",
                 [this] {
                     return m_nodes->SetIntegerValue("TLParamsLocked", 0);
                 }},
                {"Gain",
                 [this] {
                     return m_nodes->SetFloatValue("Gain", 3.0);
                 }},
                {"PixelFormat",
                 [this] {
                     return m_nodes->SetEnumValueStr("PixelFormat", "Mono12");
                 }},
                {"ReverseX", [this] {
                     return m_nodes->SetBooleanValue("ReverseX", true);
                 }}};
            return writes.at(feature)();
        };
        EXPECT_EQ(touch(), TOV_CAM_ERR_GENICAM_GENERIC);
        EXPECT_EQ(m_nodes->SetIntegerValue("BlackLevel", 3), 0);
        ASSERT_EQ(m_nodes->SetStringValue("SimFailFeature", ""), 0);
    }
    auto const time = [this](char const *node) {
        Clock::time_point const begin = Clock::now();
        m_nodes->GetIntegerValue(node, nullptr);
        return Clock::now() - begin;
    };
    ASSERT_EQ(m_nodes->SetStringValue("SimSlowFeature", "BlackLevel"), 0);
    ASSERT_EQ(m_nodes->SetIntegerValue("SimSlowDelay", 120), 0);
    EXPECT_GE(time("BlackLevel"), 120ms);
    EXPECT_LT(time("Width"), 100ms);
    ASSERT_EQ(m_nodes->SetIntegerValue("SimAccessDelay", 120), 0);
    EXPECT_GE(time("Width"), 120ms);
}

TEST_F(SimTest, ALostCameraTellsAndComesBack)
{
    struct Loss
    {
        std::atomic<int> told{0};
        std::thread::id thread;
    };
    for (bool streaming : {false, true}) {
        SCOPED_TRACE(streaming);
        Loss loss;
        OpenFast();
        ASSERT_EQ(m_device->RegisterEvent(
                      TovCam::EventConnectionLost,
                      [](void const *, unsigned long, void *user) {
                          static_cast<Loss *>(user)->thread = std::this_thread::get_id();
                          ++static_cast<Loss *>(user)->told;
                      },
                      &loss),
                  0);
        if (streaming) {
            ASSERT_EQ(m_stream->AllocBufferQueue(nullptr, 4), 0);
            ASSERT_EQ(m_stream->StartAcquisition(-1, 0), 0);
            ASSERT_EQ(m_nodes->ExecuteCommand("AcquisitionStart"), 0);
            m_stream->QueueBuffer(m_stream->GetBuffer(5000, nullptr));
        }
        EXPECT_EQ(m_nodes->ExecuteCommand("SimLoseCamera"), 0);
        for (int i = 0; i < 500 && loss.told == 0; ++i)
            std::this_thread::sleep_for(10ms);
        EXPECT_EQ(loss.told, 1);
        EXPECT_NE(loss.thread, std::this_thread::get_id());
        std::int32_t error = 0;
        m_nodes->GetIntegerValue("Width", &error);
        EXPECT_EQ(error, TOV_CAM_ERR_NO_DEVICE);
        EXPECT_EQ(m_nodes->ExecuteCommand("AcquisitionStart"), TOV_CAM_ERR_NO_DEVICE);
        EXPECT_NE(m_nodes->SetIntegerValue("TLParamsLocked", 0), 0);
        std::uint32_t value;
        EXPECT_NE(m_device->ReadRegister(0x20006004, &value, 4), 0);
        if (streaming) {
            while (TovCam::Buffer *const buffer = m_stream->GetBuffer(100, nullptr))
                m_stream->QueueBuffer(buffer);
            EXPECT_EQ(m_stream->StopAcquisition(1), 0);
            EXPECT_EQ(m_stream->ReleaseBufferQueue(), 0);
        } else {
            EXPECT_EQ(m_stream->AllocBufferQueue(nullptr, 4), TOV_CAM_ERR_NO_DEVICE);
        }
        m_device->Release();
        m_device = nullptr;
    }
    Open();
    EXPECT_EQ(m_nodes->GetIntegerValue("Width", nullptr), 2048);
}

// ---- Descriptions ------------------------------------------------------------------------------------------------

namespace {

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

std::string Link(std::string const &from, std::string const &tag, std::string const &to)
{
    return "<Integer Name=\"" + from + "\"><" + tag + ">" + to + "</" + tag + "></Integer>";
}

struct Description
{
    char const *name;
    std::string xml;
    bool usable;
};

// printed instead of the description, which may be large
void PrintTo(Description const &description, std::ostream *out)
{
    *out << description.name;
}

class SimDescriptions : public testing::TestWithParam<Description>
{
};

std::string N(int i)
{
    return "N" + std::to_string(i);
}

} // namespace

INSTANTIATE_TEST_SUITE_P(
    Sim, SimDescriptions,
    testing::Values(
        Description{"Plain", Described("<Integer Name=\"Width\"><Value>5</Value></Integer>"), true},
        Description{"Padded", Described("") + std::string(100, '\0'), true}, Description{"Empty", "", false},
        Description{"Text", "no description at all", false}, Description{"Zeros", std::string(5000, '\0'), false},
        Description{"Truncated", Described("<Integer Name=\"Width\"><Value>5</Value></Integer>").substr(0, 190), false},
        Description{"OtherRoot", "<?xml version=\"1.0\"?><html><body/></html>", false},
        Description{"Mismatched", Described("<Integer Name=\"A\"></Float>"), false},
        Description{"TooLarge", Described("<!--" + std::string(9 << 20, 'x') + "-->"), false},
        Description{"DeepElements", Described(Repeat(5000, [](int) { return "<Group>"; })), false},
        Description{"Entities",
                    "<?xml version=\"1.0\"?><!DOCTYPE r [<!ENTITY a \"aaaaaaaaaa\">" +
                        Repeat(20,
                               [](int i) {
                                   std::string const last = i ? "e" + std::to_string(i - 1) : "a";
                                   return "<!ENTITY e" + std::to_string(i) + " \"&" + last + ";&" + last + ";&" + last +
                                          ";\">";
                               }) +
                        "]><RegisterDescription><String Name=\"S\"><Value>&e19;</Value></String></RegisterDescription>",
                    false},
        Description{"SelfReference", Described(Link("A", "pValue", "A")), false},
        Description{"Circle",
                    Described(Link("A", "pValue", "B") + Link("B", "pValue", "C<!-- -->C") + Link("CC", "pValue", "A")),
                    false},
        Description{"CircleThroughAddress",
                    Described(Link("A", "pValue", "R") + "<IntReg Name=\"R\"><pAddress>A</pAddress><Length>4</Length>"
                                                         "<pPort>Device</pPort></IntReg>"),
                    false},
        Description{
            "CircleThroughOffset",
            Described("<IntReg Name=\"R\"><Address>0</Address><pIndex pOffset=\"R\">B</pIndex><Length>4</Length>"
                      "<pPort>Device</pPort></IntReg>"),
            false},
        Description{"CircleThroughStructure",
                    Described("<StructReg Comment=\"s\"><pAddress>R</pAddress><Length>4</Length><pPort>Device</pPort>"
                              "<StructEntry Name=\"R\"><Bit>3</Bit></StructEntry></StructReg>"),
                    false},
        Description{"CircleOfFormulas",
                    Described("<IntSwissKnife Name=\"K\"><pVariable Name=\"X\">K</pVariable>"
                              "<Formula>X+1</Formula></IntSwissKnife>"),
                    false},
        Description{"CircleOfCategories",
                    Described("<Category Name=\"Root\"><pFeature>C</pFeature></Category>"
                              "<Category Name=\"C\"><pFeature>Root</pFeature></Category>"),
                    false},
        Description{"LongChain", Described(Repeat(50000, [](int i) { return Link(N(i), "pValue", N(i + 1)); })), false},
        Description{"Avalanche",
                    Described(Repeat(60,
                                     [](int i) {
                                         return "<IntSwissKnife Name=\"" + N(i) + "\"><pVariable Name=\"X\">" +
                                                N(i + 1) + "</pVariable><pVariable Name=\"Y\">" + N(i + 1) +
                                                "</pVariable><Formula>X+Y</Formula></IntSwissKnife>";
                                     })),
                    false},
        // What real cameras do, and what only looks like a circle.
        Description{
            "MutualBounds",
            Described(
                "<Integer Name=\"W\"><Value>5</Value><pMax>M</pMax></Integer>"
                "<Integer Name=\"O\"><Value>5</Value><pMax>P</pMax></Integer>"
                "<IntSwissKnife Name=\"M\"><pVariable Name=\"X\">O</pVariable><Formula>9-X</Formula></IntSwissKnife>"
                "<IntSwissKnife Name=\"P\"><pVariable Name=\"X\">W</pVariable><Formula>9-X</Formula></IntSwissKnife>"),
            true},
        Description{"MissingNodes", Described(Link("A", "pValue", "Nowhere")), true}),
    [](auto const &info) { return info.param.name; });

TEST_P(SimDescriptions, AreUsedOrRefused)
{
    std::string const path = testing::TempDir() + "/sim_" + GetParam().name + ".xml";
    std::ofstream(path, std::ios::binary) << GetParam().xml;
    setenv("TOV_SIM_CAMERA_XML", path.c_str(), 1);
    TovCam::System *const system = TovCam_GetSystem();
    TovCam::Device *const device = TovCam_CreateDevice(FindModel(system, "VG-XML"), 2, nullptr);
    ASSERT_NE(device, nullptr);
    std::int32_t error = 1;
    TovCam::ParamArray *const nodes = device->GetCameraParameters(&error);
    EXPECT_EQ(nodes != nullptr, GetParam().usable);
    EXPECT_EQ(error, GetParam().usable ? 0 : TOV_CAM_ERR_GENICAM_TREE);
    if (nodes) {
        for (char const *node : {"Width", "A", "R", "K", "N0", "W", "O"}) {
            nodes->GetIntegerValue(node, nullptr);
            nodes->SetIntegerValue(node, 3);
            nodes->ExecuteCommand(node);
        }
    }
    device->Release();
    system->Release();
    unsetenv("TOV_SIM_CAMERA_XML");
    std::remove(path.c_str());
}

// ---- Packets -----------------------------------------------------------------------------------------------------

namespace {

struct Packets
{
    std::mutex mutex;
    std::vector<std::vector<std::uint8_t>> list;
    bool zerosBehind = true;

    static void Take(void const *data, unsigned long size, void *user)
    {
        auto *const self = static_cast<Packets *>(user);
        auto const *const bytes = static_cast<std::uint8_t const *>(data);
        std::lock_guard<std::mutex> lock(self->mutex);
        self->list.emplace_back(bytes, bytes + size);
        for (std::size_t i = size; i < size + 0x10100; ++i)
            self->zerosBehind = self->zerosBehind && bytes[i] == 0;
    }
    std::vector<std::vector<std::uint8_t>> WaitFor(std::size_t count)
    {
        for (int i = 0; i < 500; ++i) {
            std::this_thread::sleep_for(10ms);
            std::lock_guard<std::mutex> lock(mutex);
            if (list.size() >= count)
                return list;
        }
        return {};
    }
};

using Bytes = std::vector<std::uint8_t>;

} // namespace

TEST_F(SimTest, RegisterTrafficReadsAsGvcp)
{
    Open();
    Packets packets;
    ASSERT_EQ(m_device->RegisterEvent(TovCam::EventControlChannel, Packets::Take, &packets), 0);
    std::uint32_t value = 0;
    EXPECT_EQ(m_device->ReadRegister(0x1000, &value, 4), 0); // the width
    EXPECT_EQ(m_nodes->SetIntegerValue("BlackLevel", 7), 0);
    auto const list = packets.WaitFor(4);
    ASSERT_GE(list.size(), 4u);
    EXPECT_EQ(list[0], (Bytes{0x42, 0x01, 0x00, 0x80, 0, 4, 0, 1, 0, 0, 0x10, 0}));
    EXPECT_EQ(list[1], (Bytes{0, 0, 0x00, 0x81, 0, 4, 0, 1, 0, 0, 0x08, 0}));
    EXPECT_EQ(list[list.size() - 2],
              (Bytes{0x42, 0x01, 0x00, 0x82, 0, 8, 0, std::uint8_t(list.size() / 2), 0, 0, 0x11, 0, 0, 0, 0, 7}));
    EXPECT_EQ(list[list.size() - 1], (Bytes{0, 0, 0x00, 0x83, 0, 4, 0, std::uint8_t(list.size() / 2), 0, 0, 0, 1}));
    EXPECT_TRUE(packets.zerosBehind);
}

TEST_F(SimTest, RegisterTrafficReadsAsUsb3Vision)
{
    Open("VU-1920C");
    Packets packets;
    ASSERT_EQ(m_device->RegisterEvent(TovCam::EventControlChannel, Packets::Take, &packets), 0);
    std::uint32_t value = 0;
    EXPECT_EQ(m_device->ReadRegister(0x20006004, &value, 4), 0);
    auto const list = packets.WaitFor(2);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0],
              (Bytes{'U', '3', 'V', 'C', 0, 0x40, 0, 8, 12, 0, 0, 0, 4, 0x60, 0, 0x20, 0, 0, 0, 0, 0, 0, 4, 0}));
    EXPECT_EQ(list[1], (Bytes{'U', '3', 'V', 'C', 0, 0, 1, 8, 4, 0, 0, 0, 0, 0, 0, 12}));
}

TEST_F(SimTest, FramesAndEventsReadAsPackets)
{
    for (char const *model : {"VG-2048M", "VU-1920C"}) {
        SCOPED_TRACE(model);
        bool const usb = model[1] == 'U';
        OpenFast(model);
        Packets stream, events;
        ASSERT_EQ(m_nodes->SetEnumValueStr("EventNotification", "On"), 0);
        ASSERT_EQ(m_nodes->SetEnumValueStr("AcquisitionMode", "SingleFrame"), 0);
        ASSERT_EQ(m_device->RegisterEvent(TovCam::EventStreamChannel, Packets::Take, &stream), 0);
        ASSERT_EQ(m_device->RegisterEvent(TovCam::EventEventChannel, Packets::Take, &events), 0);
        std::vector<std::uint8_t> pixels;
        {
            RunningCamera camera(m_device, 2);
            TovCam::Buffer *const buffer = camera.Next();
            ASSERT_NE(buffer, nullptr);
            pixels.assign(buffer->GetImage()->imageData, buffer->GetImage()->imageData + buffer->GetBufferSize());
            camera.stream->QueueBuffer(buffer);
        }
        auto const list = stream.WaitFor(3);
        ASSERT_GE(list.size(), 3u);
        Bytes payload;
        for (std::size_t i = 1; i + 1 < list.size(); ++i) {
            EXPECT_TRUE(usb || list[i][4] == 3);
            payload.insert(payload.end(), list[i].begin() + (usb ? 0 : 8), list[i].end());
        }
        EXPECT_EQ(payload, pixels);
        if (usb) {
            EXPECT_EQ(Bytes(list.front().begin(), list.front().begin() + 8), (Bytes{'U', '3', 'V', 'L', 0, 0, 52, 0}));
            EXPECT_EQ(list.front().size(), 52u);
            EXPECT_EQ(Bytes(list.front().begin() + 32, list.front().begin() + 40), (Bytes{0, 1, 0, 0, 128, 0, 0, 0}));
            EXPECT_EQ(Bytes(list.back().begin() + 20, list.back().end()),
                      (Bytes{0, 128, 0, 0, 0, 0, 0, 0, 128, 0, 0, 0}));
        } else {
            EXPECT_EQ(Bytes(list.front().begin(), list.front().begin() + 12),
                      (Bytes{0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 1}));
            EXPECT_EQ(list.front().size(), 44u);
            EXPECT_EQ(Bytes(list.front().begin() + 20, list.front().begin() + 32),
                      (Bytes{1, 8, 0, 1, 0, 0, 1, 0, 0, 0, 0, 128}));
            EXPECT_EQ(list.back(),
                      (Bytes{0, 0, 0, 1, 2, 0, 0, std::uint8_t(list.size() - 1), 0, 0, 0, 1, 0, 0, 0, 128}));
        }
        EXPECT_TRUE(stream.zerosBehind);
        auto const told = events.WaitFor(1);
        ASSERT_EQ(told.size(), 1u);
        EXPECT_EQ(told[0].size(), usb ? 32u : 24u);
        EXPECT_EQ(Bytes(told[0].begin(), told[0].begin() + 4),
                  usb ? (Bytes{'U', '3', 'V', 'E'}) : (Bytes{0x42, 1, 0, 0xC0}));
        m_device->Release();
        m_device = nullptr;
    }
}
