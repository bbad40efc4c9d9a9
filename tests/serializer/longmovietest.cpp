// A movie past every border of its container: 1 GB segments, 2 and 4 GB of offsets.
#include "serializerfixture.h"

namespace {

using LongMovieTest = SerializerTest;

TEST_F(LongMovieTest, PlaysPastFourGigabytes)
{
    constexpr std::uint32_t Width = 8192, Height = 8192;
    constexpr int Frames = 70; // 4.7 GB
    constexpr std::uintmax_t Needed = 6'000'000'000;
    if (fs::space(folder).available < Needed)
        GTEST_SKIP() << "no room for it";
    Picture const picture(TV_PIXEL_MONO8, Width, Height);
    std::string const path = Path("long.avi");
    ASSERT_EQ(serializer->StartMovie(picture.Image(), path.c_str(), 25), TOV_SERIALIZER_OK);
    std::vector<std::string> expected;
    for (int i = 0; i < Frames; ++i) {
        std::memset(picture.Image()->imageData + i * Height * 17, i, Width);
        ASSERT_EQ(serializer->WriteFrame(picture.Image(), nullptr), TOV_SERIALIZER_OK) << i;
    }
    ASSERT_EQ(serializer->Stop(), TOV_SERIALIZER_OK);
    ASSERT_GT(fs::file_size(path), std::uintmax_t(1) << 32);
    // The picture only gains lines, so the last one tells of all; the checksums tell that each came once.
    Output("cd '" + folder.string() + "' && ffmpeg -v error -nostdin -i long.avi -f framemd5 - | grep -v '#' | " +
           "awk '{print $NF}' | sort -u | wc -l > count && ffmpeg -v error -nostdin -ss " +
           std::to_string((Frames - 1) / 25.0) + " -i long.avi -frames:v 1 -f rawvideo -y last");
    EXPECT_EQ(std::stoi(ReadFile(Path("count"))), Frames);
    EXPECT_TRUE(ReadFile(Path("last")) == picture.Lines());
}

} // namespace
