#include "foundation/Base64.h"
#include "foundation/Error.h"
#include "foundation/ISO8601.h"
#include "foundation/PosixErrno.h"
#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/calls/VolumeCalls.h"
#include "support/RecordingLog.h"
#include "support/ScriptedHelper.h"
#include "unit/fusehost/MemoryVolume.h"
#include "unit/fusehost/ServedTree.h"
#include "volume/KemviVolume.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

// The volume that the host's tests stand on against the volume that users get: the same operations on the same tree
// lead to the same requests of the helper and to the same answers.
namespace standintests {
namespace {

namespace posixErrno = foundation::posixErrno;

using fskit::FSItemPtr;
using fskit::FSItemType;
using fusehosttests::refuseOnce;
using fusehosttests::ServedTree;
using Modes = fskit::FSVolumeOpenModes;
using testsupport::ScriptedAnswer;
using testsupport::ScriptedRequest;

const char* codeOf(const foundation::NSError& error) {
    switch (error.code) {
    case posixErrno::ENOENT_: return "ENOENT";
    case posixErrno::EEXIST_: return "EEXIST";
    case posixErrno::EISDIR_: return "EISDIR";
    case posixErrno::ENOTDIR_: return "ENOTDIR";
    case posixErrno::ENOTEMPTY_: return "ENOTEMPTY";
    case posixErrno::EACCES_: return "EACCES";
    default: return "EOTHER";
    }
}

// What a request has the served tree say, as an answer line says it.
ScriptedAnswer answered(const std::function<ScriptedAnswer()>& request) {
    try {
        return request();
    } catch (const foundation::NSErrorException& error) {
        return ScriptedAnswer::failure(codeOf(error.nsError()), "refused");
    }
}

std::string stat(const std::string& path, const ServedTree::Facts& facts) {
    const foundation::Date modified{static_cast<double>(facts.modified)};
    return testsupport::statJSON(path, facts.isDirectory, static_cast<std::int64_t>(facts.size),
                                 foundation::ISO8601DateFormatter().string(modified));
}

std::string flagsOf(const ScriptedRequest& request) {
    std::string words;
    for (const kemvi::JSONValue& flag : *request.members.find("flags")->asArray())
        words += (words.empty() ? "" : ",") + *flag.asString();
    return words;
}

std::vector<std::byte> bytesOf(const ScriptedRequest& request) {
    const std::string text = request.string("dataBase64");
    std::vector<std::byte> bytes(foundation::base64::decodedLength(text).value_or(0));
    EXPECT_TRUE(foundation::base64::decode(text, bytes));
    return bytes;
}

/// A helper that serves a ServedTree to the volume that users get.
class TreeHelper {
public:
    explicit TreeHelper(ServedTree& tree) : tree_(tree) {
        serveNames();
        serveHandles();
    }

    const std::shared_ptr<kemvi::HelperClient>& client() const { return helper_.client(); }

private:
    void on(const std::string& op, std::function<ScriptedAnswer(const ScriptedRequest&)> request) {
        helper_.on(op, [=](const ScriptedRequest& asked) { return answered([&] { return request(asked); }); });
    }

    void serveNames() {
        on("getattr", [this](const ScriptedRequest& asked) {
            return ScriptedAnswer::success(stat(asked.string("path"), tree_.getattr(asked.string("path"))));
        });
        on("readdir", [this](const ScriptedRequest& asked) {
            const std::string path = asked.string("path");
            std::string entries;
            for (const auto& [name, facts] : tree_.readdir(path))
                entries += (entries.empty() ? "" : ",") + stat((path == "/" ? "" : path) + "/" + name, facts);
            return ScriptedAnswer::success("[" + entries + "]");
        });
        on("mkdir", [this](const ScriptedRequest& asked) {
            tree_.mkdir(asked.string("path"));
            return ScriptedAnswer::success();
        });
        on("unlink", [this](const ScriptedRequest& asked) {
            tree_.unlink(asked.string("path"));
            return ScriptedAnswer::success();
        });
        on("rename", [this](const ScriptedRequest& asked) {
            tree_.rename(asked.string("oldPath"), asked.string("newPath"));
            return ScriptedAnswer::success();
        });
        on("chmod", [this](const ScriptedRequest& asked) {
            tree_.chmod(asked.string("path"), static_cast<std::uint32_t>(asked.integer("mode")));
            return ScriptedAnswer::success();
        });
        on("utimes", [this](const ScriptedRequest& asked) {
            const auto time = foundation::ISO8601DateFormatter().date(asked.string("mtime"));
            tree_.utimes(asked.string("path"), time ? time->secondsSince1970 : -1);
            return ScriptedAnswer::success();
        });
        on("statfs", [this](const ScriptedRequest&) {
            tree_.statfs();
            return ScriptedAnswer::success("{}");
        });
    }

