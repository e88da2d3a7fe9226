#include "SessionTest.h"

#include "hosts/fuse/VolumeRenewal.h"
#include "hosts/fuse/support/EventDescriptor.h"

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <thread>

namespace fusehosttests {
namespace {

using namespace std::chrono_literals;
using fusehost::KernelCaches;
using fusehost::OnDeath;
using std::chrono::milliseconds;

/// Tells what it was told, and decides as the test says.
class PlayedSupervision final : public fusehost::Supervision {
public:
    bool isEnd(const foundation::ErrorOrigin& origin) noexcept override { return isGone(origin); }

    bool hasEnded() const noexcept override { return ended; }

    void leaving() noexcept override {
        told.emplace_back("leaving");
        isLeaving_ = true;
    }

    bool settle() noexcept override {
        told.emplace_back("settle");
        ended = false;
        return std::exchange(isLeaving_, false);
    }

    std::optional<milliseconds> pause() noexcept override {
        told.emplace_back("pause");
        if (pauses.empty())
            return std::nullopt;
        const milliseconds pause = pauses.front();
        pauses.pop_front();
        return pause;
    }

    void loadFailed(const foundation::NSError& error) noexcept override { told.push_back(error.description()); }

    void renewed() noexcept override { told.emplace_back("renewed"); }

    void gaveUp() noexcept override { told.emplace_back("gave up"); }

    void failedAtLast() noexcept override { told.emplace_back("failed at last"); }

    std::vector<std::string> told;
    std::deque<milliseconds> pauses;
    std::atomic<bool> ended = false;

private:
    bool isLeaving_ = false;
};

/// A session whose volume ends, and is renewed. The volumes are of one served tree.
class VolumeRenewals : public SessionTest {
protected:
    void SetUp() override {
        options.onDeath = OnDeath::restart;
        endTest = isGone;
    }

    fusehost::VolumeRenewal& renewal() {
        if (!renewal_)
            renewal_ = std::make_unique<fusehost::VolumeRenewal>(
                calls(), tree(),
                fusehost::VolumeRenewal::Source{[this] { return load(); }, [this] { ++unloads; }, [this] { ++drops; }},
                supervision, options, stopMount);
        return *renewal_;
    }

    std::shared_ptr<fskit::FSVolume> load() {
        ++loads;
        if (failures-- > 0)
            throw foundation::NSErrorException(foundation::NSError{"protocol", 1, std::nullopt, "no such helper"});
        served.loseHandles();
        served.before = {};
        supervision.ended = false;
        return volume = std::make_shared<MemoryVolume>(served);
    }

    /// From now on requests fail as those of a helper that has died, beginning with the first that starts so.
    void dieAt(const std::string& request) {
        served.before = [request, isDead = false](const std::string& asked) mutable {
            isDead = isDead || asked.starts_with(request);
            if (isDead)
                throwGone();
        };
    }

    /// As requests are carried out.
    template <typename Operation>
    int carryOut(const Operation& operation) {
        renewal().beforeRequest();
        while (true) {
            const int error = errnoOf(operation);
            if (error == 0 || !renewal().isToBeRepeated())
                return error;
        }
    }

    int synchronize(OpenFileID file) {
        return carryOut([&] { tree().synchronize(file); });
    }

