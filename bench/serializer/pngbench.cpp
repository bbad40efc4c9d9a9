// Our PNG encoder and its deflate beside libpng, zlib and libdeflate at their fastest, over pictures of the simulated
// cameras. The sides take turns in one process; every figure is the median of the turns. "ratio" is the peer's time
// over ours: 1 is as fast, more is faster. "size" is the peer's bytes over ours: above 1.1 it does not count as a peer.
//
// libpng makes the whole file, as ours does. The deflate encoders get the bytes that our filters make, so that only
// they differ; "file_ratio" is what the ratio of whole files would be with that encoder in the place of ours.
#include "sim/simscene.h"

#include "pngencoder.h"

#include <benchmark/benchmark.h>

#include <libdeflate.h>
#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr int Turns = 15;
constexpr std::size_t BlockBytes = 256 * 1024;
// In memory: this is about encoders.
constexpr char FileName[] = "/dev/shm/tov-pngbench.png";

struct Picture
{
    char const *name;
    std::uint32_t width, height;
    bool colour;
    std::uint32_t pfnc; // as the camera delivers it
    std::uint32_t type; // as it goes into the file
    unsigned bits;
};
constexpr Picture s_pictures[] = {
    {"mono8", 2048, 1536, false, 0x01080001, TV_PIXEL_MONO8, 8},
    {"mono12", 2048, 1536, false, 0x01100005, TV_PIXEL_MONO16, 12},
    {"mono16", 2048, 1536, false, 0x01100007, TV_PIXEL_MONO16, 16},
    {"rgb8", 1920, 1200, true, 0x01080009, TV_PIXEL_RGB8, 8},
    {"rgb12", 1920, 1200, true, 0x01100011, TV_PIXEL_RGB16, 12},
};

class Frame
{
public:
    explicit Frame(Picture const &picture)
    {
        SimFormat format;
        format.pixelType = TovGetPixelTypeInfoByPfnc(picture.pfnc)->pixelType;
        format.width = picture.width;
        format.height = picture.height;
        SimScene scene(picture.width, picture.height, picture.colour);
        scene.Prepare(format, SimLook());
        _TovImage *raw = nullptr;
        TovCreateImage(&raw, {picture.width, picture.height}, format.pixelType);
        scene.Draw(1, 0.1, raw->imageData);
        TovCreateImage(&m_image, {picture.width, picture.height}, picture.type);
        TovConvertImage(m_image, raw);
        TovReleaseImage(&raw);
    }
    ~Frame()
    {
        TovReleaseImage(&m_image);
    }
    Frame(Frame const &) = delete;
    Frame &operator=(Frame const &) = delete;
    _TovImage const &operator*() const
    {
        return *m_image;
    }

private:
    _TovImage *m_image = nullptr;
};

// Of this thread's processor time: nothing here waits, and other programs do not count.
class Stopwatch
{
public:
    template<class F>
    void Time(F &&function)
    {
        double const begin = Now();
        function();
        m_taken.push_back(Now() - begin);
    }
    double Median()
    {
        auto const middle = m_taken.begin() + std::ptrdiff_t(m_taken.size() / 2);
        std::nth_element(m_taken.begin(), middle, m_taken.end());
        return *middle;
    }

private:
    static double Now()
    {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
    }

    std::vector<double> m_taken;
};

// What `write` appends, once it has ended; 0 after an error.
std::size_t FileBytes(std::function<int(OutFile &)> const &write)
{
    OutFile file;
    if (file.CreateHidden(FileName, 0, OutFile::Road::Cached) != 0 || write(file) != 0)
        return 0;
    std::size_t const bytes = file.Size();
    file.Abandon();
    return bytes;
}

// ---- Whole files ----------------------------------------------------------------------------------------------------

struct PngSettings
{
    char const *name;
    int filters, level, strategy;
};
constexpr PngSettings s_settings[] = {
    {"none_rle", PNG_FILTER_NONE, 1, Z_RLE},
    {"none_huffman", PNG_FILTER_NONE, 1, Z_HUFFMAN_ONLY},
    {"sub_rle", PNG_FILTER_SUB, 1, Z_RLE},
    {"sub_huffman", PNG_FILTER_SUB, 1, Z_HUFFMAN_ONLY},
    {"up_rle", PNG_FILTER_UP, 1, Z_RLE},
    {"avg_rle", PNG_FILTER_AVG, 1, Z_RLE},
    {"avg_huffman", PNG_FILTER_AVG, 1, Z_HUFFMAN_ONLY},
    {"sub_level1", PNG_FILTER_SUB, 1, Z_DEFAULT_STRATEGY},
};

