#include "hdf5file.h"

#include "failures.h"
#include "framememory.h"
#include "hdf5columns.h"
#include "hdf5driver.h"
#include "hdf5layout.h"
#include "pixellayout.h"

#include <libdeflate.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>

namespace {

constexpr std::chrono::seconds FlushEvery{1};
constexpr int DeflateLevel = 1;
constexpr std::uint64_t MostChunk = UINT32_MAX; // bytes that HDF5 allows
// From so many bytes on a frame begins at a page, so that it can go past the page cache.
constexpr std::uint64_t AlignedSize = 256 * 1024;
// Room for the tables of all frames so far, and for the columns of the next ones.
constexpr std::uint64_t TableRoom = 1 << 20;
constexpr hsize_t TableBlock = 64 * 1024; // tables stand together

struct FreeCompressor
{
    void operator()(libdeflate_compressor *compressor) const
    {
        libdeflate_free_compressor(compressor);
    }
};

// The filters of the library, shuffle and deflate, which are quicker here.
class Compressor
{
public:
    Compressor(std::size_t size, unsigned sampleBytes)
        : m_size(size),
          m_sampleBytes(sampleBytes),
          m_deflate(libdeflate_alloc_compressor(DeflateLevel)),
          m_out(size)
    {
        if (!m_deflate)
            throw std::bad_alloc();
    }
    // Bytes of Data; 0 for a frame that does not become smaller.
    std::size_t Compress(unsigned char const *pixels)
    {
        if (m_sampleBytes > 1) {
            std::size_t const samples = m_size / 2;
            unsigned char *const shuffled = m_shuffled.Get(m_size);
            for (std::size_t i = 0; i < samples; ++i) {
                shuffled[i] = pixels[2 * i];
                shuffled[samples + i] = pixels[2 * i + 1];
            }
            pixels = shuffled;
        }
        return libdeflate_zlib_compress(m_deflate.get(), pixels, m_size, m_out.Data(), m_size - 1);
    }
    unsigned char const *Data() const
    {
        return m_out.Data();
    }

private:
    std::size_t const m_size;
    unsigned const m_sampleBytes;
    std::unique_ptr<libdeflate_compressor, FreeCompressor> const m_deflate;
    FrameMemory<unsigned char> const m_out;
    FrameMemory<unsigned char> m_shuffled; // where samples have two bytes
};

} // namespace

// The open file.
class Hdf5File::Frames
{
public:
    int Open(std::string const &name, _TovImage const &image, Options const &options, std::string const &configuration)
    {
        m_line = LineBytes(image);
        m_lines = image.height;
        m_size = m_line * m_lines;
        if (m_size > MostChunk)
            return TooLarge;
        m_layout = LayoutOf(image);
        if (options.deflate)
            m_compressor = std::make_unique<Compressor>(m_size, m_layout.sampleBytes);
        if (int const error = m_disk.Create(name, m_size >= AlignedSize))
            return error;
        int error = m_disk.Reserve(TableRoom + configuration.size());
        if (!error && !Begin(image, options, configuration))
            error = EIO;
        if (int const cause = m_disk.Error())
            error = cause;
        if (error) {
            CloseLibrary();
            m_disk.Abandon();
        }
        return error;
    }

    int Append(_TovImage const &image, TovFrameNote const &note)
    {
        if (int const error = Error())
            return error;
        if (LineBytes(image) != m_line || image.height != m_lines || !image.imageData)
            return EINVAL;
        if (int const error = m_disk.Reserve(m_size + TableRoom))
            return error;
        if (int const error = WriteFrame(Gathered(image)))
            return error;
        ++m_count;
        m_columns.Add(image, note);
        if (m_columns.IsFull())
            m_failed = !m_columns.Write();
        // The first one at once: whoever opens the file finds something.
        auto const now = std::chrono::steady_clock::now();
        return m_flushed == 0 || now - m_flushedAt >= FlushEvery ? Flush() : Error();
    }

    int Flush()
    {
        if (int const error = Error())
            return error;
        m_failed = !m_columns.Write() || H5Fflush(m_file.Get(), H5F_SCOPE_LOCAL) < 0;
        m_flushedAt = std::chrono::steady_clock::now();
        if (int const error = Error())
            return error;
        m_flushed = m_count;
        return 0;
    }

