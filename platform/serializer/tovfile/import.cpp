// Makes a raw series, with what stands beside one, of other programs' pictures.
#include "commands.h"
#include "console.h"
#include "tiffreader.h"

#include "outfile.h"
#include "tovserializer.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace {

class Importer
{
public:
    explicit Importer(Options const &options)
        : m_options(options),
          m_serializer(TovImageSerializer::CreateComponent(true))
    {
    }
    ~Importer()
    {
        TovImageSerializer::DeleteComponent(m_serializer);
    }
    Importer(Importer const &) = delete;
    Importer &operator=(Importer const &) = delete;

    bool Run()
    {
        Progress progress("tovfile", m_options.files.size());
        m_serializer->SetCompanions(true);
        std::uint64_t done = 0;
        for (std::string const &name : m_options.files) {
            if (m_ended || IsInterrupted())
                break;
            TakeFile(name);
            progress.Done(++done);
        }
        m_serializer->Stop();
        if (char const *failure = m_serializer->GetCompanionFailure(); *failure)
            Fail(m_serializer->GetCompanionFolder(), failure);
        else if (m_frames > 0)
            WriteLedger();
        if (m_frames > 0)
            Tell("%s: %" PRIu64 " frames", m_serializer->GetCompanionFolder(), m_frames);
        return m_good;
    }

private:
    void Fail(std::string const &name, std::string const &problem)
    {
        Complain("%s: %s", name.c_str(), problem.c_str());
        m_good = false;
    }

    void TakeFile(std::string const &name)
    {
        TiffReader reader;
        if (reader.Open(name)) {
            for (std::uint64_t page = 0; !m_ended && !IsInterrupted() && reader.Next(); ++page)
                TakeImage(name, reader, page);
        }
        if (!reader.Problem().empty())
            Fail(name, reader.Problem());
    }

    // A file of several pictures gives as many, which have its name and their numbers.
    void TakeImage(std::string const &name, TiffReader &reader, std::uint64_t page)
    {
        _TovImage &image = reader.Image();
        image.frameID = m_frames;
        std::int32_t status = m_begun ? TOV_SERIALIZER_OK : m_serializer->StartImageSeries(&image, "raw");
        char number[32] = "";
        if (reader.IsStack())
            std::snprintf(number, sizeof number, "_%06" PRIu64, page);
        std::string const target = m_options.folder + '/' + StemOf(name) + number + ".raw";
        if (status == TOV_SERIALIZER_OK) {
            m_begun = true;
            status = m_serializer->WriteFrame(&image, target.c_str());
        }
        if (status == TOV_SERIALIZER_OK) {
            ++m_frames;
            return;
        }
        Fail(name, m_serializer->GetLastFailure());
        m_ended = status != TOV_SERIALIZER_ERR_ARGUMENT; // a picture of another size alone is left out
    }

    // As a recording has it: without one it counts as cut off.
    void WriteLedger()
    {
        std::string const name =
            std::string(m_serializer->GetCompanionFolder()) + '/' + m_serializer->GetCompanionName() + ".ledger.txt";
        std::string const text = "[Ledger]\nacquired=" + std::to_string(m_frames) +
                                 "\nincomplete=0\nsaved=" + std::to_string(m_frames) +
                                 "\nsavedIncomplete=0\nunwanted=0\nfailed=0\ndroppedSW=0\nqueued=0\nmissing=0\n"
                                 "[Failures]\n";
        OutFile file;
        int error = file.CreateVisible(name, OutFile::Road::Cached);
        if (!error)
            error = file.Append(text.data(), text.size());
        if (int const closing = file.IsOpen() ? file.Close() : 0; !error)
            error = closing;
        if (error)
            Fail(name, std::strerror(error));
    }

    Options const &m_options;
    TovImageSerializer *const m_serializer;
    std::uint64_t m_frames = 0;
    bool m_begun = false, m_ended = false, m_good = true;
};

} // namespace

bool Import(Options const &options)
{
    return Importer(options).Run();
}
