// Movies, seen by ffprobe and ffmpeg.
#include "params.h"
#include "serializerfixture.h"

#include <cmath>
#include <csignal>

namespace {

using MovieTest = SerializerTest;

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
            Record(Path("m.avi"), TV_PIXEL_MONO8, {32, 32}, 5, fps);
            EXPECT_EQ(serializer->Stop(), TOV_SERIALIZER_OK);
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
    for (std::string const compressor : {"Uncompressed", "MJPEG", "FFV1", "H.264", "tvm"}) {
        std::string const path = Path(compressor == "tvm" ? "m.tvm" : "m.avi");
        int const status = InChild([&] {
            Choose(compressor.c_str());
            Record(path, TV_PIXEL_MONO8, {800, 600}, Frames);
            return !HasFailure() && serializer->GetReadableFrames() == Frames ? raise(SIGKILL) : 2;
        });
        EXPECT_EQ(status, -1);
        EXPECT_EQ(FramesIn(path), Frames) << compressor;
        fs::remove(path);
    }
}

TEST_F(MovieTest, DeletedMovieHasNoFrames)
{
    for (char const *name : {"gone/m.avi", "gone/m.tvm", "gone/m.h5"}) {
        Record(Path(name), TV_PIXEL_MONO8, {64, 48}, 1);
        EXPECT_EQ(serializer->GetReadableFrames(), 1);
        fs::remove_all(Path("gone"));
        EXPECT_EQ(serializer->Stop(), TOV_SERIALIZER_ERR_WRITE);
        EXPECT_EQ(serializer->GetReadableFrames(), 0);
        EXPECT_STREQ(serializer->GetLastFailure(), "The file was deleted while it was being written");
    }
}

} // namespace