    // `configuration` is added where it is not empty.
    int Close(std::string const &configuration)
    {
        if (!m_failed)
            m_failed = !m_columns.Write();
        if (!CloseLibrary())
            m_failed = true;
        int error = Error();
        if (!error)
            m_flushed = m_count;
        if (!error && !configuration.empty())
            error = AddConfiguration(configuration);
        bool const lost = m_disk.IsLost();
        if (int const closing = m_disk.Close(); !error)
            error = closing;
        if (lost)
            m_flushed = 0;
        return lost ? LOST : error;
    }

    std::int64_t Flushed() const
    {
        return m_flushed;
    }
    Hdf5Disk const &Disk() const
    {
        return m_disk;
    }

private:
    // Why nothing can be written any more; 0 as long as it can.
    int Error() const
    {
        if (int const error = m_disk.Error())
            return error;
        return m_failed ? EIO : 0;
    }

    Hdf5List Access() const
    {
        // The first format that can be read while it grows, which all later releases know.
        Hdf5List access = m_driver.Access(m_disk);
        if (!access || H5Pset_libver_bounds(access.Get(), H5F_LIBVER_V110, H5F_LIBVER_V110) < 0 ||
            H5Pset_alignment(access.Get(), AlignedSize, OutFile::Page) < 0 ||
            H5Pset_meta_block_size(access.Get(), TableBlock) < 0)
            return {};
        return access;
    }

    bool Begin(_TovImage const &image, Options const &options, std::string const &configuration)
    {
        Hdf5List const access = Access();
        if (!access)
            return false;
        m_file = Hdf5Handle<H5Fclose>(H5Fcreate(m_disk.Name().c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access.Get()));
        if (!m_file || !WriteAttribute(m_file.Get(), "creator", "TovScope") || !CreateFrames(options.deflate) ||
            !DescribeFrames(m_frames.Get(), image, options.rate) || !m_columns.Create(m_file.Get()))
            return false;
        if (!configuration.empty() && !WriteText(m_file.Get(), "configuration", configuration))
            return false;
        return H5Fstart_swmr_write(m_file.Get()) >= 0;
    }

    bool CreateFrames(bool deflate)
    {
        std::vector<hsize_t> dimensions{0}, most{H5S_UNLIMITED}, chunk{1};
        for (auto *list : {&dimensions, &most, &chunk})
            list->insert(list->end(), m_layout.extent.begin(), m_layout.extent.end());
        int const rank = int(dimensions.size());
        Hdf5Space const space(H5Screate_simple(rank, dimensions.data(), most.data()));
        Hdf5List const properties(H5Pcreate(H5P_DATASET_CREATE)), access(H5Pcreate(H5P_DATASET_ACCESS));
        if (H5Pset_chunk(properties.Get(), rank, chunk.data()) < 0 || H5Pset_chunk_cache(access.Get(), 0, 0, 1) < 0)
            return false;
        if (deflate && m_layout.sampleBytes > 1 && H5Pset_shuffle(properties.Get()) < 0)
            return false;
        if (deflate && H5Pset_deflate(properties.Get(), DeflateLevel) < 0)
            return false;
        hid_t const sample = m_layout.sampleBytes > 1 ? H5T_STD_U16LE : H5T_STD_U8LE;
        m_frames = Hdf5Set(
            H5Dcreate2(m_file.Get(), "frames", sample, space.Get(), H5P_DEFAULT, properties.Get(), access.Get()));
        return bool(m_frames);
    }

    // The pixels without gaps between the lines.
    unsigned char const *Gathered(_TovImage const &image)
    {
        if (IsPacked(image))
            return image.imageData;
        unsigned char *const gathered = m_gathered.Get(m_size);
        for (std::uint32_t y = 0; y < m_lines; ++y)
            std::memcpy(gathered + y * m_line, image.imageData + y * image.lineStep, m_line);
        return gathered;
    }

    bool SetExtent(hsize_t frames)
    {
        std::vector<hsize_t> &dimensions = m_dimensions;
        dimensions.assign(1, frames);
        dimensions.insert(dimensions.end(), m_layout.extent.begin(), m_layout.extent.end());
        return H5Dset_extent(m_frames.Get(), dimensions.data()) >= 0;
    }

