#include "hosts/fuse/mounting/MountTable.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

using namespace fusehost;

namespace {

constexpr const char* table =
    "20 1 254:0 / / rw,relatime shared:1 - ext4 /dev/vda rw\n"
    "31 20 0:40 / /home/a/mount rw,nosuid shared:7 - fuse.kemvi /srv/a rw,user_id=1000,group_id=100\n"
    "32 20 0:41 / /mnt/with\\040space rw - fuse.kemvi /srv/b rw,user_id=0,group_id=0,default_permissions\n"
    "33 20 0:42 / /mnt/other rw - fuse.sshfs host: rw,user_id=0,group_id=0\n"
    "not a line of it\n";

} // namespace

TEST(MountTable, tellsWhoMounted) {
    const auto entries = parseMountInfo(table);
    ASSERT_EQ(entries.size(), 4U);
    EXPECT_EQ(entries[0].owner, std::nullopt);
    EXPECT_EQ(entries[1].owner, 1000U);
    EXPECT_EQ(entries[2].owner, 0U);
}

TEST(MountTable, findsTheTopmostMountOfAPath) {
    const auto entries = parseMountInfo(std::string(table) + "34 31 0:50 / /home/a/mount rw - tmpfs none rw\n");
    EXPECT_EQ(findMount(entries, "/home/a/mount")->type, "tmpfs");
    EXPECT_EQ(findMount(entries, "/mnt/with space")->deviceMinor, 41U);
    EXPECT_EQ(findMount(entries, "/mnt"), std::nullopt);
}

TEST(MountTable, reachesNoMountThatIsNotWhereItsPathLeads) {
    // None of these numbers is that of what really lies there.
    const auto entries = parseMountInfo("31 20 0:4294967295 / / rw - fuse.kemvi /srv/a rw\n");
    EXPECT_EQ(reachablePath(entries, 4294967295U, "/"), std::nullopt);
    EXPECT_EQ(reachablePath(entries, 7, "/"), std::nullopt);
}

TEST(MountTable, reachesAMountAtItsPathOrAtTheOnlyOneThereIs) {
    struct stat real {};

    ASSERT_EQ(::stat("/proc", &real), 0);
    ASSERT_EQ(major(real.st_dev), 0U);
    const unsigned device = minor(real.st_dev);
    const auto line = [&](const char* path) {
        return "31 20 0:" + std::to_string(device) + " / " + path + " rw - fuse.kemvi /srv/a rw\n";
    };
    EXPECT_EQ(reachablePath(parseMountInfo(line("/proc")), device, "/proc"), "/proc");
    EXPECT_EQ(reachablePath(parseMountInfo(line("/proc")), device, "/where/it/was"), "/proc");
    EXPECT_EQ(reachablePath(parseMountInfo(line("/proc") + line("/tmp")), device, "/where/it/was"), std::nullopt);
    EXPECT_EQ(reachablePath(parseMountInfo(line("/proc") + line("/tmp")), device, "/proc"), "/proc");
    EXPECT_EQ(reachablePath(parseMountInfo(line("/tmp") + line("/proc")), device, "/proc"), "/proc");
}

// What it returns is unmounted.
TEST(MountTable, reachesNoMountOfAnotherKindWithTheNumberOfOurs) {
    struct stat real {};

    ASSERT_EQ(::stat("/proc", &real), 0);
    const unsigned device = minor(real.st_dev);
    const auto reached = [&](const std::string& number, const std::string& type) {
        return reachablePath(parseMountInfo("31 20 " + number + " / /proc rw - " + type + " /srv/a rw\n"), device,
                             "/proc");
    };
    EXPECT_EQ(reached("0:" + std::to_string(device), "fuse.kemvi"), "/proc");
    EXPECT_EQ(reached("0:" + std::to_string(device), "fuse.sshfs"), std::nullopt);
    EXPECT_EQ(reached("0:" + std::to_string(device), "proc"), std::nullopt);
    EXPECT_EQ(reached("254:" + std::to_string(device), "fuse.kemvi"), std::nullopt);
}

TEST(MountTable, takesNoDiskForAMountOfOurs) {
    // A disk's minor number may be that of one of our mounts.
    for (const MountEntry& entry : readMountTable())
        EXPECT_TRUE(entry.deviceMajor == 0 || !leadsToDevice(entry.mountPoint, entry.deviceMinor)) << entry.mountPoint;
}

TEST(MountTable, skipsLinesThatDoNotHaveItsForm) {
    for (const char* line :
         {"31 20 0:40 / /m - fuse.kemvi /srv/a rw\n", "31 20 0:40 / /m rw - fuse.kemvi\n", "31 20 0:40 / /m rw -\n",
          "31 20 0 / /m rw - fuse.kemvi /srv/a rw\n", "31 20 0:40:1 / /m rw - fuse.kemvi /srv/a rw\n",
          "31 20 x:40 / /m rw - fuse.kemvi /srv/a rw\n", "31 20 0:4x / /m rw - fuse.kemvi /srv/a rw\n",
          "31 20 0: / /m rw - fuse.kemvi /srv/a rw\n"})
        EXPECT_TRUE(parseMountInfo(line).empty()) << line;
    EXPECT_EQ(parseMountInfo("31 20 0:40 / /m rw - fuse.kemvi /srv/a\n").size(), 1U);
}

TEST(MountTable, readsOnlyWholeOctalEscapes) {
    const auto mountPoint = [](const std::string& text) {
        return parseMountInfo("31 20 0:40 / " + text + " rw - fuse.kemvi /srv/a rw\n").at(0).mountPoint;
    };
    EXPECT_EQ(mountPoint("/a\\134b\\040c\\011"), "/a\\b c\t");
    for (const std::string plain : {"/a\\04", "/a\\0", "/a\\", "/a\\800", "/a\\080", "/a\\008", "/a\\/00"})
        EXPECT_EQ(mountPoint(plain), plain);
}
