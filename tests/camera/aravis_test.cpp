// Real cameras, against a GigE Vision camera that we did not write. Runs in a network namespace of its own.
#include "aravis_fakegige.h"
#include "contract.h"

#include "tovcamera.h"

#include <arv.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <future>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

// Before any system is made.
bool const s_gigeOnly = setenv("TOV_CAMERA_INTERFACES", "gige", 1) == 0;

// The contract's camera, which ends with the next test.
std::unique_ptr<FakeGigECamera> s_contractCamera;

class AravisTest : public testing::Test
{
protected:
    AravisTest() : m_system(TovCam_GetSystem())
    {
        s_contractCamera.reset();
    }
    ~AravisTest() override
    {
        m_system->Release();
    }

    TovCam::Device *Open()
    {
        std::int32_t error = 1;
        TovCam::DeviceInfo *const info = m_system->FindDeviceByAddress("127.0.0.1", &error);
        EXPECT_EQ(error, 0);
        if (!info)
            return nullptr;
        TovCam::Device *const device = TovCam_CreateDevice(info, 2, &error);
        EXPECT_EQ(error, 0);
        return device;
    }

    TovCam::System *m_system;
};

// An open camera that delivers frames.
struct Running
{
    explicit Running(TovCam::Device *device, std::uint32_t buffers = 8)
        : device(device),
          nodes(device->GetCameraParameters(nullptr)),
          stream(device->GetStreamByIndex(0))
    {
        EXPECT_EQ(stream->AllocBufferQueue(nullptr, buffers), 0);
        EXPECT_EQ(nodes->SetIntegerValue("TLParamsLocked", 1), 0);
        EXPECT_EQ(stream->StartAcquisition(-1, 0), 0);
        EXPECT_EQ(nodes->ExecuteCommand("AcquisitionStart"), 0);
    }
    ~Running()
    {
        Stop();
    }
    void Stop()
    {
        if (!stream)
            return;
        EXPECT_EQ(nodes->ExecuteCommand("AcquisitionStop"), 0);
        EXPECT_EQ(stream->StopAcquisition(1), 0);
        EXPECT_EQ(nodes->SetIntegerValue("TLParamsLocked", 0), 0);
        EXPECT_EQ(stream->ReleaseBufferQueue(), 0);
        stream = nullptr;
    }
    TovCam::Device *device;
    TovCam::ParamArray *nodes;
    TovCam::Stream *stream;
};

// Memory under AddressSanitizer is kept after it was freed.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool MemoryIsFreed = false;
#else
constexpr bool MemoryIsFreed = true;
#endif

TEST_F(AravisTest, ListsTheCameraAndWhoHasIt)
{
    {
        FakeGigECamera camera;
        ASSERT_EQ(m_system->UpdateDeviceList(), 0);
        TovCam::Interface *const interface = m_system->GetInterfaceList(2)->GetFirst();
        ASSERT_NE(interface, nullptr);
        EXPECT_EQ(m_system->GetInterfaceList(1)->GetFirst(), nullptr);
        EXPECT_EQ(interface->GetInterfaceKind(), TovCam::InterfaceKindGigEVision);
        EXPECT_EQ(std::string(interface->GetDriverVersion()).rfind("Aravis 0.8.", 0), 0u);
        ASSERT_EQ(interface->GetDeviceCount(), 1u);
        TovCam::DeviceInfo *const info = interface->GetFirstDeviceInfo();
        EXPECT_STREQ(info->GetVendorName(), "Aravis");
        EXPECT_STREQ(info->GetModelName(), "Fake");
        EXPECT_STREQ(info->GetSerialNumber(), "TOV1");
        EXPECT_STREQ(info->GetAddress(), "127.0.0.1");
        EXPECT_EQ(info->GetHostInformation(), nullptr);
        EXPECT_EQ(info->GetAccessStatus(), TovCam::DeviceInfo::AccessFree);
        EXPECT_EQ(m_system->FindDeviceByAddress("127.0.0.1", nullptr), info);

        TovCam::Device *const device = TovCam_CreateDevice(info, 2, nullptr);
        ASSERT_NE(device, nullptr);
        EXPECT_EQ(device->GetDeviceInfo(), info);
        m_system->UpdateDeviceList();
        EXPECT_EQ(info->GetAccessStatus(), TovCam::DeviceInfo::AccessBusy);
        std::int32_t error = 0;
        EXPECT_EQ(TovCam_CreateDevice(info, 2, &error), nullptr);
        EXPECT_EQ(error, TOV_CAM_ERR_GENICAM_ACCESS);
        device->Release();
        m_system->UpdateDeviceList();
        EXPECT_EQ(info->GetAccessStatus(), TovCam::DeviceInfo::AccessFree);
    }
    TovCam::Interface *const interface = m_system->GetInterfaceList(255)->GetFirst();
    TovCam::DeviceInfo *const gone = interface->GetFirstDeviceInfo();
    m_system->UpdateDeviceList();
    EXPECT_EQ(interface->GetDeviceCount(), 0u);
    std::int32_t error = 0;
    EXPECT_EQ(TovCam_CreateDevice(gone, 2, &error), nullptr);
    EXPECT_EQ(error, TOV_CAM_ERR_NO_DEVICE);
    for (char const *address : {"127.0.0.1", "127.0.0.9", "not.an.address", ""}) {
        EXPECT_EQ(m_system->FindDeviceByAddress(address, &error), nullptr) << address;
        EXPECT_NE(error, 0) << address;
    }
}