int WriteByLibpng(OutFile &file, _TovImage const &image, PngSettings const &settings)
{
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    int error = 0;
    if (setjmp(png_jmpbuf(png)) != 0) {
        error = EIO;
    } else {
        bool const wide = image.bitDepth > 8, colour = image.formatClass == TOV_CLASS_RGB;
        png_set_write_fn(
            png, &file,
            [](png_structp self, png_bytep data, png_size_t size) {
                if (static_cast<OutFile *>(png_get_io_ptr(self))->Append(data, size) != 0)
                    png_error(self, "write");
            },
            nullptr);
        png_set_IHDR(png, info, image.width, image.height, wide ? 16 : 8,
                     colour ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                     PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        png_set_compression_buffer_size(png, BlockBytes);
        png_set_compression_level(png, settings.level);
        png_set_compression_strategy(png, settings.strategy);
        png_set_filter(png, PNG_FILTER_TYPE_BASE, settings.filters);
        png_write_info(png, info);
        if (wide)
            png_set_swap(png);
        for (std::uint32_t y = 0; y < image.height; ++y)
            png_write_row(png, image.imageData + y * image.lineStep);
        png_write_end(png, info);
    }
    png_destroy_write_struct(&png, &info);
    return error;
}

void FileBeside(benchmark::State &state, Picture const &picture, PngSettings const &settings)
{
    Frame const frame(picture);
    PngEncoder encoder;
    for (auto _ : state) {
        Stopwatch ours, peer;
        std::size_t oursBytes = 0, peerBytes = 0;
        for (int turn = 0; turn < Turns; ++turn) {
            ours.Time([&] {
                oursBytes = FileBytes([&](OutFile &file) { return encoder.Write(file, *frame, picture.bits); });
            });
            peer.Time(
                [&] { peerBytes = FileBytes([&](OutFile &file) { return WriteByLibpng(file, *frame, settings); }); });
        }
        if (oursBytes == 0 || peerBytes == 0)
            return state.SkipWithError("a file could not be written");
        state.SetIterationTime(ours.Median());
        state.counters["ratio"] = peer.Median() / ours.Median();
        state.counters["size"] = double(peerBytes) / double(oursBytes);
        state.counters["MB/s"] = double((*frame).imageSize) * 1e-6 / ours.Median();
        state.counters["KB"] = double(oursBytes) * 1e-3;
    }
}

// ---- Deflate alone --------------------------------------------------------------------------------------------------

// The bytes that our filters make, out of a file of ours.
Bytes FilteredBytes(Frame const &frame, Picture const &picture)
{
    Bytes file;
    OutFile out;
    PngEncoder encoder;
    if (out.CreateVisible(FileName, OutFile::Road::Cached) != 0 || encoder.Write(out, *frame, picture.bits) != 0)
        return {};
    std::string const name = out.Name();
    out.Close();
    if (std::FILE *const in = std::fopen(name.c_str(), "rb")) {
        Bytes part(1 << 20);
        for (std::size_t read; (read = std::fread(part.data(), 1, part.size(), in)) > 0;)
            file.insert(file.end(), part.begin(), part.begin() + std::ptrdiff_t(read));
        std::fclose(in);
    }
    std::remove(name.c_str());
    auto const number = [&](std::size_t at) {
        return std::size_t(file[at]) << 24 | std::size_t(file[at + 1]) << 16 | std::size_t(file[at + 2]) << 8 |
               file[at + 3];
    };
    Bytes packed;
    for (std::size_t at = 8; at + 12 <= file.size(); at += 12 + number(at)) {
        if (std::memcmp(&file[at + 4], "IDAT", 4) == 0)
            packed.insert(packed.end(), file.begin() + std::ptrdiff_t(at + 8),
                          file.begin() + std::ptrdiff_t(at + 8 + number(at)));
    }
    Bytes filtered(((*frame).lineStep + 1) * (*frame).height);
    uLongf size = filtered.size();
    return uncompress(filtered.data(), &size, packed.data(), packed.size()) == Z_OK ? filtered : Bytes();
}

using Deflate = std::function<std::size_t(Bytes const &in, Bytes &out)>;

std::size_t DeflateByZlib(Bytes const &in, Bytes &out, int level, int strategy)
{
    z_stream stream{};
    deflateInit2(&stream, level, Z_DEFLATED, -15, 9, strategy);
    stream.next_in = const_cast<Bytef *>(in.data());
    stream.avail_in = uInt(in.size());
    stream.next_out = out.data();
    stream.avail_out = uInt(out.size());
    int const status = deflate(&stream, Z_FINISH);
    std::size_t const bytes = status == Z_STREAM_END ? stream.total_out : 0;
    deflateEnd(&stream);
    return bytes;
}

std::size_t DeflateByLibdeflate(Bytes const &in, Bytes &out, int level)
{
    libdeflate_compressor *const compressor = libdeflate_alloc_compressor(level);
    std::size_t const bytes = libdeflate_deflate_compress(compressor, in.data(), in.size(), out.data(), out.size());
    libdeflate_free_compressor(compressor);
    return bytes;
}

std::size_t DeflateByOurs(HuffmanDeflate &ours, Bytes const &in, Bytes &out)
{
    std::size_t bytes = 0;
    ours.Begin();
    for (std::size_t at = 0; at < in.size(); at += BlockBytes) {
        std::size_t const size = std::min(BlockBytes, in.size() - at);
        bytes += ours.Block(in.data() + at, size, at + size == in.size(), out.data() + bytes);
    }
    return bytes;
}

void DeflateBeside(benchmark::State &state, Picture const &picture, Deflate const &deflate)
{
    Frame const frame(picture);
    Bytes const in = FilteredBytes(frame, picture);
    Bytes out(HuffmanDeflate::Bound(in.size()));
    HuffmanDeflate encoder;
    PngEncoder png;
    for (auto _ : state) {
        Stopwatch ours, peer, file;
        std::size_t oursBytes = 0, peerBytes = 0;
        for (int turn = 0; turn < Turns; ++turn) {
            ours.Time([&] { oursBytes = DeflateByOurs(encoder, in, out); });
            peer.Time([&] { peerBytes = deflate(in, out); });
            file.Time([&] { FileBytes([&](OutFile &to) { return png.Write(to, *frame, picture.bits); }); });
        }
        if (in.empty() || peerBytes == 0)
            return state.SkipWithError("nothing was deflated");
        state.SetIterationTime(ours.Median());
        state.counters["ratio"] = peer.Median() / ours.Median();
        state.counters["file_ratio"] = (file.Median() - ours.Median() + peer.Median()) / file.Median();
        state.counters["size"] = double(peerBytes) / double(oursBytes);
        state.counters["MB/s"] = double(in.size()) * 1e-6 / ours.Median();
    }
}

template<class F>
void Register(std::string const &name, F const &function)
{
    benchmark::RegisterBenchmark(name.c_str(), function)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);
}

} // namespace

