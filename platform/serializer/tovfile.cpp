// tovfile: lists, checks and exports the frames of tvi and tvm files.
#include "framefilereader.h"
#include "framememory.h"
#include "pixellayout.h"
#include "tovserializer.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr char Usage[] = "Usage: tovfile list FILE...\n"
                         "       tovfile check FILE...\n"
                         "       tovfile export [-f png|tif|raw] [-o FOLDER] [-r FIRST[-LAST]] FILE...\n"
                         "\n"
                         "Works on tvi and tvm files, also on a movie that was cut off. \"list\" shows the frames,\n"
                         "\"check\" reads all pixels and compares them with their checksums, \"export\" writes each\n"
                         "frame to a file of its own (png) in the current folder; frames count from 0.\n"
                         "The exit status is 0 for success, 1 when a file is damaged or cannot be read or written,\n"
                         "2 for wrong arguments.\n";

struct Options
{
    std::string command;
    std::string format = "png";
    std::string folder = ".";
    std::uint64_t first = 0;
    std::uint64_t last = UINT64_MAX;
    std::vector<std::string> files;
};

using Frame = FrameFileReader::Frame;

bool ParseOptions(int argc, char **argv, Options &options)
{
    if (argc < 3)
        return false;
    options.command = argv[1];
    for (int i = 2; i < argc; ++i) {
        std::string const word = argv[i];
        if (options.command != "export" || word.size() != 2 || word[0] != '-') {
            options.files.push_back(word);
            continue;
        }
        if (i + 1 == argc)
            return false;
        char const *value = argv[++i];
        if (word == "-f") {
            options.format = value;
        } else if (word == "-o") {
            options.folder = value;
        } else if (word == "-r") {
            char *end = nullptr;
            options.first = options.last = std::strtoull(value, &end, 10);
            if (end == value)
                return false;
            if (*end == '-')
                options.last = end[1] ? std::strtoull(end + 1, &end, 10) : UINT64_MAX;
        } else {
            return false;
        }
    }
    return !options.files.empty() && (options.format == "png" || options.format == "tif" || options.format == "raw");
}

void Describe(std::string const &name, FrameFileReader const &reader)
{
    if (!reader.IsMovie()) {
        std::printf("%s: image\n", name.c_str());
        return;
    }
    std::printf("%s: movie, %zu frames, %.6g frames per second%s\n", name.c_str(), reader.Frames().size(),
                reader.Movie().scale ? double(reader.Movie().rate) / reader.Movie().scale : 0.0,
                reader.IsComplete() ? "" : ", cut off");
    if (reader.LostBytes() > 0)
        std::printf("%s: %" PRIu64 " bytes belong to no whole frame\n", name.c_str(), reader.LostBytes());
}

void List(std::vector<Frame> const &frames)
{
    std::printf("%8s %12s %20s %11s %-16s %12s\n", "frame", "id", "timestamp", "size", "pixels", "bytes");
    for (Frame const &frame : frames) {
        TovPixelTypeInfo const *info = TovGetPixelTypeInfo(frame.header.pixelType);
        char type[24], size[24];
        std::snprintf(type, sizeof type, "0x%08" PRIX32, frame.header.pixelType);
        std::snprintf(size, sizeof size, "%" PRIu32 "x%" PRIu32, frame.header.width, frame.header.height);
        std::printf("%8" PRIu64 " %12" PRIu64 " %20" PRIu64 " %11s %-16s %12" PRIu64 "\n", frame.header.number,
                    frame.header.frameId, frame.header.timestamp, size, info ? info->name : type,
                    frame.header.pixelBytes);
    }
}

