#include "suites/volume/VolumeFixture.h"

#include <sys/stat.h>

// Creating, removing, renaming, resizing and other changes of attributes.
namespace volumesuite {
namespace {

using Attribute = fskit::FSItemAttribute;
using Modes = fskit::FSVolumeOpenModes;
using Request = fskit::FSItemSetAttributesRequest;
using Type = fskit::FSItemType;

const std::string zeroByte(1, '\0');

class SettingAttributes : public VolumeFixture {};

class Resizing : public VolumeFixture {
protected:
    void SetUp() override { helper_.addStat("/a", false, 0); }

    AttributesAnswer resize(const Item& item, std::uint64_t size) {
        Request request;
        request.setSize(size);
        AttributesAnswer answer = volume_->setAttributes(request, item);
        consumed_ = request.consumedAttributes();
        return answer;
    }

    Attribute consumed_ = Attribute::none;
};

class Creating : public VolumeFixture {
protected:
    ItemAnswer create(std::string_view name, Type type, const Item& parent) {
        return volume_->createItem(name, type, parent, attributes_);
    }

    Request attributes_;
};

class Removing : public VolumeFixture {
protected:
    Error remove(const Item& item) { return volume_->removeItem(item, "ignored", nullptr); }
};

class Renaming : public VolumeFixture {
protected:
    NameAnswer rename(const Item& item, std::string_view name, const Item& destination, const Item& over = nullptr) {
        return volume_->renameItem(item, nullptr, "ignored", name, destination, over);
    }
};

class Linking : public VolumeFixture {};

class ClientlessNamespace : public ClientlessVolumeFixture {};

TEST_F(Resizing, toLessReadsWhatStaysAndWritesItBackAfterEmptying) {
    helper_.on("read", ScriptedAnswer::data("0123"));
    const AttributesAnswer answer = resize(file("/a", 10), 4);
    EXPECT_EQ(answer.error, success);
    EXPECT_THAT(helper_.takeSummaries(),
                ElementsAre("open /a read", "read #1 @0 +4", "release #1", "open /a write,create,truncate",
                            "write #2 @0 0123", "flush #2", "release #2", "getattr /a"));
    EXPECT_EQ(consumed_, Attribute::size);
}

TEST_F(Resizing, toMoreWritesBackTheWholeFileAndOneZeroByteAtTheEnd) {
    helper_.on("read", ScriptedAnswer::data("0123456789"));
    EXPECT_EQ(resize(file("/a", 10), 20).error, success);
    EXPECT_THAT(helper_.takeSummaries(),
                ElementsAre("open /a read", "read #1 @0 +10", "release #1", "open /a write,create,truncate",
                            "write #2 @0 0123456789", "write #2 @19 " + zeroByte, "flush #2", "release #2",
                            "getattr /a"));
}

TEST_F(Resizing, toTheSameSizeRewritesTheFile) {
    helper_.on("read", ScriptedAnswer::data("0123456789"));
    EXPECT_EQ(resize(file("/a", 10), 10).error, success);
    EXPECT_THAT(helper_.takeSummaries(),
                ElementsAre("open /a read", "read #1 @0 +10", "release #1", "open /a write,create,truncate",
                            "write #2 @0 0123456789", "flush #2", "release #2", "getattr /a"));
}

TEST_F(Resizing, toNothingReadsAndWritesNothing) {
    EXPECT_EQ(resize(file("/a", 10), 0).error, success);
    EXPECT_THAT(helper_.takeSummaries(),
                ElementsAre("open /a write,create,truncate", "flush #1", "release #1", "getattr /a"));
}

TEST_F(Resizing, ofAFileThatTheItemTakesForEmptyKeepsNothing) {
    EXPECT_EQ(resize(file("/a", 0), 5).error, success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a write,create,truncate", "write #1 @4 " + zeroByte,
                                                     "flush #1", "release #1", "getattr /a"));
}

TEST_F(Resizing, takesTheLargestSizeThatIsASignedCount) {
    EXPECT_EQ(resize(file("/a", 0), 9223372036854775807U).error, success);
    EXPECT_EQ(helper_.takeSummaries().size(), 5U); // open, write of the last byte, flush, release, getattr
}

TEST_F(Resizing, ofAnItemOfNegativeSizeKeepsNothing) {
    EXPECT_EQ(resize(file("/a", -1), 1).error, success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a write,create,truncate", "write #1 @0 " + zeroByte,
                                                     "flush #1", "release #1", "getattr /a"));
}