    void serveHandles() {
        on("open", [this](const ScriptedRequest& asked) {
            const std::int64_t handle = tree_.open(asked.string("path"), flagsOf(asked));
            return ScriptedAnswer::success("{\"handle\":" + std::to_string(handle) + "}");
        });
        on("read", [this](const ScriptedRequest& asked) {
            std::string bytes(static_cast<std::size_t>(asked.integer("length")), '?');
            bytes.resize(
                tree_.read(asked.integer("handle"), asked.integer("offset"), std::as_writable_bytes(std::span(bytes))));
            return ScriptedAnswer::data(bytes);
        });
        on("write", [this](const ScriptedRequest& asked) {
            tree_.write(asked.integer("handle"), asked.integer("offset"), bytesOf(asked));
            return ScriptedAnswer::success();
        });
        on("flush", [this](const ScriptedRequest& asked) {
            tree_.flush(asked.integer("handle"));
            return ScriptedAnswer::success();
        });
        on("release", [this](const ScriptedRequest& asked) {
            tree_.release(asked.integer("handle"));
            return ScriptedAnswer::success();
        });
    }

    ServedTree& tree_;
    testsupport::ScriptedHelper helper_;
};

/// What one of the two does, step by step.
class Played {
public:
    Played(ServedTree& tree, std::shared_ptr<fskit::FSVolume> volume) : tree_(tree), calls_(std::move(volume)) {
        root = calls_.activate();
        tree_.takeRequests(); // how a volume begins is its own affair
    }

    FSItemPtr root;

    FSItemPtr find(const std::string& name) { return find(root, name); }

    FSItemPtr find(const FSItemPtr& directory, const std::string& name) {
        FSItemPtr item;
        step("lookup " + name, [&] {
            const fusehost::FoundItem found = calls_.lookup(directory, name);
            item = found.item;
            say(found.name + " " + shown(found.attributes));
        });
        return item;
    }

    void show(const FSItemPtr& item) {
        step("show", [&] { say(shown(calls_.getAttributes(item))); });
    }

    void resize(const FSItemPtr& item, std::uint64_t size) {
        step("resize", [&] {
            fskit::FSItemSetAttributesRequest request;
            request.setSize(size);
            say(shown(calls_.setAttributes(item, request)));
        });
    }

    void setMode(const FSItemPtr& item, std::uint32_t mode) {
        step("mode", [&] {
            fskit::FSItemSetAttributesRequest request;
            request.setMode(mode);
            say(shown(calls_.setAttributes(item, request)));
        });
    }

    void setTime(const FSItemPtr& item, timespec time) {
        step("time", [&] {
            fskit::FSItemSetAttributesRequest request;
            request.setModifyTime(time);
            say(shown(calls_.setAttributes(item, request)));
        });
    }

    void setEverything(const FSItemPtr& item) {
        step("everything", [&] {
            fskit::FSItemSetAttributesRequest request;
            request.setModifyTime({5000, 0});
            request.setMode(0100751);
            request.setUid(7);
            request.setGid(7);
            request.setFlags(1);
            request.setSize(3);
            say(shown(calls_.setAttributes(item, request)));
        });
    }