TEST_F(AravisTest, DeliversAThousandFramesAndLosesNone)
{
    FakeGigECamera camera;
    TovCam::Device *const device = Open();
    ASSERT_NE(device, nullptr);
    {
        TovCam::ParamArray *const nodes = device->GetCameraParameters(nullptr);
        ASSERT_EQ(nodes->SetFloatValue("AcquisitionFrameRate", 1000.0), 0); // more than it manages
        Running running(device, 32); // the machine may have other work for some milliseconds
        std::uint64_t lastId = 0, lastTime = 0;
        for (int i = 0; i < 1000; ++i) {
            std::int32_t error = 1;
            TovCam::Buffer *const buffer = running.stream->GetBuffer(5000, &error);
            ASSERT_NE(buffer, nullptr) << "frame " << i;
            ASSERT_EQ(error, 0);
            ASSERT_FALSE(buffer->IsIncomplete());
            _TovImage const *const image = buffer->GetImage();
            if (i > 0) {
                ASSERT_EQ(buffer->GetFrameID(), lastId + 1);
                ASSERT_GT(buffer->GetTimestamp(), lastTime);
            }
            lastId = buffer->GetFrameID();
            lastTime = buffer->GetTimestamp();
            ASSERT_EQ(image->frameID, lastId);
            ASSERT_EQ(image->timestamp, lastTime);
            ASSERT_EQ(image->pixelType, TV_PIXEL_MONO8);
            ASSERT_EQ(image->width, 512u);
            ASSERT_EQ(image->height, 512u);
            ASSERT_EQ(image->lineStep, 512u);
            ASSERT_EQ(image->imageSize, 512u * 512);
            ASSERT_EQ(buffer->GetBufferSize(), 512u * 512);
            // The picture is a ramp, so neighbours differ somewhere and lines are shifted copies of each other.
            ASSERT_EQ(image->imageData[512], image->imageData[1]);
            ASSERT_EQ(image->imageData[511 * 512 + 10], image->imageData[510 * 512 + 11]);
            ASSERT_NE(image->imageData[0], image->imageData[100]);
            ASSERT_EQ(running.stream->QueueBuffer(buffer), 0);
            ASSERT_EQ(running.stream->QueueBuffer(buffer), TOV_CAM_ERR_INVALID_ARGUMENT); // not ours any more
        }
    }
    device->Release();
}

