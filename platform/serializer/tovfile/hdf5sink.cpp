#include "hdf5sink.h"

#include "failures.h"
#include "hdf5file.h"
#include "pixellayout.h"

#include <limits>

namespace {

TovFrameNote NoteOf(SeriesFiles::Row const &row)
{
    constexpr double Unknown = std::numeric_limits<double>::quiet_NaN();
    return {row.arrival.value_or(0),
            row.exposure.value_or(Unknown),
            row.gain.value_or(Unknown),
            row.incomplete,
            row.missingBytes,
            row.gapBefore,
            row.lossCause};
}

// False for lines that have other bytes than such pixels.
bool MakeImage(SourceFrame const &frame, std::uint8_t *pixels, _TovImage &image)
{
    SeriesFiles::RawShape const &shape = frame.shape;
    if (shape.width == 0 || shape.height == 0)
        return false;
    TovPixelTypeInfo const *const info = TovGetPixelTypeInfo(shape.pixelType);
    image.pixelType = shape.pixelType;
    image.width = shape.width;
    image.height = shape.height;
    image.bitDepth = shape.bitDepth;
    image.bitsPerPixel = info ? info->bitsPerPixel : std::uint32_t(shape.lineBytes * 8 / shape.width);
    image.imageData = pixels;
    image.frameID = frame.facts.frameId;
    image.timestamp = frame.facts.timestamp;
    return LineBytes(image) == shape.lineBytes;
}

class Hdf5Sink : public ExportSink
{
public:
    explicit Hdf5Sink(ExportTarget const &target) : m_target(target)
    {
    }

    Outcome Write(SourceFrame const &frame, std::uint8_t *pixels) override
    {
        _TovImage image{};
        if (!MakeImage(frame, pixels, image)) {
            m_problem = "of an unknown pixel type";
            return Outcome::NotHeld;
        }
        if (!m_file.IsOpen()) {
            if (int const error = Begin(image))
                return Failed(error);
            m_shape = frame.shape;
        }
        if (!(frame.shape == m_shape)) {
            m_problem = "not written: the picture's size or pixel type has changed";
            return Outcome::NotHeld;
        }
        int const error = m_file.Append(image, NoteOf(frame.facts));
        return error ? Failed(error) : Outcome::Written;
    }
    Outcome End() override
    {
        int const error = m_file.Close();
        return error ? Failed(error) : Outcome::Written;
    }

private:
    int Begin(_TovImage const &image)
    {
        m_file.SetConfiguration(m_target.configuration);
        Hdf5File::Options options{.deflate = m_target.compress};
        if (m_target.rate > 0)
            options.rate = m_target.rate;
        return m_file.Open(m_target.folder + '/' + m_target.stem + ".h5", image, options);
    }
    Outcome Failed(int error)
    {
        m_problem = "not written: " + FailureText(error);
        return Outcome::Failed;
    }

    ExportTarget const m_target;
    Hdf5File m_file;
    SeriesFiles::RawShape m_shape;
};

} // namespace

std::unique_ptr<ExportSink> MakeHdf5Sink(ExportTarget const &target, std::string &)
{
    return std::make_unique<Hdf5Sink>(target);
}
