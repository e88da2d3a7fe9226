#include "suites/volume/VolumeFixture.h"
#include "support/RecordingLog.h"

// Construction, lifecycle, limits, capabilities and figures of a volume.
namespace volumesuite {
namespace {

using testsupport::RecordingLog;

class Lifecycle : public VolumeFixture {};

class ClientlessLifecycle : public ClientlessVolumeFixture {};

RecordingLog::Line info(const std::string& text) {
    return {foundation::LogLevel::info, "com.kemvi.fs.extension", "Volume", text};
}

TEST_F(Lifecycle, activateAnswersTheSameRootItemEveryTime) {
    const ItemAnswer first = volume_->activate();
    const ItemAnswer second = volume_->activate();
    EXPECT_EQ(first.error, success);
    EXPECT_EQ(second.error, success);
    ASSERT_TRUE(first.item);
    EXPECT_EQ(first.item, second.item);
    EXPECT_EQ(volume_->facts(first.item).path(), "/");
    EXPECT_EQ(volume_->facts(first.item).identifier(), fskit::FSItemID::rootDirectory);
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Lifecycle, rootItemIsAnEmptyDirectoryWithoutTime) {
    const kemvi::KemviItem& root = volume_->facts(volume_->activate().item);
    EXPECT_TRUE(root.isDirectory());
    EXPECT_EQ(root.size(), 0);
    EXPECT_FALSE(root.modifiedAt());
}

TEST_F(Lifecycle, mountAsksTheHelperNothing) {
    EXPECT_EQ(volume_->mount(), success);
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Lifecycle, bearsTheNameItWasGiven) {
    EXPECT_EQ(volume_->name(), "Kemvi");
}

TEST_F(Lifecycle, limitsAreFixed) {
    EXPECT_EQ(volume_->maximumLinkCount(), 1);
    EXPECT_EQ(volume_->maximumNameLength(), 255);
    EXPECT_TRUE(volume_->restrictsOwnershipChanges());
    EXPECT_FALSE(volume_->truncatesLongNames());
}

TEST_F(Lifecycle, capabilitiesAreExactlyTheDeclaredOnes) {
    const fskit::FSVolumeSupportedCapabilities declared = volume_->supportedVolumeCapabilities();
    EXPECT_TRUE(declared.supportsPersistentObjectIDs);
    EXPECT_TRUE(declared.supportsFastStatFS);
    EXPECT_TRUE(declared.supports64BitObjectIDs);
    EXPECT_TRUE(declared.supports2TBFiles);
    EXPECT_TRUE(declared.supportsSparseFiles);
    EXPECT_TRUE(declared.doesNotSupportImmutableFiles);
    EXPECT_EQ(static_cast<int>(declared.caseFormat), 2);

    EXPECT_FALSE(declared.doesNotSupportSettingFilePermissions);
    EXPECT_FALSE(declared.supportsSymbolicLinks);
    EXPECT_FALSE(declared.supportsHardLinks);
    EXPECT_FALSE(declared.supportsJournal);
    EXPECT_FALSE(declared.supportsActiveJournal);
    EXPECT_FALSE(declared.doesNotSupportRootTimes);
    EXPECT_FALSE(declared.supportsZeroRuns);
    EXPECT_FALSE(declared.supportsOpenDenyModes);
    EXPECT_FALSE(declared.supportsHiddenFiles);
    EXPECT_FALSE(declared.doesNotSupportVolumeSizes);
    EXPECT_FALSE(declared.supportsDocumentID);
    EXPECT_FALSE(declared.supportsSharedSpace);
    EXPECT_FALSE(declared.supportsVolumeGroups);
}

TEST_F(Lifecycle, statisticsAreFixedAndNotAskedOfTheHelper) {
    helper_.on("statfs", ScriptedAnswer::success(R"({"files":3,"directories":1,"bytes":12})"));
    const fskit::FSStatFSResult figures = volume_->volumeStatistics();
    EXPECT_EQ(figures.fileSystemTypeName, "kemvifs");
    EXPECT_EQ(figures.blockSize, 4096);
    EXPECT_EQ(figures.ioSize, 1048576);
    EXPECT_EQ(figures.totalBlocks, 1073741824U);
    EXPECT_EQ(figures.freeBlocks, 1073741824U);
    EXPECT_EQ(figures.availableBlocks, 1073741824U);
    EXPECT_EQ(figures.usedBlocks, 0U);
    EXPECT_EQ(figures.totalBytes, 4398046511104U);
    EXPECT_EQ(figures.freeBytes, 4398046511104U);
    EXPECT_EQ(figures.availableBytes, 4398046511104U);
    EXPECT_EQ(figures.usedBytes, 0U);
    EXPECT_EQ(figures.totalFiles, 1000000000U);
    EXPECT_EQ(figures.freeFiles, 999999999U);
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Lifecycle, synchronizeWithoutOpenHandlesMakesExactlyOneStatfsExchange) {
    EXPECT_EQ(volume_->synchronize(), success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("statfs"));
}

TEST_F(Lifecycle, synchronizeFlushesEveryWriteHandleBeforeItAsksStatfs) {
    volume_->openItem(file("/a"), fskit::FSVolumeOpenModes::readWrite);
    volume_->openItem(file("/b"), fskit::FSVolumeOpenModes::write);
    helper_.takeRequests();
    EXPECT_EQ(volume_->synchronize(), success);
    std::vector<std::string> sent = helper_.takeSummaries();
    ASSERT_EQ(sent.size(), 3U);
    EXPECT_EQ(sent.back(), "statfs");
    sent.pop_back();
    EXPECT_THAT(sent, UnorderedElementsAre("flush #2", "flush #3")); // 1 is the read handle of /a
}

TEST_F(Lifecycle, synchronizeLeavesHandlesOpen) {
    const Item item = file("/a");
    volume_->write("x", item, 0);
    volume_->synchronize();
    helper_.takeRequests();
    volume_->write("y", item, 1);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("write #1 @1 y"));
}

TEST_F(Lifecycle, synchronizeRepliesTheErrorOfStatfs) {
    helper_.on("statfs", ScriptedAnswer::failure("EACCES", "the disk is gone"));
    EXPECT_EQ(volume_->synchronize(), posix(posixErrno::EACCES_, "the disk is gone"));
}

TEST_F(Lifecycle, synchronizeRepliesAProtocolFaultUnmapped) {
    helper_.on("statfs", ScriptedAnswer::success("[]"));
    EXPECT_EQ(volume_->synchronize(), protocolError());
}

TEST_F(Lifecycle, synchronizeSendsNoStatfsWhenAFlushFails) {
    volume_->openItem(file("/a"), fskit::FSVolumeOpenModes::write);
    helper_.takeRequests();
    helper_.once("flush", ScriptedAnswer::failure("EROFS", "no room to write"));
    EXPECT_EQ(volume_->synchronize(), posix(posixErrno::EROFS_, "no room to write"));
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("flush #1"));
}

