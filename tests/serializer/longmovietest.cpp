// Movies past every border of their container: 1 GB parts, 2 and 4 GB of offsets.
#include "serializerfixture.h"

#include <vector>

namespace {

class LongMovieTest : public SerializerTest
{
protected:
    // The container walked chunk by chunk, which is more than players do.
    static void ExpectWhole(std::string const &path, std::uint32_t frames)
    {
        std::ifstream file(path, std::ios::binary);
        auto const number = [&](std::uint64_t at, std::streamsize bytes = 4) {
            std::uint64_t value = 0;
            file.seekg(std::streamoff(at)).read(reinterpret_cast<char *>(&value), bytes);
            return value;
        };
        std::vector<std::uint64_t> found, indexed, parts; // frames, frames, frames before each part
        std::uint64_t index = 0, at = 0, end = 0;
        for (std::uint64_t const size = fs::file_size(path); at < size;) {
            std::uint64_t const value = number(at), bytes = number(at + 4);
            Bytes const tag(reinterpret_cast<char const *>(&value), 4);
            if (tag == "RIFF") {
                ASSERT_EQ(at, end);
                end = at + 8 + bytes;
                parts.push_back(found.size());
            } else if (tag == "00dc" || tag == "00db") {
                found.push_back(at + 8);
            } else if (tag == "indx") {
                index = at + 8;
            }
            at += tag == "RIFF" || tag == "LIST" ? 12 : 8 + bytes + bytes % 2;
        }
        EXPECT_EQ(at, end);
        for (std::uint64_t i = 0, pieces = number(index + 4); i < pieces; ++i) {
            std::uint64_t const piece = number(index + 24 + 16 * i, 8) + 8, entries = number(piece + 4);
            for (std::uint64_t k = 0; k < entries; ++k)
                indexed.push_back(number(piece + 12, 8) + number(piece + 24 + 8 * k));
        }
        EXPECT_EQ(found.size(), frames);
        EXPECT_TRUE(found == indexed);
        ASSERT_GT(parts.size(), 1u);
        EXPECT_EQ(number(48), parts[1]) << "frames of the first part, as the head tells them";
    }
};

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
    ExpectWhole(path, Frames);
}

// Small frames, which take the road of all compressors' packets.
TEST_F(LongMovieTest, AnHourDoesNotDrift)
{
    constexpr int Frames = 107892; // 1.2 GB
    if (fs::space(folder).available < 2'000'000'000)
        GTEST_SKIP() << "no room for it";
    Picture const picture(TV_PIXEL_MONO8, 105, 105);
    std::string const path = Path("hour.avi");
    ASSERT_EQ(serializer->StartMovie(picture.Image(), path.c_str(), 30000.0 / 1001), TOV_SERIALIZER_OK);
    for (int i = 0; i < Frames; ++i)
        ASSERT_EQ(serializer->WriteFrame(picture.Image(), nullptr), TOV_SERIALIZER_OK) << i;
    ASSERT_EQ(serializer->Stop(), TOV_SERIALIZER_OK);
    EXPECT_EQ(Output("ffprobe -v error -show_entries packet=pts,pts_time -of csv=p=0 '" + path + "' | tail -1"),
              "107891,3599.963033\n");
    ExpectWhole(path, Frames);
}

} // namespace