TEST_F(AravisTest, TellsTheFormatOfEachQueue)
{
    FakeGigECamera camera;
    TovCam::Device *const device = Open();
    ASSERT_NE(device, nullptr);
    TovCam::ParamArray *const nodes = device->GetCameraParameters(nullptr);
    struct Format
    {
        char const *name;
        int width, height;
        std::uint32_t bitsPerPixel;
    };
    for (Format const &format : {Format{"Mono16", 64, 48, 16}, {"BayerRG8", 130, 7, 8}, {"RGB8", 32, 32, 24}}) {
        SCOPED_TRACE(format.name);
        ASSERT_EQ(nodes->SetEnumValueStr("PixelFormat", format.name), 0);
        ASSERT_EQ(nodes->SetIntegerValue("Width", format.width), 0);
        ASSERT_EQ(nodes->SetIntegerValue("Height", format.height), 0);
        Running running(device);
        TovCam::Buffer *const buffer = running.stream->GetBuffer(5000, nullptr);
        ASSERT_NE(buffer, nullptr);
        EXPECT_FALSE(buffer->IsIncomplete());
        _TovImage const *const image = buffer->GetImage();
        EXPECT_EQ(image->width, static_cast<std::uint32_t>(format.width));
        EXPECT_EQ(image->height, static_cast<std::uint32_t>(format.height));
        EXPECT_EQ(image->bitsPerPixel, format.bitsPerPixel);
        EXPECT_EQ(image->imageSize, format.width * format.height * format.bitsPerPixel / 8);
        EXPECT_EQ(running.stream->ReleaseBufferQueue(), TOV_CAM_ERR_INVALID_STATE); // we hold one
        running.stream->QueueBuffer(buffer);
    }
    device->Release();
}

TEST_F(AravisTest, DeliversFramesWithLostPacketsAsIncomplete)
{
    FakeGigECamera camera({"-r", "5"});
    TovCam::Device *const device = Open();
    ASSERT_NE(device, nullptr);
    device->GetCameraParameters(nullptr)->SetFloatValue("AcquisitionFrameRate", 100.0);
    {
        Running running(device);
        int whole = 0, incomplete = 0;
        std::uint64_t lastId = 0;
        for (int i = 0; i < 150; ++i) {
            TovCam::Buffer *const buffer = running.stream->GetBuffer(5000, nullptr);
            ASSERT_NE(buffer, nullptr);
            ++(buffer->IsIncomplete() ? incomplete : whole);
            if (!buffer->IsIncomplete()) {
                EXPECT_GT(buffer->GetFrameID(), lastId);
                lastId = buffer->GetFrameID();
            }
            EXPECT_EQ(buffer->GetBufferSize(), 512u * 512);
            EXPECT_EQ(buffer->GetImage()->width, 512u);
            running.stream->QueueBuffer(buffer);
        }
        EXPECT_GT(whole, 0);
        EXPECT_GT(incomplete, 0);
    }
    device->Release();
}