    /// What items tell without asking.
    void compareItems(const FSItemPtr& one, const FSItemPtr& other) {
        step("items", [&] {
            say(one->isSame(*other) ? "same" : "different");
            const auto known = one->knownAttributes();
            say(known ? shown(*known) : "nothing known");
            say(known && known->fileID() == one->identifier() ? "of its own number" : "of another number");
        });
    }

    /// What a directory tells of a member that it was told of by a listing.
    void compareMember(const FSItemPtr& directory, const std::string& name) {
        step("member " + name, [&] {
            const FSItemPtr member = directory->member(name, FSItemType::file, 7);
            say(directory->hasMember(name, member->identifier()) ? "has it" : "has it not");
            say(directory->hasMember(name + "x", member->identifier()) ? "has another" : "has no other");
            say(member->isSame(*calls_.lookup(directory, name).item) ? "same" : "different");
            say(shown(*member->knownAttributes()));
        });
    }

    void open(const FSItemPtr& item, Modes modes) {
        step("open", [&] { calls_.open(item, modes); });
    }

    void close(const FSItemPtr& item, Modes keeping) {
        step("close", [&] { calls_.close(item, keeping); });
    }

    void read(const FSItemPtr& item, std::int64_t offset, std::size_t size) {
        step("read", [&] {
            std::string bytes(size, '.');
            bytes.resize(calls_.read(item, offset, std::as_writable_bytes(std::span(bytes))));
            say(bytes);
        });
    }

    void write(const FSItemPtr& item, std::int64_t offset, const std::string& bytes) {
        step("write", [&] { say(std::to_string(calls_.write(item, offset, std::as_bytes(std::span(bytes))))); });
    }

    void make(const std::string& name, FSItemType type) {
        step("make " + name, [&] { say(shown(calls_.create(root, name, type).attributes)); });
    }

    void remove(const FSItemPtr& item, const std::string& name) {
        step("remove " + name, [&] { calls_.remove(item, root, name); });
    }

    void rename(const FSItemPtr& item, const std::string& name, const FSItemPtr& to, const std::string& newName) {
        step("rename " + name, [&] { calls_.rename(item, root, name, to, newName); });
    }

    void list(const FSItemPtr& directory) {
        step("list", [&] {
            Packer packer;
            calls_.enumerate(directory, packer);
            for (const std::string& entry : packer.entries)
                say(entry);
        });
    }

    void oddities(const FSItemPtr& item) {
        step("link", [&] { calls_.createLink(item, root, "link"); });
        step("symbolic link", [&] { calls_.createSymbolicLink(root, "link", "a"); });
        step("read symbolic link", [&] { say(calls_.readSymbolicLink(item)); });
        step("pipe", [&] { calls_.create(root, "pipe", FSItemType::fifo); });
        step("reclaim", [&] { calls_.reclaim(item); });
    }

    void synchronize() {
        step("synchronize", [&] { calls_.synchronize(); });
    }

    void end() {
        step("end", [&] { calls_.end(); });
        say(std::to_string(tree_.openHandles()) + " handles left");
    }

    ServedTree& tree() { return tree_; }

    /// One line per step, request and result.
    const std::string& said() const { return said_; }

private:
    struct Packer final : fskit::FSDirectoryEntryPacker {
        bool packEntry(const fskit::FSFileName& name, FSItemType type, fskit::FSItemID, fskit::FSDirectoryCookie,
                       const fskit::FSItemAttributes* attributes) override {
            const bool isReal = name.data() != "." && name.data() != "..";
            entries.push_back(name.data() + " " + (isReal && attributes != nullptr ? shown(*attributes) : "-") +
                              (type == FSItemType::directory ? " directory" : ""));
            return true;
        }

        std::vector<std::string> entries;
    };

    static std::string shown(const fskit::FSItemAttributes& attributes) {
        return (attributes.type() == FSItemType::directory ? "directory"
                                                           : "file " + std::to_string(attributes.size())) +
               " links " + std::to_string(attributes.linkCount()) + " at " +
               std::to_string(attributes.modifyTime().tv_sec);
    }

    void say(const std::string& text) { said_ += text + "\n"; }

