// tovfile: lists, checks and exports the frames of recordings, and makes a series of other programs' pictures.
#include "commands.h"
#include "console.h"

#include <cstdio>
#include <cstring>
#include <set>

namespace {

// Files of a recording that was dealt with just now: a pattern of the shell names thousands.
bool IsOfTheSame(Recording &last, std::string const &name)
{
    if (!last.series)
        return false;
    std::size_t const slash = name.rfind('/') + 1;
    return last.above == (slash > 0 ? name.substr(0, slash) : "./") && last.series->Lists(name.substr(slash));
}

bool DoOne(Recording &recording, Options const &options)
{
    if (options.command == "list")
        return List(recording);
    return options.command == "check" ? Check(recording) : Export(recording, options);
}

bool DoEach(Options const &options)
{
    bool good = true;
    Recording last;
    std::set<std::string> done; // folders NAME.series
    for (std::string const &name : options.files) {
        if (IsInterrupted() || IsOfTheSame(last, name))
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
        last = std::move(recording);
        if (last.series)
            last.series->Rewind();
    }
    return good;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
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