TEST_F(Resizing, keepsNoMoreThanTheItemsOwnSizeEvenIfTheFileGrew) {
    helper_.addStat("/a", false, 1000);
    helper_.on("read", ScriptedAnswer::data("0123456789"));
    resize(file("/a", 10), 500);
    const std::vector<std::string> sent = helper_.takeSummaries();
    ASSERT_GE(sent.size(), 2U);
    EXPECT_EQ(sent[1], "read #1 @0 +10");
}

TEST_F(Resizing, afterAShortReadExtendsFromWhatCame) {
    helper_.on("read", ScriptedAnswer::data("01"));
    EXPECT_EQ(resize(file("/a", 10), 4).error, success);
    EXPECT_THAT(helper_.takeSummaries(),
                ElementsAre("open /a read", "read #1 @0 +4", "release #1", "open /a write,create,truncate",
                            "write #2 @0 01", "write #2 @3 " + zeroByte, "flush #2", "release #2", "getattr /a"));
}

TEST_F(Resizing, writesBackWhateverTheReadGave) {
    helper_.on("read", ScriptedAnswer::data("0123456"));
    EXPECT_EQ(resize(file("/a", 10), 4).error, success);
    EXPECT_THAT(helper_.takeSummaries(),
                ElementsAre("open /a read", "read #1 @0 +4", "release #1", "open /a write,create,truncate",
                            "write #2 @0 0123456", "flush #2", "release #2", "getattr /a"));
}

TEST_F(Resizing, givesTheItemsOpenHandlesBackFirst) {
    const Item item = file("/a", 0);
    volume_->openItem(item, Modes::readWrite);
    helper_.takeRequests();
    EXPECT_EQ(resize(item, 0).error, success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #1", "release #2", "open /a write,create,truncate",
                                                     "flush #3", "release #3", "getattr /a"));
}

TEST_F(Resizing, stopsWhereAHandleCannotBeGivenBack) {
    const Item item = file("/a", 10);
    volume_->openItem(item, Modes::readWrite);
    helper_.takeRequests();
    helper_.once("release", ScriptedAnswer::failure("EIO", "stuck"));
    EXPECT_EQ(resize(item, 4).error, posix(posixErrno::EIO_, "stuck"));
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #1"));
    EXPECT_EQ(consumed_, Attribute::none);
    volume_->write("x", item, 0); // the write handle was not reached
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("write #2 @0 x"));
}

TEST_F(Resizing, whoseReadFailsGivesTheHandleBackAndTouchesNothing) {
    helper_.once("read", ScriptedAnswer::failure("EIO", "scratched"));
    EXPECT_EQ(resize(file("/a", 10), 4).error, posix(posixErrno::EIO_, "scratched"));
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a read", "read #1 @0 +4", "release #1"));
}

TEST_F(Resizing, repliesTheReadsErrorEvenIfTheReleaseFailsToo) {
    helper_.once("read", ScriptedAnswer::failure("EACCES", "scratched"));
    helper_.once("release", ScriptedAnswer::failure("EIO", "stuck"));
    EXPECT_EQ(resize(file("/a", 10), 4).error, posix(posixErrno::EACCES_, "scratched"));
}

TEST_F(Resizing, goesOnWhenGivingBackTheReadHandleFails) {
    helper_.on("read", ScriptedAnswer::data("0123"));
    helper_.once("release", ScriptedAnswer::failure("EIO", "stuck"));
    EXPECT_EQ(resize(file("/a", 10), 4).error, success);
    EXPECT_EQ(helper_.takeSummaries().back(), "getattr /a");
}

TEST_F(Resizing, whoseWriteFailsGivesTheHandleBackWithoutFlushing) {
    helper_.on("read", ScriptedAnswer::data("0123"));
    helper_.once("write", ScriptedAnswer::failure("EIO", "full"));
    EXPECT_EQ(resize(file("/a", 10), 4).error, posix(posixErrno::EIO_, "full"));
    EXPECT_THAT(helper_.takeSummaries(),
                ElementsAre("open /a read", "read #1 @0 +4", "release #1", "open /a write,create,truncate",
                            "write #2 @0 0123", "release #2"));
}

