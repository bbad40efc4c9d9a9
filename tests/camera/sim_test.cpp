// The simulated cameras: the contract over each of them, their formats, their faults, and descriptions that are wrong.
#include "contract.h"
#include "simcamera.h"

#include <cstdlib>
#include <fstream>

namespace {

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
        ASSERT_NO_FATAL_FAILURE(Open(FindSimulated(m_system, model)));
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
    return {name, std::bind(FindSimulated, std::placeholders::_1, model)};
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
            double means[3];
            for (std::uint32_t c = 0; c < 3; ++c) {
                double const mean = means[c] = MeanOf(image, c);
                if (formats == 0)
                    reference[c] = mean;
                if (info->family != TOV_FAMILY_MONO || c == 1) {
                    EXPECT_NEAR(mean, reference[c], 4.0);
                }
            }
            EXPECT_TRUE(info->family == TOV_FAMILY_MONO || means[2] > means[0]) << "there is more blue in it than red";
        });
        ++formats;
    }
    EXPECT_GE(formats, 7);
}

TEST_F(SimTest, AcquisitionModesAndTriggersCountFrames)
{
    OpenFast();
    for (auto const &[mode, frames] : {std::pair("SingleFrame", 1), {"MultiFrame", 7}, {"Continuous", 0}}) {
        SCOPED_TRACE(mode);
        EXPECT_EQ(m_nodes->SetEnumValueStr("AcquisitionMode", mode), 0);
        m_nodes->SetIntegerValue("AcquisitionFrameCount", 7); // where there is one
        EXPECT_EQ(m_nodes->SetEnumValueStr("TriggerMode", frames == 0 ? "On" : "Off"), 0);
        RunningCamera camera(m_device);
        camera.ForFrames(frames, [](auto &) {});
        EXPECT_EQ(m_stream->GetBuffer(200, nullptr), nullptr);
        if (frames == 0) {
            EXPECT_EQ(m_nodes->ExecuteCommand("TriggerSoftware"), 0);
            camera.ForFrames(1, [](auto &) {});
        }
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

TEST_F(SimTest, ALostCameraTellsAndComesBack)
{
    OpenFast();
    std::uint32_t sensor = 0; // in the host's byte order
    EXPECT_EQ(m_device->ReadRegister(0x20006004, &sensor, sizeof sensor), 0);
    EXPECT_EQ(sensor, 0x04000000u);
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

std::string Knife(std::string const &name, std::string const &x, std::string const &formula)
{
    return "<IntSwissKnife Name=\"" + name + "\"><pVariable Name=\"X\">" + x + "</pVariable><pVariable Name=\"Y\">" +
           x + "</pVariable><Formula>" + formula + "</Formula></IntSwissKnife>";
}

std::string N(int i)
{
    return "N" + std::to_string(i);
}

// Opens the camera whose description that is; it is used or refused, and its features may be asked for either way.
void ExpectUsable(bool usable)
{
    TovCam::System *const system = TovCam_GetSystem();
    TovCam::Device *const device = TovCam_CreateDevice(FindSimulated(system, "VG-XML"), 2, nullptr);
    ASSERT_NE(device, nullptr);
    std::int32_t error = 1;
    TovCam::ParamArray *const nodes = device->GetCameraParameters(&error);
    EXPECT_EQ(nodes != nullptr, usable);
    EXPECT_EQ(error, usable ? 0 : TOV_CAM_ERR_GENICAM_TREE);
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
        {"truncated", plain.substr(0, 190)},
        {"too large", Described("<!--" + std::string(9 << 20, 'x') + "-->")},
        {"circle", Described(Integer("A", "<pValue>B</pValue>") + Integer("B", "<pValue>C<!-- -->C</pValue>") +
                             Integer("CC", "<pValue>A</pValue>"))},
        {"circle through an address",
         Described(Integer("A", "<pValue>R</pValue>") +
                   R"(<IntReg Name="R"><pAddress>A</pAddress><Length>4</Length><pPort>Device</pPort></IntReg>)")},
        {"structure", Described("<StructReg Comment=\"s\"><pAddress>R</pAddress><Length>4</Length><pPort>Device</pPort>"
                                "<StructEntry Name=\"R\"><Bit>3</Bit></StructEntry></StructReg>")},
        {"circle of categories", Described("<Category Name=\"Root\"><pFeature>C</pFeature></Category>"
                                           "<Category Name=\"C\"><pFeature>Root</pFeature></Category>")},
        {"long chain",
         Described(Repeat(50000, [](int i) { return Integer(N(i), "<pValue>" + N(i + 1) + "</pValue>"); }))},
        {"avalanche", Described(Repeat(60, [](int i) { return Knife(N(i), N(i + 1), "X+Y"); }))},
        // What real cameras do, and what only looks like a circle.
        {"mutual bounds",
         Described(Integer("W", "<Value>5</Value><pMax>M</pMax>") + Integer("O", "<Value>5</Value><pMax>P</pMax>") +
                   Knife("M", "O", "9-X") + Knife("P", "W", "9-X")),
         true},
    };
    std::string const path = testing::TempDir() + "/sim_" + std::to_string(getpid()) + ".xml";
    setenv("TOV_SIM_CAMERA_XML", path.c_str(), 1);
    for (auto const &c : cases) {
        SCOPED_TRACE(c.name);
        std::ofstream(path, std::ios::binary) << c.xml;
        ExpectUsable(c.usable);
    }
    unsetenv("TOV_SIM_CAMERA_XML");
    std::remove(path.c_str());
}

} // namespace