// The frame's pixels as an image of its type; for raw files any type will do, and the bytes pass as they are.
int ReadImage(FrameFileReader const &reader, Frame const &frame, bool bytesOnly, FrameMemory<std::uint8_t> &memory,
              _TovImage **image)
{
    FrameFormat::FrameHeader const &header = frame.header;
    bool const known = !bytesOnly && TovLineBytes(header.pixelType, header.width) == header.lineBytes;
    if (!known && (!bytesOnly || header.lineBytes > UINT32_MAX))
        return FrameFileReader::NotAFrameFile;
    TovImageSize const size{known ? header.width : std::uint32_t(header.lineBytes), header.height};
    std::uint32_t const type = known ? header.pixelType : std::uint32_t(TV_PIXEL_MONO8);
    std::size_t const bytes = TovFrameMemorySize(type, size);
    if (bytes == 0)
        return FrameFileReader::NotAFrameFile;
    std::uint8_t *const pixels = memory.TryGet(bytes);
    if (!pixels)
        return ENOMEM;
    if (int const error = reader.Read(frame, pixels))
        return error;
    std::memset(pixels + header.pixelBytes, 0, bytes - header.pixelBytes);
    return TovSucceeded(TovCreateImageHeader(image, size, type, 0, pixels)) ? 0 : ENOMEM;
}

// Reads every frame wanted, and writes it when there is a serializer. Returns the number of frames that failed.
unsigned Walk(std::string const &name, FrameFileReader const &reader, Options const &options,
              TovImageSerializer *serializer)
{
    std::size_t const slash = name.rfind('/') + 1, dot = name.rfind('.');
    std::string const stem = name.substr(slash, dot == std::string::npos || dot < slash ? dot : dot - slash);
    FrameMemory<std::uint8_t> memory;
    unsigned failed = 0;
    for (Frame const &frame : reader.Frames()) {
        std::uint64_t const number = frame.header.number;
        if (number < options.first || number > options.last)
            continue;
        bool const bytesOnly = !serializer || options.format == "raw";
        _TovImage *image = nullptr;
        int const error = ReadImage(reader, frame, bytesOnly, memory, &image);
        char const *problem = error == FrameFileReader::Damaged         ? "damaged"
                              : error == FrameFileReader::NotAFrameFile ? "of an unknown pixel type"
                              : error                                   ? std::strerror(error)
                                                                        : nullptr;
        if (!problem && serializer) {
            char suffix[32];
            std::snprintf(suffix, sizeof suffix, "_%06" PRIu64 ".", number);
            std::string file = options.folder;
            file.append("/").append(stem).append(suffix).append(options.format);
            std::int32_t status = serializer->StartImageSeries(image, options.format.c_str());
            if (status == TOV_SERIALIZER_OK)
                status = serializer->WriteFrame(image, file.c_str());
            serializer->Stop();
            if (status != TOV_SERIALIZER_OK)
                problem = "not written";
        }
        TovReleaseImageHeader(&image);
        if (problem) {
            std::fprintf(stderr, "%s: frame %" PRIu64 ": %s\n", name.c_str(), number, problem);
            ++failed;
        }
    }
    return failed;
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::fputs(Usage, stdout);
        return 0;
    }
    if (!ParseOptions(argc, argv, options) ||
        (options.command != "list" && options.command != "check" && options.command != "export")) {
        std::fputs(Usage, stderr);
        return 2;
    }
    TovImageSerializer *serializer = options.command == "export" ? TovImageSerializer::CreateComponent(true) : nullptr;
    bool good = true;
    for (std::string const &name : options.files) {
        FrameFileReader reader;
        if (int const error = reader.Open(name)) {
            std::fprintf(stderr, "%s: %s\n", name.c_str(), error < 0 ? "not a tvi or tvm file" : std::strerror(error));
            good = false;
            continue;
        }
        Describe(name, reader);
        if (options.command == "list")
            List(reader.Frames());
        else if (Walk(name, reader, options, serializer) > 0)
            good = false;
        if (options.command == "check" && (!reader.IsComplete() || reader.LostBytes() > 0))
            good = false;
    }
    if (serializer)
        TovImageSerializer::DeleteComponent(serializer);
    return good ? 0 : 1;
}
