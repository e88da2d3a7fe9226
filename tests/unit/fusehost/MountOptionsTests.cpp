#include "hosts/fuse/mounting/MountOptions.h"
#include "hosts/fuse/mounting/OptionList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using fusehost::MountOptionError;
using fusehost::MountOptions;
using testing::ElementsAre;
using testing::IsEmpty;

MountOptions parsed(const std::string& text) {
    MountOptions options;
    options.add(text);
    return options;
}

std::string problem(const std::string& text) {
    try {
        parsed(text);
        return "none";
    } catch (const MountOptionError& error) {
        return error.what();
    }
}

TEST(MountOptions, haveTheDefaultsOfTheManual) {
    const MountOptions options;
    EXPECT_FALSE(options.readOnly);
    EXPECT_FALSE(options.allowOther);
    EXPECT_FALSE(options.quiet);
    EXPECT_FALSE(options.writeback);
    EXPECT_FALSE(options.nonEmpty);
    EXPECT_EQ(options.entryTimeout, fusehost::Seconds(1));
    EXPECT_EQ(options.attrTimeout, fusehost::Seconds(1));
    EXPECT_EQ(options.negativeTimeout, fusehost::Seconds(0));
    EXPECT_EQ(options.requestSize, 65536U);
    EXPECT_FALSE(options.fileMask || options.directoryMask || options.uid || options.gid || options.fsname);
    EXPECT_THAT(options.kernelOptions, IsEmpty());
}

TEST(MountOptions, takesEachFlag) {
    EXPECT_TRUE(parsed("ro").readOnly);
    EXPECT_TRUE(parsed("allow_other").allowOther);
    EXPECT_TRUE(parsed("quiet").quiet);
    EXPECT_TRUE(parsed("writeback").writeback);
    EXPECT_TRUE(parsed("close_to_open").closeToOpen);
    EXPECT_TRUE(parsed("nonempty").nonEmpty);
}

TEST(MountOptions, haveTheKernelCheckPermissionsWhereSomebodyMightBeRefusedSomething) {
    for (const char* options : {"", "ro", "quiet,writeback,nonempty,fsname=a"})
        EXPECT_FALSE(parsed(options).kernelChecksPermissions()) << options;
    for (const char* option : {"allow_other", "uid=0", "gid=0", "fmask=0", "dmask=0", "umask=0", "default_permissions"})
        EXPECT_TRUE(parsed(option).kernelChecksPermissions()) << option;
}

TEST(MountOptions, sayWhereAndHowMuchIsLogged) {
    const MountOptions none;
    EXPECT_FALSE(none.logFile || none.logLevel || none.showPrivate);
    const MountOptions options = parsed("log_file=/var/log/a=b,log_level=warning,show_private");
    EXPECT_EQ(options.logFile, "/var/log/a=b");
    EXPECT_EQ(options.logLevel, foundation::LogLevel::warning);
    EXPECT_TRUE(options.showPrivate);
    EXPECT_EQ(problem("log_level=loud"), "option \"log_level\": expected debug, info, warning or error");
    EXPECT_EQ(problem("log_file="), "option \"log_file\": expected the path of a file");
    EXPECT_EQ(problem("log_file"), "option \"log_file\": expected a value, as in log_file=...");
}

TEST(MountOptions, laterOnesWin) {
    EXPECT_FALSE(parsed("ro,rw").readOnly);
    EXPECT_TRUE(parsed("rw,ro").readOnly);
    EXPECT_EQ(parsed("uid=1,uid=2").uid, 2U);
    MountOptions options = parsed("attr_timeout=1");
    options.add("attr_timeout=5");
    EXPECT_EQ(options.attrTimeout, fusehost::Seconds(5));
}

TEST(MountOptions, takesTimeoutsInSecondsAndFractions) {
    const MountOptions options = parsed("entry_timeout=0,attr_timeout=2.5,negative_timeout=60");
    EXPECT_EQ(options.entryTimeout, fusehost::Seconds(0));
    EXPECT_EQ(options.attrTimeout, fusehost::Seconds(2.5));
    EXPECT_EQ(options.negativeTimeout, fusehost::Seconds(60));
}

