#include "RoomTest.h"

namespace fusehosttests {
namespace {

class HiddenFilesTest : public RoomTest {
protected:
    fusehost::NameChange begun() { return {changes, root()}; }
};

TEST_F(HiddenFilesTest, aHiddenFileHasANameThatNobodyIsTold) {
    Node& file = fileNamed("a", "text");
    hidden.hide(begun(), file);
    EXPECT_TRUE(hidden.isHidden(root(), file.name));
    EXPECT_EQ(errnoOf([&] { hidden.refuseHidden(root(), file.name); }), ENOENT);
    EXPECT_EQ(served.bytes("/" + file.name), "text");
    EXPECT_EQ(attributes.ask(file).st_nlink, 0U);
}

TEST_F(HiddenFilesTest, aNameLikeOursAloneHidesNothing) {
    const std::string name = hiddenNames.next();
    fileNamed(name, "a user's");
    EXPECT_TRUE(hiddenNames.isLikeOurs(name));
    EXPECT_FALSE(hidden.isHidden(root(), name));
    EXPECT_FALSE(hiddenNames.isLikeOurs(fusehost::HiddenNames().next())) << "another mount's";
}

TEST_F(HiddenFilesTest, whatIsShownAgainHasItsNameBackUnlessThatIsTaken) {
    Node& back = fileNamed("a", "a");
    hidden.hide(begun(), back);
    hidden.showAgain(begun(), back, "a");
    EXPECT_EQ(back.name, "a");
    EXPECT_FALSE(back.hidden);
    hidden.hide(begun(), back);
    served.put("/a", "another");
    hidden.showAgain(begun(), back, "a");
    EXPECT_EQ(served.bytes("/a"), "another");
    EXPECT_FALSE(back.hidden) << "nobody removed it, so its last close must not";
    EXPECT_THAT(log.texts(), ElementsAre(testing::HasSubstr("is now called " + back.name)));
}

TEST_F(HiddenFilesTest, aFileThatCouldNotBeHiddenKeepsItsName) {
    Node& file = fileNamed("a", "");
    served.before = refuseOnce("rename", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { hidden.hide(begun(), file); }), EACCES);
    EXPECT_FALSE(file.hidden);
    EXPECT_EQ(file.name, "a");
}

TEST_F(HiddenFilesTest, isRemovedWithItsNode) {
    Node& file = fileNamed("a", "");
    const NodeID id = file.id;
    hidden.hide(begun(), file);
    file.lookups = 0;
    hidden.remove(file);
    EXPECT_THAT(served.names("/"), IsEmpty());
    EXPECT_EQ(table.find(id), nullptr);
}

TEST_F(HiddenFilesTest, takesAFolderWithItThatWasKeptForItAlone) {
    served.putDirectory("/folder");
    served.put("/folder/a", "");
    Node& folder = found("folder");
    Node& file = nodes.adopt(folder, nodes.find(folder, "a"));
    const NodeID id = folder.id;
    hidden.hide(fusehost::NameChange(changes, folder), file);
    folder.lookups = 0;
    hidden.remove(file);
    EXPECT_EQ(table.find(id), nullptr);
}

TEST_F(HiddenFilesTest, ofAFileWhoseNameHasGoneNothingIsRemoved) {
    Node& file = fileNamed("a", "");
    hidden.hide(begun(), file);
    nodes.drop(file); // somebody removed it behind the mount
    served.takeRequests();
    hidden.remove(file);
    EXPECT_THAT(served.takeRequests(), IsEmpty());
}

TEST_F(HiddenFilesTest, aFileThatCannotBeRemovedIsLogged) {
    Node& file = fileNamed("a", "");
    hidden.hide(begun(), file);
    served.before = refuseAlways("unlink", posixErrno::EACCES_);
    hidden.remove(file);
    EXPECT_THAT(log.texts(), ElementsAre(testing::HasSubstr("stays in the served tree")));
}

} // namespace
} // namespace fusehosttests