TEST_F(Resizing, whoseZeroByteFailsRepliesThatError) {
    helper_.once("write", ScriptedAnswer::failure("EIO", "full"));
    EXPECT_EQ(resize(file("/a", 0), 4).error, posix(posixErrno::EIO_, "full"));
    EXPECT_THAT(helper_.takeSummaries(),
                ElementsAre("open /a write,create,truncate", "write #1 @3 " + zeroByte, "release #1"));
}

TEST_F(Resizing, whoseFlushFailsGivesTheHandleBackAndRepliesTheFlushsError) {
    helper_.once("flush", ScriptedAnswer::failure("EROFS", "dry"));
    helper_.once("release", ScriptedAnswer::failure("EIO", "stuck"));
    EXPECT_EQ(resize(file("/a", 10), 0).error, posix(posixErrno::EROFS_, "dry"));
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a write,create,truncate", "flush #1", "release #1"));
    EXPECT_EQ(consumed_, Attribute::none);
}

TEST_F(Resizing, succeedsWhenTheLastReleaseFailsAfterTheFlush) {
    helper_.once("release", ScriptedAnswer::failure("EIO", "stuck"));
    EXPECT_EQ(resize(file("/a", 10), 0).error, success);
    EXPECT_EQ(consumed_, Attribute::size);
}

TEST_F(Resizing, whoseTruncatingOpenFailsRepliesThatError) {
    helper_.once("open", ScriptedAnswer::failure("EPERM", "sealed"));
    EXPECT_EQ(resize(file("/a", 10), 0).error, posix(posixErrno::EPERM_, "sealed"));
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a write,create,truncate"));
}

TEST_F(Resizing, leavesNoHandleInTheTables) {
    const Item item = file("/a", 0);
    resize(item, 5);
    helper_.takeRequests();
    EXPECT_EQ(volume_->closeItem(item, Modes::none), success);
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Resizing, ofADirectoryIsSkippedAndLeftUnconsumedWithFreshAttributes) {
    helper_.addStat("/d", true, 64);
    const AttributesAnswer answer = resize(directory("/d"), 9);
    EXPECT_EQ(answer.error, success);
    ASSERT_TRUE(answer.attributes);
    EXPECT_EQ(answer.attributes->size(), 64U);
    EXPECT_EQ(consumed_, Attribute::none);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("getattr /d"));
}

TEST_F(SettingAttributes, repliesFreshOnesOfThePathTheHelperReports) {
    helper_.on("getattr", ScriptedAnswer::success(testsupport::statJSON("/a/b", false, 42)));
    Request request;
    const AttributesAnswer answer = volume_->setAttributes(request, file("/x"));
    EXPECT_EQ(answer.error, success);
    ASSERT_TRUE(answer.attributes);
    EXPECT_EQ(answer.attributes->size(), 42U);
    EXPECT_EQ(static_cast<std::uint64_t>(answer.attributes->fileID()), 3908606180096663756U);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("getattr /x"));
}

TEST_F(SettingAttributes, sendsTheModesPermissionBitsOnly) {
    helper_.addStat("/a", false, 0);
    Request request;
    request.setMode(S_IFREG | 0755);
    EXPECT_EQ(volume_->setAttributes(request, file("/a")).error, success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("chmod /a 0755", "getattr /a"));
    EXPECT_EQ(request.consumedAttributes(), Attribute::mode);
}

TEST_F(SettingAttributes, sendsSetIdAndStickyBits) {
    helper_.addStat("/a", true, 0);
    Request request;
    request.setMode(0177777);
    volume_->setAttributes(request, directory("/a"));
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("chmod /a 07777", "getattr /a"));
}

TEST_F(SettingAttributes, sendsTheModificationTimeWithItsFraction) {
    helper_.addStat("/a", false, 0);
    Request request;
    request.setModifyTime({5, 500'000'000});
    EXPECT_EQ(volume_->setAttributes(request, file("/a")).error, success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("utimes /a 1970-01-01T00:00:05.500Z", "getattr /a"));
    EXPECT_EQ(request.consumedAttributes(), Attribute::modifyTime);
}

