// Configuration files of a simulated camera: what each kind of file and place does to the camera and to the old file.
#include "contract.h"
#include "simcamera.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

class ConfigurationTest : public CameraTest
{
protected:
    void SetUp() override
    {
        fs::create_directories(m_folder);
        OpenCamera();
        ASSERT_EQ(m_device->SaveConfiguration(m_path.c_str()), 0);
        m_text = ReadFile(m_path);
    }
    ~ConfigurationTest() override
    {
        Close();
        fs::remove_all(m_folder);
    }
    void OpenCamera()
    {
        Open(m_system->GetInterfaceList(2)->GetFirst()->GetFirstDeviceInfo());
    }
    static std::string ReadFile(std::string const &path)
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    // The saved file with `from` replaced, and its count of values larger by `more`.
    std::string Edited(std::string const &from, std::string const &to, int more = 0) const
    {
        std::string text = m_text;
        EXPECT_NE(text.find(from), std::string::npos) << from;
        text.replace(text.find(from), from.size(), to);
        std::size_t const count = text.rfind('=') + 1;
        return text.substr(0, count) + std::to_string(std::stoi(text.substr(count)) + more) + '\n';
    }
    std::int32_t Load(std::string const &text)
    {
        std::ofstream(m_path, std::ios::binary) << text;
        return m_device->LoadConfiguration(m_path.c_str());
    }

    // What the library reports: "feature [selectors] wanted/present status", the first with its problem.
    std::string Told() const
    {
        TovCam::ConfigurationReport const report = m_device->GetConfigurationReport();
        std::string told = std::to_string(int(report.problem));
        for (TovCam::RefusedSetting const &one : report.refused)
            told += "; " + one.feature + (one.selectors.empty() ? "" : " [" + one.selectors + "]") + ' ' + one.wanted +
                    '/' + one.present + ' ' + std::to_string(one.status) + (one.streamLocked ? " locked" : "");
        return told;
    }
    TovCam::FeatureState State(std::string const &name) const
    {
        TovCam::FeatureState state;
        m_nodes->ReadFeature(FindFeature(m_nodes, name), &state);
        return state;
    }

    fs::path const m_folder = fs::path(testing::TempDir()) / ("tcfg_" + std::to_string(getpid()));
    std::string const m_path = m_folder / "camera.tcfg";
    std::string m_text;
};

TEST_F(ConfigurationTest, RefusesWhatIsNoConfigurationOfThisCamera)
{
    ASSERT_EQ(m_nodes->SetIntegerValue("Width", 512), 0);
    using enum TovCam::ConfigurationReport::Problem;
    std::tuple<char const *, std::string, TovCam::ConfigurationReport::Problem> const cases[] = {
        {"empty", "", NoConfiguration},
        {"a zero inside", m_text + '\0', NoConfiguration},
        {"another format", Edited("Version=1", "Version=2"), NoConfiguration},
        {"another model", Edited("Model=VG-2048M", "Model=VG-1280C"), OtherCamera},
        {"too large a number", Edited("Width=2048", "Width=99999999999999999999"), NoValue},
        {"no number to its end", Edited("Width=2048", "Width=2048x"), NoValue},
        {"no finite number", Edited("Gamma=1", "Gamma=inf"), NoValue},
        {"half a byte", Edited("LUTValueAll=00", "LUTValueAll=0"), NoValue},
        {"a selector without a value", Edited("GainSelector=AnalogAll]", "GainSelector]"), NotWhole},
        {"one value more than counted", Edited("Height=1536", "Height=1536\nNoSuchNode=1"), NotWhole},
    };
    std::map<std::string, std::string> const before = Settings(m_nodes);
    for (auto const &[name, text, problem] : cases) {
        EXPECT_EQ(Load(text), TOV_CAM_ERR_WRONG_CONFIGURATION) << name;
        EXPECT_EQ(m_device->GetConfigurationReport().problem, problem) << name;
    }
    for (std::size_t size = 0; size + 2 < m_text.size(); size += 97) // the last line feed may go
        EXPECT_EQ(Load(m_text.substr(0, size)), TOV_CAM_ERR_WRONG_CONFIGURATION) << size;
    EXPECT_EQ(m_device->LoadConfiguration(m_folder.c_str()), TOV_CAM_ERR_FILE_READ);
    std::string const pipe = m_folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(m_device->LoadConfiguration(pipe.c_str()), TOV_CAM_ERR_FILE_READ);
    EXPECT_EQ(m_device->LoadConfiguration((m_path + "x").c_str()), TOV_CAM_ERR_FILE_NOT_FOUND);
    EXPECT_EQ(m_device->GetConfigurationReport().systemError, ENOENT);
    EXPECT_EQ(Settings(m_nodes), before);
    EXPECT_EQ(Load(m_text), 0);
    EXPECT_EQ(m_nodes->GetIntegerValue("Width", nullptr), 2048);
}

