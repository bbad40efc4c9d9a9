// Disks without room: a limit on the size of files, on which the file system refuses in the middle of a frame, and a
// small file system of our own.
#include "framefilereader.h"
#include "ownmounts.h"
#include "serializerfixture.h"

#include <csignal>
#include <sys/resource.h>
#include <sys/wait.h>

namespace {

class FullDiskTest : public SerializerTest
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
                ASSERT_EQ(serializer->StartMovie(picture.Image(), Path(name).c_str(), 25), TOV_SERIALIZER_OK);
            }
            status = serializer->WriteFrame(picture.Image(), nullptr);
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
    void FillWithEverything()
    {
        for (TovImageSize const size : {TovImageSize{1024, 1024}, TovImageSize{200, 150}}) {
            FillWithMovie("m.avi", size);
            FillWithMovie("m.tvm", size);
        }
        Picture const picture(TV_PIXEL_MONO8, 3000, 3000);
        for (std::string const extension : {"raw", "tvi", "bmp", "png", "tif"})
            EXPECT_EQ(Save(picture, extension.c_str(), Path("x." + extension)), TOV_SERIALIZER_ERR_WRITE) << extension;
        EXPECT_EQ(Files(folder), 0);
    }
};

TEST_F(FullDiskTest, LeavesMoviesThatPlayAndNoHalfFiles)
{
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit old;
    getrlimit(RLIMIT_FSIZE, &old);
    rlimit const limit{7'340'033, old.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    FillWithEverything();
    setrlimit(RLIMIT_FSIZE, &old);
}

// In a child: a mount namespace of its own has to begin with one thread.
TEST_F(FullDiskTest, LeavesTheSameOnAFileSystemThatIsFull)
{
    constexpr int NotAllowed = 77;
    pid_t const child = fork();
    if (child == 0) {
        if (!EnterOwnMounts() || mount("none", folder.c_str(), "tmpfs", 0, "size=7m") != 0)
            _exit(NotAllowed);
        FillWithEverything();
        _exit(HasFailure());
    }
    int status = -1;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == NotAllowed)
        GTEST_SKIP() << "no file system of our own here";
    EXPECT_EQ(status, 0);
}

} // namespace
