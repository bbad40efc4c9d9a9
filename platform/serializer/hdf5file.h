// An HDF5 file of frames, which other programs can read while it grows; docs/formats.md is its description.
//
// Threads: all objects of this class, and whatever else in the process uses HDF5, together on one thread at a time.
// Some builds of the library lock themselves (Debian's does: a call waits for the one on another thread, however long
// that takes), others are not made for threads at all.
#pragma once

#include "tovimage.h"
#include "tovserializer.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <string>

// Operations return 0, an errno value, or one of FormatFailure; FailureText has words for all of them. The library's
// own messages are not printed.
class Hdf5File
{
public:
    struct Options
    {
        bool deflate = false;                                   // lossless compression
        double rate = std::numeric_limits<double>::quiet_NaN(); // frames a second, to be told in the file
    };

    Hdf5File();
    ~Hdf5File(); // closes, too
    Hdf5File(Hdf5File const &) = delete;
    Hdf5File &operator=(Hdf5File const &) = delete;

    // A new file without frames, under the next free number where the name is taken; missing folders are made. `image`
    // gives the shape, and needs no pixels.
    int Open(std::string const &name, _TovImage const &image, Options const &options);
    // A frame of that shape, with its timestamp and id. Pixels whose lines have no gaps go to the disk from where they
    // are. After a failure the earlier frames stay.
    int Append(_TovImage const &image, TovFrameNote const &note);
    // The camera's settings, as they are kept in files. Before Open they are in the file from its beginning on; later
    // ones are added by Close, since a file that grows takes nothing new.
    void SetConfiguration(std::string const &text);
    // Shows readers all frames so far. Append does it, too, for the first frame, and where a second has passed since
    // the last time.
    int Flush();
    // After a failure of this or Flush, the file holds what was flushed before; programs may have to be told that it
    // was left growing.
    int Close();

    // The frames that a reader finds: while the file grows, those flushed.
    std::int64_t ReadableFrames() const;
    bool IsOpen() const;
    // Whether the open file has been deleted, or its disk is gone.
    bool IsLost() const;
    std::string const &Name() const; // of the open file or the last one, with its number

private:
    class Frames;
    std::unique_ptr<Frames> m_frames; // of the open file
    std::string m_name;
    std::string m_configuration; // not yet in a file
    std::int64_t m_readable = 0;
};
