// Rights that somebody gave to the program, of which it keeps none.
#include "rights.h"

#include <gtest/gtest.h>

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::uint32_t Permitted()
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct rights[_LINUX_CAPABILITY_U32S_3]{};
    return syscall(SYS_capget, &header, rights) == 0 ? rights[0].permitted : ~0u;
}

// As bits: what was answered, and whether nothing is left, once and again.
int GiveUpTwiceAsUser(bool hasRights)
{
    if (prctl(PR_SET_KEEPCAPS, hasRights) != 0 || setresuid(1, 1, 1) != 0 || (Permitted() != 0) != hasRights)
        return 64;
    int const first = GiveUpRights() | (Permitted() == 0) << 1;
    return first | GiveUpRights() << 2 | (Permitted() == 0) << 3;
}

TEST(Rights, AreGivenUpByEverybodyButRoot)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "there is no right to give up";
    std::uint32_t const before = Permitted();
    EXPECT_FALSE(GiveUpRights());
    EXPECT_EQ(Permitted(), before);
    EXPECT_EXIT(_exit(GiveUpTwiceAsUser(true)), testing::ExitedWithCode(1 | 2 | 8), "");
    EXPECT_EXIT(_exit(GiveUpTwiceAsUser(false)), testing::ExitedWithCode(2 | 8), "");
}

} // namespace
