#include "fakecamprogram.h"

#include "fakecamlist.h"
#include "wirescript.h"
#include "wiresockets.h"

#include "protocol/socketaddress.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <system_error>

#include <getopt.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <poll.h>
#include <strings.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t LongestIdentity = 15; // of a serial number and a name, which end in a zero
constexpr std::streamsize LargestScript = 1 << 20;
constexpr std::uint32_t FirstAddress = 0x7F000001; // of loopback
constexpr auto ScriptPace = std::chrono::milliseconds(5), StatusPace = std::chrono::milliseconds(1000);

constexpr char Usage[] = "Usage: tovfakecam [OPTION]...\n"
                         "\n"
                         "Serves simulated cameras on the network, as GigE Vision cameras, until SIGINT or SIGTERM.\n"
                         "\n"
                         "  -c, --camera MODEL[@ADDRESS][,serial=TEXT][,name=TEXT]\n"
                         "                        a camera, at an address of this computer; may be repeated, once for\n"
                         "                        each camera. A VG-2048M by default, and 127.0.0.1, 127.0.0.2, ...\n"
                         "  -i, --interface NAME  the cameras are at the addresses of this interface, in their order\n"
                         "  -s, --set FEATURE=VALUE\n"
                         "                        sets a feature of the camera before it, or of all cameras if it is\n"
                         "                        before the first; may be repeated\n"
                         "  -f, --script FILE     does what the file says; \"-\" is the standard input\n"
                         "  -q, --quiet           does not say what is served\n"
                         "  -t, --status          a line each second for each camera\n"
                         "  -l, --list            shows the models, and the features by which they misbehave\n"
                         "  -h, --help            shows this\n"
                         "  -V, --version         shows the version\n"
                         "\n"
                         "The exit status is 0 when the program was told to end, 1 when it failed, 2 for wrong usage,\n"
                         "or what the script says.\n";

// ---- Options -----------------------------------------------------------------------------------------------------

SimModel const *FindModel(std::string const &name)
{
    for (SimModel const *model : GetWireModels()) {
        if (strcasecmp(model->name, name.c_str()) == 0)
            return model;
    }
    throw FakeCamUsageError("there is no model " + name + "; --list shows them");
}

// A serial number or a name.
std::string CheckIdentity(std::string const &text)
{
    auto const isPrintable = [](char c) {
        return c >= ' ' && c <= '~';
    };
    if (text.empty() || text.size() > LongestIdentity || !std::all_of(text.begin(), text.end(), isPrintable))
        throw FakeCamUsageError('"' + text + "\" does not have 1 to " + std::to_string(LongestIdentity) +
                                " letters of ASCII");
    return text;
}

FakeCamOptions::Camera ParseCamera(std::string const &text)
{
    FakeCamOptions::Camera camera;
    std::size_t const end = std::min(text.find(','), text.size());
    std::size_t const at = std::min(text.find('@'), end);
    camera.options.model = FindModel(text.substr(0, at));
    camera.options.address = at < end ? text.substr(at + 1, end - at - 1) : std::string();
    if (at < end && !ParseAddress(camera.options.address))
        throw FakeCamUsageError('"' + camera.options.address + "\" is no IPv4 address");
    for (std::size_t begin = end; begin < text.size();) {
        std::size_t const next = std::min(text.find(',', begin + 1), text.size());
        std::string const part = text.substr(begin + 1, next - begin - 1);
        if (part.starts_with("serial="))
            camera.options.serial = CheckIdentity(part.substr(7));
        else if (part.starts_with("name="))
            camera.options.userName = CheckIdentity(part.substr(5));
        else
            throw FakeCamUsageError('"' + part + "\" is neither serial=TEXT nor name=TEXT");
        begin = next;
    }
    return camera;
}

std::pair<std::string, std::string> ParseSetting(std::string const &text)
{
    std::size_t const equals = text.find('=');
    if (equals == std::string::npos || equals == 0)
        throw FakeCamUsageError('"' + text + "\" is not FEATURE=VALUE");
    return {text.substr(0, equals), text.substr(equals + 1)};
}