TEST_F(SettingAttributes, appliesSizeThenModeThenTime) {
    helper_.addStat("/a", false, 0);
    Request request;
    request.setModifyTime({1, 0});
    request.setMode(0600);
    request.setSize(0);
    EXPECT_EQ(volume_->setAttributes(request, file("/a")).error, success);
    EXPECT_THAT(helper_.takeSummaries(),
                ElementsAre("open /a write,create,truncate", "flush #1", "release #1", "chmod /a 0600",
                            "utimes /a 1970-01-01T00:00:01.000Z", "getattr /a"));
    EXPECT_EQ(request.consumedAttributes(), Attribute::size | Attribute::mode | Attribute::modifyTime);
}

TEST_F(SettingAttributes, appliesNoOthersAndLeavesThemUnconsumed) {
    helper_.addStat("/a", false, 0);
    Request request;
    request.setUid(1);
    request.setGid(1);
    request.setFlags(1);
    request.setType(Type::file);
    request.setAllocSize(4096);
    for (const auto setTime : {&Request::setAccessTime, &Request::setChangeTime, &Request::setBirthTime,
                               &Request::setBackupTime, &Request::setAddedTime})
        (request.*setTime)({9, 9});
    EXPECT_EQ(volume_->setAttributes(request, file("/a")).error, success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("getattr /a"));
    EXPECT_EQ(request.consumedAttributes(), Attribute::none);
}

TEST_F(SettingAttributes, stopsAtTheFirstErrorAndKeepsWhatWasDone) {
    helper_.on("utimes", ScriptedAnswer::failure("EPERM", "time stands still"));
    Request request;
    request.setMode(0600);
    request.setModifyTime({1, 0});
    const AttributesAnswer answer = volume_->setAttributes(request, file("/a"));
    EXPECT_EQ(answer.error, posix(posixErrno::EPERM_, "time stands still"));
    EXPECT_FALSE(answer.attributes);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("chmod /a 0600", "utimes /a 1970-01-01T00:00:01.000Z"));
    EXPECT_EQ(request.consumedAttributes(), Attribute::mode);
}

TEST_F(SettingAttributes, doesNotSendTheTimeAfterAFailedMode) {
    helper_.on("chmod", ScriptedAnswer::failure("EPERM", "no"));
    Request request;
    request.setMode(0600);
    request.setModifyTime({1, 0});
    EXPECT_EQ(volume_->setAttributes(request, file("/a")).error, posix(posixErrno::EPERM_, "no"));
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("chmod /a 0600"));
    EXPECT_EQ(request.consumedAttributes(), Attribute::none);
}

TEST_F(SettingAttributes, addsToWhatWasConsumedBefore) {
    helper_.addStat("/a", false, 0);
    Request request;
    request.setMode(0600);
    request.setConsumedAttributes(Attribute::uid);
    volume_->setAttributes(request, file("/a"));
    EXPECT_EQ(request.consumedAttributes(), Attribute::uid | Attribute::mode);
}

TEST_F(SettingAttributes, repliesTheErrorOfTheLastQuestionWithEverythingConsumed) {
    Request request;
    request.setMode(0600);
    EXPECT_EQ(volume_->setAttributes(request, file("/gone")).error, posix(posixErrno::ENOENT_, "no such file"));
    EXPECT_EQ(request.consumedAttributes(), Attribute::mode);
}

TEST_F(SettingAttributes, ofAForeignItemIsInvalid) {
    Request request;
    EXPECT_EQ(volume_->setAttributes(request, volume_->makeForeignItem()).error, posix(posixErrno::EINVAL_));
}

TEST_F(Creating, aFileOpensItEmptyAndGivesTheHandleBackAtOnce) {
    helper_.addStat("/a/b", false, 0, "1970-01-01T00:00:02.000Z");
    const ItemAnswer made = create("b", Type::file, directory("/a"));
    EXPECT_EQ(made.error, success);
    EXPECT_EQ(made.name, "b");
    EXPECT_EQ(volume_->facts(made.item).path(), "/a/b");
    EXPECT_FALSE(volume_->facts(made.item).isDirectory());
    EXPECT_EQ(volume_->facts(made.item).modifiedAt(), foundation::Date{2.0});
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a/b write,create,truncate", "release #1", "getattr /a/b"));
}