TEST_F(AravisTest, ReportsALostCameraAndConnectsAgain)
{
    auto camera = std::make_unique<FakeGigECamera>();
    TovCam::Device *device = Open();
    ASSERT_NE(device, nullptr);
    std::promise<std::thread::id> lost;
    std::future<std::thread::id> const isLost = [&] {
        return lost.get_future();
    }();
    auto const onLost = [](void const *data, unsigned long size, void *user) {
        EXPECT_EQ(data, nullptr);
        EXPECT_EQ(size, 0u);
        static_cast<std::promise<std::thread::id> *>(user)->set_value(std::this_thread::get_id());
    };
    for (std::uint32_t id : {1000u, 1001u, 1002u})
        EXPECT_EQ(device->RegisterEvent(id, onLost, &lost), TOV_CAM_ERR_INVALID_STATE);
    ASSERT_EQ(device->RegisterEvent(TovCam::EventConnectionLost, onLost, &lost), 0);

    TovCam::ParamArray *const nodes = device->GetCameraParameters(nullptr);
    TovCam::Stream *const stream = device->GetStreamByIndex(0);
    ASSERT_EQ(stream->AllocBufferQueue(nullptr, 4), 0);
    ASSERT_EQ(stream->StartAcquisition(-1, 0), 0);
    ASSERT_EQ(nodes->ExecuteCommand("AcquisitionStart"), 0);
    TovCam::Buffer *buffer = stream->GetBuffer(5000, nullptr);
    ASSERT_NE(buffer, nullptr);
    camera->Kill();
    stream->QueueBuffer(buffer);
    while ((buffer = stream->GetBuffer(500, nullptr))) // what was on its way
        stream->QueueBuffer(buffer);

    // The first access waits for an answer; the next ones know better.
    Clock::time_point start = Clock::now();
    EXPECT_NE(nodes->SetIntegerValue("Width", 100), 0);
    EXPECT_LT(Clock::now() - start, 9s);
    start = Clock::now();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(nodes->ExecuteCommand("AcquisitionStop"), TOV_CAM_ERR_NO_DEVICE);
    EXPECT_LT(Clock::now() - start, 2s);

    ASSERT_EQ(isLost.wait_for(15s), std::future_status::ready);
    EXPECT_EQ(device->UnregisterEvent(TovCam::EventConnectionLost, onLost, &lost), 0);
    std::promise<std::thread::id> late; // who comes after the loss hears of it too
    ASSERT_EQ(device->RegisterEvent(TovCam::EventConnectionLost, onLost, &late), 0);
    std::future<std::thread::id> heard = late.get_future();
    ASSERT_EQ(heard.wait_for(5s), std::future_status::ready);
    EXPECT_NE(heard.get(), std::this_thread::get_id());
    std::int32_t error = 0;
    std::uint32_t value;
    start = Clock::now();
    EXPECT_EQ(nodes->GetIntegerValue("Width", &error), 0);
    EXPECT_EQ(error, TOV_CAM_ERR_NO_DEVICE);
    EXPECT_EQ(device->ReadRegister(0x20006004, &value, 4), TOV_CAM_ERR_NO_DEVICE);
    EXPECT_EQ(stream->GetBuffer(50, nullptr), nullptr);
    EXPECT_EQ(stream->StopAcquisition(1), 0);
    EXPECT_EQ(stream->ReleaseBufferQueue(), 0);
    EXPECT_NE(stream->AllocBufferQueue(nullptr, 4), 0);
    device->Release();
    EXPECT_LT(Clock::now() - start, 5s);

    // A camera that is back is a new connection.
    camera = std::make_unique<FakeGigECamera>();
    device = Open();
    ASSERT_NE(device, nullptr);
    {
        Running running(device);
        buffer = running.stream->GetBuffer(5000, nullptr);
        ASSERT_NE(buffer, nullptr);
        running.stream->QueueBuffer(buffer);
    }
    device->Release();
}

TEST_F(AravisTest, LetsGoOfACameraThatDiedUnnoticed)
{
    for (bool const releaseQueue : {true, false}) {
        auto camera = std::make_unique<FakeGigECamera>();
        TovCam::Device *device = Open();
        ASSERT_NE(device, nullptr);
        TovCam::Stream *const stream = device->GetStreamByIndex(0);
        ASSERT_EQ(stream->AllocBufferQueue(nullptr, 4), 0);
        ASSERT_EQ(stream->StartAcquisition(-1, 0), 0);
        camera->Kill();
        Clock::time_point const start = Clock::now();
        if (releaseQueue) {
            EXPECT_EQ(stream->StopAcquisition(1), 0);
            EXPECT_EQ(stream->ReleaseBufferQueue(), 0);
            // The goodbye is under way, and nothing waits for it.
            EXPECT_NE(device->GetCameraParameters(nullptr)->SetIntegerValue("TLParamsLocked", 0), 0);
        }
        device->Release();
        EXPECT_LT(Clock::now() - start, 4s);

        camera = std::make_unique<FakeGigECamera>(); // back, while the old connection is still being buried
        device = Open();
        ASSERT_NE(device, nullptr);
        Running running(device);
        for (int i = 0; i < (releaseQueue ? 100 : 1); ++i) {
            TovCam::Buffer *const buffer = running.stream->GetBuffer(2000, nullptr);
            ASSERT_NE(buffer, nullptr) << i;
            running.stream->QueueBuffer(buffer);
            std::this_thread::sleep_for(50ms);
        }
        running.Stop();
        device->Release();
    }
}

