#include "tovserializer.h"

#include "companions.h"
#include "disktime.h"
#include "formatpicture.h"
#include "imageformats.h"
#include "movieformats.h"
#include "pixellayout.h"
#include "serializerparameters.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <new>
#include <optional>
#include <string>
#include <utility>

namespace {

// Frames a second; a rate is kept as a fraction of such numbers.
constexpr double SlowestMovie = 1e-6, FastestMovie = 1e6;
constexpr std::chrono::seconds LookEvery{1};

std::int32_t ToStatus(int error)
{
    switch (error) {
    case 0:
        return TOV_SERIALIZER_OK;
    case NotHeld:
    case TooLarge:
    case NoRate:
    case NoEncoder:
        return TOV_SERIALIZER_ERR_FORMAT;
    case ENOMEM:
        return TOV_SERIALIZER_ERR_MEMORY;
    default:
        return TOV_SERIALIZER_ERR_WRITE;
    }
}

// The extension of a file name or an extension alone, in lower case and without the dot.
std::string Extension(char const *text)
{
    std::string extension(text);
    if (std::size_t const dot = extension.rfind('.'); dot != std::string::npos)
        extension.erase(0, dot + 1);
    for (char &c : extension) {
        if (c >= 'A' && c <= 'Z')
            c = char(c - 'A' + 'a');
    }
    return extension;
}

class Serializer final : public TovImageSerializer
{
public:
    TovComponent *GetComponent() override
    {
        return &m_parameters;
    }

    std::int32_t StartImageSeries(_TovImage const *image, char const *extension) override
    {
        return Guarded([&]() -> std::int32_t {
            if (std::int32_t const status = CheckStart(image, extension))
                return status;
            auto format = MakeImageFormat(Extension(extension), m_parameters.JpegQuality());
            if (!format)
                return Failed(TOV_SERIALIZER_ERR_FORMAT, "There is no file format \"" + Extension(extension) + '"');
            if (std::int32_t const status = BeginPictures(*image, *format))
                return status;
            m_series = std::move(format);
            m_configuration.clear(); // no place for it
            m_file.ForgetFolders();
            m_companions.SetPreface(std::exchange(m_tablePreface, {}));
            if (m_withCompanions)
                m_companions.BeginSeries(Extension(extension) == "raw" ? std::optional(ShapeOf(*image)) : std::nullopt,
                                         m_companionHome);
            return TOV_SERIALIZER_OK;
        });
    }

    std::int32_t StartMovie(_TovImage const *image, char const *fileName, double fps) override
    {
        return Guarded([&]() -> std::int32_t {
            if (std::int32_t const status = CheckStart(image, fileName))
                return status;
            if (!(fps >= SlowestMovie) || !(fps <= FastestMovie))
                return Failed(TOV_SERIALIZER_ERR_ARGUMENT, NoRateText(fps));
            std::unique_ptr<Movie> movie;
            if (std::int32_t const status = MakeMovie(Extension(fileName), movie))
                return status;
            if (std::int32_t const status = BeginPictures(*image, *movie))
                return status;
            movie->SetConfiguration(m_configuration);
            if (int const error = movie->Open(fileName, m_picture.Converted(*image), fps)) {
                m_picture.End();
                return Judged(error);
            }
            m_movie = std::move(movie);
            m_configuration.clear();
            m_companions.SetPreface(std::exchange(m_tablePreface, {}));
            if (m_withCompanions)
                m_companions.BeginMovie(m_movie->Name());
            m_looked = std::chrono::steady_clock::now();
            return TOV_SERIALIZER_OK;
        });
    }

    std::int32_t Stop() override
    {
        return Guarded([&] {
            std::int32_t status = TOV_SERIALIZER_OK;
            if (m_movie) {
                status = Judged(m_movie->Close());
                m_readable = m_movie->ReadableFrames();
            }
            m_companions.End(m_readable);
            m_movie.reset();
            m_series.reset();
            m_picture.End();
            return status;
        });
    }