TEST(MountOptions, refusesWhatIsNoNumberOfSeconds) {
    for (const std::string value : {"", "x", "1x", "-1", "nan", "inf", "1e999", " 1", "+1", "0x10", "1 "})
        EXPECT_EQ(problem("entry_timeout=" + value),
                  "option \"entry_timeout\": expected a number of seconds, 0 or more")
            << value;
    EXPECT_EQ(problem("attr_timeout=-2"), "option \"attr_timeout\": expected a number of seconds, 0 or more");
    EXPECT_EQ(problem("negative_timeout=a"), "option \"negative_timeout\": expected a number of seconds, 0 or more");
}

TEST(MountOptions, takesMasksInOctal) {
    const MountOptions options = parsed("fmask=0133,dmask=22");
    EXPECT_EQ(options.fileMask, 0133U);
    EXPECT_EQ(options.directoryMask, 022U);
    const MountOptions both = parsed("umask=77");
    EXPECT_EQ(both.fileMask, 077U);
    EXPECT_EQ(both.directoryMask, 077U);
    EXPECT_EQ(parsed("fmask=777").fileMask, 0777U);
    EXPECT_EQ(parsed("fmask=0").fileMask, 0U);
}

TEST(MountOptions, refusesWhatAreNoPermissionBits) {
    for (const std::string value : {"", "8", "0x1", "-1", "rwx", "22 ", "77777777777777"})
        EXPECT_EQ(problem("fmask=" + value), "option \"fmask\": expected permission bits in octal, such as 022")
            << value;
    EXPECT_EQ(problem("fmask=1000"), "option \"fmask\": expected permission bits in octal, at most 777");
    EXPECT_EQ(problem("dmask=1777"), "option \"dmask\": expected permission bits in octal, at most 777");
    EXPECT_EQ(problem("umask=9"), "option \"umask\": expected permission bits in octal, such as 022");
}

TEST(MountOptions, takesOwners) {
    const MountOptions options = parsed("uid=0,gid=4294967294");
    EXPECT_EQ(options.uid, 0U);
    EXPECT_EQ(options.gid, 4294967294U);
}

TEST(MountOptions, refusesWhatIsNoOwner) {
    // The last one is the kernel's word for "nobody is meant".
    for (const std::string value : {"", "nobody by this name", "-1", "1.5", "4294967296", "4294967295", "0x10"}) {
        EXPECT_EQ(problem("uid=" + value), "option \"uid\": expected a user id or the name of a user of this machine")
            << value;
        EXPECT_EQ(problem("gid=" + value), "option \"gid\": expected a group id or the name of a group of this machine")
            << value;
    }
}

TEST(MountOptions, takesNamesOfUsersAndGroups) {
    EXPECT_EQ(parsed("uid=root").uid, 0U);
    EXPECT_EQ(parsed("gid=root").gid, 0U);
    EXPECT_EQ(parsed("uid=daemon").uid, 1U);
    EXPECT_EQ(parsed("gid=daemon").gid, 1U);
}

TEST(MountOptions, letPlacementBeTurnedOff) {
    EXPECT_TRUE(parsed("").placement);
    EXPECT_FALSE(parsed("placement=off").placement);
    EXPECT_TRUE(parsed("placement=off,placement=auto").placement);
    for (const std::string value : {"", "on", "automatic"})
        EXPECT_EQ(problem("placement=" + value), "option \"placement\": expected auto or off");
}

TEST(MountOptions, takesRequestSizesThatAreWholePages) {
    EXPECT_EQ(parsed("request_size=4096").requestSize, 4096U);
    EXPECT_EQ(parsed("request_size=1048576").requestSize, 1048576U);
    EXPECT_EQ(parsed("request_size=64k").requestSize, 65536U);
    EXPECT_EQ(parsed("request_size=128K").requestSize, 131072U);
    EXPECT_EQ(parsed("request_size=1m").requestSize, 1048576U);
    EXPECT_EQ(parsed("request_size=1M").requestSize, 1048576U);
    for (const std::string value : {"", "0", "4095", "4097", "1052672", "-4096", "4294971392", "k", "m", "5k", "2m",
                                    "64kb", "64 k", "-4k", "4194305k", "4294967295m", "4194308k",
                                    "4097m"}) // the last two would be 4096 and 1048576 if 32 bits overflowed
        EXPECT_EQ(problem("request_size=" + value),
                  "option \"request_size\": expected a multiple of 4096 bytes from 4096 to 1048576")
            << value;
}

