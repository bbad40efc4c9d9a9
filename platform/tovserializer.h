// Image and movie files.
//
// Threads: StartImageSeries, StartMovie, WriteFrame and Stop from one thread at a time; the component's parameters from
// any thread. A value set while a series or a movie runs counts from the next start on.
#pragma once

#include "tovimage.h"
#include "tovmisc.h"

#include <cstdint>
#include <limits>
#include <string>

#if defined(TovImageSerializer_EXPORTS)
#define TOV_SERIALIZER_API __attribute__((visibility("default")))
#else
#define TOV_SERIALIZER_API
#endif

// Status of the operations below, 0 for success.
enum TovSerializerError : std::int32_t {
    TOV_SERIALIZER_OK = 0,
    TOV_SERIALIZER_ERR_ARGUMENT = -1, // null, an image without pixels, of another shape or type than at the start
    TOV_SERIALIZER_ERR_FORMAT = -2,   // an unknown extension or compressor, a pixel type the format cannot hold
    TOV_SERIALIZER_ERR_STATE = -3,    // nothing was started, or something still runs
    TOV_SERIALIZER_ERR_WRITE = -4,    // the file system refused: no such place, no permission, no room
    TOV_SERIALIZER_ERR_MEMORY = -5,
};

// What is known of a frame beside its picture, for the table of the recording and for movies that hold it.
struct TovFrameNote
{
    // Of its first packet, by this computer's clock: nanoseconds since 1970, UTC; 0: not known.
    std::int64_t arrival = 0;
    double exposure = std::numeric_limits<double>::quiet_NaN(); // microseconds; not a number: not known
    double gain = std::numeric_limits<double>::quiet_NaN();     // as the camera tells; likewise
    bool incomplete = false;
    std::uint64_t missingBytes = 0; // of an incomplete one; 0: not known
    std::uint64_t gapBefore = 0;    // frames of the camera that are missing between the frame before and this one
    std::string lossCause = {};     // where those were lost, and what this one lacks: words with '+' in between
};

// Parameters of GetComponent():
//   "jpeg.quality"       integer, 1 to 100: percent
//   "movie.compressors"  string, read only: the available compressors, separated by vertical bars, "Uncompressed" first
//   "movie.compressor"   string: the one in use
//   "movie.options"      integer, read only: 1 when the one in use has an options dialog
class TOV_SERIALIZER_API TovImageSerializer
{
public:
    static TovImageSerializer *CreateComponent(bool create); // null on failure
    static void DeleteComponent(TovImageSerializer *serializer);

    virtual TovComponent *GetComponent() = 0;
    // Extensions: "raw", "tvi", "bmp", "jpg", "png", "tif". `image` gives shape and pixel type.
    virtual std::int32_t StartImageSeries(_TovImage const *image, char const *extension) = 0;
    // Extensions of `fileName`: ".avi", ".tvm" and ".h5". The name is in local 8-bit encoding; `fps` above 0.
    virtual std::int32_t StartMovie(_TovImage const *image, char const *fileName, double fps) = 0;
    // Ends what was started and closes its files; harmless when nothing was.
    virtual std::int32_t Stop() = 0;
    // A series: writes one file under `fileName`; missing folders are made, a name that is taken gets a number before
    // its extension, and the file appears under its name only when it is whole. A movie (`fileName` null): appends.
    virtual std::int32_t WriteFrame(_TovImage const *image, char const *fileName) = 0;
    // Why the last operation that failed did so, in words for the operator ("No space left on device"); empty when none
    // has failed since the start. Valid until the next operation. For the writing thread.
    virtual char const *GetLastFailure() const
    {
        return "";
    }
    // How many frames of the series or movie under way, or of the last one, a reader would find: after Stop the exact
    // number, before that those that are known to be whole in the file. -1: not known. For the writing thread, and
    // after Stop for the thread that stopped.
    virtual std::int64_t GetReadableFrames() const
    {
        return -1;
    }

    // Files beside a series or a movie, in a folder of their own: a table of its frames, and headers by which other
    // programs read a raw series. From the next start on; off at first. Rows are written in batches: each is in the
    // table a second after its frame, if frames go on or TendCompanions is called. What cannot be written there costs
    // no frame. For the writing thread, all of these.
    virtual void SetCompanions(bool)
    {
    }
    // Of the frame that the next WriteFrame brings, with or without those files.
    virtual void NoteFrame(TovFrameNote const &)
    {
    }
    // To be called a few times a second while no frame comes.
    virtual void TendCompanions()
    {
    }
    // Of the series or movie under way, or of the last one, without a slash at its end; empty as long as there is none.
    virtual char const *GetCompanionFolder() const
    {
        return "";
    }
    // What the names of the files in that folder begin with.
    virtual char const *GetCompanionName() const
    {
        return "";
    }
    // Why they are not whole, as GetLastFailure; empty while they are.
    virtual char const *GetCompanionFailure() const
    {
        return "";
    }

    // The camera's settings, as SaveConfiguration writes them into a file: of the movie under way, at any time before
    // Stop, or else of the next one. Formats that have no place for them leave them out. For the writing thread.
    virtual void SetConfiguration(char const *)
    {
    }
    // Whether the movie under way has a place for them. For the writing thread, and once that sleeps for others.
    virtual bool HoldsConfiguration() const
    {
        return false;
    }
    // The folder that all frames of a series are in or below, from the next start on: the companions of a series stand
    // there. Without it, null or empty, and for movies and frames elsewhere, they stand beside the first frame.
    virtual void SetCompanionHome(char const *)
    {
    }
    // Stands in the table in front of the first row, of the next series or movie alone: whole lines that begin with
    // '#', which readers of the table skip.
    virtual void SetTablePreface(char const *)
    {
    }
    // Nanoseconds that this thread has spent in the system's calls that make and write files, so far; only differences
    // mean something. For the writing thread.
    virtual std::uint64_t GetDiskTime() const
    {
        return 0;
    }

protected:
    virtual ~TovImageSerializer() = default;
};