    PlayedSupervision supervision;
    fusehost::EventDescriptor stopMount;
    fusehost::EventDescriptor refusal;
    int loads = 0;
    int unloads = 0;
    int drops = 0;
    int failures = 0;

private:
    std::unique_ptr<fusehost::VolumeRenewal> renewal_;
};

TEST_F(VolumeRenewals, repeatWhatHasChangedNothing) {
    served.put("/a", "0123");
    const NodeID file = node("/a");
    supervision.pauses = {0ms};
    dieAt("getattr /a");
    EXPECT_EQ(carryOut([&] { EXPECT_EQ(tree().getAttributes(file).st_size, 4); }), 0);
    EXPECT_EQ(loads, 1);
    EXPECT_THAT(supervision.told, ElementsAre("settle", "pause", "renewed"));
    EXPECT_EQ(unloads, 0) << "a volume that is gone cannot be unloaded in good order";
}

TEST_F(VolumeRenewals, repeatReadsAndListings) {
    served.put("/a", "0123");
    const OpenFileID file = open("/a", O_RDONLY);
    std::string bytes;
    supervision.pauses = {0ms, 0ms};
    dieAt("read /a");
    EXPECT_EQ(carryOut([&] { bytes = read(file); }), 0);
    EXPECT_EQ(bytes, "0123");
    std::vector<std::string> names;
    dieAt("readdir");
    EXPECT_EQ(carryOut([&] { names = list("/"); }), 0);
    EXPECT_THAT(names, ElementsAre(".", "..", "a"));
    EXPECT_EQ(loads, 2);
}

TEST_F(VolumeRenewals, repeatAChangeThatHadNotBegun) {
    served.put("/a", "0123");
    renewal();
    supervision.pauses = {0ms};
    dieAt("getattr /b");
    EXPECT_EQ(carryOut([&] { create("/b"); }), 0);
    EXPECT_TRUE(served.has("/b"));
}

TEST_F(VolumeRenewals, doNotRepeatWhatMayHaveBeenDone) {
    const OpenFileID file = create("/a");
    makeDirectory("/d");
    const std::map<std::string, std::function<void()>> changes = {
        {"write /a", [&] { write(file, 0, "0123"); }},
        {"unlink /d", [&] { removeDirectory("/d"); }},
        {"mkdir /e", [&] { makeDirectory("/e"); }},
        {"rename /a", [&] { rename("/a", "/b"); }},
    };
    for (const auto& [request, change] : changes) {
        supervision.pauses = {0ms};
        dieAt(request);
        EXPECT_EQ(carryOut(change), EIO) << request;
        renewal().renewIfDue();
    }
    EXPECT_EQ(loads, 4);
}

TEST_F(VolumeRenewals, comeBeforeTheNextRequestWhereOneWasNotRepeated) {
    const OpenFileID file = create("/a");
    supervision.pauses = {0ms};
    dieAt("write /a");
    EXPECT_EQ(carryOut([&] { write(file, 0, "0123"); }), EIO);
    EXPECT_EQ(loads, 0) << "the answer comes first";
    renewal().renewIfDue();
    EXPECT_EQ(loads, 1);
    EXPECT_EQ(carryOut([&] { write(file, 0, "0123"); }), 0);
    EXPECT_EQ(synchronize(file), EIO) << "for what was written in vain, or was it?";
    EXPECT_EQ(synchronize(file), 0);
}

TEST_F(VolumeRenewals, areNotDueWhereTheMountIsToFail) {
    options.onDeath = OnDeath::fail;
    served.put("/a", "0123");
    const NodeID file = node("/a");
    dieAt("getattr /a");
    for (int time = 0; time < 3; ++time)
        EXPECT_EQ(carryOut([&] { tree().getAttributes(file); }), EIO);
    renewal().look();
    EXPECT_EQ(loads, 0);
    EXPECT_THAT(supervision.told, IsEmpty());
    served.before = {};
}

TEST_F(VolumeRenewals, lookBeforeTheyBelieveThatAVolumeHasEnded) {
    renewal().look();
    renewal().renewIfDue();
    EXPECT_EQ(loads, 0);
    supervision.ended = true;
    supervision.pauses = {0ms};
    renewal().look();
    renewal().renewIfDue();
    EXPECT_EQ(loads, 1);
}

TEST_F(VolumeRenewals, letAVolumeThatIsWellGoInGoodOrder) {
    const OpenFileID file = create("/a");
    write(file, 0, "0123");
    const auto before = volume;
    renewal().ask(KernelCaches::keep);
    renewal().renewIfDue();
    EXPECT_TRUE(before->isEnded());
    EXPECT_EQ(unloads, 1);
    EXPECT_THAT(supervision.told, ElementsAre("leaving", "settle", "renewed"));
    EXPECT_EQ(synchronize(file), 0);
    EXPECT_EQ(read(file), "0123");
    EXPECT_EQ(drops, 0);
    renewal().ask(KernelCaches::drop);
    renewal().renewIfDue();
    EXPECT_EQ(drops, 1);
}

TEST_F(VolumeRenewals, areTriedAgainAfterEachPause) {
    served.put("/a", "0123");
    const NodeID file = node("/a");
    failures = 2;
    supervision.pauses = {0ms, 1ms, 1ms};
    dieAt("getattr /a");
    EXPECT_EQ(carryOut([&] { tree().getAttributes(file); }), 0);
    EXPECT_EQ(loads, 3);
    EXPECT_THAT(supervision.told,
                ElementsAre("settle", "pause", "no such helper", "pause", "no such helper", "pause", "renewed"));
}

TEST_F(VolumeRenewals, areGivenUpWhenThereIsToBeNone) {
    served.put("/a", "0123");
    const NodeID file = node("/a");
    dieAt("getattr /a");
    for (int time = 0; time < 3; ++time)
        EXPECT_EQ(carryOut([&] { tree().getAttributes(file); }), EIO);
    EXPECT_THAT(supervision.told, ElementsAre("settle", "pause", "gave up")) << "once";
    renewal().ask(KernelCaches::drop);
    EXPECT_EQ(carryOut([&] { tree().getAttributes(file); }), 0) << "but for somebody who asks";
    supervision.pauses = {0ms};
    dieAt("getattr /a");
    EXPECT_EQ(carryOut([&] { tree().getAttributes(file); }), 0) << "and from then on by themselves";
}

TEST_F(VolumeRenewals, keepTheKernelsCachesOnlyWhereThatWasAskedFor) {
    served.put("/a", "0123");
    const NodeID file = node("/a");
    renewal().ask(KernelCaches::keep);
    renewal().renewIfDue();
    EXPECT_EQ(drops, 0);
    supervision.pauses = {0ms};
    dieAt("getattr /a");
    EXPECT_EQ(carryOut([&] { tree().getAttributes(file); }), 0);
    EXPECT_EQ(drops, 1) << "the next one has died: who knows what is served now";
}

TEST_F(VolumeRenewals, endWithTheMount) {
    served.put("/a", "0123");
    const NodeID file = node("/a");
    supervision.pauses = {1h};
    dieAt("getattr /a");
    stopMount.signal();
    EXPECT_EQ(carryOut([&] { tree().getAttributes(file); }), EIO);
    EXPECT_EQ(loads, 0);
    served.before = {};
}

TEST_F(VolumeRenewals, endWithTheMountAlsoWhileTheyWait) {
    served.put("/a", "0123");
    const NodeID file = node("/a");
    supervision.pauses = {1h};
    dieAt("getattr /a");
    std::thread stopper([&] {
        std::this_thread::sleep_for(10ms);
        stopMount.signal();
    });
    EXPECT_EQ(carryOut([&] { tree().getAttributes(file); }), EIO);
    stopper.join();
    served.before = {};
}

/// The mount is told to end while a program has something written that the kernel holds.
class LastWritings : public VolumeRenewals {
protected:
    void SetUp() override {
        VolumeRenewals::SetUp();
        file = create("/a");
        other = create("/b");
        renewal();
        stopMount.signal();
        renewal().beginLastWriting(refusal);
    }

