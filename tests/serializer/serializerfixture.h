// What the tests of the serializer share: pictures, folders, and other programs' view of a file.
#pragma once

#include "tovserializer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace fs = std::filesystem;

using Bytes = std::string;

class Picture
{
public:
    // Every bit that the type uses is random in every pixel; `gap` bytes of something else stand behind each line.
    Picture(std::uint32_t type, std::uint32_t width, std::uint32_t height, unsigned seed = 1, std::uint64_t gap = 0)
    {
        TovPixelTypeInfo const *info = TovGetPixelTypeInfo(type);
        std::uint64_t const step = TovLineBytes(type, width) + gap;
        m_memory.resize(step * height + 64 + 2 * width);
        std::mt19937 random(seed);
        for (std::uint8_t &byte : m_memory)
            byte = std::uint8_t(random());
        bool const words = info->packing == TOV_UNPACKED && info->bitDepth > 8;
        for (std::size_t i = 1; words && gap % 2 == 0 && i < m_memory.size(); i += 2)
            m_memory[i] &= std::uint8_t((1 << (info->bitDepth - 8)) - 1);
        TovCreateImageHeader(&m_image, {width, height}, type, step, m_memory.data());
        m_image->timestamp = 1000 + seed;
        m_image->frameID = seed;
    }
    ~Picture()
    {
        TovReleaseImageHeader(&m_image);
    }
    Picture(Picture const &) = delete;
    Picture &operator=(Picture const &) = delete;
    _TovImage *Get() const
    {
        return m_image;
    }
    // The lines' bytes one after another.
    Bytes Lines() const
    {
        return LinesOf(m_image);
    }
    // The same picture in another type.
    Bytes LinesAs(std::uint32_t type) const
    {
        _TovImage *other = nullptr;
        TovCreateImage(&other, {m_image->width, m_image->height}, type);
        EXPECT_EQ(TovConvertImage(other, m_image), TOV_IMAGE_OK);
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

    std::vector<std::uint8_t> m_memory;
    _TovImage *m_image = nullptr;
};

inline Bytes ReadFile(fs::path const &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
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

inline int Files(fs::path const &folder)
{
    return int(std::distance(fs::recursive_directory_iterator(folder), {}));
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
    // One file of a series.
    std::int32_t Save(Picture const &picture, char const *extension, std::string const &path)
    {
        std::int32_t status = serializer->StartImageSeries(picture.Get(), extension);
        if (status == TOV_SERIALIZER_OK)
            status = serializer->WriteFrame(picture.Get(), path.c_str());
        serializer->Stop();
        return status;
    }
    void Choose(char const *compressor)
    {
        serializer->GetComponent()->SetParamString("movie.compressor", compressor);
    }

    struct Deleter
    {
        void operator()(TovImageSerializer *object) const
        {
            TovImageSerializer::DeleteComponent(object);
        }
    };
    fs::path const folder = fs::temp_directory_path() / ("tov-serializer-" + std::to_string(getpid()) + "-" +
                                                         testing::UnitTest::GetInstance()->current_test_info()->name());
    std::unique_ptr<TovImageSerializer, Deleter> serializer{TovImageSerializer::CreateComponent(true)};
};
