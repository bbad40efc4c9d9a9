#include "captureservice.h"

#include "capturesocket.h"

#include <cstring>
#include <linux/capability.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr int Patience = 2000; // milliseconds; the request is there when the helper starts

// What this process may do, reduced to capturing at most, and that in effect or only kept for later. False where the
// system refuses.
bool LimitRights(bool mayCapture, bool inEffect)
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct rights[_LINUX_CAPABILITY_U32S_3]{};
    if (syscall(SYS_capget, &header, rights) != 0)
        return false;
    std::uint32_t const kept = mayCapture ? rights[0].permitted & 1u << CAP_NET_RAW : 0;
    std::memset(rights, 0, sizeof rights);
    rights[0].permitted = kept;
    rights[0].effective = inEffect ? kept : 0;
    return syscall(SYS_capset, &header, rights) == 0;
}

bool IsAsExpected(int level, int option, int expected)
{
    int value;
    socklen_t size = sizeof value;
    return getsockopt(CaptureSocketFd, level, option, &value, &size) == 0 && size == sizeof value && value == expected;
}

// One of a pair of sockets, whose other end was made by the user for whom this process runs.
bool IsStartedByUs()
{
    ucred peer;
    socklen_t size = sizeof peer;
    sockaddr_un name;
    socklen_t nameSize = sizeof name;
    return IsAsExpected(SOL_SOCKET, SO_DOMAIN, AF_UNIX) && IsAsExpected(SOL_SOCKET, SO_TYPE, SOCK_SEQPACKET) &&
           IsAsExpected(SOL_SOCKET, SO_ACCEPTCONN, 0) &&
           getpeername(CaptureSocketFd, reinterpret_cast<sockaddr *>(&name), &nameSize) == 0 &&
           getsockopt(CaptureSocketFd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == getuid() &&
           getuid() == geteuid() && getgid() == getegid();
}

// Exactly one message of exactly the size. What comes with it, sockets for instance, is left to the system to close.
bool ReceiveRequest(CaptureRequest &request)
{
    pollfd readable{CaptureSocketFd, POLLIN, 0};
    if (poll(&readable, 1, Patience) != 1 || (readable.revents & POLLIN) == 0)
        return false;
    return recv(CaptureSocketFd, &request, sizeof request, MSG_DONTWAIT | MSG_TRUNC) ==
           static_cast<ssize_t>(sizeof request);
}

bool SendAnswer(CaptureAnswer answer, int capture)
{
    iovec part{&answer, sizeof answer};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof capture)]{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (capture >= 0) {
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        cmsghdr *const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof capture);
        std::memcpy(CMSG_DATA(header), &capture, sizeof capture);
    }
    return sendmsg(CaptureSocketFd, &message, MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(sizeof answer);
}

} // namespace

int ServeCapture()
{
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || !LimitRights(true, false) || !IsStartedByUs())
        return CaptureNotStartedByUs;
    prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
    close_range(CaptureSocketFd + 1, ~0u, 0);
    CaptureRequest request;
    if (!ReceiveRequest(request))
        return CaptureNoRequest;
    CaptureAnswer answer = CheckCapture(request);
    int capture = -1;
    if (answer.status == CaptureStatus::Done && LimitRights(true, true))
        capture = OpenCapture(request, answer);
    bool const isHarmless = LimitRights(false, false);
    if (answer.status == CaptureStatus::Done && (capture < 0 || !isHarmless)) {
        answer.status = CaptureStatus::SystemError;
        capture = -1; // the process ends, and the socket with it
    }
    if (!SendAnswer(answer, capture))
        return CaptureNobodyListens;
    return capture >= 0 ? CaptureServed : CaptureRefused;
}
