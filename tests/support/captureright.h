// The right to capture packets, for tests that run as the administrator of a namespace.
#pragma once

#include <cstdint>
#include <linux/capability.h>
#include <linux/securebits.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

// Of the calling thread; and whether a program that it starts as root gets every right, as it otherwise does.
inline bool SetRightToCapture(bool given, bool ofHelper)
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct rights[_LINUX_CAPABILITY_U32S_3];
    if (syscall(SYS_capget, &header, rights) != 0)
        return false;
    std::uint32_t const raw = 1u << CAP_NET_RAW;
    rights[0].effective = given ? rights[0].effective | raw : rights[0].effective & ~raw;
    return syscall(SYS_capset, &header, rights) == 0 && prctl(PR_SET_SECUREBITS, ofHelper ? 0 : SECBIT_NOROOT) == 0;
}
