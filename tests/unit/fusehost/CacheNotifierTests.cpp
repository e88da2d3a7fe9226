#include "PlayedKernel.h"

#include "foundation/Descriptor.h"
#include "hosts/fuse/kernel/CacheNotifier.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <poll.h>
#include <semaphore>

namespace fusehosttests {
namespace {

using namespace std::chrono_literals;
using fusehost::CacheNotifier;
using fusehost::ToForget;
using testing::ElementsAre;
using testing::IsEmpty;

bool isReadable(int descriptor) {
    pollfd polled{descriptor, POLLIN, 0};
    return poll(&polled, 1, 0) == 1;
}

class CacheNotifierTest : public testing::Test {
protected:
    static ToForget something() { return {{{1, "a", true}, {1, "d", false}, {5, "new", false}}, {7, 5}, {1, 5}}; }

    /// Tells and waits until it is told.
    void tell(const ToForget& toForget) {
        std::binary_semaphore told{0};
        notifier->tell(toForget, [&] { told.release(); });
        EXPECT_TRUE(told.try_acquire_for(20s));
    }

    PlayedKernel kernel;
    foundation::Descriptor connection{kernel.takeHostEnd()};
    std::optional<CacheNotifier> notifier{std::in_place, connection.number(), CacheNotifier::Options()};
};

TEST_F(CacheNotifierTest, namesComeBeforeNodesAndDirectoriesLast) {
    tell(something());
    EXPECT_THAT(kernel.notices(7), ElementsAre("expire 1/a", "expire 1/d", "expire 5/new", "forget 7", "forget 5",
                                               "attributes 1", "attributes 5"));
}

TEST_F(CacheNotifierTest, namesOfFilesAreDroppedWhereTheKernelGoesByItsOwnIdeaOfThem) {
    notifier.emplace(connection.number(), CacheNotifier::Options{.dropFiles = true});
    tell({{{1, "a", true}, {1, "d", false}}, {}, {}});
    EXPECT_THAT(kernel.notices(2), ElementsAre("drop 1/a", "expire 1/d"));
}

TEST_F(CacheNotifierTest, oneAfterTheOtherInTheirOrder) {
    tell({{{1, "a", true}}, {}, {}});
    tell({{}, {3}, {}});
    EXPECT_THAT(kernel.notices(2), ElementsAre("expire 1/a", "forget 3"));
}

TEST_F(CacheNotifierTest, ofAKernelThatHasUnmountedAllIsForgotten) {
    kernel.unmount();
    tell(something());
}

TEST_F(CacheNotifierTest, anEndWithNothingUnderWayIsSeenAtOnce) {
    EXPECT_FALSE(isReadable(notifier->finished()));
    notifier->finish();
    EXPECT_TRUE(isReadable(notifier->finished()));
}

TEST_F(CacheNotifierTest, afterTheEndNothingIsToldAndWhoWaitsIsLetGo) {
    notifier->finish();
    const auto waits = std::make_shared<int>();
    notifier->tell(something(), [waits] { ADD_FAILURE() << "nothing was told"; });
    EXPECT_EQ(waits.use_count(), 1);
    EXPECT_THAT(kernel.notices(0), IsEmpty());
}

TEST_F(CacheNotifierTest, theEndLetsGoOfWhatWaitsBehindWhatIsUnderWay) {
    std::binary_semaphore underWay{0};
    std::binary_semaphore goOn{0};
    notifier->tell({}, [&] {
        underWay.release();
        EXPECT_TRUE(goOn.try_acquire_for(20s));
    });
    ASSERT_TRUE(underWay.try_acquire_for(20s));
    const auto waits = std::make_shared<int>();
    notifier->tell(something(), [waits] { ADD_FAILURE() << "nothing was told"; });
    notifier->finish();
    EXPECT_EQ(waits.use_count(), 1);
    EXPECT_FALSE(isReadable(notifier->finished())) << "something is under way";
    goOn.release();
    pollfd polled{notifier->finished(), POLLIN, 0};
    EXPECT_EQ(poll(&polled, 1, 20'000), 1);
}

} // namespace
} // namespace fusehosttests