TEST(MountOptions, takesTheDeviceNameAsItIs) {
    EXPECT_EQ(parsed("fsname=my disk=1").fsname, "my disk=1");
    EXPECT_EQ(parsed("fsname=").fsname, "");
}

TEST(MountOptions, refusesAnOptionWithoutItsValueOrWithOneTooMany) {
    EXPECT_EQ(problem("uid"), "option \"uid\": expected a value, as in uid=...");
    EXPECT_EQ(problem("fsname"), "option \"fsname\": expected a value, as in fsname=...");
    EXPECT_EQ(problem("ro=1"), "option \"ro\": expected no value");
    EXPECT_EQ(problem("default_permissions="), "option \"default_permissions\": expected no value");
    EXPECT_EQ(problem("nosuid=1"), "option \"nosuid\": expected no value");
}

TEST(MountOptions, refusesWhatItDoesNotKnowByName) {
    EXPECT_EQ(problem("attr_timout=1"), "option \"attr_timout\" is not known; 'kemvi mount --help' lists them");
    EXPECT_EQ(problem("RO"), "option \"RO\" is not known; 'kemvi mount --help' lists them");
    EXPECT_EQ(problem("ro,,bad,quiet"), "option \"bad\" is not known; 'kemvi mount --help' lists them");
    EXPECT_EQ(problem("=5"), "option \"\" is not known; 'kemvi mount --help' lists them");
}

TEST(MountOptions, handsTheKernelsOwnOptionsOn) {
    EXPECT_THAT(parsed("nosuid,nodev,noexec,noatime,sync,dirsync,async,suid,dev,exec,atime").kernelOptions,
                ElementsAre("nosuid", "nodev", "noexec", "noatime", "sync", "dirsync", "async", "suid", "dev", "exec",
                            "atime"));
}

TEST(MountOptions, ignoresWhatOnlyMountAndSystemdRead) {
    const MountOptions options =
        parsed("defaults,auto,noauto,user,nouser,users,owner,group,_netdev,nofail,relatime,norelatime,strictatime,"
               "diratime,nodiratime,x-systemd.automount,x-gvfs-show,comment=hello,default_permissions,lazytime,"
               "nolazytime,auto_unmount,big_writes,kernel_cache,auto_cache,max_read=131072,user=anna,X-mount.mkdir,");
    EXPECT_THAT(options.kernelOptions, IsEmpty());
}

TEST(MountOptions, explainsWhatCannotBeHad) {
    EXPECT_EQ(problem("rw,remount"), "option \"remount\": the options of a mount cannot be changed while it lives; "
                                     "unmount it and mount it again");
    EXPECT_EQ(problem("allow_root"),
              "option \"allow_root\" is not offered; allow_other,fmask=177,dmask=077 lets root in "
              "and keeps all others out");
}

TEST(MountOptions, emptyTextChangesNothing) {
    EXPECT_EQ(problem(""), "none");
    EXPECT_EQ(problem(",,"), "none");
}

TEST(MountOptions, partAtCommasWithoutABackslash) {
    using fusehost::optionsIn;
    EXPECT_THAT(optionsIn(""), IsEmpty());
    EXPECT_THAT(optionsIn(",ro,,quiet,"), ElementsAre("ro", "quiet"));
    EXPECT_THAT(optionsIn(R"(a=b\,c,d\\,e\134,f\)"), ElementsAre(R"(a=b\,c)", R"(d\\)", R"(e\134)", R"(f\)"));
    EXPECT_THAT(optionsIn(R"(a\x,b\04,c)"), ElementsAre(R"(a\x)", R"(b\04)", "c"));
}

TEST(MountOptions, standForWhatIsEscapedInThem) {
    using fusehost::unescapedOption;
    EXPECT_EQ(unescapedOption(R"(a\,b\\c\040d\377)"), "a,b\\c d\xff");
    EXPECT_EQ(unescapedOption(R"(\d+\04\400\000\089\)"), R"(\d+\04\400\000\089\)");
}

TEST(MountOptions, haveValuesWithCommas) {
    const auto options = parsed(R"(fsname=a\,b,log_file=/l/c\,d\040e,ro)");
    EXPECT_EQ(options.fsname, "a,b");
    EXPECT_EQ(options.logFile, "/l/c,d e");
    EXPECT_TRUE(options.readOnly);
}

} // namespace