int main(int argc, char **argv)
{
    std::pair<char const *, Deflate> const encoders[] = {
        {"zlib_rle_1",
         [](Bytes const &in, Bytes &out) {
             return DeflateByZlib(in, out, 1, Z_RLE);
         }},
        {"zlib_huffman_1",
         [](Bytes const &in, Bytes &out) {
             return DeflateByZlib(in, out, 1, Z_HUFFMAN_ONLY);
         }},
        {"zlib_rle_6",
         [](Bytes const &in, Bytes &out) {
             return DeflateByZlib(in, out, 6, Z_RLE);
         }},
        {"zlib_huffman_6",
         [](Bytes const &in, Bytes &out) {
             return DeflateByZlib(in, out, 6, Z_HUFFMAN_ONLY);
         }},
        {"zlib_default_1",
         [](Bytes const &in, Bytes &out) {
             return DeflateByZlib(in, out, 1, Z_DEFAULT_STRATEGY);
         }},
        {"libdeflate_1",
         [](Bytes const &in, Bytes &out) {
             return DeflateByLibdeflate(in, out, 1);
         }},
    };
    for (Picture const &picture : s_pictures) {
        for (PngSettings const &settings : s_settings) {
            Register(std::string("libpng/") + picture.name + "/" + settings.name,
                     [&](benchmark::State &state) { FileBeside(state, picture, settings); });
        }
        for (auto const &[name, deflate] : encoders) {
            Register(std::string("deflate/") + picture.name + "/" + name,
                     [&picture, &deflate](benchmark::State &state) { DeflateBeside(state, picture, deflate); });
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
