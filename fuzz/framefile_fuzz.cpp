// A tvi or tvm file of any bytes, listed and read as `tovfile` does.
//
// An input is a byte of FileFlags and the file.
#include "driver.h"

#include "framefilereader.h"

#include <libdeflate.h>

#include <cstring>
#include <string>
#include <string_view>

#include <sys/mman.h>
#include <unistd.h>

namespace {

enum FileFlags : std::uint8_t { AsItIs = 0x01 }; // otherwise the headers' checks are put right, so that more get far

constexpr std::size_t Longest = 2048;

void Demand(bool condition, char const *what)
{
    if (!condition)
        FuzzFail(what);
}

void StoreCheck(std::uint8_t *at, std::uint32_t check)
{
    for (int i = 0; i < 4; ++i)
        at[i] = static_cast<std::uint8_t>(check >> (8 * i));
}

void MendChecks(std::uint8_t *file, std::size_t size)
{
    std::string_view const text(reinterpret_cast<char const *>(file), size);
    for (std::size_t at = text.find("TOV"); at != std::string_view::npos; at = text.find("TOV", at + 8)) {
        std::string_view const magic = text.substr(at, 8);
        std::size_t const room = size - at;
        if (magic == "TOVINDEX" && room >= FrameFormat::IndexHeaderSize) {
            std::size_t const frames = std::min<std::size_t>(file[at + 16], (room - FrameFormat::IndexHeaderSize) / 8);
            StoreCheck(file + at + 12, libdeflate_crc32(0, file + at + 16, FrameFormat::IndexBytes(frames) - 16));
            continue;
        }
        std::size_t const header =
            magic == "TOVMOVIE" ? FrameFormat::MovieHeader::Size : FrameFormat::FrameHeader::Size;
        if (room >= header)
            StoreCheck(file + at + header - 4, libdeflate_crc32(0, file + at, header - 4));
    }
}

// A file in memory, which keeps its name.
class File
{
public:
    File() : m_file(memfd_create("frames", MFD_CLOEXEC)), m_name("/proc/self/fd/" + std::to_string(m_file))
    {
    }
    void Set(std::uint8_t const *data, std::size_t size, bool mend)
    {
        std::uint8_t bytes[Longest];
        std::memcpy(bytes, data, size);
        if (mend)
            MendChecks(bytes, size);
        Demand(ftruncate(m_file, static_cast<off_t>(size)) == 0 &&
                   pwrite(m_file, bytes, size, 0) == static_cast<ssize_t>(size),
               "no room for a file");
    }
    std::string const &GetName() const
    {
        return m_name;
    }

private:
    int const m_file;
    std::string const m_name;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    if (size < 1 || size > Longest)
        return FuzzRefused;
    static File file;
    --size;
    file.Set(data + 1, size, (data[0] & AsItIs) == 0);
    FrameFileReader reader;
    if (reader.Open(file.GetName()) != 0)
        return FuzzRefused;
    Demand(reader.IsMovie() || (reader.Frames().size() == 1 && reader.IsComplete()), "an image that is none");
    Demand(reader.LostBytes() <= size, "more lost than there is");
    std::uint8_t pixels[Longest];
    bool any = false;
    std::uint64_t last = 0;
    for (FrameFileReader::Frame const &frame : reader.Frames()) {
        FrameFormat::FrameHeader const &header = frame.header;
        std::uint64_t const begin = frame.offset + header.headerBytes;
        Demand(begin <= size && header.pixelBytes <= size - begin, "pixels outside of the file");
        Demand(header.pixelBytes == header.lineBytes * header.height, "not whole lines");
        Demand(!reader.IsMovie() || !any || header.number > last, "frames out of order");
        last = header.number;
        any = true;
        int const error = reader.Read(frame, pixels);
        Demand(error == 0 || error == FrameFileReader::Damaged, "pixels that cannot be read");
    }
    return any ? 0 : FuzzRefused;
}