    int WriteFrame(unsigned char const *pixels)
    {
        std::size_t const packed = m_compressor ? m_compressor->Compress(pixels) : 0;
        if (packed)
            pixels = m_compressor->Data();
        // A bit for each filter: as in CreateFrames.
        std::uint32_t const leftOut = !m_compressor || packed ? 0 : m_layout.sampleBytes > 1 ? 3 : 1;
        hsize_t const position[4] = {hsize_t(m_count)};
        m_disk.BeginFrame();
        bool const written =
            SetExtent(hsize_t(m_count) + 1) && H5Dwrite_chunk(m_frames.Get(), H5P_DEFAULT, leftOut, position,
                                                              packed ? packed : std::size_t(m_size), pixels) >= 0;
        int const error = m_disk.EndFrame();
        if (written && !error)
            return 0;
        SetExtent(hsize_t(m_count));
        return error ? error : EIO;
    }

    bool CloseLibrary()
    {
        m_columns.Close();
        bool const closed = m_frames.Close();
        return m_file.Close() && closed;
    }

    // The file as any other, for what cannot be added while it grows. Until all of it is there, the file stays as it
    // is.
    int AddConfiguration(std::string const &text)
    {
        if (int const error = m_disk.Reopen())
            return error;
        if (int const error = m_disk.Reserve(text.size() + TableRoom))
            return error;
        Hdf5List const access = Access();
        m_disk.BeginChange();
        m_file = Hdf5Handle<H5Fclose>(H5Fopen(m_disk.Name().c_str(), H5F_ACC_RDWR, access.Get()));
        bool const written = m_file && WriteText(m_file.Get(), "configuration", text);
        if (m_file.Close() && written && !m_disk.Error())
            return m_disk.CommitChange();
        m_disk.DropChange();
        return m_disk.Error() ? m_disk.Error() : EIO;
    }

    Hdf5Driver m_driver; // both outlive what the library has open
    Hdf5Disk m_disk;
    Hdf5Handle<H5Fclose> m_file;
    Hdf5Set m_frames;
    Hdf5Columns m_columns;
    Hdf5Layout m_layout;
    std::vector<hsize_t> m_dimensions;
    std::uint64_t m_line = 0, m_lines = 0, m_size = 0; // bytes, number, bytes
    std::unique_ptr<Compressor> m_compressor;
    FrameMemory<unsigned char> m_gathered;
    std::int64_t m_count = 0, m_flushed = 0;
    std::chrono::steady_clock::time_point m_flushedAt;
    bool m_failed = false; // the library has, for no reason that the disk knows of
};

Hdf5File::Hdf5File() = default;

Hdf5File::~Hdf5File()
{
    Close();
}

int Hdf5File::Open(std::string const &name, _TovImage const &image, Options const &options)
{
    Close();
    Hdf5Quiet const quiet;
    m_readable = 0;
    auto frames = std::make_unique<Frames>();
    if (int const error = frames->Open(name, image, options, m_configuration))
        return error;
    m_configuration.clear();
    m_name = frames->Disk().Name();
    m_frames = std::move(frames);
    return 0;
}

int Hdf5File::Append(_TovImage const &image, TovFrameNote const &note)
{
    if (!m_frames)
        return EBADF;
    Hdf5Quiet const quiet;
    int const error = m_frames->Append(image, note);
    m_readable = m_frames->Flushed();
    return error;
}

void Hdf5File::SetConfiguration(std::string const &text)
{
    m_configuration = text;
}

int Hdf5File::Flush()
{
    if (!m_frames)
        return EBADF;
    Hdf5Quiet const quiet;
    int const error = m_frames->Flush();
    m_readable = m_frames->Flushed();
    return error;
}

int Hdf5File::Close()
{
    if (!m_frames)
        return 0;
    Hdf5Quiet const quiet;
    int const error = m_frames->Close(m_configuration);
    m_readable = m_frames->Flushed();
    m_frames.reset();
    m_configuration.clear();
    return error;
}

std::int64_t Hdf5File::ReadableFrames() const
{
    return m_readable;
}

bool Hdf5File::IsOpen() const
{
    return bool(m_frames);
}

bool Hdf5File::IsLost() const
{
    return m_frames && m_frames->Disk().IsLost();
}

std::string const &Hdf5File::Name() const
{
    return m_name;
}