TEST_F(ConfigurationTest, AppliesWhatItCan)
{
    ASSERT_EQ(m_nodes->SetFloatValue("Gamma", 2.0), 0);
    std::tuple<char const *, std::string, char const *> const cases[] = {
        {"a node that the camera has not", Edited("Height=1536", "Height=1536\nNoSuchNode=1", 1), "0"},
        {"a command", Edited("Height=1536", "Height=1536\nSimLoseCamera=1\nDeviceReset=1", 2), "0"},
        {"a value out of range", Edited("Width=2048", "Width=100000"), "0; Width 100000/2048 -40204"},
        {"a selection that it has not", Edited("GainSelector=AnalogAll]\nGain=0", "GainSelector=Nothing]\nGain=5"),
         "0; Gain [GainSelector=Nothing] 5/ -40206"},
        {"one of several selections", Edited("GainSelector=DigitalAll]\nGain=0", "GainSelector=DigitalAll]\nGain=900"),
         "0; Gain [GainSelector=DigitalAll] 900/0 -40204"},
        {"a feature that fails", Edited("SimFailFeature=", "SimFailFeature=ReverseX"), "0"},
    };
    for (auto const &[name, text, told] : cases) {
        SCOPED_TRACE(name);
        ASSERT_EQ(m_nodes->SetFloatValue("Gamma", 2.0), 0);
        EXPECT_EQ(Load(text) == 0, std::string(told) == "0");
        EXPECT_EQ(Told(), told);
        EXPECT_EQ(m_nodes->GetFloatValue("Gamma", nullptr), 1.0);
    }
    // The node map reports it for the feature, until that is written or all is well.
    for (bool const written : {true, false}) {
        EXPECT_NE(Load(Edited("Width=2048", "Width=100000")), 0);
        ASSERT_EQ(State("Width").refused.size(), 1u);
        EXPECT_EQ(State("Width").refused[0].wanted, "100000");
        EXPECT_TRUE(State("Height").refused.empty());
        EXPECT_EQ(written ? m_nodes->WriteFeature(FindFeature(m_nodes, "Width"), State("Width").value) : Load(m_text),
                  0);
        EXPECT_TRUE(State("Width").refused.empty());
    }
    // The camera refuses now; the file takes the fault away, and then all goes well.
    ASSERT_EQ(m_nodes->SetStringValue("SimFailFeature", "Gamma"), 0);
    EXPECT_EQ(Load(Edited("Gamma=1", "Gamma=1.001")), 0);
    EXPECT_EQ(m_nodes->GetFloatValue("Gamma", nullptr), 1.001);

    // While frames run the format stays, and everything else comes.
    ASSERT_EQ(m_nodes->SetIntegerValue("Width", 512), 0);
    ASSERT_EQ(m_nodes->SetIntegerValue("TLParamsLocked", 1), 0);
    EXPECT_EQ(Load(m_text), TOV_CAM_ERR_GENICAM_ACCESS);
    EXPECT_EQ(Told(), "0; Width 2048/512 -40202 locked");
    EXPECT_TRUE(State("Width").streamLocked);
    EXPECT_FALSE(State("PayloadSize").streamLocked); // which nobody can write at any time
    EXPECT_EQ(m_nodes->GetIntegerValue("Width", nullptr), 512);
    EXPECT_EQ(m_nodes->GetFloatValue("Gamma", nullptr), 1.0);
    // The format belongs in a file that is saved now, though it is locked.
    ASSERT_EQ(m_device->SaveConfiguration(m_path.c_str()), 0);
    EXPECT_NE(ReadFile(m_path).find("\nWidth=512\n"), std::string::npos);
    ASSERT_EQ(m_nodes->SetIntegerValue("TLParamsLocked", 0), 0);

    ASSERT_EQ(m_nodes->ExecuteCommand("SimLoseCamera"), 0);
    EXPECT_EQ(Load(m_text), TOV_CAM_ERR_NO_DEVICE);
}

