// Single files, seen by other programs.
#include "serializerfixture.h"

#include <cstdarg>
#include <thread>

#include <fcntl.h>
#include <sys/syscall.h>

namespace {

bool s_refuseColons = false; // see the end

using ImageSeriesTest = SerializerTest;

TEST_F(ImageSeriesTest, RawIsTheLinesBytesAndNothingElse)
{
    // Large ones take another road; aligned or not, with a rest of less than a page or none.
    for (std::uint32_t const width : {35u, 2048u, 1999u}) {
        for (std::uint64_t const gap : {0, 13}) {
            Picture const picture(TV_PIXEL_MONO8, width, 1024, width, gap);
            ASSERT_EQ(Save(picture, "raw", Path("large.raw")), TOV_SERIALIZER_OK);
            EXPECT_TRUE(ReadFile(Path("large.raw")) == picture.Lines()) << width << " " << gap;
            fs::remove(Path("large.raw"));
        }
    }
}

TEST_F(ImageSeriesTest, TiffTellsTheDepthOfItsSamples)
{
    std::pair<std::uint32_t, char const *> const cases[] = {
        {TV_PIXEL_MONO10, "1023"}, {TV_PIXEL_RGB12, "4095"}, {0x010C1308, "4095"}, {TV_PIXEL_MONO16, nullptr}};
    for (auto const &[type, maximum] : cases) { // null: not told
        ASSERT_EQ(Save(Picture(type, 640, 480), "tif", Path("t.tif")), TOV_SERIALIZER_OK);
        std::string const info = Output("tiffinfo '" + Path("t.tif") + "' 2>&1");
        EXPECT_NE(info.find("Bits/Sample: 16"), std::string::npos) << info;
        std::string const told = "Max Sample Value: ";
        EXPECT_EQ(info.find(maximum ? told + maximum : told) != std::string::npos, maximum != nullptr) << info;
        EXPECT_EQ(info.find("Warning"), std::string::npos) << info;
        fs::remove(Path("t.tif"));
    }
}

// Pictures that fill several blocks, flat parts and long repetitions, 8 and 16 bits, and every filter.
TEST_F(ImageSeriesTest, PngsOfAllSortsOfPicturesAreSound)
{
    for (std::uint32_t const type : {TV_PIXEL_MONO8, TV_PIXEL_MONO16, TV_PIXEL_RGB8, TV_PIXEL_RGB16}) {
        bool const wide = type == TV_PIXEL_MONO16 || type == TV_PIXEL_RGB16, colour = type >> 24 == 2;
        for (int kind = 0; kind < 5; ++kind) {
            Picture const picture(type, 701, 603, unsigned(kind));
            std::uint64_t const bytes = TovLineBytes(type, 701);
            std::mt19937 random(9);
            for (std::uint64_t i = 0; i < bytes * 603; ++i) {
                std::uint64_t const x = i % bytes, y = i / bytes;
                int const noise = int(random() % 7);
                int const values[] = {77, int(x), int(y), int(x / 3 + y / 5) + noise, x % 300 < 50 ? noise * 36 : 5};
                picture.Image()->imageData[i] = std::uint8_t(values[kind]);
            }
            ASSERT_EQ(Save(picture, "png", Path("p.png")), TOV_SERIALIZER_OK);
            Output("pngcheck -q '" + Path("p.png") + "'");
            char const *const pixels = wide ? (colour ? "rgb48le" : "gray16le") : colour ? "rgb24" : "gray";
            EXPECT_TRUE(Decoded(Path("p.png"), pixels) == picture.Lines()) << pixels << " " << kind;
            fs::remove(Path("p.png"));
        }
    }
}

TEST_F(ImageSeriesTest, JpegFollowsItsQuality)
{
    for (int const quality : {25, 90}) {
        serializer->GetComponent()->SetParamInt("jpeg.quality", quality);
        ASSERT_EQ(Save(Picture(TV_PIXEL_BGR8, 64, 48), "JPG", Path("q.jpg")), TOV_SERIALIZER_OK);
        EXPECT_EQ(Output("identify -format %Q '" + Path("q.jpg") + "'"), std::to_string(quality));
        fs::remove(Path("q.jpg"));
    }
}

TEST_F(ImageSeriesTest, FoldersAreMadeAndNothingIsOverwritten)
{
    Picture const first(TV_PIXEL_MONO8, 16, 16, 1), second(TV_PIXEL_MONO8, 16, 16, 2);
    std::string const path = Path("a/b.c/image.x.raw");
    ASSERT_EQ(serializer->StartImageSeries(first.Image(), "raw"), TOV_SERIALIZER_OK);
    for (Picture const *picture : {&first, &second, &second})
        ASSERT_EQ(serializer->WriteFrame(picture->Image(), path.c_str()), TOV_SERIALIZER_OK);
    EXPECT_TRUE(ReadFile(path) == first.Lines());
    EXPECT_TRUE(ReadFile(Path("a/b.c/image.x_1.raw")) == second.Lines());
    EXPECT_TRUE(ReadFile(Path("a/b.c/image.x_2.raw")) == second.Lines());
    EXPECT_EQ(Files(folder), 5);
    // A name that leads nowhere is taken all the same; so is that of a folder.
    fs::create_symlink("nowhere", Path("link.raw"));
    fs::create_directory(Path("folder.raw"));
    for (char const *name : {"link.raw", "folder.raw", "no-dot", ".hidden"})
        EXPECT_EQ(serializer->WriteFrame(first.Image(), Path(name).c_str()), TOV_SERIALIZER_OK);
    for (char const *name : {"link_1.raw", "folder_1.raw", "no-dot", ".hidden"})
        EXPECT_TRUE(ReadFile(Path(name)) == first.Lines()) << name;
    EXPECT_FALSE(fs::exists(Path("nowhere")));
    // Thousands of one name: no look-up for each of those before.
    for (int i = 0; i < 3000; ++i)
        ASSERT_EQ(serializer->WriteFrame(first.Image(), Path("many/x.raw").c_str()), TOV_SERIALIZER_OK);
    EXPECT_EQ(Files(folder / "many"), 3000);
    EXPECT_TRUE(fs::exists(Path("many/x_2999.raw")));
    // A movie has its name from the start.
    EXPECT_EQ(serializer->Stop(), TOV_SERIALIZER_OK);
    for (char const *name : {"new/m..tvm", "new/m._1.tvm"}) {
        ASSERT_EQ(serializer->StartMovie(first.Image(), Path("new/m..tvm").c_str(), 25), TOV_SERIALIZER_OK);
        EXPECT_TRUE(fs::exists(Path(name)));
        EXPECT_EQ(serializer->Stop(), TOV_SERIALIZER_OK);
    }
}

// Several recorders, or programs, that write to one name at a time.
TEST_F(ImageSeriesTest, WritersOfOneNameDoNotMeet)
{
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t) {
        threads.emplace_back([this, t] {
            Serializer const own = NewSerializer();
            Picture const picture(TV_PIXEL_MONO8, 8, 8, t);
            own->StartImageSeries(picture.Image(), "raw");
            for (int i = 0; i < 100; ++i)
                EXPECT_EQ(own->WriteFrame(picture.Image(), Path("x.raw").c_str()), TOV_SERIALIZER_OK);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(Files(folder), 400);
}

TEST_F(ImageSeriesTest, WrongCallsAreRefusedAndHarmless)
{
    Picture const picture(TV_PIXEL_MONO8, 16, 16), wider(TV_PIXEL_MONO8, 17, 16), deeper(TV_PIXEL_MONO16, 16, 16);
    _TovImage const *image = picture.Image();
    EXPECT_EQ(serializer->Stop(), TOV_SERIALIZER_OK);
    EXPECT_EQ(serializer->WriteFrame(image, Path("x.raw").c_str()), TOV_SERIALIZER_ERR_STATE);
    EXPECT_EQ(serializer->StartImageSeries(nullptr, "raw"), TOV_SERIALIZER_ERR_ARGUMENT);
    EXPECT_EQ(serializer->StartImageSeries(image, "gif"), TOV_SERIALIZER_ERR_FORMAT);
    EXPECT_STREQ(serializer->GetLastFailure(), "There is no file format \"gif\"");
    EXPECT_EQ(serializer->StartMovie(image, Path("x.mov").c_str(), 25), TOV_SERIALIZER_ERR_FORMAT);
    Choose("Betamax");
    EXPECT_EQ(serializer->StartMovie(image, Path("x.avi").c_str(), 25), TOV_SERIALIZER_ERR_FORMAT);
    EXPECT_STREQ(serializer->GetLastFailure(), "There is no compressor \"Betamax\"");

    ASSERT_EQ(serializer->StartImageSeries(image, "raw"), TOV_SERIALIZER_OK);
    EXPECT_EQ(serializer->StartImageSeries(image, "raw"), TOV_SERIALIZER_ERR_STATE);
    EXPECT_EQ(serializer->StartMovie(image, Path("x.tvm").c_str(), 25), TOV_SERIALIZER_ERR_STATE);
    EXPECT_EQ(serializer->WriteFrame(image, nullptr), TOV_SERIALIZER_ERR_ARGUMENT);
    EXPECT_EQ(serializer->WriteFrame(wider.Image(), Path("x.raw").c_str()), TOV_SERIALIZER_ERR_ARGUMENT);
    EXPECT_EQ(serializer->WriteFrame(deeper.Image(), Path("x.raw").c_str()), TOV_SERIALIZER_ERR_ARGUMENT);
    EXPECT_STREQ(serializer->GetLastFailure(), "The picture's size or pixel type has changed");
    std::ofstream(Path("file")) << "in the way";
    for (auto const &[name, reason] : {std::pair<std::string, char const *>("/proc/nowhere/x.raw", "No such folder"),
                                       {Path(std::string(300, 'x') + ".raw"), "File name too long"},
                                       {Path("file/x.raw"), "What should be a folder is a file"},
                                       {Path("a:b/x.raw"), "The file system does not accept this name"}}) {
        s_refuseColons = true;
        EXPECT_EQ(serializer->WriteFrame(image, name.c_str()), TOV_SERIALIZER_ERR_WRITE);
        s_refuseColons = false;
        EXPECT_STREQ(serializer->GetLastFailure(), reason);
    }
    EXPECT_EQ(Files(folder), 1);
    EXPECT_EQ(serializer->WriteFrame(image, Path("x.raw").c_str()), TOV_SERIALIZER_OK);
    EXPECT_EQ(serializer->GetReadableFrames(), 1);
}

} // namespace

#pragma GCC visibility push(default)
// The system's as on a file system that refuses colons.
extern "C" int open(char const *name, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    int const mode = va_arg(arguments, int);
    va_end(arguments);
    errno = EINVAL;
    return s_refuseColons && std::strchr(name, ':') ? -1 : int(syscall(SYS_openat, AT_FDCWD, name, flags, mode));
}
#pragma GCC visibility pop
