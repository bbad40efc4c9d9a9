// The movie containers.
#pragma once

#include "failures.h"
#include "outfile.h"
#include "tovimage.h"
#include "tovserializer.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class Movie
{
public:
    virtual ~Movie() = default; // closes the file, too, if Close was not called
    // The type to which pictures of this type are converted for Open and Write; `info` is null for an unknown one. 0:
    // the format cannot hold them.
    virtual std::uint32_t Accepts(std::uint32_t pixelType, TovPixelTypeInfo const *info) const = 0;
    // These three: 0, an errno value, or one of FormatFailure.
    virtual int Open(std::string const &name, _TovImage const &image, double fps) = 0;
    // After a failure the file holds the earlier frames, and plays.
    virtual int Write(_TovImage const &image) = 0;
    virtual int Close() = 0;

    // Frames that a reader finds in the file as it is; after Close those that stay, -1 when that is not known.
    std::int64_t ReadableFrames() const
    {
        return m_readable;
    }
    virtual std::string const &Name() const
    {
        return m_file.Name();
    }
    // Of the frame that Write gets next, for formats that hold it.
    virtual void NoteFrame(TovFrameNote const &)
    {
    }
    // The camera's settings, likewise; any time before Close.
    virtual void SetConfiguration(std::string const &)
    {
    }
    virtual bool HoldsConfiguration() const
    {
        return false;
    }
    // Whether the open file has been deleted by somebody.
    virtual bool IsLost() const
    {
        return m_file.IsOpen() && m_file.IsLost();
    }

protected:
    OutFile m_file;
    std::int64_t m_readable = 0;
};

// Frames of at least so many bytes take the direct road.
constexpr std::uint64_t DirectFrame = 256 * 1024;

std::unique_ptr<Movie> MakeTvmMovie();
std::unique_ptr<Movie> MakeHdf5Movie();
// Null for an unavailable compressor.
std::unique_ptr<Movie> MakeAviMovie(std::string const &compressor, int jpegQuality);
// Names of the available compressors, "Uncompressed" first.
std::vector<std::string> AviCompressors();