// Each pair is in the other's way, whatever the order.
TEST_F(ConfigurationTest, SolvesDependencies)
{
    struct Format
    {
        std::int64_t binning, width, offset;
    };
    constexpr Format Formats[] = {{1, 2048, 0}, {1, 512, 1024}, {1, 1536, 512}, {4, 512, 0}, {2, 256, 768}};
    auto const set = [this](Format const &f) {
        EXPECT_EQ(m_nodes->SetIntegerValue("OffsetX", 0), 0);
        EXPECT_EQ(m_nodes->SetIntegerValue("BinningHorizontal", f.binning), 0);
        EXPECT_EQ(m_nodes->SetIntegerValue("Width", f.width), 0);
        EXPECT_EQ(m_nodes->SetIntegerValue("OffsetX", f.offset), 0);
    };
    for (Format const &saved : Formats) {
        set(saved);
        ASSERT_EQ(m_device->SaveConfiguration(m_path.c_str()), 0);
        for (Format const &present : Formats) {
            set(present);
            EXPECT_EQ(m_device->LoadConfiguration(m_path.c_str()), 0);
            EXPECT_EQ(m_nodes->GetIntegerValue("BinningHorizontal", nullptr), saved.binning);
            EXPECT_EQ(m_nodes->GetIntegerValue("Width", nullptr), saved.width);
            EXPECT_EQ(m_nodes->GetIntegerValue("OffsetX", nullptr), saved.offset);
        }
    }
}

// A camera of our own: First needs Early, which needs Late; Wide and Offset need each other. Value has one for each
// Inner and Outer, and Inner one for each Outer.
TEST_F(ConfigurationTest, FollowsDependenciesAndSelectors)
{
    auto const integer = [](std::string const &name, std::string const &content) {
        return "<Integer Name=\"" + name + "\">" + content + "</Integer>";
    };
    auto const indexed = [](std::string const &by, std::string const &nodes) {
        std::string text = "<pIndex>" + by + "</pIndex>";
        for (char const &node : nodes)
            text +=
                "<pValueIndexed Index=\"" + std::to_string(&node - nodes.data()) + "\">" + node + "</pValueIndexed>";
        return text + "<pValueDefault>" + nodes.front() + "</pValueDefault>";
    };
    std::string xml = "<?xml version=\"1.0\"?><RegisterDescription><Category Name=\"Root\">";
    for (char const *name : {"Value", "First", "Wide", "Offset", "Early", "Late", "Inner", "Outer"})
        xml += "<pFeature>" + std::string(name) + "</pFeature>";
    xml += "</Category>" + integer("First", "<Value>1</Value><pMax>Early</pMax>") +
           integer("Early", "<Value>2</Value><pMax>Late</pMax>") + integer("Late", "<Value>3</Value>") +
           integer("Wide", "<Value>4</Value><pMax>Room</pMax>") +
           integer("Offset", "<Value>5</Value><pMax>Rest</pMax>") +
           integer("Outer", "<Value>0</Value><Min>0</Min><Max>1</Max><pSelected>Inner</pSelected>") +
           integer("Inner", indexed("Outer", "pq") + "<Min>0</Min><Max>1</Max><pSelected>Value</pSelected>") +
           integer("Value", indexed("Outer", "rs")) + integer("r", indexed("Inner", "ab")) +
           integer("s", indexed("Inner", "cd"));
    for (char const *name : {"Room Offset", "Rest Wide"})
        xml += "<IntSwissKnife Name=\"" + std::string(name, 4) + "\"><pVariable Name=\"X\">" + (name + 5) +
               "</pVariable><Formula>9-X</Formula></IntSwissKnife>";
    for (char const *name : {"a", "b", "c", "d", "p", "q"})
        xml += integer(name, "<Value>" + std::to_string(name[0] >= 'p' ? 0 : name[0]) + "</Value>");
    Close();
    m_system->Release();
    std::string const description = m_folder / "camera.xml";
    std::ofstream(description) << xml << "</RegisterDescription>";
    setenv("TOV_SIM_CAMERA_XML", description.c_str(), 1);
    m_system = TovCam_GetSystem();
    unsetenv("TOV_SIM_CAMERA_XML");
    ASSERT_NO_FATAL_FAILURE(Open(FindSimulated(m_system, "VG-XML")));

    auto const features = [](std::string const &text) {
        return text.substr(text.find("[Features]"));
    };
    ASSERT_EQ(m_device->SaveConfiguration(m_path.c_str()), 0);
    m_text = ReadFile(m_path);
    EXPECT_EQ(features(m_text), "[Features]\nWide=4\nOffset=5\nLate=3\nEarly=2\nFirst=1\n\n"
                                "[Features Outer=0 Inner=0]\nValue=97\n\n[Features Outer=0 Inner=1]\nValue=98\n\n"
                                "[Features Outer=1 Inner=0]\nValue=99\n\n[Features Outer=1 Inner=1]\nValue=100\n\n"
                                "[Selectors]\nOuter=0\nInner=0\n\n[End]\nValues=11\n");
    auto const values = [this](char const *names) {
        std::string text;
        for (char const *name = names; *name; ++name)
            text += std::to_string(m_nodes->GetIntegerValue(std::string(1, *name).c_str(), nullptr)) + ' ';
        return text;
    };
    EXPECT_EQ(values("pq"), "0 0 "); // as they were before
    ASSERT_EQ(Load(Edited("Inner=0]\nValue=99", "Inner=0]\nValue=7")), 0);
    EXPECT_EQ(values("abcdpq"), "97 98 7 100 0 0 ");
    ASSERT_EQ(Load(Edited("Outer=0\nInner=0\n\n[End]", "Outer=1\nInner=1\n\n[End]")), 0);
    EXPECT_EQ(values("abcdpq"), "97 98 99 100 0 1 ");
    // Larger ones from the last to the first, whatever the order of the file.
    ASSERT_EQ(Load(Edited("Late=3\nEarly=2\nFirst=1", "First=31\nEarly=32\nLate=33")), 0);
    EXPECT_EQ(m_nodes->GetIntegerValue("First", nullptr), 31);
}