// Gives addresses to those that have none, and sees that each has one of its own.
void ChooseAddresses(FakeCamOptions &options)
{
    std::set<std::string> taken;
    for (FakeCamOptions::Camera const &camera : options.cameras) {
        std::string const &address = camera.options.address;
        if (!address.empty() && !options.interface.empty())
            throw FakeCamUsageError("a camera has an address from --interface or of its own, not both");
        if (!address.empty() && !taken.insert(address).second)
            throw FakeCamUsageError("two cameras cannot both be at " + address);
    }
    std::uint32_t next = FirstAddress;
    for (FakeCamOptions::Camera &camera : options.cameras) {
        while (options.interface.empty() && camera.options.address.empty()) {
            if (std::string const address = AddressText(next++); taken.insert(address).second)
                camera.options.address = address;
        }
    }
}

// A simulated camera may be in the same list, inside the host's program: its serial number has no 9 in front.
void ChooseSerials(FakeCamOptions &options)
{
    std::set<std::string> taken;
    for (FakeCamOptions::Camera const &camera : options.cameras) {
        std::string const &serial = camera.options.serial;
        if (!serial.empty() && !taken.insert(serial).second)
            throw FakeCamUsageError("two cameras cannot both have the serial number " + serial);
    }
    for (FakeCamOptions::Camera &camera : options.cameras) {
        std::uint64_t next = std::stoull(std::string("9") + camera.options.model->serial);
        while (camera.options.serial.empty()) {
            if (std::string const serial = std::to_string(next++); taken.insert(serial).second)
                camera.options.serial = serial;
        }
    }
}

// ---- Cameras -----------------------------------------------------------------------------------------------------

std::vector<std::string> GetInterfaceAddresses(std::string const &name)
{
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0)
        throw std::system_error(errno, std::generic_category(), "the network interfaces cannot be listed");
    std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> const holder(list, freeifaddrs);
    std::vector<std::string> addresses;
    bool found = false;
    for (; list; list = list->ifa_next) {
        if (name != list->ifa_name)
            continue;
        found = true;
        if (std::optional<std::uint32_t> const address = Ipv4AddressOf(list->ifa_addr))
            addresses.push_back(AddressText(*address));
    }
    if (!found)
        throw std::runtime_error("there is no interface " + name);
    return addresses;
}

void TakeInterfaceAddresses(FakeCamOptions &options)
{
    std::vector<std::string> const addresses = GetInterfaceAddresses(options.interface);
    if (addresses.size() < options.cameras.size())
        throw std::runtime_error("the interface " + options.interface +
                                 " has too few IPv4 addresses: " + std::to_string(addresses.size()) + " for " +
                                 std::to_string(options.cameras.size()) + " cameras. \"ip address add\" adds one");
    for (std::size_t i = 0; i < options.cameras.size(); ++i)
        options.cameras[i].options.address = addresses[i];
}

class Cameras final : public WireScriptHost
{
public:
    explicit Cameras(FakeCamOptions const &options)
    {
        for (FakeCamOptions::Camera const &camera : options.cameras) {
            m_cameras.push_back(std::make_unique<WireCamera>(camera.options));
            for (auto const &[name, value] : camera.settings) {
                std::string why;
                if (!m_cameras.back()->SetFeature(name, value, why))
                    throw std::runtime_error(why);
            }
        }
    }

    std::size_t Count() const
    {
        return m_cameras.size();
    }
    WireCameraStatus GetStatus(std::size_t camera) const
    {
        return m_cameras[camera]->GetStatus();
    }

