#include "SessionTest.h"

#include "hosts/fuse/kernel/LibFuse.h"

#include <linux/fuse.h>
#include <utility>

namespace fusehosttests {

std::function<void(const std::string&)> Gate::holding(std::string request) {
    return [this, request = std::move(request)](const std::string& asked) {
        if (asked != request)
            return;
        std::unique_lock guard(lock_);
        ++held_;
        changed_.notify_all();
        changed_.wait(guard, [&] { return isOpen_; });
    };
}

void Gate::waitForRequest() {
    std::unique_lock guard(lock_);
    EXPECT_TRUE(changed_.wait_for(guard, std::chrono::seconds(20), [&] { return held_ > 0; }));
}

void Gate::open() {
    const std::lock_guard guard(lock_);
    isOpen_ = true;
    changed_.notify_all();
}

void SessionTest::connect() {
    context_.reset(new Context{{tree(), options, {}}, kernel});
    session_ = std::make_unique<fusehost::KernelSession>(*context_, "source", options);
    fuse_custom_io io{};
    io.read = [](int descriptor, void* memory, std::size_t size, void* context) {
        return static_cast<Context*>(static_cast<fusehost::KernelContext*>(context))
            ->kernel.read(descriptor, memory, size);
    };
    io.writev = [](int descriptor, iovec* parts, int count, void* context) {
        return static_cast<Context*>(static_cast<fusehost::KernelContext*>(context))
            ->kernel.write(descriptor, parts, count);
    };
    ASSERT_EQ(fuse_session_custom_io(session_->get(), &io, kernel.takeHostEnd()), 0);
    loop_ = std::make_unique<fusehost::SessionLoop>(session_->get(), session_->descriptor(), callers, &tree(), &pace,
                                                    limits);
    reports_ = std::make_unique<fusehost::RequestReports>(*context_, monitor);
    loop_->reportTo(*reports_);
    server_ = std::thread([this] { result_ = loop_->run(stop_.number()); });
}

void SessionTest::resume() {
    stop_.clear();
    server_ = std::thread([this] { result_ = loop_->run(stop_.number()); });
}

void SessionTest::start() {
    connect();
    EXPECT_EQ(greet(0).error, 0);
}

PlayedKernel::Answer SessionTest::greet(std::uint32_t offered, std::uint32_t moreOffered) {
    fuse_init_in init{};
    init.major = FUSE_KERNEL_VERSION;
    init.minor = FUSE_KERNEL_MINOR_VERSION;
    init.max_readahead = 128 * 1024;
    init.flags = offered;
    init.flags2 = moreOffered;
    return kernel.call(FUSE_INIT, 0, bytesOf(init));
}

std::uint64_t SessionTest::lookedUp(const std::string& name) {
    const PlayedKernel::Answer found = kernel.call(FUSE_LOOKUP, rootNodeID, name + '\0');
    EXPECT_EQ(found.error, 0) << name;
    return fromBytes<fuse_entry_out>(found.body).nodeid;
}

void SessionTest::requestStop() {
    stop_.signal();
}

bool SessionTest::waitForEnd() {
    if (server_.joinable())
        server_.join();
    return result_.value();
}

void SessionTest::TearDown() {
    gate.open();
    if (server_.joinable()) {
        requestStop();
        waitForEnd();
    }
    loop_.reset();
    session_.reset();
    served.before = {};
    // What the played kernel still holds goes with the mount.
    end();
    FileTreeTest::TearDown();
}

} // namespace fusehosttests
