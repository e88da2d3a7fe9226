#include "RoomTest.h"

namespace fusehosttests {
namespace {

class DurabilityTest : public RoomTest {
protected:
    Node& written(const std::string& name) {
        Node& node = fileNamed(name, "");
        node.writers = node.unflushedWriters = 1;
        contents.write(node, 0, bytes("x"));
        served.takeRequests();
        return node;
    }
};

TEST_F(DurabilityTest, makesTheFileThatIsMeantSafeAndNoOther) {
    Node& meant = written("meant");
    Node& other = written("other");
    durability.makeSafe(meant);
    EXPECT_THAT(served.takeRequests(),
                testing::AllOf(testing::Contains("release /other"), testing::Contains("flush /meant"),
                               testing::Not(testing::Contains("flush /other"))));
    EXPECT_EQ(meant.safety, fusehost::Safety::told);
    EXPECT_EQ(other.safety, fusehost::Safety::due);
}

TEST_F(DurabilityTest, opensAgainWhatWasWrittenThroughAHandleGivenBack) {
    Node& file = written("a");
    file.unflushedWriters = 0;
    handles.closeUnused(file);
    served.takeRequests();
    durability.makeSafe(file);
    EXPECT_THAT(served.takeRequests(),
                ElementsAre("getattr /a", "open write,create /a", "flush /a", "statfs", "release /a"));
    durability.makeSafe(file);
    EXPECT_THAT(served.takeRequests(), ElementsAre("statfs")) << "it is safe already";
}

TEST_F(DurabilityTest, anErrorThatWaitsIsToldOnceInsteadOfMakingTheFileSafe) {
    Node& file = written("a");
    file.deferredError.keep(ENOSPC);
    EXPECT_EQ(errnoOf([&] { durability.synchronize(file); }), ENOSPC);
    EXPECT_THAT(served.takeRequests(), IsEmpty());
    EXPECT_EQ(errnoOf([&] { durability.synchronize(file); }), 0);
}

TEST_F(DurabilityTest, anErrorThatMayBeAnothersIsKeptForThatToo) {
    Node& meant = written("meant");
    Node& guarded = written("guarded");
    guarded.isWriteProtected = true;
    served.before = refuseOnce("flush", posixErrno::EDQUOT_);
    EXPECT_EQ(errnoOf([&] { durability.makeSafe(meant); }), EDQUOT);
    EXPECT_EQ(guarded.deferredError.take(), EDQUOT);
    EXPECT_EQ(meant.safety, fusehost::Safety::due);
}

TEST_F(DurabilityTest, theFirstOfSeveralDeferredErrorsIsKeptUntilItIsTaken) {
    fusehost::DeferredError deferred;
    EXPECT_EQ(deferred.take(), 0);
    deferred.keep(ENOSPC);
    deferred.keep(EIO);
    EXPECT_EQ(deferred.take(), ENOSPC);
    EXPECT_EQ(deferred.take(), 0);
}

} // namespace
} // namespace fusehosttests