TEST_F(ConfigurationTest, SavingLeavesTheOldFileOrAWholeNewOne)
{
    for (std::string const &path : {m_path + "/x.tcfg", m_folder.string(), std::string("/dev/full")})
        EXPECT_EQ(m_device->SaveConfiguration(path.c_str()), TOV_CAM_ERR_FILE_NOT_FOUND) << path;
    std::string const link = m_folder / "link.tcfg";
    fs::create_symlink(m_path, link);
    fs::permissions(m_path, fs::perms(0604));
    ASSERT_EQ(m_nodes->SetIntegerValue("Width", 512), 0);
    ASSERT_EQ(m_device->SaveConfiguration(link.c_str()), 0);
    EXPECT_NE(ReadFile(m_path).find("\nWidth=512\n"), std::string::npos);
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(fs::status(m_path).permissions(), fs::perms(0604));
    // Cameras that cannot be asked.
    std::string const before = ReadFile(m_path);
    ASSERT_EQ(m_nodes->SetStringValue("SimFailFeature", "GainSelector"), 0);
    EXPECT_EQ(m_device->SaveConfiguration(m_path.c_str()), TOV_CAM_ERR_GENICAM_GENERIC);
    ASSERT_EQ(m_nodes->ExecuteCommand("SimLoseCamera"), 0);
    EXPECT_EQ(m_device->SaveConfiguration(m_path.c_str()), TOV_CAM_ERR_NO_DEVICE);
    EXPECT_EQ(ReadFile(m_path), before);
    EXPECT_EQ(std::distance(fs::directory_iterator(m_folder), {}), 2); // nothing is left lying about
}

