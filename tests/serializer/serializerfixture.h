// What the tests of the serializer share: pictures, folders, and other programs' view of a file.
#pragma once

#include "framefilereader.h"
#include "ownmounts.h"
#include "tovserializer.h"

#include "../image/reference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

using Bytes = std::string;

// Random; `gap` bytes of something else stand behind each line.
class Picture : public Pixels
{
public:
    Picture(std::uint32_t type, std::uint32_t width, std::uint32_t height, unsigned seed = 1, std::uint32_t gap = 0)
        : Pixels(type, width, height, gap, seed)
    {
        Image()->timestamp = 1000 + seed;
        Image()->frameID = seed;
    }
    // The lines' bytes one after another.
    Bytes Lines() const
    {
        return LinesOf(Image());
    }
    // The same picture in another type.
    Bytes LinesAs(std::uint32_t type) const
    {
        _TovImage *other = nullptr;
        TovCreateImage(&other, {Image()->width, Image()->height}, type);
        EXPECT_EQ(TovConvertImage(other, Image()), TOV_IMAGE_OK);
        Bytes const lines = LinesOf(other);
        TovReleaseImage(&other);
        return lines;
    }

private:
    static Bytes LinesOf(_TovImage const *image)
    {
        Bytes lines;
        std::uint64_t const bytes = TovLineBytes(image->pixelType, image->width);
        for (std::uint32_t y = 0; y < image->height; ++y)
            lines.append(reinterpret_cast<char const *>(image->imageData) + y * image->lineStep, bytes);
        return lines;
    }
};

// The mono or RGB type with samples of that depth in whole bytes.
inline std::uint32_t UnpackedOfDepth(bool colour, unsigned depth)
{
    static constexpr std::uint32_t types[][2] = {{TV_PIXEL_MONO8, TV_PIXEL_RGB8},
                                                 {TV_PIXEL_MONO10, TV_PIXEL_RGB10},
                                                 {TV_PIXEL_MONO12, TV_PIXEL_RGB12},
                                                 {0x0110040A, 0x02300479},
                                                 {TV_PIXEL_MONO16, TV_PIXEL_RGB16}};
    return types[depth / 2 - 4][colour];
}

inline Bytes ReadFile(fs::path const &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline bool Has(std::string const &program)
{
    return std::system(("command -v " + program + " >/dev/null").c_str()) == 0;
}

// What a program prints; a status other than 0 fails the test.
inline Bytes Output(std::string const &command)
{
    Bytes output;
    FILE *const pipe = popen(command.c_str(), "r");
    char part[65536];
    for (std::size_t read; pipe && (read = fread(part, 1, sizeof part, pipe)) > 0;)
        output.append(part, read);
    EXPECT_EQ(pipe ? pclose(pipe) : -1, 0) << command;
    return output;
}

inline Bytes Decoded(fs::path const &movie, char const *pixels)
{
    return Output("ffmpeg -v error -nostdin -i '" + movie.string() + "' -fps_mode passthrough -f rawvideo -pix_fmt " +
                  pixels + " -");
}

inline std::string Probe(fs::path const &movie, std::string const &entry)
{
    return Output("ffprobe -v fatal -count_frames -select_streams v -show_entries stream=" + entry + " -of csv=p=0 '" +
                  movie.string() + "' | tr -d '\\n,'");
}

// What a reader finds: ffprobe, or ours.
inline std::int64_t FramesIn(fs::path const &movie)
{
    FrameFileReader reader;
    if (movie.extension() != ".avi")
        return reader.Open(movie.string()) == 0 ? std::int64_t(reader.Frames().size()) : -1;
    return std::stoll("0" + Probe(movie, "nb_read_frames"));
}

// The child's exit status, or -1 for another end. It begins with one thread and a copy of everything.
template<class F>
int InChild(F &&function)
{
    pid_t const child = fork();
    if (child == 0)
        _exit(function());
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Lets files grow no further, on which the file system refuses as a full one does.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_before);
        Set(bytes);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_before);
    }
    void Set(rlim_t bytes) const
    {
        rlimit const limit{std::min(bytes, m_before.rlim_max), m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }

private:
    rlimit m_before;
};

inline int Files(fs::path const &folder)
{
    return int(std::distance(fs::recursive_directory_iterator(folder), {}));
}

using Serializer = std::unique_ptr<TovImageSerializer, decltype(&TovImageSerializer::DeleteComponent)>;

inline Serializer NewSerializer()
{
    return {TovImageSerializer::CreateComponent(true), &TovImageSerializer::DeleteComponent};
}

class SerializerTest : public testing::Test
{
protected:
    void SetUp() override
    {
        fs::remove_all(folder);
        fs::create_directories(folder);
    }
    void TearDown() override
    {
        fs::remove_all(folder);
    }
    std::string Path(std::string const &name) const
    {
        return (folder / name).string();
    }
    void Write(std::string const &name, Bytes const &bytes)
    {
        std::ofstream(Path(name), std::ios::binary | std::ios::trunc)
            .write(bytes.data(), std::streamsize(bytes.size()));
    }
    static Picture Frame(std::uint32_t type, TovImageSize size, unsigned i)
    {
        return Picture(type, size.width, size.height, i + 1, i % 2);
    }
    // Frames from 0 on as a movie, which is not ended.
    void Record(std::string const &path, std::uint32_t type, TovImageSize size, unsigned frames, double fps = 25)
    {
        ASSERT_EQ(serializer->StartMovie(Frame(type, size, 0).Image(), path.c_str(), fps), TOV_SERIALIZER_OK);
        for (unsigned i = 0; i < frames; ++i)
            ASSERT_EQ(serializer->WriteFrame(Frame(type, size, i).Image(), nullptr), TOV_SERIALIZER_OK);
    }
    // One file of a series.
    std::int32_t Save(Picture const &picture, char const *extension, std::string const &path)
    {
        std::int32_t status = serializer->StartImageSeries(picture.Image(), extension);
        if (status == TOV_SERIALIZER_OK)
            status = serializer->WriteFrame(picture.Image(), path.c_str());
        serializer->Stop();
        return status;
    }
    void Choose(char const *compressor)
    {
        serializer->GetComponent()->SetParamString("movie.compressor", compressor);
    }

    fs::path const folder = fs::temp_directory_path() / ("tov-serializer-" + std::to_string(getpid()) + "-" +
                                                         testing::UnitTest::GetInstance()->current_test_info()->name());
    Serializer const serializer = NewSerializer();
};