    std::int32_t WriteFrame(_TovImage const *image, char const *fileName) override
    {
        // The gap begins at the last frame that was written, and the first one has none.
        TovFrameNote note = std::exchange(m_note, {});
        note.gapBefore = m_any ? note.gapBefore + m_missed : 0;
        if (m_movie)
            m_movie->NoteFrame(note);
        std::int32_t const status = Guarded([&] { return WritePicture(image, fileName); });
        if (status != TOV_SERIALIZER_OK) {
            m_missed = m_any ? note.gapBefore + 1 : 0;
            return status;
        }
        m_any = true;
        m_missed = 0;
        if (m_movie)
            m_companions.Taken(*image, note, m_readable);
        else
            m_companions.Saved(*image, note, m_file.Name());
        return status;
    }

    char const *GetLastFailure() const override
    {
        return m_failure.c_str();
    }

    std::int64_t GetReadableFrames() const override
    {
        return m_readable;
    }

    void SetCompanions(bool on) override
    {
        m_withCompanions = on;
    }

    void NoteFrame(TovFrameNote const &note) override
    {
        m_note = note;
    }

    void TendCompanions() override
    {
        m_companions.Tend();
    }

    char const *GetCompanionFolder() const override
    {
        return m_companions.Folder().c_str();
    }

    char const *GetCompanionName() const override
    {
        return m_companions.Name().c_str();
    }

    char const *GetCompanionFailure() const override
    {
        return m_companions.Failure().c_str();
    }

    void SetConfiguration(char const *text) override
    {
        Guarded([&]() -> std::int32_t {
            std::string configuration(text ? text : "");
            if (m_movie)
                m_movie->SetConfiguration(configuration);
            else
                m_configuration = std::move(configuration);
            return TOV_SERIALIZER_OK;
        });
    }

    bool HoldsConfiguration() const override
    {
        return m_movie && m_movie->HoldsConfiguration();
    }

    std::uint64_t GetDiskTime() const override
    {
        return DiskTime::Spent();
    }

    void SetCompanionHome(char const *folder) override
    {
        Guarded([&]() -> std::int32_t {
            m_companionHome = folder ? folder : "";
            return TOV_SERIALIZER_OK;
        });
    }

    void SetTablePreface(char const *lines) override
    {
        Guarded([&]() -> std::int32_t {
            m_tablePreface = lines ? lines : "";
            return TOV_SERIALIZER_OK;
        });
    }

private:
    ~Serializer() override
    {
        Stop();
    }
    friend class TovImageSerializer;

    // Runs `function`, whose containers may run out of memory.
    template<class F>
    std::int32_t Guarded(F &&function)
    {
        try {
            return function();
        } catch (std::bad_alloc const &) {
            m_failure = "Out of memory"; // short enough to be stored without the heap
            return TOV_SERIALIZER_ERR_MEMORY;
        }
    }

    std::int32_t Failed(std::int32_t status, std::string text)
    {
        m_failure = std::move(text);
        return status;
    }
    // The result of a format or file as a status; the words for it are kept.
    std::int32_t Judged(int error)
    {
        return error ? Failed(ToStatus(error), FailureText(error)) : TOV_SERIALIZER_OK;
    }

    static std::string NoRateText(double fps)
    {
        char text[80];
        std::snprintf(text, sizeof text, "A movie cannot have %g frames a second", fps);
        return text;
    }

    static bool HasPixels(_TovImage const *image)
    {
        return image && image->imageData && image->width > 0 && image->height > 0;
    }

    // A start that does not disturb another one begins a new count.
    std::int32_t CheckStart(_TovImage const *image, char const *text)
    {
        if (m_series || m_movie)
            return Failed(TOV_SERIALIZER_ERR_STATE, "Another recording is under way");
        m_failure.clear();
        m_readable = 0;
        m_note = {};
        m_any = false;
        m_missed = 0;
        m_companions.Forget();
        if (!image || image->width == 0 || image->height == 0 || LineBytes(*image) == 0)
            return Failed(TOV_SERIALIZER_ERR_ARGUMENT, "The picture is empty");
        if (!text || !*text)
            return Failed(TOV_SERIALIZER_ERR_ARGUMENT, "The file has no name");
        return TOV_SERIALIZER_OK;
    }