    bool HasClient(std::size_t camera) override
    {
        return !GetStatus(camera).controller.empty();
    }
    std::uint64_t GetClients(std::size_t camera) override
    {
        return GetStatus(camera).controls;
    }
    std::uint64_t GetFrames(std::size_t camera) override
    {
        return GetStatus(camera).frames;
    }
    bool SetFeature(std::size_t camera, std::string const &name, std::string const &value, std::string &why) override
    {
        return m_cameras[camera]->SetFeature(name, value, why);
    }
    bool Execute(std::size_t camera, std::string const &name, std::string &why) override
    {
        return m_cameras[camera]->SetFeature(name, "1", why);
    }
    bool Die(std::size_t camera, std::string &) override
    {
        m_cameras[camera]->Die();
        return true;
    }
    bool Return(std::size_t camera, std::string const &address, bool reset, std::string &why) override
    {
        try {
            m_cameras[camera]->Return(address, reset);
            return true;
        } catch (std::exception const &error) {
            why = error.what();
            return false;
        }
    }
    void Say(std::string const &text) override
    {
        std::puts(text.c_str());
    }

private:
    std::vector<std::unique_ptr<WireCamera>> m_cameras;
};

// ---- Running -----------------------------------------------------------------------------------------------------

// The signals that end the program, as something to wait for. Made before any thread, which all inherit that the
// signals are blocked.
class EndSignals
{
public:
    EndSignals()
    {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        m_descriptor = signalfd(-1, &signals, SFD_CLOEXEC);
        if (m_descriptor < 0)
            throw std::system_error(errno, std::generic_category(), "signals cannot be received");
    }
    ~EndSignals()
    {
        close(m_descriptor);
    }
    EndSignals(EndSignals const &) = delete;
    EndSignals &operator=(EndSignals const &) = delete;

    // Whether one has come; without a time it waits until it does.
    bool Wait(std::optional<std::chrono::milliseconds> time) const
    {
        pollfd wanted{m_descriptor, POLLIN, 0};
        return poll(&wanted, 1, time ? static_cast<int>(time->count()) : -1) > 0;
    }

private:
    int m_descriptor = -1;
};

std::string ReadScript(std::string const &name)
{
    std::FILE *const file = name == "-" ? stdin : std::fopen(name.c_str(), "re");
    if (!file)
        throw std::system_error(errno, std::generic_category(), name);
    std::unique_ptr<std::FILE, void (*)(std::FILE *)> const closer(file, [](std::FILE *f) {
        if (f != stdin)
            std::fclose(f);
    });
    std::string text(LargestScript + 1, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file));
    if (std::ferror(file))
        throw std::system_error(errno, std::generic_category(), name);
    if (text.size() > LargestScript)
        throw std::runtime_error(name + ": the script is too large");
    return text;
}

void SayWhatIsServed(FakeCamOptions const &options)
{
    for (FakeCamOptions::Camera const &camera : options.cameras) {
        WireCameraOptions const &o = camera.options;
        std::printf("%s %s%s%s at %s, UDP port 3956\n", o.model->name, o.serial.c_str(), o.userName.empty() ? "" : ", ",
                    o.userName.c_str(), o.address.c_str());
    }
    std::printf("To look at it: tovscope, or arv-tool-0.8 -a %s values\n",
                options.cameras.front().options.address.c_str());
}

std::string HostOf(WireCameraStatus const &status)
{
    if (!status.alive)
        return status.trouble.empty() ? "gone" : "gone: " + status.trouble;
    return status.controller.empty() ? "no host" : "host " + status.controller;
}

void SayStatus(Cameras const &cameras, FakeCamOptions const &options)
{
    for (std::size_t i = 0; i < cameras.Count(); ++i) {
        WireCameraStatus const s = cameras.GetStatus(i);
        std::printf("%s at %s: %" PRIu64 " frames, %" PRIu64 " packets, %" PRIu64 " resent, %" PRIu64 " refused, %s\n",
                    options.cameras[i].options.serial.c_str(), s.address.c_str(), s.frames, s.packets, s.resent,
                    s.refused, HostOf(s).c_str());
    }
}

