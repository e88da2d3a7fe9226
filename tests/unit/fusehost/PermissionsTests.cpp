#include "RoomTest.h"

#include "hosts/fuse/tree/Permissions.h"

#include <unistd.h>

namespace fusehosttests {
namespace {

constexpr uid_t superuser = 0;
constexpr uid_t owner = 1000;
constexpr uid_t other = 1001;

class PermissionsTest : public RoomTest {
protected:
    Node& shown(const std::string& name, mode_t mode) {
        if (S_ISDIR(mode))
            served.putDirectory("/" + name);
        Node& node = S_ISDIR(mode) ? found(name) : fileNamed(name, "");
        node.shownMode = static_cast<std::uint16_t>(mode);
        node.shownOwner = owner;
        return node;
    }

    /// What of R_OK, W_OK and X_OK the caller may do.
    int allowed(uid_t caller, Node& node) {
        int all = 0;
        for (const int one : {R_OK, W_OK, X_OK})
            if (errnoOf([&] { permissions.check(caller, node, one); }) == 0)
                all |= one;
        return all;
    }

    fusehost::Permissions permissions{attributes, true};
};

TEST_F(PermissionsTest, theOwnerMayWhatTheFirstDigitSays) {
    EXPECT_EQ(allowed(owner, shown("a", S_IFREG | 0644)), R_OK | W_OK);
    EXPECT_EQ(allowed(owner, shown("b", S_IFREG | 0477)), R_OK);
    EXPECT_EQ(allowed(owner, shown("c", S_IFDIR | 0755)), R_OK | W_OK | X_OK);
    EXPECT_EQ(allowed(owner, shown("d", S_IFREG | 0077)), 0);
}

TEST_F(PermissionsTest, othersMayWhatGroupAndOthersBothMay) {
    EXPECT_EQ(allowed(other, shown("a", S_IFREG | 0644)), R_OK);
    EXPECT_EQ(allowed(other, shown("b", S_IFREG | 0604)), 0);
    EXPECT_EQ(allowed(other, shown("c", S_IFREG | 0640)), 0);
    EXPECT_EQ(allowed(other, shown("d", S_IFDIR | 0755)), R_OK | X_OK);
}

TEST_F(PermissionsTest, rootMayAllButExecuteWhatNobodyMay) {
    EXPECT_EQ(allowed(superuser, shown("a", S_IFREG | 0000)), R_OK | W_OK);
    for (const mode_t executable : {0100, 0010, 0001})
        EXPECT_EQ(allowed(superuser, shown("b", S_IFREG | executable)), R_OK | W_OK | X_OK);
    EXPECT_EQ(allowed(superuser, shown("c", S_IFDIR | 0000)), R_OK | W_OK | X_OK);
}

TEST_F(PermissionsTest, ofSeveralAllMustBeAllowed) {
    Node& file = shown("a", S_IFREG | 0444);
    EXPECT_EQ(errnoOf([&] { permissions.check(owner, file, R_OK | W_OK); }), EACCES);
    EXPECT_EQ(errnoOf([&] { permissions.check(owner, file, F_OK); }), 0);
}

TEST_F(PermissionsTest, whatIsTheOwnersIsHisAndRootsAlone) {
    Node& file = shown("a", S_IFREG | 0666);
    EXPECT_EQ(errnoOf([&] { permissions.checkOwner(other, file); }), EPERM);
    EXPECT_EQ(errnoOf([&] { permissions.checkOwner(owner, file); }), 0);
    EXPECT_EQ(errnoOf([&] { permissions.checkOwner(superuser, file); }), 0);
}

TEST_F(PermissionsTest, whatWasShownServesWithoutAQuestion) {
    Node& file = fileNamed("a", "");
    EXPECT_EQ(allowed(owner, file), R_OK | W_OK);
    EXPECT_THAT(served.takeRequests(), ElementsAre("getattr /a")) << "nothing was shown of it";
    EXPECT_EQ(allowed(other, file), R_OK);
    EXPECT_THAT(served.takeRequests(), IsEmpty());
}

TEST_F(PermissionsTest, everythingIsAllowedWhereTheKernelChecks) {
    fusehost::Permissions none{attributes, false};
    Node& file = shown("a", S_IFREG | 0000);
    EXPECT_EQ(errnoOf([&] { none.check(other, file, R_OK | W_OK | X_OK); }), 0);
    EXPECT_EQ(errnoOf([&] { none.checkOwner(other, file); }), 0);
}

} // namespace
} // namespace fusehosttests
