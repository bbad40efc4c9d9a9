#include "framefilereader.h"
#include "frameformat.h"
#include "framerate.h"
#include "movieformats.h"
#include "pixellayout.h"

namespace {

class TvmMovie : public Movie
{
public:
    ~TvmMovie() override
    {
        Close();
    }
    std::uint32_t Accepts(std::uint32_t pixelType, TovPixelTypeInfo const *) const override
    {
        return pixelType;
    }

    int Open(std::string const &name, _TovImage const &image, double fps) override
    {
        bool const direct = LineBytes(image) * image.height >= DirectFrame;
        // Large frames begin at a page, so that they reach the disk without a copy.
        m_header.alignment = direct ? OutFile::Page : SmallAlignment;
        m_header.headerBytes = Aligned(FrameFormat::MovieHeader::Size);
        FrameRate const rate = ToFrameRate(fps);
        m_header.rate = std::uint32_t(rate.rate);
        m_header.scale = std::uint32_t(rate.scale);
        if (int const error = m_file.CreateVisible(name, direct ? OutFile::Road::Direct : OutFile::Road::Cached))
            return error;
        auto const bytes = FrameFormat::Encode(m_header);
        int error = m_file.Append(bytes.data(), bytes.size());
        if (!error)
            error = m_file.AppendZeros(m_header.headerBytes - bytes.size());
        if (!error)
            error = m_file.Flush();
        if (error)
            m_file.Abandon();
        return error;
    }

    int Write(_TovImage const &image) override
    {
        FrameFormat::FrameHeader header = FrameFormat::Describe(image);
        header.headerBytes = std::uint32_t(Aligned(FrameFormat::FrameHeader::Size));
        header.recordBytes = Aligned(header.headerBytes + header.pixelBytes);
        header.number = m_offsets.size();
        // A full disk is noticed before the frame is begun, and leaves room for the index.
        if (int const error = m_file.Reserve(header.recordBytes + FrameFormat::IndexBytes(m_offsets.size() + 1)))
            return error;
        std::uint64_t const begin = m_file.Size();
        if (int const error = AppendRecord(header, image)) {
            m_file.CutTo(begin);
            return error;
        }
        m_offsets.push_back(begin);
        m_readable = std::int64_t(m_offsets.size());
        return 0;
    }

    int Close() override
    {
        if (!m_file.IsOpen())
            return 0;
        std::uint64_t const end = m_file.Size();
        auto const index = FrameFormat::EncodeIndex(m_offsets);
        int error = m_file.Append(index.data(), index.size());
        if (error) {
            m_file.CutTo(end);
        } else {
            m_header.frameCount = m_offsets.size();
            m_header.indexOffset = end;
            auto const bytes = FrameFormat::Encode(m_header);
            error = m_file.WriteAt(0, bytes.data(), bytes.size());
        }
        bool const lost = m_file.IsLost();
        if (int const closing = m_file.Close(); !error)
            error = closing;
        if (lost) {
            m_readable = 0;
            return LOST;
        }
        if (error)
            m_readable = Count();
        return error;
    }

private:
    static constexpr std::uint32_t SmallAlignment = 32;

    std::uint64_t Aligned(std::uint64_t bytes) const
    {
        return (bytes + m_header.alignment - 1) / m_header.alignment * m_header.alignment;
    }

    int AppendRecord(FrameFormat::FrameHeader const &header, _TovImage const &image)
    {
        auto const bytes = FrameFormat::Encode(header, FrameFormat::Kind::MovieFrame);
        int error = m_file.Append(bytes.data(), bytes.size());
        if (!error)
            error = m_file.AppendZeros(header.headerBytes - bytes.size());
        if (!error)
            error = AppendLines(m_file, image);
        if (!error)
            error = m_file.AppendZeros(header.recordBytes - header.headerBytes - header.pixelBytes);
        return error ? error : m_file.Flush(); // the end of this process loses no frame
    }

    // Not known after a failure: only reading the file would show it.
    std::int64_t Count() const
    {
        FrameFileReader reader;
        return reader.Open(m_file.Name()) == 0 ? std::int64_t(reader.Frames().size()) : -1;
    }

    FrameFormat::MovieHeader m_header;
    std::vector<std::uint64_t> m_offsets; // of the records
};

} // namespace

std::unique_ptr<Movie> MakeTvmMovie()
{
    return std::make_unique<TvmMovie>();
}
