#include "serializersinks.h"

#include "tovserializer.h"

#include <cstring>

namespace {

struct ImageDeleter
{
    void operator()(_TovImage *image) const
    {
        TovReleaseImageHeader(&image);
    }
};
using ImageHeader = std::unique_ptr<_TovImage, ImageDeleter>;

struct SerializerDeleter
{
    void operator()(TovImageSerializer *serializer) const
    {
        TovImageSerializer::DeleteComponent(serializer);
    }
};

// Frames of a type that we do not know are bytes, lines of them.
_TovImage *MakeHeader(SeriesFiles::RawShape const &shape, bool bytesAlone, std::uint8_t *pixels)
{
    bool const known = !bytesAlone && HasKnownLines(shape);
    if ((!known && !bytesAlone) || shape.lineBytes > UINT32_MAX)
        return nullptr;
    TovImageSize const size{known ? shape.width : std::uint32_t(shape.lineBytes), shape.height};
    _TovImage *image = nullptr;
    if (!TovSucceeded(TovCreateImageHeader(&image, size, known ? shape.pixelType : TV_PIXEL_MONO8, 0, pixels)))
        return nullptr;
    return image;
}

// What both kinds of files need: the serializer, and frames as its images.
class SerializerSink : public ExportSink
{
public:
    explicit SerializerSink(ExportTarget const &target)
        : m_target(target),
          m_serializer(TovImageSerializer::CreateComponent(true))
    {
        if (m_serializer && target.quality > 0)
            m_serializer->GetComponent()->SetParamInt("jpeg.quality", target.quality);
    }
    ~SerializerSink() override
    {
        if (m_serializer)
            m_serializer->Stop();
    }

    Outcome Write(SourceFrame const &frame, std::uint8_t *pixels) override
    {
        ImageHeader const image(MakeHeader(frame.shape, m_target.format == "raw", pixels));
        if (!image) {
            m_problem = "of an unknown pixel type";
            return Outcome::NotHeld;
        }
        image->frameID = frame.facts.frameId;
        image->timestamp = frame.facts.timestamp;
        if (!m_begun || !(m_shape == frame.shape)) {
            if (Outcome const outcome = Begin(*image); outcome != Outcome::Written)
                return outcome;
            m_begun = true;
            m_shape = frame.shape;
        }
        return WriteImage(*image, frame.stem);
    }
    Outcome End() override
    {
        return Judged(m_serializer->Stop());
    }

protected:
    // For the first image, and the first one of another shape.
    virtual Outcome Begin(_TovImage const &image) = 0;
    virtual Outcome WriteImage(_TovImage const &image, std::string const &stem) = 0;

    Outcome Judged(std::int32_t status)
    {
        if (status == TOV_SERIALIZER_OK)
            return Outcome::Written;
        m_problem = std::string("not written: ") + m_serializer->GetLastFailure();
        return status == TOV_SERIALIZER_ERR_WRITE || status == TOV_SERIALIZER_ERR_MEMORY ? Outcome::Failed
                                                                                         : Outcome::NotHeld;
    }

    ExportTarget const m_target;
    std::unique_ptr<TovImageSerializer, SerializerDeleter> const m_serializer;
    bool m_begun = false;

private:
    SeriesFiles::RawShape m_shape;
};

// A file for each frame.
class ImageSink : public SerializerSink
{
public:
    using SerializerSink::SerializerSink;

private:
    Outcome Begin(_TovImage const &image) override
    {
        m_serializer->Stop();
        m_begun = false;
        return Judged(m_serializer->StartImageSeries(&image, m_target.format.c_str()));
    }
    Outcome WriteImage(_TovImage const &image, std::string const &stem) override
    {
        m_name = m_target.folder;
        m_name.append("/").append(stem).append(".").append(m_target.format);
        return Judged(m_serializer->WriteFrame(&image, m_name.c_str()));
    }

    std::string m_name;
};

class MovieSink : public SerializerSink
{
public:
    using SerializerSink::SerializerSink;

private:
    Outcome Begin(_TovImage const &image) override
    {
        if (m_begun) {
            m_problem = "not written: the picture's size or pixel type has changed";
            return Outcome::NotHeld;
        }
        std::string const name = m_target.folder + '/' + m_target.stem + '.' + m_target.format;
        Outcome const outcome = Judged(m_serializer->StartMovie(&image, name.c_str(), m_target.rate));
        return outcome == Outcome::Written ? outcome : Outcome::Failed; // no other frame would fare better
    }
    Outcome WriteImage(_TovImage const &image, std::string const &) override
    {
        return Judged(m_serializer->WriteFrame(&image, nullptr));
    }
};

// The serializer's name of a codec, in whatever case it was given; the list of them all where there is none.
std::string ChooseCodec(TovComponent &serializer, std::string const &wanted)
{
    char list[256] = "";
    unsigned int length = sizeof list;
    serializer.GetParamString("movie.compressors", list, &length);
    for (char const *at = list; *at;) {
        std::size_t const size = std::strcspn(at, "|");
        std::string const name(at, size);
        if (strcasecmp(name.c_str(), wanted.c_str()) == 0) {
            serializer.SetParamString("movie.compressor", name.c_str());
            return {};
        }
        at += size + (at[size] == '|');
    }
    std::string text = "there is no codec \"" + wanted + "\", but ";
    for (char const *c = list; *c; ++c)
        text += *c == '|' ? std::string(", ") : std::string(1, *c);
    return text;
}

struct AviSink : MovieSink
{
    AviSink(ExportTarget const &target, std::string &problem) : MovieSink(target)
    {
        if (m_serializer && !target.codec.empty())
            problem = ChooseCodec(*m_serializer->GetComponent(), target.codec);
    }
};

} // namespace

std::unique_ptr<ExportSink> MakeImageSink(ExportTarget const &target, std::string &)
{
    return std::make_unique<ImageSink>(target);
}

std::unique_ptr<ExportSink> MakeMovieSink(ExportTarget const &target, std::string &)
{
    return std::make_unique<MovieSink>(target);
}

std::unique_ptr<ExportSink> MakeAviSink(ExportTarget const &target, std::string &problem)
{
    return std::make_unique<AviSink>(target, problem);
}
