// Movies, seen by ffprobe and ffmpeg.
#include "params.h"
#include "serializerfixture.h"

#include <cmath>
#include <csignal>
#include <tuple>

namespace {

class MovieTest : public SerializerTest
{
protected:
    // Writes frames; returns what their pixels are in `type`.
    Bytes Record(std::string const &path, std::uint32_t from, std::uint32_t type, TovImageSize size, int frames,
                 double fps = 25, std::uint64_t gap = 0)
    {
        Bytes expected;
        for (int i = 0; i < frames; ++i) {
            Picture const picture(from, size.width, size.height, unsigned(i) + 1, gap);
            if (i == 0) {
                EXPECT_EQ(serializer->StartMovie(picture.Image(), path.c_str(), fps), TOV_SERIALIZER_OK);
            }
            EXPECT_EQ(serializer->WriteFrame(picture.Image(), nullptr), TOV_SERIALIZER_OK);
            expected += type == from ? picture.Lines() : picture.LinesAs(type);
        }
        EXPECT_EQ(serializer->Stop(), TOV_SERIALIZER_OK);
        return expected;
    }
};

TEST_F(MovieTest, LosslessMoviesComeBackFrameByFrame)
{
    struct Case
    {
        char const *compressor;
        std::uint32_t from, held;
        TovImageSize size;
        char const *pixels; // ffmpeg's name of `held`
        std::uint64_t gap;
    };
    static constexpr std::uint32_t BAYERGR8 = 0x0308010D, MONO12P = 0x010C2307;
    static constexpr Case cases[] = {
        {"Uncompressed", TV_PIXEL_MONO8, TV_PIXEL_MONO8, {61, 47}, "gray", 3},
        {"Uncompressed", TV_PIXEL_MONO8, TV_PIXEL_MONO8, {1024, 768}, "gray", 0},
        {"Uncompressed", TV_PIXEL_MONO8, TV_PIXEL_MONO8, {1021, 767}, "gray", 0},
        {"Uncompressed", MONO12P, TV_PIXEL_MONO8, {63, 48}, "gray", 0},
        {"Uncompressed", TV_PIXEL_BGR8, TV_PIXEL_BGR8, {61, 47}, "bgr24", 5},
        {"Uncompressed", TV_PIXEL_BGR8, TV_PIXEL_BGR8, {1023, 301}, "bgr24", 0},
        {"Uncompressed", BAYERGR8, TV_PIXEL_BGR8, {640, 480}, "bgr24", 0},
        {"FFV1", TV_PIXEL_MONO8, TV_PIXEL_MONO8, {321, 241}, "gray", 7},
        {"FFV1", TV_PIXEL_MONO16, TV_PIXEL_MONO16, {322, 240}, "gray16le", 0},
        {"FFV1", TV_PIXEL_BGR8, TV_PIXEL_BGR8, {321, 241}, "bgr24", 0},
        {"FFV1", TV_PIXEL_RGB16, TV_PIXEL_RGB16, {322, 240}, "rgb48le", 0},
    };
    for (Case const &c : cases) {
        Choose(c.compressor);
        std::string const path = Path("m.avi");
        Bytes const expected = Record(path, c.from, c.held, c.size, 7, 25, c.gap);
        EXPECT_TRUE(Decoded(path, c.pixels) == expected)
            << c.compressor << " " << c.pixels << " " << c.size.width << "x" << c.size.height;
        fs::remove(path);
    }
}

// Slopes that tell light from dark and colours apart.
TEST_F(MovieTest, LossyMoviesLookLikeTheirFrames)
{
    std::tuple<char const *, std::uint32_t, TovImageSize> const cases[] = {
        {"MJPEG", TV_PIXEL_MONO8, {320, 240}}, {"MJPEG", TV_PIXEL_BGR8, {321, 241}},
        {"MJPEG", TV_PIXEL_BGR8, {640, 479}},  {"MJPEG", TV_PIXEL_BGR8, {641, 480}},
        {"H.264", TV_PIXEL_MONO8, {320, 240}}, {"H.264", TV_PIXEL_BGR8, {321, 241}},
    };
    for (auto const &[compressor, type, size] : cases) {
        Choose(compressor);
        std::string const path = Path("m.avi");
        bool const grey = type == TV_PIXEL_MONO8;
        std::size_t const line = TovLineBytes(type, size.width);
        Bytes expected;
        Picture const picture(type, size.width, size.height);
        ASSERT_EQ(serializer->StartMovie(picture.Image(), path.c_str(), 50), TOV_SERIALIZER_OK);
        for (int i = 0; i < 20; ++i) {
            for (std::size_t s = 0; s < line * size.height; ++s)
                picture.Image()->imageData[s] =
                    std::uint8_t(grey ? 10 * i + s / line / 6 : 40 + 5 * i + s % line / 10 + s % 3 * 20);
            expected += picture.Lines();
            ASSERT_EQ(serializer->WriteFrame(picture.Image(), nullptr), TOV_SERIALIZER_OK);
        }
        ASSERT_EQ(serializer->Stop(), TOV_SERIALIZER_OK);
        EXPECT_EQ(Probe(path, "codec_name"), *compressor == 'M' ? "mjpeg" : "h264");
        Bytes const decoded = Decoded(path, grey ? "gray" : "bgr24");
        ASSERT_EQ(decoded.size(), expected.size()) << compressor;
        for (std::size_t begin = 0; begin < decoded.size(); begin += line) {
            double difference = 0;
            for (std::size_t i = begin; i < begin + line; ++i)
                difference += std::abs(int(std::uint8_t(decoded[i])) - int(std::uint8_t(expected[i])));
            ASSERT_LT(difference / double(line), 4) << compressor << " " << size.width << ", line " << begin / line;
        }
        fs::remove(path);
    }
}

TEST_F(MovieTest, PlaysAtTheRateAskedFor)
{
    for (auto const &[fps, rate] : {std::pair(30.0, "30/1"),
                                    {29.97, "2997/100"},
                                    {30000.0 / 1001, "30000/1001"},
                                    {30.00001, "3000001/100000"},
                                    {0.1, "1/10"},
                                    {0.00024, "3/12500"},
                                    {0.00023, "23/100000"},
                                    {1e-6, "1/1000000"},
                                    {1500, "1500/1"},
                                    {65536.5, "131073/2"},
                                    {123456.789, "123456789/1000"},
                                    {1e6, "1000000/1"}}) {
        for (char const *compressor : {"Uncompressed", "MJPEG", "FFV1", "H.264"}) {
            Choose(compressor);
            Record(Path("m.avi"), TV_PIXEL_MONO8, TV_PIXEL_MONO8, {32, 32}, 5, fps);
            EXPECT_EQ(Probe(Path("m.avi"), "avg_frame_rate,nb_read_frames"), std::string(rate) + "5") << compressor;
            std::uint32_t interval; // of the main head, in microseconds, for readers that go by it
            std::memcpy(&interval, ReadFile(Path("m.avi")).data() + 32, sizeof interval);
            EXPECT_EQ(interval, 1e6 / fps < UINT32_MAX ? std::uint32_t(1e6 / fps + 1e-6) : 0) << fps;
            fs::remove(Path("m.avi"));
        }
    }
    EXPECT_EQ(ParamText(serializer->GetComponent(), "movie.compressors"), "Uncompressed|MJPEG|FFV1|H.264");
}

TEST_F(MovieTest, RefusesRatesThatItCannotHold)
{
    Picture const picture(TV_PIXEL_MONO8, 32, 32);
    for (char const *name : {"m.avi", "m.tvm", "m.h5"}) {
        for (double const fps : {2e6, 1000001.0, 9e-7, 0.0, -25.0, double(INFINITY), double(NAN)}) {
            EXPECT_EQ(serializer->StartMovie(picture.Image(), Path(name).c_str(), fps), TOV_SERIALIZER_ERR_ARGUMENT);
            EXPECT_EQ(std::string(serializer->GetLastFailure()).rfind("A movie cannot have ", 0), 0) << fps;
        }
    }
    EXPECT_STREQ(serializer->GetLastFailure(), "A movie cannot have nan frames a second");
    EXPECT_EQ(Files(folder), 0);
}

// The child kills itself with as many frames as it says are readable, which are all it was given.
TEST_F(MovieTest, EndOfTheProgramLosesNoFrame)
{
    constexpr int Frames = 40;
    Picture const picture(TV_PIXEL_MONO8, 800, 600);
    for (std::string const compressor : {"Uncompressed", "MJPEG", "FFV1", "H.264", "tvm"}) {
        std::string const path = Path(compressor == "tvm" ? "m.tvm" : "m.avi");
        int const status = InChild([&] {
            Choose(compressor.c_str());
            serializer->StartMovie(picture.Image(), path.c_str(), 25);
            for (int i = 0; i < Frames; ++i)
                EXPECT_EQ(serializer->WriteFrame(picture.Image(), nullptr), TOV_SERIALIZER_OK);
            return serializer->GetReadableFrames() == Frames ? raise(SIGKILL) : 2;
        });
        EXPECT_EQ(status, -1);
        EXPECT_EQ(FramesIn(path), Frames) << compressor;
        fs::remove(path);
    }
}

TEST_F(MovieTest, DeletedMovieHasNoFrames)
{
    Picture const picture(TV_PIXEL_MONO8, 64, 48);
    for (char const *name : {"gone/m.avi", "gone/m.tvm", "gone/m.h5"}) {
        ASSERT_EQ(serializer->StartMovie(picture.Image(), Path(name).c_str(), 25), TOV_SERIALIZER_OK);
        EXPECT_EQ(serializer->WriteFrame(picture.Image(), nullptr), TOV_SERIALIZER_OK);
        EXPECT_EQ(serializer->GetReadableFrames(), 1);
        fs::remove_all(Path("gone"));
        EXPECT_EQ(serializer->Stop(), TOV_SERIALIZER_ERR_WRITE);
        EXPECT_EQ(serializer->GetReadableFrames(), 0);
        EXPECT_STREQ(serializer->GetLastFailure(), "The file was deleted while it was being written");
    }
}

} // namespace