int Serve(FakeCamOptions options)
{
    EndSignals const signals;
    if (!options.interface.empty())
        TakeInterfaceAddresses(options);
    std::string const text = options.script.empty() ? std::string() : ReadScript(options.script);
    WireScript const script(text, options.script == "-" ? "standard input" : options.script, options.cameras.size());
    Cameras cameras(options);
    if (!options.quiet)
        SayWhatIsServed(options);
    WireScriptRun run(script, cameras);
    bool runs = true;
    Clock::time_point nextStatus = Clock::now() + StatusPace;
    for (;;) {
        runs = runs && run.Step(Clock::now());
        if (std::optional<int> const code = run.GetExitCode())
            return *code;
        Clock::time_point const now = Clock::now();
        if (options.status && now >= nextStatus) {
            SayStatus(cameras, options);
            nextStatus = now + StatusPace;
        }
        std::optional<std::chrono::milliseconds> pause;
        if (runs)
            pause = ScriptPace;
        else if (options.status)
            pause = std::chrono::ceil<std::chrono::milliseconds>(nextStatus - now);
        if (signals.Wait(pause))
            return EXIT_SUCCESS;
    }
}

} // namespace

FakeCamOptions ParseFakeCamOptions(int argc, char *const *argv)
{
    static constexpr option Long[] = {
        {"camera", required_argument, nullptr, 'c'}, {"interface", required_argument, nullptr, 'i'},
        {"set", required_argument, nullptr, 's'},    {"script", required_argument, nullptr, 'f'},
        {"quiet", no_argument, nullptr, 'q'},        {"status", no_argument, nullptr, 't'},
        {"list", no_argument, nullptr, 'l'},         {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'V'},      {}};
    FakeCamOptions options;
    std::vector<std::pair<std::string, std::string>> settings; // of all cameras
    optind = 0;                                                // begins anew, should this be called again
    opterr = 0;
    for (int letter; (letter = getopt_long(argc, argv, ":c:i:s:f:qtlhV", Long, nullptr)) != -1;) {
        switch (letter) {
        case 'c':
            options.cameras.push_back(ParseCamera(optarg));
            break;
        case 'i':
            options.interface = optarg;
            break;
        case 's':
            (options.cameras.empty() ? settings : options.cameras.back().settings).push_back(ParseSetting(optarg));
            break;
        case 'f':
            options.script = optarg;
            break;
        case 'q':
            options.quiet = true;
            break;
        case 't':
            options.status = true;
            break;
        case 'l':
            options.action = FakeCamOptions::List;
            break;
        case 'h':
            options.action = FakeCamOptions::Help;
            return options;
        case 'V':
            options.action = FakeCamOptions::Version;
            return options;
        case ':':
            throw FakeCamUsageError(std::string(argv[optind - 1]) + " needs a value");
        default:
            throw FakeCamUsageError(std::string("there is no option ") + argv[optind - 1]);
        }
    }
    if (optind < argc)
        throw FakeCamUsageError(std::string("there is no argument ") + argv[optind]);
    if (options.cameras.empty())
        options.cameras.push_back(ParseCamera(GetWireModels().front()->name));
    for (FakeCamOptions::Camera &camera : options.cameras)
        camera.settings.insert(camera.settings.begin(), settings.begin(), settings.end());
    ChooseAddresses(options);
    ChooseSerials(options);
    return options;
}

int RunFakeCam(int argc, char *const *argv)
{
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ); // each line at once, also into a pipe
    try {
        FakeCamOptions options = ParseFakeCamOptions(argc, argv);
        switch (options.action) {
        case FakeCamOptions::Help:
            std::fputs(Usage, stdout);
            return EXIT_SUCCESS;
        case FakeCamOptions::Version:
            std::puts("tovfakecam " TOV_VERSION);
            return EXIT_SUCCESS;
        case FakeCamOptions::List:
            std::fputs(ListWireModels().c_str(), stdout);
            return EXIT_SUCCESS;
        case FakeCamOptions::Serve:
            return Serve(std::move(options));
        }
    } catch (FakeCamUsageError const &error) {
        std::fprintf(stderr, "tovfakecam: %s\nTry \"tovfakecam --help\".\n", error.what());
        return 2;
    } catch (std::exception const &error) {
        std::fprintf(stderr, "tovfakecam: %s\n", error.what());
    }
    return EXIT_FAILURE;
}