TEST_F(AravisTest, GivesTimestampsInTicksOfTheCamerasClock)
{
    // The fake camera's description, with a clock of 125 MHz added; Aravis counts nanoseconds all the same.
    ArvDevice *const donor = arv_fake_device_new("donor", nullptr);
    size_t size = 0;
    char const *const text = arv_device_get_genicam_xml(donor, &size);
    std::string xml(text, size);
    g_object_unref(donor);
    xml.insert(xml.rfind("</RegisterDescription>"),
               "<Integer Name=\"GevTimestampTickFrequency\"><Value>125000000</Value></Integer>");
    std::string const path = testing::TempDir() + "/aravis_clock_" + std::to_string(getpid()) + ".xml";
    std::ofstream(path) << xml;
    FakeGigECamera camera({"-g", path});
    TovCam::Device *const device = Open();
    ASSERT_NE(device, nullptr);
    TovCam::ParamArray *const nodes = device->GetCameraParameters(nullptr);
    ASSERT_EQ(nodes->GetIntegerValue("GevTimestampTickFrequency", nullptr), 125000000);
    ASSERT_EQ(nodes->SetFloatValue("AcquisitionFrameRate", 50.0), 0);
    {
        Running running(device);
        std::uint64_t times[2]{}, ids[2]{};
        for (int i = 0; i <= 20; ++i) {
            TovCam::Buffer *const buffer = running.stream->GetBuffer(5000, nullptr);
            ASSERT_NE(buffer, nullptr);
            if (i == 0 || i == 20) {
                times[i / 20] = buffer->GetTimestamp();
                ids[i / 20] = buffer->GetFrameID();
            }
            running.stream->QueueBuffer(buffer);
        }
        double const period = static_cast<double>(times[1] - times[0]) / 125e6 / static_cast<double>(ids[1] - ids[0]);
        EXPECT_NEAR(period, 0.02, 0.005);
    }
    device->Release();
    std::remove(path.c_str());
}

TEST_F(AravisTest, DeliversNoMoreFramesThanAskedFor)
{
    FakeGigECamera camera;
    TovCam::Device *const device = Open();
    ASSERT_NE(device, nullptr);
    TovCam::Stream *const stream = device->GetStreamByIndex(0);
    ASSERT_EQ(stream->AllocBufferQueue(nullptr, 8), 0);
    ASSERT_EQ(stream->StartAcquisition(2, 0), 0);
    ASSERT_EQ(device->GetCameraParameters(nullptr)->ExecuteCommand("AcquisitionStart"), 0);
    int frames = 0;
    while (TovCam::Buffer *const buffer = stream->GetBuffer(500, nullptr)) {
        ++frames;
        stream->QueueBuffer(buffer);
    }
    EXPECT_EQ(frames, 2);
    device->Release();
}

TEST_F(AravisTest, StaysFlatOverAThousandStarts)
{
    FakeGigECamera camera;
    TovCam::Device *const device = Open();
    ASSERT_NE(device, nullptr);
    TovCam::Stream *const stream = device->GetStreamByIndex(0);
    std::size_t before = 0;
    for (int i = 0; i < 1050; ++i) {
        if (i == 50)
            before = ResidentKilobytes();
        ASSERT_EQ(stream->AllocBufferQueue(nullptr, 16), 0) << i;
        ASSERT_EQ(stream->StartAcquisition(-1, 0), 0) << i;
        ASSERT_EQ(stream->StopAcquisition(1), 0) << i;
        ASSERT_EQ(stream->ReleaseBufferQueue(), 0) << i;
    }
    EXPECT_TRUE(!MemoryIsFreed || ResidentKilobytes() < before + 4096) << ResidentKilobytes() - before;
    device->Release();
}

