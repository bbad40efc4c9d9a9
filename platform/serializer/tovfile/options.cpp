#include "options.h"

#include "exportformats.h"

#include <charconv>
#include <cmath>
#include <string_view>

char const Usage[] =
    "Usage: tovfile list FILE...\n"
    "       tovfile check FILE...\n"
    "       tovfile export [-f png|tif|raw|avi|tvm|h5] [-c CODEC] [-q QUALITY] [-s FPS] [-z] [-o FOLDER]\n"
    "                      [-r FIRST[-LAST]] FILE...\n"
    "       tovfile import [-o FOLDER] FILE...\n"
    "\n"
    "Works on tvi and tvm files, also on a movie that was cut off, and on recordings that have a folder\n"
    "NAME.series beside them: FILE is that folder, a file in it or a raw frame of the recording. \"list\"\n"
    "shows the frames, \"check\" reads what there is and compares it with what should be, \"export\" writes\n"
    "each frame to a file of its own (png) or all of them to a movie (avi, tvm) or an HDF5 file (h5, with\n"
    "-z compressed) in the current folder; frames count from 0. \"import\" makes a raw series of TIFF files.\n"
    "No file is ever overwritten.\n"
    "The exit status is 0 for success, 1 when a file is damaged or cannot be read or written, and after\n"
    "Ctrl-C, 2 for wrong arguments.\n";

namespace {

template<class T>
bool ReadNumber(std::string_view text, T &value)
{
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

bool ReadRange(std::string_view text, Options &options)
{
    std::size_t const dash = text.find('-');
    if (!ReadNumber(text.substr(0, dash), options.first))
        return false;
    options.last = dash == std::string_view::npos ? options.first : UINT64_MAX;
    if (dash == std::string_view::npos || dash + 1 == text.size())
        return true;
    return ReadNumber(text.substr(dash + 1), options.last);
}

bool ReadOption(std::string const &word, std::string const &value, Options &options)
{
    if (word == "-o") {
        options.folder = value;
        return !value.empty();
    }
    if (options.command != "export")
        return false;
    if (word == "-f") {
        options.format = value;
        return IsExportFormat(value);
    }
    if (word == "-c") {
        options.codec = value;
        return !value.empty();
    }
    if (word == "-q")
        return ReadNumber(value, options.quality) && options.quality >= 1 && options.quality <= 100;
    if (word == "-s")
        return ReadNumber(value, options.rate) && options.rate > 0 && std::isfinite(options.rate);
    return word == "-r" && ReadRange(value, options);
}

} // namespace

bool ParseOptions(int argc, char **argv, Options &options)
{
    if (argc < 3)
        return false;
    options.command = argv[1];
    bool const hasOptions = options.command == "export" || options.command == "import";
    if (!hasOptions && options.command != "list" && options.command != "check")
        return false;
    for (int i = 2; i < argc; ++i) {
        std::string const word = argv[i];
        if (!hasOptions || word.size() != 2 || word[0] != '-') {
            options.files.push_back(word);
            continue;
        }
        if (word == "-z" && options.command == "export") {
            options.compress = true;
            continue;
        }
        if (i + 1 == argc || !ReadOption(word, argv[++i], options))
            return false;
    }
    return !options.files.empty();
}