    std::int32_t CheckFrame(_TovImage const *image, char const *fileName)
    {
        if (!m_series && !m_movie)
            return Failed(TOV_SERIALIZER_ERR_STATE, "No recording is under way");
        if (!HasPixels(image))
            return Failed(TOV_SERIALIZER_ERR_ARGUMENT, "The picture is empty");
        if (char const *const objection = m_picture.Objection(*image))
            return Failed(TOV_SERIALIZER_ERR_ARGUMENT, objection);
        if (m_series && (!fileName || !*fileName))
            return Failed(TOV_SERIALIZER_ERR_ARGUMENT, "The file has no name");
        return TOV_SERIALIZER_OK;
    }

    std::int32_t MakeMovie(std::string const &extension, std::unique_ptr<Movie> &movie)
    {
        if (extension == "tvm") {
            movie = MakeTvmMovie();
        } else if (extension == "h5") {
            movie = MakeHdf5Movie();
        } else if (extension == "avi") {
            std::string const compressor = m_parameters.Compressor();
            movie = MakeAviMovie(compressor, m_parameters.JpegQuality());
            if (!movie)
                return Failed(TOV_SERIALIZER_ERR_FORMAT, "There is no compressor \"" + compressor + '"');
        } else {
            return Failed(TOV_SERIALIZER_ERR_FORMAT, "There is no movie format \"" + extension + '"');
        }
        return TOV_SERIALIZER_OK;
    }

    template<class Format>
    std::int32_t BeginPictures(_TovImage const &image, Format const &format)
    {
        return Judged(m_picture.Begin(image, format.Accepts(image.pixelType, TovGetPixelTypeInfo(image.pixelType))));
    }

    static SeriesFiles::RawShape ShapeOf(_TovImage const &image)
    {
        return {image.pixelType, image.width, image.height, image.bitDepth, LineBytes(image)};
    }

    std::int32_t WritePicture(_TovImage const *image, char const *fileName)
    {
        if (std::int32_t const status = CheckFrame(image, fileName))
            return status;
        _TovImage const *target = nullptr;
        if (int const error = m_picture.Convert(*image, target))
            return Judged(error);
        return Judged(m_movie ? WriteToMovie(*target) : WriteFile(*target, *image, fileName));
    }

    int WriteFile(_TovImage const &target, _TovImage const &source, char const *fileName)
    {
        if (int const error = m_file.CreateHidden(fileName, m_series->FileSize(target), m_series->Road(target)))
            return error;
        if (int const error = m_series->Write(m_file, target, source)) {
            m_file.Abandon();
            return error;
        }
        int const error = m_file.Publish();
        if (error == 0)
            ++m_readable;
        return error;
    }

    // A deleted movie is noticed soon, not only at its end.
    int WriteToMovie(_TovImage const &image)
    {
        int error = m_movie->Write(image);
        if (auto const now = std::chrono::steady_clock::now(); !error && now - m_looked >= LookEvery) {
            m_looked = now;
            if (m_movie->IsLost())
                error = LOST;
        }
        m_readable = error == LOST ? 0 : m_movie->ReadableFrames();
        return error;
    }

    SerializerParameters m_parameters;

    // All below: the recording thread's.
    std::unique_ptr<ImageFormat> m_series; // one of the two at most
    std::unique_ptr<Movie> m_movie;
    FormatPicture m_picture;
    OutFile m_file;        // of a series
    std::string m_failure; // of the last operation that failed
    std::int64_t m_readable = 0;
    std::string m_configuration;   // for the next movie
    TovFrameNote m_note;           // of the next frame
    bool m_any = false;            // a frame has been written
    std::uint64_t m_missed = 0;    // frames since the last one that was written, and the gaps before them
    bool m_withCompanions = false; // from the next start on
    std::string m_companionHome;   // likewise
    std::string m_tablePreface;    // of the next start
    Companions m_companions;
    std::chrono::steady_clock::time_point m_looked; // when it was last checked that the movie still exists
};

} // namespace

TovImageSerializer *TovImageSerializer::CreateComponent(bool create)
{
    return create ? new (std::nothrow) Serializer : nullptr;
}

void TovImageSerializer::DeleteComponent(TovImageSerializer *serializer)
{
    delete static_cast<Serializer *>(serializer);
}