TEST_F(AravisTest, RefusesDescriptionsThatCannotBeUsed)
{
    std::string const head = "<?xml version=\"1.0\"?>"
                             "<RegisterDescription xmlns=\"http://www.genicam.org/GenApi/Version_1_0\">";
    struct Description
    {
        char const *name;
        std::string xml;
    };
    Description const descriptions[] = {
        {"empty", ""},
        {"no XML", "this is no XML\n"},
        {"another document", "<?xml version=\"1.0\"?><html><body/></html>"},
        {"broken off", head + "<Integer Name=\"Width\"><Value>5"},
        {"a circle", head + "<Integer Name=\"Width\"><pValue>A</pValue></Integer>"
                            "<Integer Name=\"A\"><pValue>Width</pValue></Integer></RegisterDescription>"},
        {"too large", head + "<!--" + std::string(9u << 20, 'x') + "--></RegisterDescription>"},
    };
    std::string const path = testing::TempDir() + "/aravis_description_" + std::to_string(getpid()) + ".xml";
    for (Description const &description : descriptions) {
        SCOPED_TRACE(description.name);
        std::ofstream(path) << description.xml;
        FakeGigECamera camera({"-g", path});
        TovCam::Device *const device = Open();
        ASSERT_NE(device, nullptr);
        std::int32_t error = 0;
        EXPECT_EQ(device->GetCameraParameters(&error), nullptr);
        EXPECT_EQ(error, TOV_CAM_ERR_GENICAM_TREE);
        device->Release();
    }
    std::remove(path.c_str());
}