// Saving goes on writing the same file after another camera was opened.
TEST_F(ConfigurationTest, SavingOverTheFileOfAnotherCameraKeepsIt)
{
    std::string const kept = m_path + '~';
    std::tuple<char const *, std::string, bool> const cases[] = {
        {"its own, of another name", Edited("UserID=", "UserID=left"), false},
        {"its own, broken", m_text.substr(0, 400), false},
        {"another serial number", Edited("SerialNumber=20480117", "SerialNumber=20480999"), true},
        {"another model", Edited("Model=VG-2048M", "Model=VG-1280C"), true},
        {"another vendor", Edited("Vendor=Velmor", "Vendor=Other"), true},
        {"no configuration", "notes\n", true},
        {"nothing", "", false},
    };
    for (auto const &[name, text, keeps] : cases) {
        SCOPED_TRACE(name);
        fs::remove(kept);
        std::ofstream(m_path, std::ios::binary) << text;
        EXPECT_EQ(m_device->SaveConfiguration(m_path.c_str()), 0);
        EXPECT_EQ(ReadFile(m_path), m_text);
        EXPECT_EQ(m_device->GetConfigurationReport().keptAs, keeps ? kept : "");
        EXPECT_EQ(fs::exists(kept), keeps);
        EXPECT_EQ(ReadFile(kept), keeps ? text : "");
    }
    // Where it cannot be kept it stays where it is.
    fs::create_directories(kept + "/full");
    std::ofstream(m_path, std::ios::binary) << "notes\n";
    EXPECT_EQ(m_device->SaveConfiguration(m_path.c_str()), TOV_CAM_ERR_FILE_NOT_FOUND);
    EXPECT_EQ(m_device->GetConfigurationReport().problem, TovCam::ConfigurationReport::Problem::NotKept);
    EXPECT_EQ(ReadFile(m_path), "notes\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(m_folder), {}), 2);
}

TEST_F(ConfigurationTest, GivenUpItLeavesTheFileAndTheCameraAsTheyAre)
{
    auto const givenUp = std::make_shared<std::atomic<bool>>(false);
    m_device->SetGiveUp(givenUp);
    std::string const selector = m_nodes->GetEnumValueStr("GainSelector", nullptr);
    *givenUp = true;
    EXPECT_EQ(m_device->SaveConfiguration(m_path.c_str()), TOV_CAM_ERR_NO_DEVICE);
    EXPECT_EQ(ReadFile(m_path), m_text);
    EXPECT_EQ(Load(Edited("Width=2048", "Width=1024")), TOV_CAM_ERR_NO_DEVICE);
    std::int32_t error = 0;
    EXPECT_TRUE(Eventually([&] { return m_nodes->GetIntegerValue("Width", &error), error == TOV_CAM_ERR_NO_DEVICE; }));
    *givenUp = false;
    EXPECT_EQ(m_nodes->GetIntegerValue("Width", nullptr), 2048);
    EXPECT_EQ(m_nodes->GetEnumValueStr("GainSelector", nullptr), selector);
    EXPECT_EQ(m_device->SaveConfiguration(m_path.c_str()), 0);
}

TEST_F(ConfigurationTest, OpensTheCameraOfTheFile)
{
    auto const open = [this](std::string const &text, std::int32_t &error) {
        std::ofstream(m_path) << text;
        error = 1;
        m_device = m_system->OpenDeviceFromConfiguration(m_path.c_str(), &error);
        m_nodes = m_device ? m_device->GetCameraParameters(nullptr) : nullptr;
    };
    std::int32_t error;
    std::string const wide = Edited("Width=2048", "Width=1024");
    TovCam::Device *const first = m_device;
    TovCam::OpenProgress cancelled;
    cancelled.cancel = true;
    m_device->GetDeviceInfo()->SetOpenProgress(&cancelled);
    EXPECT_EQ(Load(wide), TOV_CAM_ERR_NO_DEVICE);
    m_device->GetDeviceInfo()->SetOpenProgress(nullptr);
    EXPECT_EQ(m_nodes->GetIntegerValue("Width", nullptr), 2048);
    open(wide, error); // it is in use
    EXPECT_EQ(m_device, nullptr);
    EXPECT_EQ(m_system->GetConfigurationReport().problem, TovCam::ConfigurationReport::Problem::CameraInUse);
    EXPECT_EQ(error, TOV_CAM_ERR_INVALID_STATE);
    first->Release();

    std::string const named = Edited("DeviceUserID=", "DeviceUserID=bench");
    m_system->SetOpenProgress(&cancelled);
    open(named, error);
    m_system->SetOpenProgress(nullptr);
    EXPECT_EQ(m_device, nullptr);
    EXPECT_EQ(error, TOV_CAM_ERR_NO_DEVICE);
    EXPECT_EQ(cancelled.stage, TovCam::OpenProgress::Stage::Over);
    std::tuple<std::string, std::int32_t, char const *> const cases[] = {
        {named, 0, "bench"},
        {std::string(named).replace(named.find("20480117"), 8, "20480999"), 0, ""}, // another one of the model
        {Edited("Width=2048", "Width=100000"), TOV_CAM_ERR_GENICAM_OUT_OF_RANGE, ""},
        {Edited("Gamma=1", "Gamma=inf"), TOV_CAM_ERR_WRONG_CONFIGURATION, nullptr},
        {Edited("VG-2048M", "VG-4096M"), TOV_CAM_ERR_NO_DEVICE, nullptr},
    };
    for (auto const &[text, expected, userID] : cases) { // of the camera that is opened
        SCOPED_TRACE(expected);
        open(text, error);
        EXPECT_EQ(error, expected);
        ASSERT_EQ(m_device != nullptr, userID != nullptr);
        if (userID) {
            EXPECT_STREQ(m_nodes->GetString("DeviceUserID", nullptr)->GetValue(nullptr), userID);
        }
        Close();
    }
    EXPECT_EQ(m_system->OpenDeviceFromConfiguration((m_path + "x").c_str(), &error), nullptr);
    EXPECT_EQ(error, TOV_CAM_ERR_FILE_NOT_FOUND);
    OpenCamera(); // none of them has left it open
}

} // namespace