TEST_F(Lifecycle, firstFailingFlushEndsTheFlushing) {
    for (const char* path : {"/a", "/b", "/c"})
        volume_->openItem(file(path), fskit::FSVolumeOpenModes::write);
    helper_.takeRequests();
    helper_.once("flush", ScriptedAnswer::success());
    helper_.once("flush", ScriptedAnswer::failure("EIO", "worn out"));
    EXPECT_EQ(volume_->synchronize(), posix(posixErrno::EIO_, "worn out"));
    EXPECT_EQ(helper_.takeRequests().size(), 2U);
}

TEST_F(Lifecycle, deactivateGivesHandlesBackAndThenStopsTheHelper) {
    volume_->openItem(file("/a"), fskit::FSVolumeOpenModes::readWrite);
    helper_.takeRequests();
    EXPECT_EQ(volume_->deactivate(), success);
    helper_.waitUntilEnded();
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #1", "release #2"));
}

TEST_F(Lifecycle, unmountGivesHandlesBackAndThenStopsTheHelper) {
    volume_->openItem(file("/a"), fskit::FSVolumeOpenModes::readWrite);
    helper_.takeRequests();
    volume_->unmount();
    helper_.waitUntilEnded();
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #1", "release #2"));
}

TEST_F(Lifecycle, readHandlesAreGivenBackBeforeWriteHandles) {
    volume_->openItem(file("/a"), fskit::FSVolumeOpenModes::write);
    volume_->openItem(file("/b"), fskit::FSVolumeOpenModes::read);
    helper_.takeRequests();
    volume_->unmount();
    helper_.waitUntilEnded();
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #2", "release #1"));
}

