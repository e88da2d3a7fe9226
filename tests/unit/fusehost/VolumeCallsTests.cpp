#include "FileTreeTest.h"

#include "foundation/Error.h"
#include "hosts/fuse/calls/Quietly.h"
#include "hosts/fuse/kernel/KernelAnswer.h"
#include "hosts/fuse/mounting/MountError.h"
#include "hosts/fuse/tree/DirectorySnapshot.h"

#include <stdexcept>

namespace fusehosttests {
namespace {

using fusehost::DirectorySnapshot;
using fusehost::VolumeCalls;

/// A volume without the operations that a mount needs.
class BareVolume final : public fskit::FSVolume {
public:
    BareVolume() : FSVolume(fskit::FSVolumeIdentifier(foundation::UUID::random()), fskit::FSFileName("bare")) {}
};

[[noreturn]] void fault(const std::string& text) {
    throw foundation::NSErrorException(foundation::NSError{"com.example", 7, text, ""});
}

class VolumeCallsTest : public testing::Test {
protected:
    ServedTree served;
    testsupport::RecordingLog log;
    std::shared_ptr<MemoryVolume> volume = std::make_shared<MemoryVolume>(served);
    VolumeCalls calls{volume};
    fskit::FSItemPtr root = calls.activate();
};

TEST_F(VolumeCallsTest, refusesAVolumeThatCannotBeMounted) {
    EXPECT_THROW(VolumeCalls(std::make_shared<BareVolume>()), fusehost::MountError);
    EXPECT_THROW(VolumeCalls(nullptr), fusehost::MountError);
}

TEST_F(VolumeCallsTest, aLookupTakesItsAttributesFromTheItem) {
    served.put("/a", "12345");
    const auto found = calls.lookup(root, "a");
    EXPECT_EQ(found.name, "a");
    EXPECT_EQ(found.attributes.size(), 5U);
    EXPECT_THAT(served.takeRequests(), ElementsAre("getattr /a"));
}

// What a program is answered, by way of the place that answers the kernel.
template <typename Call>
int answered(Call&& call) {
    try {
        call();
        return 0;
    } catch (...) {
        return fusehost::errnoOfFailure();
    }
}

TEST_F(VolumeCallsTest, anErrorOfTheVolumeIsThatOfTheCallWhicheverItIs) {
    served.put("/a", "x");
    const auto item = calls.lookup(root, "a").item;
    served.before = [](const std::string&) { foundation::throwPosix(posixErrno::EROFS_); };
    fskit::FSItemSetAttributesRequest mode;
    mode.setMode(0600);
    EXPECT_EQ(errnoOf([&] { calls.setAttributes(item, mode); }), EROFS);
    EXPECT_EQ(errnoOf([&] { calls.getAttributes(item); }), EROFS);
    EXPECT_EQ(errnoOf([&] { calls.create(root, "b", fskit::FSItemType::file); }), EROFS);
    EXPECT_EQ(errnoOf([&] { calls.remove(item, root, "a"); }), EROFS);
    EXPECT_EQ(errnoOf([&] { calls.rename(item, root, "a", root, "b"); }), EROFS);
    EXPECT_EQ(errnoOf([&] { calls.open(item, fskit::FSVolumeOpenModes::read); }), EROFS);
    EXPECT_EQ(errnoOf([&] { calls.synchronize(); }), EROFS);
}

TEST_F(VolumeCallsTest, aCloseThatSucceedsIsAskedForOnce) {
    served.put("/a", "x");
    const auto item = calls.lookup(root, "a").item;
    int closed = 0;
    calls.open(item, fskit::FSVolumeOpenModes::read);
    volume->onAny = [&] { ++closed; };
    calls.close(item, fskit::FSVolumeOpenModes::none);
    EXPECT_EQ(closed, 1);
}

TEST_F(VolumeCallsTest, aFailureOfWhichItIsKnownWhereItAroseHasALogLine) {
    served.before = [](const std::string&) {
        foundation::NSErrorException failure(foundation::NSError::posix(posixErrno::EIO_, "no room"));
        failure.setOrigin({"write", "/a", "17", "ENOSPC", ""});
        throw failure;
    };
    EXPECT_EQ(answered([&] { calls.lookup(root, "a"); }), EIO);
    EXPECT_THAT(log.texts(), ElementsAre(testing::HasSubstr("ENOSPC: no room")));
}

TEST_F(VolumeCallsTest, whatIsDoneForNobodyTellsTheLogWhyItFailed) {
    using fusehost::quietly;
    quietly("giving back", [] { throw fusehost::KernelError(ENOSPC); });
    quietly("counting", [] { throw std::runtime_error("out of numbers"); });
    quietly("guessing", [] { throw 7; });
    served.before = [](const std::string&) { fault("it broke"); };
    quietly("flushing", [&] { calls.synchronize(); });
    EXPECT_THAT(log.texts(),
                ElementsAre("giving back failed: No space left on device", "counting failed: out of numbers",
                            "guessing failed: an exception of an unknown kind", testing::HasSubstr("it broke")));
}

TEST_F(VolumeCallsTest, aPosixErrorOfTheVolumesOwnHasNoLogLine) {
    EXPECT_EQ(answered([&] { calls.lookup(root, "missing"); }), ENOENT);
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(VolumeCallsTest, aFailureThatNobodyIsAnsweredWithHasNoLogLine) {
    served.before = [](const std::string&) { fault("odd"); };
    EXPECT_EQ(errnoOf([&] { calls.lookup(root, "a"); }), EIO);
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(VolumeCallsTest, aFaultIsEIOAndIsLoggedOnceHoweverManyOperationsMeetItInOneMoment) {
    served.before = [](const std::string&) { fault("it broke"); };
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(answered([&] { calls.lookup(root, "a"); }), EIO);
    EXPECT_EQ(answered([&] { calls.synchronize(); }), EIO);
    ASSERT_EQ(log.texts().size(), 1U);
    EXPECT_THAT(log.texts().front(), testing::HasSubstr("it broke"));
}

TEST_F(VolumeCallsTest, aCloseThatFailsForOneModeStillClosesTheOther) {
    served.put("/a", "x");
    const auto item = calls.lookup(root, "a").item;
    calls.open(item, fskit::FSVolumeOpenModes::readWrite);
    served.before = refuseOnce("release", posixErrno::ENOSPC_);
    EXPECT_EQ(errnoOf([&] { calls.close(item, fskit::FSVolumeOpenModes::none); }), ENOSPC);
    EXPECT_EQ(served.openHandles(), 0U);
    served.takeRequests();
    calls.close(item, fskit::FSVolumeOpenModes::none);
    EXPECT_THAT(served.takeRequests(), IsEmpty()) << "the volume still held a handle";
}

TEST_F(VolumeCallsTest, aCloseThatFailsForBothModesReportsTheFirstFailure) {
    served.put("/a", "x");
    const auto item = calls.lookup(root, "a").item;
    calls.open(item, fskit::FSVolumeOpenModes::readWrite);
    served.before = [count = 0](const std::string& request) mutable {
        if (request.starts_with("release"))
            foundation::throwPosix(count++ == 0 ? posixErrno::EDQUOT_ : posixErrno::EIO_);
    };
    EXPECT_EQ(errnoOf([&] { calls.close(item, fskit::FSVolumeOpenModes::none); }), EDQUOT);
    EXPECT_EQ(served.openHandles(), 0U);
}

std::vector<std::string> names(const DirectorySnapshot& snapshot) {
    std::vector<std::string> names;
    for (const auto& entry : snapshot.entries())
        names.push_back(entry.name);
    return names;
}

TEST_F(VolumeCallsTest, aSnapshotIsOneRequestForAllEntriesWithTheirAttributes) {
    served.put("/a", "12");
    served.putDirectory("/d");
    const DirectorySnapshot snapshot(calls, root, 5);
    EXPECT_THAT(served.takeRequests(), ElementsAre("readdir /"));
    EXPECT_THAT(names(snapshot), ElementsAre(".", "..", "a", "d"));
    EXPECT_EQ(snapshot.entries()[2].attributes.size(), 2U);
    EXPECT_EQ(snapshot.entries()[2].type, fskit::FSItemType::file);
    EXPECT_EQ(snapshot.entries()[3].type, fskit::FSItemType::directory);
    EXPECT_EQ(snapshot.changeCount(), 5U);
    EXPECT_FALSE(snapshot.leftNamesOut());
    EXPECT_GE(snapshot.age(), std::chrono::nanoseconds(0));
    EXPECT_THAT(log.texts(), IsEmpty());
}

TEST_F(VolumeCallsTest, aSnapshotLeavesOutNamesThatNoKernelAccepts) {
    const std::string longest(255, 'x');
    for (const char* name : {"a", "b", "c", "d", "e", "f", "good"})
        served.put(std::string("/") + name, "");
    served.put("/g" + longest, "");
    served.put("/" + longest, "");
    served.oddNames = {{"/a", ""},    {"/b", "."}, {"/c", ".."},
                       {"/d", "x/y"}, {"/e", "/"}, {"/f", std::string("n\0u", 3)}};
    const DirectorySnapshot snapshot(calls, root, 0);
    EXPECT_THAT(names(snapshot), ElementsAre(".", "..", "good", longest));
    EXPECT_TRUE(snapshot.leftNamesOut());
    ASSERT_EQ(log.texts().size(), 1U);
    EXPECT_THAT(log.texts().front(), testing::HasSubstr("7 entries"));
}

TEST_F(VolumeCallsTest, aSnapshotThatFailsIsAnError) {
    served.before = refuseOnce("readdir /", posixErrno::EACCES_);
    EXPECT_EQ(errnoOf([&] { DirectorySnapshot(calls, root, 0); }), EACCES);
}

} // namespace
} // namespace fusehosttests