TEST_F(Creating, anExistingFileEmptiesItWithoutAsking) {
    helper_.addStat("/a", false, 99);
    EXPECT_EQ(create("a", Type::file, root()).error, success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a write,create,truncate", "release #1", "getattr /a"));
}

TEST_F(Creating, aDirectoryMakesIt) {
    helper_.addStat("/d", true, 0);
    const ItemAnswer made = create("d", Type::directory, root());
    EXPECT_EQ(made.error, success);
    EXPECT_TRUE(volume_->facts(made.item).isDirectory());
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("mkdir /d", "getattr /d"));
}

TEST_F(Creating, repliesPathAndNameAsTheHelperReportsThem) {
    helper_.on("getattr", ScriptedAnswer::success(R"({"path":"/D/New","name":"Renamed"})"));
    const ItemAnswer made = create("new", Type::file, directory("/d"));
    EXPECT_EQ(made.name, "Renamed");
    EXPECT_EQ(volume_->facts(made.item).path(), "/D/New");
}

TEST_F(Creating, ignoresTheAttributesAskedFor) {
    helper_.addStat("/a", false, 0);
    attributes_.setMode(0700);
    attributes_.setSize(100);
    attributes_.setModifyTime({5, 0});
    EXPECT_EQ(create("a", Type::file, root()).error, success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a write,create,truncate", "release #1", "getattr /a"));
    EXPECT_EQ(attributes_.consumedAttributes(), Attribute::none);
}

TEST_F(Creating, otherTypesAreNotSupported) {
    for (const Type type :
         {Type::unknown, Type::symlink, Type::fifo, Type::charDevice, Type::blockDevice, Type::socket})
        EXPECT_EQ(create("a", type, root()).error, posix(posixErrno::ENOTSUP_));
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Creating, needsAProperName) {
    for (const std::string_view name : {"", ".", "..", "caf\xE9"}) {
        EXPECT_EQ(create(name, Type::file, root()).error, posix(posixErrno::EINVAL_));
        EXPECT_EQ(create(name, Type::symlink, root()).error, posix(posixErrno::EINVAL_));
    }
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Creating, inAFileIsNotADirectory) {
    EXPECT_EQ(create("b", Type::file, file("/a")).error, posix(posixErrno::ENOTDIR_));
    EXPECT_EQ(create("", Type::file, file("/a")).error, posix(posixErrno::ENOTDIR_));
    EXPECT_EQ(create("b", Type::file, volume_->makeForeignItem()).error, posix(posixErrno::ENOTDIR_));
}

TEST_F(Creating, repliesTheErrorOfTheOpen) {
    helper_.once("open", ScriptedAnswer::failure("EACCES", "not yours"));
    const ItemAnswer made = create("a", Type::file, root());
    EXPECT_EQ(made.error, posix(posixErrno::EACCES_, "not yours"));
    EXPECT_FALSE(made.item);
    EXPECT_FALSE(made.name);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a write,create,truncate"));
}

TEST_F(Creating, repliesTheErrorOfTheRelease) {
    helper_.once("release", ScriptedAnswer::failure("EIO", "stuck"));
    EXPECT_EQ(create("a", Type::file, root()).error, posix(posixErrno::EIO_, "stuck"));
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("open /a write,create,truncate", "release #1"));
}

TEST_F(Creating, repliesTheErrorOfMakingADirectory) {
    helper_.once("mkdir", ScriptedAnswer::failure("EEXIST", "already there"));
    EXPECT_EQ(create("d", Type::directory, root()).error, posix(posixErrno::EEXIST_, "already there"));
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("mkdir /d"));
}

TEST_F(Creating, repliesTheErrorOfTheLastQuestion) {
    EXPECT_EQ(create("a", Type::file, root()).error, posix(posixErrno::ENOENT_, "no such file"));
}

TEST_F(Removing, sendsTheItemsOwnPathForFilesAndDirectoriesAlike) {
    EXPECT_EQ(remove(file("/a/b")), success);
    EXPECT_EQ(remove(directory("/d")), success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("unlink /a/b", "unlink /d"));
}

