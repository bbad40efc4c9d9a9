#include "rights.h"

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

bool GiveUpRights()
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct rights[_LINUX_CAPABILITY_U32S_3]{};
    if (geteuid() == 0 || syscall(SYS_capget, &header, rights) != 0 || (rights[0].permitted | rights[1].permitted) == 0)
        return false;
    __user_cap_data_struct const none[_LINUX_CAPABILITY_U32S_3]{};
    if (syscall(SYS_capset, &header, none) != 0)
        _exit(1); // cannot happen: less is always permitted
    return true;
}