TEST_F(Lifecycle, deactivateFollowedByUnmountBothReplyAndReleaseOnce) {
    volume_->openItem(file("/a"), fskit::FSVolumeOpenModes::read);
    helper_.takeRequests();
    EXPECT_EQ(volume_->deactivate(), success);
    volume_->unmount();
    helper_.waitUntilEnded();
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #1"));
}

TEST_F(Lifecycle, failedReleaseAtTheEndIsLoggedAndTheNextHandleIsStillReleased) {
    volume_->openItem(file("/docs/a.txt"), fskit::FSVolumeOpenModes::readWrite);
    helper_.takeRequests();
    helper_.once("release", ScriptedAnswer::failure("EIO", "lost the file"));
    const RecordingLog log;
    EXPECT_EQ(volume_->deactivate(), success);
    helper_.waitUntilEnded();
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #1", "release #2"));
    const RecordingLog::Line failure{foundation::LogLevel::error, "com.kemvi.fs.extension", "Volume",
                                     "failed to release helper handle for /docs/a.txt: lost the file"};
    EXPECT_THAT(log.lines(), ElementsAre(info("deactivate"), failure));
}

TEST_F(Lifecycle, protocolFaultOfAReleaseAtTheEndIsLoggedWithItsText) {
    volume_->openItem(file("/a"), fskit::FSVolumeOpenModes::read);
    helper_.once("release", ScriptedAnswer::hangUp());
    const RecordingLog log;
    volume_->unmount();
    EXPECT_THAT(log.texts(), ElementsAre("unmount", "failed to release helper handle for /a: helper closed stdout"));
}

TEST_F(Lifecycle, endingWithoutOpenHandlesAsksAndLogsNothingMore) {
    const RecordingLog log;
    volume_->deactivate();
    volume_->unmount();
    helper_.waitUntilEnded();
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
    EXPECT_THAT(log.lines(), ElementsAre(info("deactivate"), info("unmount")));
}

TEST_F(Lifecycle, everyStepIsLoggedByItsName) {
    const RecordingLog log;
    const std::unique_ptr<VolumeUnderTest> other = makeVolumeUnderTest(nullptr);
    volume_->mount();
    volume_->activate();
    volume_->synchronize();
    volume_->deactivate();
    volume_->unmount();
    EXPECT_THAT(log.lines(), ElementsAre(info("KemviVolume init"), info("mount"), info("activate"), info("synchronize"),
                                         info("deactivate"), info("unmount")));
}

TEST_F(Lifecycle, operationsAfterTheStopFailAsTheStoppedHelperDoes) {
    volume_->unmount();
    EXPECT_EQ(volume_->lookupItem("a", root()).error, protocolError());
    EXPECT_EQ(volume_->synchronize(), protocolError());
    EXPECT_EQ(volume_->openItem(file("/a"), fskit::FSVolumeOpenModes::read), protocolError());
}

TEST_F(Lifecycle, destroyingTheVolumeNeitherReleasesHandlesNorStopsTheHelper) {
    volume_->openItem(file("/a"), fskit::FSVolumeOpenModes::read);
    helper_.takeRequests();
    volume_.reset();
    helper_.client()->ping(); // still answers, and nothing came before this
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("ping"));
}

TEST_F(ClientlessLifecycle, mountsActivatesAndEnds) {
    EXPECT_EQ(volume_->mount(), success);
    const ItemAnswer root = volume_->activate();
    EXPECT_EQ(root.error, success);
    EXPECT_EQ(volume_->facts(root.item).path(), "/");
    EXPECT_EQ(volume_->deactivate(), success);
    volume_->unmount();
}

TEST_F(ClientlessLifecycle, synchronizesBecauseThereIsNothingToFlush) {
    EXPECT_EQ(volume_->synchronize(), success);
}

} // namespace
} // namespace volumesuite