// A camera of ours that says of its registers what a test wants: the first 8 kB, and no more.
class RegisterServer
{
public:
    RegisterServer()
    {
        Put(0x48, "Maker");
        Put(0x68, "Model");
        Put(0xD8, "Serial");
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(3956);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        m_socket = socket(AF_INET, SOCK_DGRAM, 0);
        EXPECT_EQ(bind(m_socket, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        m_thread = std::thread([this] { Serve(); });
    }
    ~RegisterServer()
    {
        m_stop = true;
        m_thread.join();
        close(m_socket);
    }
    void Put(std::size_t address, std::string const &bytes)
    {
        std::copy(bytes.begin(), bytes.end(), m_memory.begin() + static_cast<std::ptrdiff_t>(address));
    }
    int GetRequests() const
    {
        return m_requests;
    }

private:
    void Serve()
    {
        while (!m_stop) {
            timeval const patience{0, 20000};
            setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
            unsigned char request[600];
            sockaddr_in peer{};
            socklen_t peerSize = sizeof peer;
            if (recvfrom(m_socket, request, sizeof request, 0, reinterpret_cast<sockaddr *>(&peer), &peerSize) < 8)
                continue;
            std::size_t const address = request[10] << 8 | request[11];
            std::string answer;
            if (request[3] == 0x02)
                answer.assign(m_memory.begin(), m_memory.begin() + 0xF8);
            else if (request[3] == 0x80)
                answer.assign(m_memory.begin() + address, m_memory.begin() + address + 4);
            else if (request[3] == 0x84)
                answer =
                    std::string(request + 8, request + 12) + m_memory.substr(address, request[14] << 8 | request[15]);
            else if (request[3] == 0x82) { // a register written
                std::copy(request + 12, request + 16, m_memory.begin() + static_cast<std::ptrdiff_t>(address));
                answer = std::string("\0\0\0\1", 4);
            } else {
                continue;
            }
            ++m_requests;
            std::string const head{0,
                                   0,
                                   0,
                                   static_cast<char>(request[3] + 1),
                                   static_cast<char>(answer.size() >> 8),
                                   static_cast<char>(answer.size()),
                                   static_cast<char>(request[6]),
                                   static_cast<char>(request[7])};
            answer = head + answer;
            sendto(m_socket, answer.data(), answer.size(), 0, reinterpret_cast<sockaddr *>(&peer), peerSize);
        }
    }

    std::string m_memory = std::string(0x10400, '\0'); // set before anybody asks
    int m_socket = -1;
    std::atomic<bool> m_stop{false};
    std::atomic<int> m_requests{0};
    std::thread m_thread;
};

std::string Little(std::uint32_t value, int bytes)
{
    std::string text;
    for (; bytes > 0; --bytes, value >>= 8)
        text += static_cast<char>(value);
    return text;
}

// An archive with one file in it that is not compressed, as its directory tells it.
std::string Archive(std::string const &file, std::uint32_t unpackedSize, std::uint32_t localOffset = 0)
{
    auto const size = static_cast<std::uint32_t>(file.size());
    std::string const common = std::string(8, '\0') + std::string(4, '\0') + Little(size, 4) + Little(unpackedSize, 4) +
                               Little(5, 2) + Little(0, 2);
    std::string const local = "PK\3\4" + Little(20, 2) + common + "a.xml" + file;
    std::string const entry =
        "PK\1\2" + Little(20, 2) + Little(20, 2) + common + std::string(10, '\0') + Little(localOffset, 4) + "a.xml";
    return local + entry + "PK\5\6" + std::string(4, '\0') + Little(1, 2) + Little(1, 2) +
           Little(static_cast<std::uint32_t>(entry.size()), 4) + Little(static_cast<std::uint32_t>(local.size()), 4) +
           Little(0, 2);
}

TEST_F(AravisTest, LoadsNoDescriptionFromWhereNoneBelongs)
{
    std::string const xml = "<?xml version=\"1.0\"?><RegisterDescription><Integer Name=\"Width\"><Value>5</Value>"
                            "</Integer></RegisterDescription>";
    std::string const sane = Archive(xml, static_cast<std::uint32_t>(xml.size()));
    std::string const bomb = Archive(xml, 0xFFFFFFFF);
    std::string const astray = Archive(xml, static_cast<std::uint32_t>(xml.size()), 0x7FFFFFFF);
    char size[16];
    std::snprintf(size, sizeof size, "%zx", sane.size());
    struct Case
    {
        char const *name;
        std::string url;
        std::string archive; // at 0x1000
    };
    for (Case const &one : {
             Case{"none", "", ""},
             {"a file of the host", "file:///dev/zero.xml", ""},
             {"another server", "http://127.0.0.1/a.xml", ""},
             {"no numbers", "Local:a.xml", ""},
             {"4 GB", "Local:a.xml;1000;ffffffff", ""},
             {"behind the address space", "Local:a.xml;fffffff0;100", ""},
             {"no archive", "Local:a.zip;1000;100", ""},
             {"an archive", std::string("Local:a.zip;1000;") + size, sane},
             {"an archive that unpacks to 4 GB", std::string("Local:a.zip;1000;") + size, bomb},
             {"an archive that points outside", std::string("Local:a.ZIP;1000;") + size, astray},
         }) {
        SCOPED_TRACE(one.name);
        RegisterServer server;
        server.Put(0x200, one.url);
        server.Put(0x1000, one.archive);
        TovCam::Device *const device = Open();
        ASSERT_NE(device, nullptr);
        std::int32_t error = 0;
        TovCam::ParamArray *const nodes = device->GetCameraParameters(&error);
        if (one.archive == sane) {
            ASSERT_NE(nodes, nullptr);
            EXPECT_EQ(nodes->GetIntegerValue("Width", nullptr), 5);
            device->Release();
            continue;
        }
        EXPECT_EQ(nodes, nullptr);
        EXPECT_EQ(error, TOV_CAM_ERR_GENICAM_TREE);
        EXPECT_EQ(device->GetStreamByIndex(0), nullptr);
        EXPECT_LT(server.GetRequests(), 30); // nothing was downloaded
        device->Release();
    }
}

TovCam::DeviceInfo *FindFreshCamera(TovCam::System *system)
{
    s_contractCamera.reset();
    s_contractCamera = std::make_unique<FakeGigECamera>();
    return system->FindDeviceByAddress("127.0.0.1", nullptr);
}

INSTANTIATE_TEST_SUITE_P(Aravis, CameraContract, testing::Values(ContractCamera{"FakeGigE", FindFreshCamera, false}),
                         [](testing::TestParamInfo<ContractCamera> const &info) { return info.param.name; });

} // namespace
