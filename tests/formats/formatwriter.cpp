// formatwriter FOLDER all|layouts FIRST COUNT FORMAT...
// Writes two pictures of each of COUNT pixel types in odd sizes to each format, for other programs to read, and beside
// each file its pixels as they are to be found there. Prints a line about each file; readback.py calls it.
#include "../serializer/serializerfixture.h"

#include <cstdlib>
#include <initializer_list>
#include <iostream>
#include <set>
#include <tuple>

namespace {

constexpr TovImageSize OddSizes[] = {{1, 1}, {3, 5}, {641, 479}};
constexpr TovImageSize EvenSize{64, 48}; // for one type of each layout

bool IsOneOf(std::string const &format, std::initializer_list<char const *> names)
{
    return std::find(names.begin(), names.end(), format) != names.end();
}

// The type in which other programs find the pixels.
std::uint32_t HeldBy(std::string const &format, TovPixelTypeInfo const &info)
{
    if (IsOneOf(format, {"raw", "tvi", "tvm", "h5"}))
        return info.pixelType;
    unsigned const depth = format == "tif"                                         ? info.bitDepth
                           : IsOneOf(format, {"png", "FFV1"}) && info.bitDepth > 8 ? 16
                                                                                   : 8;
    return UnpackedOfDepth(info.family != TOV_FAMILY_MONO, depth);
}

// Slopes from that line on, which codecs with loss keep, with another level for each colour of RGB.
void FillWithSlopes(Picture const &picture, unsigned first)
{
    TovPixelTypeInfo const &info = picture.Info();
    unsigned const samples = TovSamplesPerPixel(info.pixelType);
    for (unsigned y = first; y < picture.Image()->height; ++y) {
        for (unsigned i = 0; i < picture.Image()->width * samples; ++i) {
            unsigned const colour = info.family == TOV_FAMILY_RGB ? i % samples : 0;
            picture.SetSample(y, i, (40 + 20 * colour + (i / samples + y) / 8) << (info.bitDepth - 8));
        }
    }
}

// Samples as they are, 16 bits each.
Bytes SamplesOf(Picture const &picture)
{
    _TovImage const &image = *picture.Image();
    std::vector<std::uint16_t> samples(image.width * TovSamplesPerPixel(image.pixelType));
    Bytes all;
    for (std::uint32_t y = 0; y < image.height; ++y) {
        TovUnpackLine(image.pixelType, picture.Line(y), image.width, samples.data());
        all.append(reinterpret_cast<char const *>(samples.data()), samples.size() * 2);
    }
    return all;
}

class Writer
{
public:
    Writer(fs::path folder, TovPixelTypeInfo const &info, TovImageSize size)
        : m_folder(std::move(folder)),
          m_info(info),
          m_size(size),
          m_noise(info.pixelType, size.width, size.height, 1, 3),
          m_slopes(info.pixelType, size.width, size.height, 2)
    {
        FillWithSlopes(m_noise, 48); // more would only take time
        FillWithSlopes(m_slopes, 0);
    }
    void Write(std::string const &format)
    {
        bool const still = IsOneOf(format, {"raw", "tvi", "bmp", "jpg", "png", "tif"}), raw = format == "raw";
        std::string const extension = still || IsOneOf(format, {"tvm", "h5"}) ? format : "avi";
        std::string const stem = (m_folder / format / m_info.name).string() + '_' + std::to_string(m_size.width) + '_';
        auto const name = [&](char number) {
            return stem + number + '.' + extension;
        };
        fs::create_directories(m_folder / format);
        if (extension == "avi")
            m_serializer->GetComponent()->SetParamString("movie.compressor", format.c_str());
        m_serializer->SetCompanions(raw);
        Check(still ? m_serializer->StartImageSeries(m_noise.Image(), format.c_str())
                    : m_serializer->StartMovie(m_noise.Image(), name('0').c_str(), 25));
        std::uint32_t const held = HeldBy(format, m_info);
        Bytes pixels;
        for (char const number : {'0', '1'}) {
            Picture const &picture = number == '0' && !IsOneOf(format, {"jpg", "MJPEG", "H.264"}) ? m_noise : m_slopes;
            Check(m_serializer->WriteFrame(picture.Image(), still ? name(number).c_str() : nullptr));
            Bytes const lines = held == m_info.pixelType ? picture.Lines() : picture.LinesAs(held);
            pixels += lines;
            if (still && !raw)
                Tell(name(number), held, lines);
        }
        Check(m_serializer->Stop());
        if (raw) {
            std::string const beside = std::string(m_serializer->GetCompanionFolder()) + '/' +
                                       m_serializer->GetCompanionName(),
                              header = beside + ".nhdr";
            Save(beside + ".ledger.txt", "[Ledger]\nsaved=2\n");
            Save(header + ".samples", SamplesOf(m_noise) + SamplesOf(m_slopes));
            Tell(header, held, pixels);
        } else if (!still) {
            Tell(name('0'), held, pixels);
        }
    }

private:
    void Check(std::int32_t status) const
    {
        if (status == TOV_SERIALIZER_OK)
            return;
        std::cerr << m_info.name << ' ' << m_size.width << ": " << m_serializer->GetLastFailure() << '\n';
        std::exit(1);
    }
    static void Save(std::string const &name, Bytes const &bytes)
    {
        std::ofstream(name, std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));
    }
    // The array that a line of bytes is to other programs: pixels of samples, or bytes.
    void Tell(std::string const &file, std::uint32_t held, Bytes const &pixels) const
    {
        Save(file + ".expected", pixels);
        TovPixelTypeInfo const &info = *TovGetPixelTypeInfo(held);
        unsigned const samples = TovSamplesPerPixel(held), bytes = info.bitDepth > 8 ? 2 : 1;
        bool const whole = info.bitsPerPixel == 8 * bytes * samples;
        std::cout << m_info.name << '\t' << m_info.pixelType << '\t' << m_size.width << '\t' << m_size.height << '\t'
                  << (whole ? m_size.width : TovLineBytes(held, m_size.width)) << '\t' << (whole ? samples : 1) << '\t'
                  << (whole ? bytes : 1) << '\t' << file << '\t' << file << ".expected\n";
    }

    fs::path const m_folder;
    TovPixelTypeInfo const &m_info;
    TovImageSize const m_size;
    Picture const m_noise;
    Picture const m_slopes;
    Serializer const m_serializer = NewSerializer();
};

} // namespace

int main(int argc, char **argv)
{
    bool const all = std::string(argv[2]) == "all";
    std::size_t const first = std::stoul(argv[3]), end = first + std::stoul(argv[4]);
    std::set<std::tuple<int, int, int, int>> layouts;
    for (std::size_t row = 0, number = 0; row < TOV_PIXEL_TYPE_ROWS; ++row) {
        TovPixelTypeInfo const &info = *TovGetPixelTypeInfoByRow(std::uint32_t(row));
        bool const newLayout = layouts.emplace(info.family, info.packing, info.bitDepth, info.channels).second;
        if ((!all && !newLayout) || number++ < first || number > end)
            continue;
        std::vector<TovImageSize> sizes(std::begin(OddSizes), std::end(OddSizes));
        if (newLayout)
            sizes.push_back(EvenSize);
        for (TovImageSize const size : sizes) {
            Writer writer(argv[1], info, size);
            for (int format = 5; format < argc; ++format)
                writer.Write(argv[format]);
        }
    }
    return 0;
}