TEST_F(Removing, anOpenItemGivesItsHandlesBackFirst) {
    const Item item = file("/a");
    volume_->openItem(item, Modes::readWrite);
    helper_.takeRequests();
    EXPECT_EQ(remove(item), success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #1", "release #2", "unlink /a"));
}

TEST_F(Removing, doesNotRemoveWhenAHandleCannotBeGivenBack) {
    const Item item = file("/a");
    volume_->openItem(item, Modes::readWrite);
    helper_.takeRequests();
    helper_.once("release", ScriptedAnswer::success());
    helper_.once("release", ScriptedAnswer::failure("EIO", "stuck"));
    EXPECT_EQ(remove(item), posix(posixErrno::EIO_, "stuck"));
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #1", "release #2"));
    EXPECT_EQ(remove(item), success); // both handles are gone, so it goes through now
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("unlink /a"));
}

TEST_F(Removing, repliesTheHelpersError) {
    helper_.once("unlink", ScriptedAnswer::failure("ENOTEMPTY", "full of things"));
    EXPECT_EQ(remove(directory("/d")), posix(posixErrno::ENOTEMPTY_, "full of things"));
}

TEST_F(Removing, aForeignItemIsInvalid) {
    EXPECT_EQ(remove(volume_->makeForeignItem()), posix(posixErrno::EINVAL_));
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Renaming, sendsOldAndNewPathAndRepliesTheNameItWasGiven) {
    const NameAnswer answer = rename(file("/a/b"), "c", directory("/d"));
    EXPECT_EQ(answer.error, success);
    EXPECT_EQ(answer.name, "c");
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("rename /a/b /d/c"));
}

TEST_F(Renaming, intoTheRootJoinsWithASingleSlash) {
    rename(directory("/a"), "b", root());
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("rename /a /b"));
}

TEST_F(Renaming, leavesTheItemAtItsOldPath) {
    const Item item = file("/a");
    rename(item, "b", root());
    EXPECT_EQ(volume_->facts(item).path(), "/a");
}

TEST_F(Renaming, anOpenItemGivesItsHandlesBackFirst) {
    const Item item = file("/a");
    volume_->openItem(item, Modes::readWrite);
    helper_.takeRequests();
    EXPECT_EQ(rename(item, "b", root()).error, success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #1", "release #2", "rename /a /b"));
}

TEST_F(Renaming, overAnItemReleasesUnlinksAndThenRenames) {
    const Item item = file("/a");
    const Item over = file("/b");
    volume_->openItem(item, Modes::read);
    volume_->openItem(over, Modes::write);
    helper_.takeRequests();
    const NameAnswer answer = rename(item, "b", root(), over);
    EXPECT_EQ(answer.error, success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #1", "release #2", "unlink /b", "rename /a /b"));
}

TEST_F(Renaming, overAForeignItemIgnoresIt) {
    EXPECT_EQ(rename(file("/a"), "b", root(), volume_->makeForeignItem()).error, success);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("rename /a /b"));
}

TEST_F(Renaming, thatFailsLeavesTheReplacedItemRemoved) {
    helper_.once("rename", ScriptedAnswer::failure("EACCES", "no"));
    const NameAnswer answer = rename(file("/a"), "b", root(), file("/b"));
    EXPECT_EQ(answer.error, posix(posixErrno::EACCES_, "no"));
    EXPECT_FALSE(answer.name);
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("unlink /b", "rename /a /b"));
}

TEST_F(Renaming, isNotTriedWhenTheReplacedItemCannotBeRemoved) {
    helper_.once("unlink", ScriptedAnswer::failure("ENOTEMPTY", "full of things"));
    EXPECT_EQ(rename(directory("/a"), "b", root(), directory("/b")).error,
              posix(posixErrno::ENOTEMPTY_, "full of things"));
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("unlink /b"));
}

TEST_F(Renaming, stopsWhenAHandleOfTheMovedItemCannotBeGivenBack) {
    const Item item = file("/a");
    volume_->openItem(item, Modes::read);
    helper_.takeRequests();
    helper_.once("release", ScriptedAnswer::failure("EIO", "stuck"));
    EXPECT_EQ(rename(item, "b", root(), file("/b")).error, posix(posixErrno::EIO_, "stuck"));
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #1"));
}

