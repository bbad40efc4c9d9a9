// Disks without room: a tmpfs of a few megabytes where a namespace may have one, and a limit on the size of files.
#include "framefilereader.h"
#include "serializerfixture.h"

#include <csignal>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

class FullDiskTest : public SerializerTest
{
protected:
    // True when `folder` is a file system of `size` bytes now.
    bool Mount(char const *size)
    {
        m_mounted = mount("tmpfs", folder.c_str(), "tmpfs", 0, (std::string("size=") + size).c_str()) == 0;
        return m_mounted;
    }
    void TearDown() override
    {
        serializer->Stop();
        if (m_mounted)
            umount2(folder.c_str(), MNT_DETACH);
        SerializerTest::TearDown();
    }

private:
    bool m_mounted = false;
};

TEST_F(FullDiskTest, SeriesLeavesWholeFilesOnly)
{
    if (!Mount("5m"))
        GTEST_SKIP() << "no file system of our own here";
    for (char const *extension : {"raw", "tvi", "bmp", "png", "tif"}) {
        Picture const picture(TV_PIXEL_MONO8, 1024, 1100);
        ASSERT_EQ(serializer->StartImageSeries(picture.Get(), extension), TOV_SERIALIZER_OK);
        std::string const path = Path(std::string("x.") + extension);
        int written = 0;
        std::int32_t status = TOV_SERIALIZER_OK;
        while (written < 10 && (status = serializer->WriteFrame(picture.Get(), path.c_str())) == TOV_SERIALIZER_OK)
            ++written;
        EXPECT_EQ(status, TOV_SERIALIZER_ERR_WRITE);
        EXPECT_EQ(written, 4) << extension;
        EXPECT_EQ(Files(folder), written);
        Bytes const first = ReadFile(path);
        for (fs::path const &file : fs::directory_iterator(folder))
            EXPECT_TRUE(ReadFile(file) == first) << file;
        // Room again: the series goes on.
        fs::remove(path);
        EXPECT_EQ(serializer->WriteFrame(picture.Get(), path.c_str()), TOV_SERIALIZER_OK);
        EXPECT_EQ(serializer->Stop(), TOV_SERIALIZER_OK);
        for (fs::path const &file : fs::directory_iterator(folder))
            fs::remove(file);
    }
}

class FullDiskMovieTest : public FullDiskTest
{
protected:
    // Frames until one fails; what was written is what ffmpeg or the reader finds.
    void FillWithMovie(char const *name, TovImageSize size)
    {
        Bytes expected;
        std::int32_t status = TOV_SERIALIZER_OK;
        unsigned written = 0;
        for (unsigned i = 0; i < 500; ++i) {
            Picture const picture(TV_PIXEL_MONO8, size.width, size.height, i + 1);
            if (i == 0) {
                ASSERT_EQ(serializer->StartMovie(picture.Get(), Path(name).c_str(), 25), TOV_SERIALIZER_OK);
            }
            status = serializer->WriteFrame(picture.Get(), nullptr);
            if (status != TOV_SERIALIZER_OK)
                break;
            expected += picture.Lines();
            ++written;
        }
        EXPECT_EQ(status, TOV_SERIALIZER_ERR_WRITE);
        EXPECT_GE(written, 2u);
        serializer->Stop();
        if (fs::path(name).extension() == ".avi") {
            EXPECT_TRUE(Decoded(Path(name), "gray") == expected) << name << " " << written;
        } else {
            FrameFileReader reader;
            EXPECT_EQ(reader.Open(Path(name)), 0);
            EXPECT_EQ(reader.Frames().size(), written);
        }
        fs::remove(Path(name));
    }
};

TEST_F(FullDiskMovieTest, MovieSoFarPlaysOnAFullDisk)
{
    if (!Mount("8m"))
        GTEST_SKIP() << "no file system of our own here";
    for (TovImageSize const size : {TovImageSize{1024, 1024}, TovImageSize{200, 150}}) {
        FillWithMovie("m.avi", size);
        FillWithMovie("m.tvm", size);
    }
}

// The road on which the file system refuses in the middle of a frame.
TEST_F(FullDiskMovieTest, MovieSoFarPlaysAtALimitOfFileSize)
{
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit old;
    getrlimit(RLIMIT_FSIZE, &old);
    rlimit const limit{7'340'033, old.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    for (TovImageSize const size : {TovImageSize{1024, 1024}, TovImageSize{200, 150}}) {
        FillWithMovie("m.avi", size);
        FillWithMovie("m.tvm", size);
    }
    Picture const picture(TV_PIXEL_MONO8, 3000, 3000);
    EXPECT_EQ(Save(picture, "raw", Path("x.raw")), TOV_SERIALIZER_ERR_WRITE);
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_EQ(Files(folder), 0);
}

} // namespace

// A mount namespace of one's own; where that is forbidden the tests that need it skip.
int main(int argc, char **argv)
{
    if (!std::getenv("TOV_IN_MOUNT_NAMESPACE")) {
        setenv("TOV_IN_MOUNT_NAMESPACE", "1", 1);
        if (std::system("unshare -rm true 2>/dev/null") == 0) {
            std::vector<char *> arguments{const_cast<char *>("unshare"), const_cast<char *>("-rm")};
            arguments.insert(arguments.end(), argv, argv + argc + 1);
            execvp("unshare", arguments.data());
        }
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
