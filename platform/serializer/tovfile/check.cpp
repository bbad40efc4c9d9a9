#include "commands.h"
#include "console.h"

#include "framememory.h"

#include <cerrno>
#include <cinttypes>
#include <cstring>

namespace {

bool CheckFrames(FrameFileReader const &reader, std::string const &name)
{
    FrameMemory<std::uint8_t> memory;
    Progress progress(name, reader.Frames().size());
    bool good = reader.IsComplete() && reader.LostBytes() == 0;
    std::uint64_t done = 0;
    for (FrameFileReader::Frame const &frame : reader.Frames()) {
        if (IsInterrupted())
            break;
        progress.Done(done++);
        std::uint8_t *const pixels = memory.TryGet(std::size_t(frame.header.pixelBytes));
        int const error = pixels || frame.header.pixelBytes == 0 ? reader.Read(frame, pixels) : ENOMEM;
        if (error) {
            Complain("%s: frame %" PRIu64 ": %s", name.c_str(), frame.header.number, FrameFailureText(error).c_str());
            good = false;
        }
    }
    return good;
}

} // namespace

bool Check(Recording &recording)
{
    if (recording.series)
        return CheckSeries(*recording.series, recording.name);
    Describe(recording.name, *recording.frames);
    return CheckFrames(*recording.frames, recording.name);
}
