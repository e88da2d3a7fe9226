#include "hosts/fuse/mounting/MountReason.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using fusehost::GatheredErrors;
using fusehost::mountReason;
using testing::EndsWith;
using testing::HasSubstr;

TEST(MountReason, saysWhatIsWrongAndWhatToDo) {
    EXPECT_THAT(
        mountReason("fusermount3: option allow_other only allowed if 'user_allow_other' is set in /etc/fuse.conf"),
        HasSubstr("add the line user_allow_other to /etc/fuse.conf"));
    EXPECT_THAT(mountReason("fusermount3: too many FUSE filesystems mounted; mount_max=N can be set in /etc/fuse.conf"),
                HasSubstr("raise mount_max in /etc/fuse.conf"));
    EXPECT_THAT(mountReason("fusermount3: mounting over filesystem type 0x00009fa0 is forbidden"),
                HasSubstr("choose another directory"));
    EXPECT_THAT(mountReason("fusermount3: user has no write access to mountpoint /mnt"), HasSubstr("may not write"));
    EXPECT_THAT(mountReason("fusermount3: fuse device not found, try 'modprobe fuse' first"),
                HasSubstr("modprobe fuse"));
    EXPECT_THAT(mountReason("fusermount3: mount failed: Operation not permitted"), HasSubstr("set-user-id bit"));
}

TEST(MountReason, tellsAnUnmountWhatIsMissing) {
    EXPECT_EQ(mountReason("fusermount3: failed to open /etc/mtab: No such file or directory"),
              "fusermount3 cannot read /etc/mtab; as root: ln -sfn ../proc/self/mounts /etc/mtab (No such file or "
              "directory)");
}

TEST(MountReason, keepsTheReasonOfTheSystem) {
    EXPECT_THAT(mountReason("fusermount3: failed to open /dev/fuse: Permission denied"),
                EndsWith("(Permission denied)"));
    EXPECT_THAT(mountReason("fuse: mount failed: No such device"), EndsWith("(No such device)"));
    EXPECT_THAT(mountReason("fusermount3: failed to access mountpoint /a: b/c: Permission denied"),
                EndsWith("(Permission denied)"));
    EXPECT_THAT(mountReason("fusermount3: bad mount point /a: Transport endpoint is not connected"),
                EndsWith("(Transport endpoint is not connected)"));
}

TEST(MountReason, namesAnOptionThatIsIgnored) {
    EXPECT_EQ(mountReason("fusermount3: unsafe option suid ignored"),
              "option \"suid\" is ignored: only root may use it");
}

TEST(MountReason, leavesWhatItDoesNotKnowAsItIs) {
    EXPECT_EQ(mountReason("fusermount3: something new: 5"), "something new: 5");
    EXPECT_EQ(mountReason("fuse: unknown"), "unknown");
    EXPECT_EQ(mountReason(""), "");
}

TEST(GatheredErrors, keepWhatFusermountSaysAndPassOnTheRest) {
    testing::internal::CaptureStderr();
    std::string told;
    {
        GatheredErrors errors;
        dprintf(STDERR_FILENO, "fusermount3: something new\nother words\nfusermount3: unsafe option dev ignored");
        told = errors.finish();
    }
    dprintf(STDERR_FILENO, "later\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "other words\nlater\n");
    EXPECT_EQ(told, "something new; option \"dev\" is ignored: only root may use it");
}

TEST(GatheredErrors, giveStandardErrorBackThoughNobodyAskedWhatWasSaid) {
    testing::internal::CaptureStderr();
    {
        const GatheredErrors errors;
        dprintf(STDERR_FILENO, "fusermount3: something new\nother words\n");
    }
    dprintf(STDERR_FILENO, "later\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "other words\nlater\n");
}

TEST(GatheredErrors, gatherNothingWhereThereIsNoStandardError) {
    const int saved = dup(STDERR_FILENO);
    close(STDERR_FILENO);
    GatheredErrors errors;
    const std::string told = errors.finish();
    const int inItsPlace = fcntl(STDERR_FILENO, F_GETFD);
    dup2(saved, STDERR_FILENO);
    close(saved);
    EXPECT_EQ(told, "");
    EXPECT_LT(inItsPlace, 0);
}

} // namespace