    void finish() {
        supervision.told.clear();
        renewal().endLastWriting();
        renewal().finish();
    }

    OpenFileID file{};
    OpenFileID other{};
};

TEST_F(LastWritings, goOnWithAnotherVolume) {
    supervision.pauses = {0ms};
    dieAt("write /a");
    EXPECT_EQ(carryOut([&] { write(file, 0, "0123"); }), EIO) << "it may have been done";
    EXPECT_EQ(carryOut([&] { write(other, 0, "4567"); }), 0);
    EXPECT_EQ(read(other), "4567");
    EXPECT_EQ(loads, 1);
    finish();
    EXPECT_THAT(supervision.told, ElementsAre("failed at last")) << "what was in the first write";
}

TEST_F(LastWritings, tellOfNothingWhereNothingWasLost) {
    supervision.pauses = {0ms};
    write(file, 0, "0123");
    std::string bytes;
    dieAt("read /a");
    EXPECT_EQ(carryOut([&] { bytes = read(file); }), 0) << "which writing a part of a page may begin with";
    EXPECT_EQ(bytes, "0123");
    EXPECT_EQ(loads, 1);
    finish();
    EXPECT_THAT(supervision.told, IsEmpty());
}

TEST_F(LastWritings, haveAVolumeToGiveBackWhatIsOpen) {
    supervision.pauses = {0ms};
    dieAt("write /a");
    EXPECT_EQ(carryOut([&] { write(file, 0, "0123"); }), EIO);
    finish();
    EXPECT_THAT(supervision.told, ElementsAre("settle", "pause", "renewed", "failed at last"));
}

TEST_F(LastWritings, areGivenUpWhenNothingIsToBeAskedAnyMore) {
    supervision.pauses = {1h};
    dieAt("write /a");
    EXPECT_EQ(carryOut([&] { write(file, 0, "0123"); }), EIO);
    refusal.signal();
    finish();
    EXPECT_EQ(loads, 0);
    EXPECT_THAT(supervision.told, ElementsAre("settle", "failed at last"));
    served.before = {};
}

TEST_F(LastWritings, endAMountThatIsToEndWithItsVolume) {
    options.onDeath = OnDeath::exit;
    dieAt("write /a");
    EXPECT_EQ(carryOut([&] { write(file, 0, "0123"); }), EIO);
    finish();
    EXPECT_THAT(supervision.told, ElementsAre("settle", "pause", "gave up", "failed at last"));
    served.before = {};
}

TEST_F(VolumeRenewals, tellWhereAVolumeEndsAfterTheMount) {
    const OpenFileID file = create("/a");
    write(file, 0, "0123");
    renewal();
    dieAt("release");
    release(file);
    renewal().finish();
    EXPECT_THAT(supervision.told, ElementsAre("settle", "failed at last"));
    served.before = {};
}

} // namespace
} // namespace fusehosttests
