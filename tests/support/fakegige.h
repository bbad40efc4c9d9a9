// A GigE Vision camera that is not ours: Debian's arv-fake-gv-camera on loopback. One at a time, since it takes the
// control port of its address.
#pragma once

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <fstream>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

class FakeGigECamera
{
public:
    static constexpr char Serial[] = "TOVFAKE1";

    // Answers when the constructor returns.
    explicit FakeGigECamera(std::vector<std::string> options = {})
    {
        options.insert(options.begin(), {"arv-fake-gv-camera-0.8", "-i", "lo", "-s", Serial});
        std::vector<char *> arguments;
        for (std::string &word : options)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        m_process = fork();
        if (m_process == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            execvp(arguments[0], arguments.data());
            _exit(127);
        }
        for (int i = 0; i < 9000; ++i) {
            if (HasItsPorts())
                return;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        throw std::runtime_error("the fake camera did not start");
    }
    ~FakeGigECamera()
    {
        Kill();
    }
    FakeGigECamera(FakeGigECamera const &) = delete;
    FakeGigECamera &operator=(FakeGigECamera const &) = delete;

    void Kill()
    {
        if (m_process <= 0)
            return;
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
        m_process = -1;
    }

    // A socket, or negative when somebody has the port.
    static int BindControlPort()
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(3956);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        int const control = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (bind(control, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0)
            return control;
        close(control);
        return -1;
    }

private:
    // Looks and does not touch: a socket of ours could take a port from under the camera's hands.
    static bool HasItsPorts()
    {
        std::ifstream sockets("/proc/net/udp");
        int open = 0;
        for (std::string line; std::getline(sockets, line);)
            open += line.find(":0F74 00000000:0000 ") != std::string::npos; // 3956, and not what talks to it
        // For its own address, and for searches.
        return open == 2;
    }

    pid_t m_process = -1;
};
