#include "failures.h"

#include <cerrno>
#include <cstring>

std::string FailureText(int failure)
{
    switch (failure) {
    case NotHeld:
        return "The file format cannot hold pictures of this pixel type";
    case TooLarge:
        return "The picture is too large for the file format";
    case NoRate:
        return "The file format cannot hold this frame rate";
    case NoEncoder:
        return "The compressor refuses pictures of this size or type";
    case LOST:
        return "The file was deleted while it was being written";
    case EILSEQ:
        return "The file system does not accept this name";
    case ENOENT:
        return "No such folder";
    case ENOTDIR:
        return "What should be a folder is a file";
    case EFBIG:
        return "The file has become too large for the file system";
    case ENOMEM:
        return "Out of memory";
    default:
        // Unlike strerror's, in English like all other texts, whatever the system's language.
        char const *const text = strerrordesc_np(failure);
        return text ? text : "Error " + std::to_string(failure);
    }
}
