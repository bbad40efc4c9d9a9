#include "commands.h"
#include "console.h"
#include "exportformats.h"

#include "framememory.h"

#include <cerrno>
#include <cinttypes>
#include <cstring>

namespace {

constexpr double UsualRate = 25;

// Of those that cannot do without a rate.
bool IsMovie(std::string const &format)
{
    return format == "avi" || format == "tvm";
}

// One recording's way into a sink, with what went wrong on it.
class Exporter
{
public:
    Exporter(std::string const &name, FrameSource &source, ExportSink &sink, Options const &options)
        : m_name(name),
          m_source(source),
          m_sink(sink),
          m_options(options)
    {
    }

    bool Run()
    {
        Progress progress(m_name, m_source.Frames());
        std::uint64_t done = 0;
        for (FrameSource::Got got; !m_ended && !IsInterrupted(); progress.Done(++done)) {
            got = m_source.Next(m_frame);
            if (got == FrameSource::Got::End)
                break;
            if (got == FrameSource::Got::Failure)
                Fail(m_source.Problem());
            else if (m_frame.facts.number >= m_options.first && m_frame.facts.number <= m_options.last)
                PassOn();
        }
        if (m_sink.End() != ExportSink::Outcome::Written)
            Fail(m_sink.Problem());
        return m_good;
    }

private:
    void Fail(std::string const &problem)
    {
        Complain("%s: %s", m_name.c_str(), problem.c_str());
        m_good = false;
    }
    void FailFrame(std::string const &problem)
    {
        Fail("frame " + std::to_string(m_frame.facts.number) + ": " + problem);
    }

    void PassOn()
    {
        std::uint64_t const bytes = m_frame.Bytes(), room = FrameRoom(m_frame.shape);
        std::uint8_t *const pixels = m_memory.TryGet(std::size_t(room));
        if (!pixels)
            return FailFrame(std::strerror(ENOMEM));
        if (std::string const problem = m_source.Read(m_frame, pixels); !problem.empty())
            return FailFrame(problem);
        std::memset(pixels + bytes, 0, std::size_t(room - bytes));
        ExportSink::Outcome const outcome = m_sink.Write(m_frame, pixels);
        if (outcome != ExportSink::Outcome::Written)
            FailFrame(m_sink.Problem());
        m_ended = outcome == ExportSink::Outcome::Failed;
    }

    std::string const &m_name;
    FrameSource &m_source;
    ExportSink &m_sink;
    Options const &m_options;
    FrameMemory<std::uint8_t> m_memory;
    SourceFrame m_frame;
    bool m_good = true, m_ended = false;
};

// Without it the frames are still worth an export.
bool ReadConfiguration(Recording const &recording, std::string &text)
{
    int const error = recording.series->ReadConfiguration(text);
    if (!error || error == ENOENT)
        return true;
    Complain("%s: the configuration: %s", recording.name.c_str(), SeriesFailureText(error).c_str());
    text.clear();
    return false;
}

} // namespace

bool Export(Recording &recording, Options const &options)
{
    if (recording.frames)
        Describe(recording.name, *recording.frames);
    else
        DescribeSeries(recording.name, *recording.series, Summarize(*recording.series));
    std::string problem;
    std::unique_ptr<FrameSource> const source = MakeFrameSource(recording, problem);
    ExportTarget target;
    std::unique_ptr<ExportSink> sink;
    bool good = true;
    if (source) {
        double const rate = options.rate > 0 ? options.rate : source->Rate();
        if (rate <= 0 && IsMovie(options.format))
            Complain("%s: nothing tells the frame rate; %g frames per second are taken", recording.name.c_str(),
                     UsualRate);
        target = {.folder = options.folder,
                  .format = options.format,
                  .stem = source->Stem(),
                  .codec = options.codec,
                  .quality = options.quality,
                  .compress = options.compress,
                  .rate = rate <= 0 && IsMovie(options.format) ? UsualRate : rate,
                  .configuration = {}};
        if (options.format == "h5" && recording.series)
            good = ReadConfiguration(recording, target.configuration);
        sink = MakeExportSink(target, problem);
    }
    if (!sink) {
        Complain("%s: %s", recording.name.c_str(), problem.c_str());
        return false;
    }
    return Exporter(recording.name, *source, *sink, options).Run() && good;
}
