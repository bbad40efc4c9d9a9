// Cameras on the network for tests, and programs as their clients.
#pragma once

#include "contract.h"
#include "wirecamera.h"

#include "gige/gvcpclient.h"
#include "protocol/gigevision.h"

#include <array>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

inline constexpr char Grey[] = "VG-2048M", Colour[] = "VG-1280C";

// Before any system is made.
inline bool const s_gigeOnly = setenv("TOV_CAMERA_INTERFACES", "gige", 1) == 0;

struct Outcome
{
    int code;
    std::string text; // all that was printed

    // The number behind `name`, which is to stand there.
    double Number(std::string const &name) const
    {
        double number;
        std::size_t const at = text.find('\n' + name);
        if (at != std::string::npos && std::sscanf(text.c_str() + at + 1 + name.size(), " = %lf", &number) == 1)
            return number;
        ADD_FAILURE() << "no " << name << " in " << text;
        return -1;
    }
};

inline Outcome RunShell(std::string const &command)
{
    FILE *const pipe = popen((command + " 2>&1").c_str(), "r");
    Outcome outcome{};
    std::array<char, 4096> part;
    while (std::size_t const got = fread(part.data(), 1, part.size(), pipe))
        outcome.text.append(part.data(), got);
    int const status = pclose(pipe);
    outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

// A client that runs until it is told to end, and what it printed then.
class Client
{
public:
    explicit Client(std::string const &command)
    {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        m_process = fork();
        if (m_process == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(ends[1], STDOUT_FILENO);
            dup2(ends[1], STDERR_FILENO);
            execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), nullptr);
            _exit(127);
        }
        close(ends[1]);
        m_output = ends[0];
    }
    ~Client()
    {
        if (m_process > 0)
            Stop(SIGKILL);
    }
    Client(Client const &) = delete;

    // The next line that it prints.
    std::string ReadLine() const
    {
        std::string line;
        for (char letter = 0; letter != '\n' && read(m_output, &letter, 1) == 1;)
            line += letter;
        return line;
    }
    Outcome Stop(int signal = SIGINT)
    {
        kill(m_process, signal);
        Outcome outcome{};
        std::array<char, 4096> part;
        for (ssize_t got; (got = read(m_output, part.data(), part.size())) > 0;)
            outcome.text.append(part.data(), static_cast<std::size_t>(got));
        int status = 0;
        waitpid(m_process, &status, 0);
        close(m_output);
        m_process = -1;
        outcome.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return outcome;
    }

private:
    pid_t m_process = -1;
    int m_output = -1;
};

inline SimModel const &FindModel(std::string const &name)
{
    for (SimModel const *model : GetWireModels()) {
        if (name == model->name)
            return *model;
    }
    throw std::runtime_error("no model " + name);
}

inline std::unique_ptr<WireCamera> Serve(std::string const &model, std::string const &address = "127.0.0.1")
{
    return std::make_unique<WireCamera>(WireCameraOptions{&FindModel(model), address, "W" + model.substr(3), {}});
}

inline void Set(WireCamera &camera, std::string const &name, std::string const &value)
{
    std::string why;
    EXPECT_TRUE(camera.SetFeature(name, value, why)) << name << ": " << why;
}

using Features = std::vector<std::pair<std::string, std::string>>;

inline void Set(WireCamera &camera, Features const &features)
{
    for (auto const &[name, value] : features)
        Set(camera, name, value);
}

// Frames that a busy computer keeps up with.
inline void MakeSmall(WireCamera &camera)
{
    Set(camera, {{"Width", "320"},
                 {"Height", "200"},
                 {"ExposureTime", "1000"},
                 {"AcquisitionFrameRateEnable", "1"},
                 {"AcquisitionFrameRate", "60"}});
}

// What arv-camera-test counts while the camera sends so many frames.
inline Outcome Stream(WireCamera &camera, std::string const &options, std::uint64_t frames = 20)
{
    std::uint64_t const before = camera.GetStatus().frames;
    Client client("arv-camera-test-0.8 " + options);
    EXPECT_TRUE(Eventually([&] { return camera.GetStatus().frames >= before + frames; })) << options;
    return client.Stop();
}

// What passes over loopback, as tshark sees it.
class Capture
{
public:
    explicit Capture(std::string const &options) : m_shark("tshark -q -i lo -f udp " + options + " -w " + m_file)
    {
        // Something has to be on the way for a capture to be seen to run.
        EXPECT_TRUE(Eventually([this] {
            GvcpIdentity nobody;
            GvcpClient("127.0.0.9").Discover(nobody);
            return GetSize() > 1000;
        }));
    }
    ~Capture()
    {
        std::filesystem::remove(m_file);
    }
    // Once all that was sent has been written.
    void Stop()
    {
        std::uintmax_t last = 0;
        EXPECT_TRUE(Eventually([&] { return std::exchange(last, GetSize()) == GetSize(); }));
        m_shark.Stop();
    }
    // What tshark prints of it. Who streams sends from a port that the system has chosen, and so do hosts; the ports of
    // both are one range, in which either kind of packet can be looked for.
    std::string Read(char const *protocol, std::string const &filter, std::string const &options) const
    {
        std::string const decode = protocol == std::string_view("gvsp") ? "-d udp.port==32768-60999,gvsp " : "";
        std::string const control = *decode.c_str() ? "!" : "";
        return RunShell("tshark -r " + m_file + ' ' + decode + "-Y '!icmp && " + control +
                        "(udp.port == " + std::to_string(gvcp::Port) + ") && " + filter + "' 2>/dev/null " + options)
            .text;
    }

private:
    std::uintmax_t GetSize() const
    {
        std::error_code none;
        std::uintmax_t const size = std::filesystem::file_size(m_file, none);
        return none ? 0 : size;
    }

    std::string const m_file = testing::TempDir() + "/wire_" + std::to_string(getpid()) + ".pcapng";
    Client m_shark;
};
