// Where a camera's description may lie, how it may be packed, and that it is read once. In a network namespace of its
// own.
#include "gige/description.h"

#include "genicam/xmlcheck.h"
#include "gige/controlchannel.h"
#include "gige/openwatch.h"
#include "gige/ziparchive.h"
#include "hostiledescription.h"
#include "scriptedcamera.h"
#include "wirecamera.h"

namespace {

namespace bootstrap = gvcp::bootstrap;

std::string const Good = "<?xml version=\"1.0\"?><RegisterDescription><Integer Name=\"Width\"><Value>5</Value>"
                         "</Integer></RegisterDescription>",
                  Circle = "<?xml version=\"1.0\"?><RegisterDescription><Integer Name=\"Width\"><pValue>Width</pValue>"
                           "</Integer></RegisterDescription>";

std::span<std::uint8_t const> BytesOf(std::string const &text)
{
    return {reinterpret_cast<std::uint8_t const *>(text.data()), text.size()};
}

TEST(Description, UrlsAreNamePlaceAndSize)
{
    struct Row
    {
        char const *url;
        std::uint32_t address;
        std::size_t size; // 0: refused
        bool isArchive = false;
    };
    Row const rows[] = {
        {"Local:a.xml;1000;20", 0x1000, 0x20},
        {"LOCAL:a.XML;00001000;fF", 0x1000, 0xFF},
        {"Local:///a.zip;1000;20", 0x1000, 0x20, true},
        {"local:a.Zip;0x1000;0X20", 0x1000, 0x20, true},
        {"Local:a.xml;1000;20?SchemaVersion=1.1.0", 0x1000, 0x20},
        {"Local:a;b.zip;1000;20", 0x1000, 0x20, true},
        {"Local:a;b.zip;5;6;1000;20", 0x1000, 0x20},
        {"Local:;ffffff00;100", 0xFFFFFF00, 0x100},
        {"Local:a.xml;ffffff00;101", 0, 0},
        {"Local:a.xml;100000000;1", 0, 0},
        {"Local:a.xml;1000;0", 0, 0},
        {"Local:a.xml;0;800000", 0, 0x800000},
        {"Local:a.xml;0;800001", 0, 0},
        {"Local:a.xml;1000;ffffffffffffffffff", 0, 0},
        {"Local:a.xml;1000", 0, 0},
        {"Local:a.xml;1000;", 0, 0},
        {"Local:a.xml;;20", 0, 0},
        {"Local:a.xml;1000;20 ", 0, 0},
        {"Local:a.xml;-1000;20", 0, 0},
        {"Local:a.xml;0x;20", 0, 0},
        {"Local:a.xml;1000;20?SchemaVersion=1.1", 0, 0},
        {"Local:a.xml;1000;20?SchemaVersion=1.1.0.", 0, 0},
        {"Local:a.xml;1000;20?Other=1.1.0", 0, 0},
        {"Local", 0, 0},
        {"", 0, 0},
        {"a.xml;1000;20", 0, 0},
        {"File:///etc/passwd", 0, 0},
        {"File:///etc/passwd;1000;20", 0, 0},
        {"http://127.0.0.1/a.xml;1000;20", 0, 0},
    };
    for (Row const &row : rows) {
        std::optional<DescriptionPlace> const place = ParseDescriptionUrl(row.url);
        ASSERT_EQ(place.has_value(), row.size != 0) << row.url;
        EXPECT_TRUE(!place || std::tuple(place->address, place->size, place->isArchive) ==
                                  std::tuple(row.address, row.size, row.isArchive))
            << row.url;
    }
}

TEST(Description, ArchivesAreUnpackedOrRefused)
{
    std::string const text = Good + std::string(200000, ' '), zip = MakeZip("a.xml", text);
    EXPECT_EQ(UnpackFirstFile(BytesOf(zip), text.size()), text);
    EXPECT_EQ(UnpackFirstFile(BytesOf(zip), text.size() - 1), std::nullopt);
    EXPECT_EQ(UnpackFirstFile(BytesOf("PK\3\4" + zip + std::string(9, '\0')), text.size()), std::nullopt);
    EXPECT_EQ(UnpackFirstFile(BytesOf(zip + "a comment"), text.size()), text);
    for (WireDescription const kind : {WireDescription::BadZip, WireDescription::ZipBomb})
        EXPECT_EQ(UnpackFirstFile(BytesOf(MakeDescription(kind, "a", text).zipped), GenicamXmlLimit), std::nullopt);
    // No byte of an archive is there for nothing but those that only people read: versions, times and the like.
    std::string const small = MakeZip("a.xml", Good);
    int unnoticed = 0;
    for (std::size_t i = 0; i < small.size(); ++i) {
        EXPECT_EQ(UnpackFirstFile(BytesOf(small.substr(0, i)), GenicamXmlLimit), std::nullopt);
        for (int bit = 0; bit < 8; ++bit) {
            std::string damaged = small;
            damaged[i] = static_cast<char>(damaged[i] ^ 1 << bit);
            std::optional<std::string> const file = UnpackFirstFile(BytesOf(damaged), GenicamXmlLimit);
            unnoticed += file.has_value();
            EXPECT_TRUE(!file || *file == Good) << i << ' ' << bit;
        }
    }
    EXPECT_LT(unnoticed, 600);
}

// What lies in the camera, and what comes of it.
TEST(Description, IsReadOnceFromTheFirstUrlThatIsGood)
{
    std::string const zip = MakeZip("a.xml", Good), circle = MakeZip("a.xml", Circle);
    std::string bad = zip;
    bad[bad.size() / 2] ^= 0x55;
    struct Row
    {
        char const *name;
        std::string firstUrl, first, secondUrl, second; // URLs without place and size
        std::string wanted;                             // "" for refused
    };
    Row const rows[] = {
        {"plain", "Local:a.xml", Good, "", "", Good},
        {"packed", "Local:a.zip", zip, "", "", Good},
        {"packed, by its bytes", "Local:a.xml", zip, "", "", Good},
        {"packed, with a semicolon", "Local:a;b.zip", zip, "", "", Good},
        {"not packed, by its bytes", "Local:a.zip", Good, "", "", ""},
        {"a circle", "Local:a.xml", Circle, "", "", ""},
        {"a packed circle", "Local:a.zip", circle, "", "", ""},
        {"the second", "", "", "Local:a.xml", Good, Good},
        {"the second, after a bad archive", "Local:a.zip", bad, "Local:a.xml", Good, Good},
        {"the second, after a file of the host", "File:///etc/passwd", "", "Local:a.zip", zip, Good},
        {"the first, before a file of the host", "Local:a.xml", Good, "File:///etc/passwd", "", Good},
        {"none", "", "", "", "", ""},
        {"two bad ones", "Local:a.zip", bad, "http://127.0.0.1/a.xml", "", ""},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        ScriptedCamera camera;
        auto const lay = [&camera](std::uint32_t url, std::string const &name, std::uint32_t at,
                                   std::string const &text) {
            char place[40];
            std::snprintf(place, sizeof place, ";%x;%zx", at, text.size());
            camera.Put(url, text.empty() ? name : name + place);
            camera.Put(at, text);
        };
        lay(bootstrap::FirstUrl, row.firstUrl, 0x10000, row.first);
        lay(bootstrap::SecondUrl, row.secondUrl, 0x18000, row.second);
        ControlChannel channel("127.0.0.1");
        ASSERT_EQ(channel.Open(), 0);
        TovCam::OpenProgress progress;
        OpenWatch watch(&progress);
        std::string xml;
        EXPECT_EQ(DownloadDescription(channel, watch, xml), row.wanted.empty() ? TOV_CAM_ERR_GENICAM_TREE : 0);
        EXPECT_TRUE(row.wanted.empty() || xml == row.wanted);
        EXPECT_EQ(progress.bytes, progress.total);
        std::vector<ScriptedCamera::Bytes> const reads = camera.Requests(gvcp::READMEM_CMD);
        for (std::size_t i = 0; i < reads.size(); ++i) {
            for (std::size_t other = 0; other < i; ++other)
                EXPECT_NE(LoadBig32(&reads[i][8]), LoadBig32(&reads[other][8]));
        }
    }
}

TEST(Description, DownloadTellsHowFarItIsAndEndsWhenItIsToEnd)
{
    ScriptedCamera camera;
    camera.Put(bootstrap::FirstUrl, std::string("Local:a.xml;10000;10000"));
    ControlChannel channel("127.0.0.1");
    ASSERT_EQ(channel.Open(), 0);
    TovCam::OpenProgress progress;
    OpenWatch watch(&progress);
    channel.Follow(&watch);
    camera.Set([&progress](auto const &request, auto const &good) {
        bool const isMiddle = LoadBig16(&request[2]) == gvcp::READMEM_CMD && LoadBig32(&request[8]) == 0x18000;
        if (isMiddle)
            progress.cancel = true;
        return isMiddle ? std::vector<ScriptedCamera::Datagram>() : std::vector<ScriptedCamera::Datagram>{{good}};
    });
    std::string xml;
    EXPECT_EQ(DownloadDescription(channel, watch, xml), TOV_CAM_ERR_NO_DEVICE);
    EXPECT_EQ(progress.stage, TovCam::OpenProgress::Stage::Description);
    EXPECT_EQ(progress.bytes, 0x8000u);
    EXPECT_EQ(progress.total, 0x10000u);
    EXPECT_FALSE(progress.overdue);
}

TEST(Description, WhatACameraServesToHurtIsRefused)
{
    std::string good;
    for (std::string_view const kind : {"Good", "BadZip", "ZipBomb", "ChangesOnce", "Truncated", "NotXml", "Empty",
                                        "Entities", "Nested", "Circle", "HugeUrl", "FileUrl", "OutsideUrl"}) {
        bool const isUsable = kind == "Good" || kind == "BadZip" || kind == "ZipBomb" || kind == "ChangesOnce";
        SCOPED_TRACE(kind);
        WireCamera camera({GetWireModels()[0], "127.0.0.1", "", ""});
        std::string why, xml;
        ASSERT_TRUE(camera.SetFeature("WireDescription", std::string(kind), why)) << why;
        ControlChannel channel("127.0.0.1");
        ASSERT_EQ(channel.Open(), 0);
        OpenWatch watch(nullptr);
        EXPECT_EQ(DownloadDescription(channel, watch, xml), isUsable ? 0 : TOV_CAM_ERR_GENICAM_TREE);
        good = good.empty() ? xml : good;
        EXPECT_TRUE(!isUsable || xml == good); // of one that changes, what came first
    }
}

} // namespace