    template <typename Operation>
    void step(const std::string& name, Operation&& operation) {
        say("-- " + name);
        try {
            operation();
        } catch (const fusehost::KernelError& error) {
            say("error " + std::to_string(error.number()));
        }
        for (const std::string& request : tree_.takeRequests())
            say("asked: " + request);
    }

    ServedTree& tree_;
    fusehost::VolumeCalls calls_;
    std::string said_;
};

class StandIn : public testing::Test {
protected:
    // Fills both trees alike and plays the same with both volumes.
    void compare(const std::function<void(ServedTree&)>& fill, const std::function<void(Played&)>& play) {
        const testsupport::RecordingLog log; // keeps the output clean
        ServedTree ofMemory;
        fill(ofMemory);
        Played memory(ofMemory, std::make_shared<fusehosttests::MemoryVolume>(ofMemory));
        play(memory);
        memory.end();
        ServedTree ofVolume;
        TreeHelper helper(ofVolume);
        fill(ofVolume);
        Played volume(ofVolume,
                      std::make_shared<kemvi::KemviVolume>(fskit::FSVolumeIdentifier(foundation::UUID::random()),
                                                           fskit::FSFileName("Kemvi"), helper.client()));
        play(volume);
        volume.end();
        EXPECT_EQ(memory.said(), volume.said());
    }
};

void twoFiles(ServedTree& tree) {
    tree.put("/a", "0123456789");
    tree.put("/b", "abc");
    tree.putDirectory("/d");
    tree.put("/d/c", "x");
}

TEST_F(StandIn, findsShowsAndLists) {
    compare(twoFiles, [](Played& played) {
        const FSItemPtr directory = played.find("d");
        played.show(played.find("a"));
        played.show(played.find(directory, "c"));
        played.find("absent");
        played.find(played.find("a"), "beneath a file");
        played.list(directory);
        played.list(played.root);
        played.list(played.find("a"));
        played.tree().erase("/d/c");
        played.tree().erase("/d");
        played.show(directory);
        played.list(directory);
    });
}

TEST_F(StandIn, keepsHandlesByPathAndDirection) {
    compare(twoFiles, [](Played& played) {
        const FSItemPtr item = played.find("a");
        played.open(item, Modes::read);
        played.open(played.find("a"), Modes::readWrite);
        played.read(item, 2, 4);
        played.read(item, 100, 4);
        played.write(item, 8, "+++++");
        played.close(item, Modes::write);
        played.read(item, 0, 20);
        played.close(item, Modes::none);
        played.close(item, Modes::none);
        played.write(item, 0, "again");
        played.synchronize();
        played.open(played.find("d"), Modes::read);
        played.read(played.find("d"), 0, 4);
        played.write(played.find("d"), 0, "x");
    });
}

TEST_F(StandIn, resizesByWhatTheItemKnows) {
    for (const std::uint64_t size : {0, 4, 10, 15})
        compare(twoFiles, [&](Played& played) {
            const FSItemPtr item = played.find("a");
            played.open(item, Modes::readWrite);
            played.resize(item, size);
            played.tree().append("/b", "longer than the item knows");
            played.resize(played.find("b"), size);
            played.resize(played.find("d"), size);
            played.setMode(item, 0600);
        });
}

TEST_F(StandIn, failsInTheMiddleOfAResizeAlike) {
    for (const char* request : {"open read", "read", "release", "open write", "write", "flush", "getattr"})
        compare(twoFiles, [&](Played& played) {
            const FSItemPtr item = played.find("a");
            played.tree().before = refuseOnce(request, posixErrno::EACCES_);
            played.resize(item, 4);
            played.tree().before = {};
        });
}

TEST_F(StandIn, readsNoMoreThanOneShortAnswerWhenItResizes) {
    const auto fill = [](ServedTree& tree) {
        twoFiles(tree);
        tree.mostPerRead = 3;
    };
    compare(fill, [](Played& played) {
        const FSItemPtr item = played.find("a");
        played.read(item, 0, 10);
        played.resize(item, 8);
    });
}

TEST_F(StandIn, makesAndEmpties) {
    compare(twoFiles, [](Played& played) {
        played.make("new", FSItemType::file);
        played.make("a", FSItemType::file);
        played.make("e", FSItemType::directory);
        played.make("d", FSItemType::directory);
        played.make("d", FSItemType::file);
        played.oddities(played.find("a"));
    });
}

TEST_F(StandIn, givesBackWhatIsOpenBeforeItRemovesOrRenames) {
    compare(twoFiles, [](Played& played) {
        const FSItemPtr a = played.find("a");
        const FSItemPtr b = played.find("b");
        const FSItemPtr d = played.find("d");
        played.open(a, Modes::readWrite);
        played.open(b, Modes::readWrite);
        played.rename(a, "a", played.root, "b");
        played.read(b, 0, 4);
        played.rename(played.find("b"), "b", d, "e");
        played.rename(played.find("absent") ? d : a, "a", played.root, "f");
        played.remove(d, "d");
        played.make("g", FSItemType::file);
        const FSItemPtr g = played.find("g");
        played.write(g, 0, "x");
        played.remove(g, "g");
        played.remove(g, "g");
    });
}

TEST_F(StandIn, failsToGiveBackAlike) {
    compare(twoFiles, [](Played& played) {
        const FSItemPtr item = played.find("a");
        for (const bool removes : {true, false}) {
            played.open(item, Modes::readWrite);
            played.tree().before = refuseOnce("release", posixErrno::EACCES_);
            if (removes)
                played.remove(item, "a");
            else
                played.rename(item, "a", played.root, "z");
            played.tree().before = {};
        }
        played.open(item, Modes::readWrite);
        played.tree().before = refuseOnce("release", posixErrno::EACCES_);
        played.close(item, Modes::none);
        played.tree().before = {};
    });
}

TEST_F(StandIn, changesTimesAndEverythingAtOnceInOneOrder) {
    compare(twoFiles, [](Played& played) {
        const FSItemPtr item = played.find("a");
        played.setTime(item, {1234, 0});
        played.setTime(item, {4321, 250'000'000});
        played.setTime(played.find("d"), {99, 0});
        played.setEverything(item);
        played.setEverything(played.find("d"));
        played.tree().erase("/a");
        played.setEverything(item);
    });
}

TEST_F(StandIn, failsWhereverTheHelperRefuses) {
    for (const char* request : {"getattr", "readdir", "mkdir", "unlink", "rename", "chmod", "utimes", "open read",
                                "open write", "read", "write", "flush", "release", "statfs"})
        compare(twoFiles, [&](Played& played) {
            const FSItemPtr a = played.find("a");
            const FSItemPtr d = played.find("d");
            const FSItemPtr b = played.find("b");
            played.open(b, Modes::read);
            played.tree().before = fusehosttests::refuseAlways(request, posixErrno::EACCES_);
            played.show(a);
            played.find("b");
            played.list(d);
            played.make("new", FSItemType::file);
            played.make("folder", FSItemType::directory);
            played.open(a, Modes::readWrite);
            played.read(a, 0, 4);
            played.write(a, 0, "x");
            played.setEverything(a);
            played.synchronize();
            played.close(a, Modes::none);
            played.rename(a, "a", d, "a");
            played.remove(b, "b");
            played.tree().before = {};
        });
}

TEST_F(StandIn, takesNoNameThatNoHelperCanBeAskedFor) {
    compare(twoFiles, [](Played& played) {
        played.find("");
        played.find("\xff");
        played.find(played.find("a"), "");
    });
}

TEST_F(StandIn, tellsTheSameOfItemsWithoutAsking) {
    compare(twoFiles, [](Played& played) {
        const FSItemPtr a = played.find("a");
        const FSItemPtr b = played.find("b");
        const FSItemPtr d = played.find("d");
        played.compareItems(a, played.find("a"));
        played.compareItems(a, b);
        played.compareItems(d, played.root);
        played.compareMember(d, "c");
        played.compareMember(played.root, "a");
        played.tree().append("/a", "more");
        played.compareItems(a, played.find("a"));
    });
}

} // namespace
} // namespace standintests
