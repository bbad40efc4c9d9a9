// tovfile: lists, checks and exports the frames of recordings, and makes a series of other programs' pictures.
#include "commands.h"
#include "console.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <set>

namespace {

// The recording that was dealt with just now, and its frames: a pattern of the shell names thousands of them.
class Last
{
public:
    void Is(Recording recording)
    {
        m_recording = std::move(recording);
        m_files.clear();
    }
    bool Has(std::string const &name)
    {
        if (!m_recording.series || !m_recording.above || !name.starts_with(*m_recording.above))
            return false;
        if (m_files.empty())
            ReadNames(*m_recording.series);
        return std::binary_search(m_files.begin(), m_files.end(),
                                  std::hash<std::string>()(name.substr(m_recording.above->size())));
    }

private:
    void ReadNames(SeriesReader &reader)
    {
        SeriesFiles::Row row;
        reader.Rewind();
        for (SeriesReader::Line line; (line = reader.Next(row)) != SeriesReader::Line::End;) {
            if (line == SeriesReader::Line::Row)
                m_files.push_back(std::hash<std::string>()(reader.PathInside(row.file)));
        }
        std::sort(m_files.begin(), m_files.end());
    }

    Recording m_recording;
    std::vector<std::size_t> m_files; // hashes of their names; empty until they are asked for
};

bool DoOne(Recording &recording, Options const &options)
{
    if (options.command == "list")
        return List(recording);
    return options.command == "check" ? Check(recording) : Export(recording, options);
}

bool DoEach(Options const &options)
{
    bool good = true;
    Last last;
    std::set<std::string> done; // folders NAME.series
    for (std::string const &name : options.files) {
        if (IsInterrupted() || last.Has(name))
            continue;
        Recording recording;
        if (std::string const problem = OpenRecording(name, recording); !problem.empty()) {
            Complain("%s: %s", name.c_str(), problem.c_str());
            good = false;
            continue;
        }
        bool const isNew = !recording.series || done.insert(recording.series->PathOf("")).second;
        if (isNew)
            good = DoOne(recording, options) && good;
        last.Is(std::move(recording));
    }
    return good;
}

} // namespace

int main(int argc, char **argv)
{
    // Also behind a command.
    if (std::any_of(argv + 1, argv + std::min(argc, 3),
                    [](char const *word) { return std::strcmp(word, "--help") == 0; })) {
        std::fputs(Usage, stdout);
        return 0;
    }
    Options options;
    if (!ParseOptions(argc, argv, options)) {
        std::fputs(Usage, stderr);
        return 2;
    }
    WatchInterrupts();
    bool const good = options.command == "import" ? Import(options) : DoEach(options);
    if (IsInterrupted())
        Complain("tovfile: interrupted");
    return good && !IsInterrupted() ? 0 : 1;
}
