// Disks without room: a limit on the size of files, on which the file system refuses in the middle of a frame, and
// small file systems of our own.
#include "serializerfixture.h"

namespace {

constexpr int NotAllowed = 77;

class FullDiskTest : public SerializerTest
{
protected:
    // Frames until one fails; those that are said to be readable are what ffmpeg or the reader finds.
    void FillWithMovie(char const *name, char const *compressor, TovImageSize size, std::uint64_t least)
    {
        SCOPED_TRACE(testing::Message() << name << " " << compressor << " " << size.width);
        Choose(compressor);
        std::string const path = Path(name);
        std::int32_t status = TOV_SERIALIZER_OK;
        for (unsigned i = 0; status == TOV_SERIALIZER_OK && i < 500; ++i) {
            Picture const picture(TV_PIXEL_MONO8, size.width, size.height, i + 1);
            if (i == 0) {
                ASSERT_EQ(serializer->StartMovie(picture.Image(), path.c_str(), 25), TOV_SERIALIZER_OK);
            }
            status = serializer->WriteFrame(picture.Image(), nullptr);
        }
        EXPECT_EQ(status, TOV_SERIALIZER_ERR_WRITE);
        EXPECT_STREQ(serializer->GetLastFailure(), reason);
        std::int64_t const readable = serializer->GetReadableFrames();
        serializer->Stop();
        EXPECT_EQ(serializer->GetReadableFrames(), readable);
        EXPECT_EQ(FramesIn(path), readable);
        std::size_t const bytes = std::size_t(size.width) * size.height;
        EXPECT_GE(readable * bytes, least);
        EXPECT_GT(readable, 1);
        fs::remove(path);
    }
    void FillWithEverything(std::uint64_t room)
    {
        // What is not compressed takes all but a frame and the room of the indexes.
        std::uint64_t const most = room - (3u << 19);
        for (TovImageSize const size : {TovImageSize{1024, 1024}, TovImageSize{200, 150}}) {
            FillWithMovie("m.avi", "Uncompressed", size, size.width > 1000 ? most : 0);
            FillWithMovie("m.tvm", "", size, size.width > 1000 ? most : 0);
        }
        for (char const *compressor : {"MJPEG", "FFV1", "H.264"})
            FillWithMovie("m.avi", compressor, {1023, 767}, 0);
        Picture const picture(TV_PIXEL_MONO8, 3000, 3000);
        for (std::string const extension : {"raw", "tvi", "bmp", "png", "tif"})
            EXPECT_EQ(Save(picture, extension.c_str(), Path("x." + extension)), TOV_SERIALIZER_ERR_WRITE) << extension;
    }
    char const *reason = "The file has become too large for the file system";
};

TEST_F(FullDiskTest, LeavesMoviesThatPlayAndNoHalfFiles)
{
    constexpr rlim_t Room = 7'340'033;
    FileSizeLimit const limit(Room);
    FillWithEverything(Room);
    EXPECT_EQ(Files(folder), 0);
    // Only the index finds no room.
    Record(Path("m.tvm"), TV_PIXEL_MONO8, {200, 150}, 1);
    limit.Set(fs::file_size(Path("m.tvm")));
    EXPECT_EQ(serializer->Stop(), TOV_SERIALIZER_ERR_WRITE);
    EXPECT_EQ(FramesIn(Path("m.tvm")), 1);
}

// One in memory, and one that keeps what it could give of a reservation that it refuses.
TEST_F(FullDiskTest, LeavesTheSameOnFileSystemsThatAreFull)
{
    std::string const disk = folder.string() + ".img";
    std::string const mountDisk = "truncate -s 10M " + disk + " && mkfs.ext4 -q -m 0 " + disk + " && mount -o loop " +
                                  disk + " " + folder.string() + " 2>&1";
    reason = "No space left on device";
    std::string notAllowed;
    for (bool const memory : {true, false}) {
        int const status = InChild([&] {
            bool const mounted = memory ? EnterOwnMounts() && mount("none", folder.c_str(), "tmpfs", 0, "size=7m") == 0
                                        : unshare(CLONE_NEWNS) == 0 &&
                                              mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                                              std::system(mountDisk.c_str()) == 0;
            if (!mounted)
                return NotAllowed;
            FillWithEverything(fs::space(folder).available);
            return int(HasFailure());
        });
        fs::remove(disk);
        EXPECT_TRUE(status == 0 || status == NotAllowed) << memory;
        if (status == NotAllowed)
            notAllowed += memory ? " tmpfs" : " ext4";
    }
    if (!notAllowed.empty())
        GTEST_SKIP() << "no file system of our own here:" << notAllowed;
}

} // namespace
