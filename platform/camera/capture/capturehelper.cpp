#include "capturehelper.h"

#include "capturesocket.h"

#include "protocol/gigevision.h"
#include "protocol/socketaddress.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <net/if.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int Patience = 5000; // milliseconds; more than the helper takes, whatever it waits for

class Fd
{
public:
    explicit Fd(int fd = -1) : m_fd(fd)
    {
    }
    ~Fd()
    {
        Reset();
    }
    Fd(Fd const &) = delete;
    Fd &operator=(Fd const &) = delete;
    int Get() const
    {
        return m_fd;
    }
    int Release()
    {
        return std::exchange(m_fd, -1);
    }
    void Reset(int fd = -1)
    {
        if (m_fd >= 0)
            close(m_fd);
        m_fd = fd;
    }

private:
    int m_fd;
};

// The helper's process, which does not outlive this object.
class Helper
{
public:
    // Answers 0 or an errno. The other end of `end` is ours. The helper gets nothing of this process but that: no
    // environment, no open files, no signal settings.
    int Start(std::string const &path, int end)
    {
        posix_spawn_file_actions_t files;
        posix_spawnattr_t attributes;
        sigset_t all, none;
        sigfillset(&all);
        sigemptyset(&none);
        posix_spawn_file_actions_init(&files);
        posix_spawnattr_init(&attributes);
        posix_spawn_file_actions_adddup2(&files, end, CaptureSocketFd);
        posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDWR, 0);
        posix_spawn_file_actions_adddup2(&files, STDIN_FILENO, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&files, STDIN_FILENO, STDERR_FILENO);
        posix_spawn_file_actions_addclosefrom_np(&files, CaptureSocketFd + 1);
        posix_spawnattr_setsigdefault(&attributes, &all);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
        char name[] = "tovscope-capture";
        char *const arguments[] = {name, nullptr};
        char *const environment[] = {nullptr};
        int const error = posix_spawn(&m_process, path.c_str(), &files, &attributes, arguments, environment);
        if (error != 0)
            m_process = -1;
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&files);
        return error;
    }
    ~Helper()
    {
        if (m_process <= 0)
            return;
        kill(m_process, SIGKILL); // it has answered, or its time is over
        while (waitpid(m_process, nullptr, 0) < 0 && errno == EINTR) {
        }
    }

private:
    pid_t m_process = -1;
};

CaptureAnswer Failed(int error)
{
    return {CaptureVersion, CaptureStatus::SystemError, error};
}

// What comes is from a program that was found on a disk: an answer of the wrong size or without its socket is none.
CaptureAnswer Receive(int socket, Fd &capture)
{
    pollfd readable{socket, POLLIN, 0};
    int ready;
    while ((ready = poll(&readable, 1, Patience)) < 0 && errno == EINTR) {
    }
    if (ready == 0)
        return Failed(ETIMEDOUT);
    CaptureAnswer answer;
    iovec part{&answer, sizeof answer};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    ssize_t const got = recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (cmsghdr const *const header = got >= 0 ? CMSG_FIRSTHDR(&message) : nullptr;
        header && header->cmsg_level == SOL_SOCKET && header->cmsg_type == SCM_RIGHTS &&
        header->cmsg_len == CMSG_LEN(sizeof(int))) {
        int fd;
        std::memcpy(&fd, CMSG_DATA(header), sizeof fd);
        capture.Reset(fd);
    }
    if (got != static_cast<ssize_t>(sizeof answer) || (message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0 ||
        answer.version != CaptureVersion || (answer.status == CaptureStatus::Done) != (capture.Get() >= 0))
        return Failed(EPROTO);
    return answer;
}

CaptureAnswer Ask(CaptureRequest const &request, std::string const &path, Fd &capture)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        return Failed(errno);
    Fd const ours(ends[0]);
    Fd theirs(ends[1]);
    // Before the helper starts: it finds the request waiting.
    if (send(ours.Get(), &request, sizeof request, MSG_NOSIGNAL) != static_cast<ssize_t>(sizeof request))
        return Failed(errno);
    Helper helper;
    if (int const error = helper.Start(path, theirs.Get()))
        return {CaptureVersion, CaptureStatus::NoRight, error};
    theirs.Reset(); // so that its end is noticed
    return Receive(ours.Get(), capture);
}

// The socket, or what is told in place of it.
int Conclude(CaptureAnswer const &answer, Fd &capture, CaptureTarget const &target, std::string const &helper,
             std::int32_t *status, TovCam::CaptureFailure *failure)
{
    if (answer.status == CaptureStatus::Done) {
        *status = TOV_CAM_ERR_OK;
        return capture.Release();
    }
    bool const isDenied = answer.status == CaptureStatus::NoRight;
    *status = isDenied ? TOV_CAM_ERR_GENICAM_ACCESS : TOV_CAM_ERR_NO_DEVICE;
    if (!failure)
        return -1;
    failure->refusal = isDenied ? TovCam::CaptureRefusal::NoRight : TovCam::CaptureRefusal::NoAdapter;
    failure->place = isDenied ? helper : target.adapter;
    failure->reason = std::strerror(answer.error);
    return -1;
}

CaptureRequest RequestOf(CaptureTarget const &target)
{
    return {CaptureVersion, target.kind, if_nametoindex(target.adapter.c_str()),
            target.camera,  target.host, target.port};
}

} // namespace

std::string GetCaptureHelper()
{
    Dl_info self;
    std::error_code error;
    if (dladdr(reinterpret_cast<void *>(&GetCaptureHelper), &self) == 0 || !self.dli_fname)
        return {};
    std::filesystem::path const folder = std::filesystem::canonical(self.dli_fname, error).parent_path();
    // In a build folder, and as installed: what the folders are called is known, and moves with the prefix.
    std::filesystem::path const built = folder.parent_path() / "bin/tovscope-capture";
    if (folder.filename() == "lib" && std::filesystem::exists(built, error))
        return built;
    return (folder / TOV_CAPTURE_HELPER).lexically_normal();
}

int RequestCaptureSocket(CaptureTarget const &target, std::int32_t *status, TovCam::CaptureFailure *failure)
{
    CaptureRequest const request = RequestOf(target);
    CaptureAnswer answer = CheckCapture(request);
    Fd capture;
    if (answer.status == CaptureStatus::Done)
        capture.Reset(OpenCapture(request, answer));
    std::string const helper = GetCaptureHelper();
    if (answer.status == CaptureStatus::NoRight && !helper.empty())
        answer = Ask(request, helper, capture);
    return Conclude(answer, capture, target, helper, status, failure);
}

int RequestCaptureSocket(CaptureTarget const &target, std::string const &helper, std::int32_t *status,
                         TovCam::CaptureFailure *failure)
{
    Fd capture;
    CaptureAnswer const answer = Ask(RequestOf(target), helper, capture);
    return Conclude(answer, capture, target, helper, status, failure);
}

std::uint32_t GetHostAddressTowards(std::uint32_t camera)
{
    Fd const any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    return ConnectSocket(any.Get(), {camera, gvcp::Port}) ? AddressOfSocket(any.Get()).address : 0;
}
