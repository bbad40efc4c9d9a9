// A GigE Vision camera that is not ours: Debian's arv-fake-gv-camera on loopback. One at a time, since it takes the
// control port of its address.
#pragma once

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
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
    // Answers when the constructor returns.
    explicit FakeGigECamera(std::vector<std::string> options = {})
    {
        std::vector<std::string> words{"arv-fake-gv-camera-0.8", "-i", "lo", "-s", "TOV1"};
        words.insert(words.end(), options.begin(), options.end());
        std::vector<char *> arguments;
        for (std::string &word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        m_process = fork();
        if (m_process == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            execvp(arguments[0], arguments.data());
            _exit(127);
        }
        WaitUntilPortIsTaken();
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

private:
    static void WaitUntilPortIsTaken()
    {
        for (int i = 0; i < 500; ++i) {
            sockaddr_in address{};
            address.sin_family = AF_INET;
            address.sin_port = htons(3956);
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            int const probe = socket(AF_INET, SOCK_DGRAM, 0);
            bool const taken = bind(probe, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0;
            close(probe);
            if (taken)
                return;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

    pid_t m_process = -1;
};
