#include "doctorprogram.h"

#include <cmath>
#include <cstdlib>

#include <getopt.h>

namespace {

double ParseNumber(std::string const &option, char const *text)
{
    constexpr double Most = 1e12;
    char *end = nullptr;
    double const number = std::strtod(text, &end);
    if (end == text || *end != '\0' || !(number > 0) || number > Most)
        throw DoctorUsageError('"' + std::string(text) + "\" is no " + option);
    return number;
}

// Those behind --set-address.
void TakeAddress(DoctorOptions &options, char const *address, char const *gateway)
{
    if (!TovCam_ReadAddress(address, gateway ? gateway : "", &options.address))
        throw DoctorUsageError('"' + std::string(address) + (gateway ? std::string(" ") + gateway : "") +
                               "\" is not ADDRESS/MASK [GATEWAY] of a camera, such as 192.168.1.7/24");
}

} // namespace

DoctorOptions ParseDoctorOptions(int argc, char *const *argv)
{
    static constexpr option Long[] = {{"json", no_argument, nullptr, 'j'},
                                      {"frame-size", required_argument, nullptr, 'f'},
                                      {"frame-rate", required_argument, nullptr, 'r'},
                                      {"set-address", required_argument, nullptr, 'a'},
                                      {"help", no_argument, nullptr, 'h'},
                                      {"version", no_argument, nullptr, 'V'},
                                      {}};
    DoctorOptions options;
    optind = 0; // begins anew, should this be called again
    opterr = 0;
    for (int letter; (letter = getopt_long(argc, argv, ":jf:r:a:hV", Long, nullptr)) != -1;) {
        switch (letter) {
        case 'j':
            options.json = true;
            break;
        case 'f':
            options.needs.frameSize = static_cast<std::uint64_t>(std::ceil(ParseNumber("number of bytes", optarg)));
            break;
        case 'r':
            options.needs.frameRate = ParseNumber("frame rate", optarg);
            break;
        case 'a':
            options.action = DoctorOptions::SetAddress;
            options.camera = optarg;
            break;
        case 'h':
            options.action = DoctorOptions::Help;
            return options;
        case 'V':
            options.action = DoctorOptions::Version;
            return options;
        case ':':
            throw DoctorUsageError(std::string(argv[optind - 1]) + " needs a value");
        default:
            throw DoctorUsageError(std::string("there is no option ") + argv[optind - 1]);
        }
    }
    bool const sets = options.action == DoctorOptions::SetAddress;
    int const left = argc - optind, most = sets ? 2 : 0;
    if (left > most)
        throw DoctorUsageError(std::string("there is no argument ") + argv[optind + most]);
    if (sets && (left == 0 || options.camera.empty()))
        throw DoctorUsageError("--set-address needs a camera and its address");
    if (sets && options.json)
        throw DoctorUsageError("--set-address and --json do not go together");
    if (sets)
        TakeAddress(options, argv[optind], left == 2 ? argv[optind + 1] : nullptr);
    return options;
}