TEST_F(Renaming, stopsWhenAHandleOfTheReplacedItemCannotBeGivenBack) {
    const Item over = file("/b");
    volume_->openItem(over, Modes::read);
    helper_.takeRequests();
    helper_.once("release", ScriptedAnswer::failure("EIO", "stuck"));
    EXPECT_EQ(rename(file("/a"), "b", root(), over).error, posix(posixErrno::EIO_, "stuck"));
    EXPECT_THAT(helper_.takeSummaries(), ElementsAre("release #1"));
}

TEST_F(Renaming, needsAProperName) {
    for (const std::string_view name : {"", ".", "..", "caf\xE9"})
        EXPECT_EQ(rename(file("/a"), name, root()).error, posix(posixErrno::EINVAL_));
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Renaming, intoAFileOrAForeignItemIsInvalid) {
    EXPECT_EQ(rename(file("/a"), "b", file("/f")).error, posix(posixErrno::EINVAL_));
    EXPECT_EQ(rename(file("/a"), "b", volume_->makeForeignItem()).error, posix(posixErrno::EINVAL_));
    EXPECT_EQ(rename(volume_->makeForeignItem(), "b", root()).error, posix(posixErrno::EINVAL_));
}

TEST_F(Renaming, givesHandlesBackOnlyAfterTheNameWasFoundProper) {
    const Item item = file("/a");
    volume_->openItem(item, Modes::read);
    helper_.takeRequests();
    rename(item, "..", root());
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(Linking, isNotSupportedAndTouchesNothing) {
    const ItemAnswer symbolic = volume_->createSymbolicLink("l", root(), "/a");
    EXPECT_EQ(symbolic.error, posix(posixErrno::ENOTSUP_));
    EXPECT_FALSE(symbolic.item);
    const NameAnswer hard = volume_->createLink(file("/a"), "l", root());
    EXPECT_EQ(hard.error, posix(posixErrno::ENOTSUP_));
    EXPECT_FALSE(hard.name);
    EXPECT_THAT(helper_.takeSummaries(), IsEmpty());
}

TEST_F(ClientlessNamespace, changesAreNoSuchDevice) {
    Request request;
    EXPECT_EQ(volume_->setAttributes(request, file("/a")).error, posix(posixErrno::ENXIO_));
    EXPECT_EQ(volume_->setAttributes(request, directory("/a")).error, posix(posixErrno::ENXIO_));
    EXPECT_EQ(volume_->createItem("a", Type::file, directory("/"), request).error, posix(posixErrno::ENXIO_));
    EXPECT_EQ(volume_->createItem("a", Type::directory, directory("/"), request).error, posix(posixErrno::ENXIO_));
    EXPECT_EQ(volume_->removeItem(file("/a"), "a", directory("/")), posix(posixErrno::ENXIO_));
    const Item root = directory("/");
    EXPECT_EQ(volume_->renameItem(file("/a"), root, "a", "b", root, nullptr).error, posix(posixErrno::ENXIO_));
    EXPECT_EQ(volume_->renameItem(file("/a"), root, "a", "b", root, file("/b")).error, posix(posixErrno::ENXIO_));
}

TEST_F(ClientlessNamespace, argumentsAreStillChecked) {
    Request request;
    const Item root = directory("/");
    EXPECT_EQ(volume_->setAttributes(request, volume_->makeForeignItem()).error, posix(posixErrno::EINVAL_));
    EXPECT_EQ(volume_->createItem("a", Type::symlink, root, request).error, posix(posixErrno::ENOTSUP_));
    EXPECT_EQ(volume_->createItem("..", Type::file, root, request).error, posix(posixErrno::EINVAL_));
    EXPECT_EQ(volume_->removeItem(volume_->makeForeignItem(), "a", root), posix(posixErrno::EINVAL_));
    EXPECT_EQ(volume_->renameItem(file("/a"), root, "a", "", root, nullptr).error, posix(posixErrno::EINVAL_));
    EXPECT_EQ(volume_->createSymbolicLink("l", root, "x").error, posix(posixErrno::ENOTSUP_));
    EXPECT_EQ(volume_->createLink(file("/a"), "l", root).error, posix(posixErrno::ENOTSUP_));
}

} // namespace
} // namespace volumesuite
