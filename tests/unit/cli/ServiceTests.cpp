// What is told to the service manager, and to whom.

#include "TemporaryFolder.h"
#include "cli/ServiceManager.h"
#include "cli/ServiceReport.h"
#include "foundation/Descriptor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <optional>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;
using cli::ServiceManager;
using cli::ServiceReport;

constexpr int tenSeconds = 10'000; // milliseconds

/// The manager's end: a datagram socket at a path, or, where the name begins with "@", without one.
class Manager {
public:
    explicit Manager(const std::string& name) : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::copy(name.begin(), name.end(), address.sun_path);
        if (name.front() == '@')
            address.sun_path[0] = '\0';
        const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        EXPECT_EQ(::bind(socket_.number(), reinterpret_cast<const sockaddr*>(&address), size), 0);
    }

    /// The next datagram; "(nothing)" if none comes.
    std::string heard(int milliseconds = tenSeconds) const {
        pollfd source{socket_.number(), POLLIN, 0};
        if (::poll(&source, 1, milliseconds) != 1)
            return "(nothing)";
        std::vector<char> text(std::size_t{1} << 16);
        const auto count = ::recv(socket_.number(), text.data(), text.size(), 0);
        return {text.data(), static_cast<std::size_t>(std::max<ssize_t>(0, count))};
    }

    /// Datagrams until one is `line`; false if it does not come.
    bool hears(std::string_view line) const {
        for (;;) {
            const std::string next = heard();
            if (next == line)
                return true;
            if (next == "(nothing)")
                return false;
        }
    }

    /// What is here already.
    bool isEmpty() const { return heard(0) == "(nothing)"; }

private:
    foundation::Descriptor socket_;
};

/// Tells as much as the manager has room for; how often that was.
int fill(const ServiceManager& manager) {
    constexpr int most = 100'000; // more than any queue of datagrams takes
    int count = 0;
    while (count < most && manager.tell("STATUS=x\n"))
        ++count;
    EXPECT_LT(count, most);
    return count;
}

class ServiceManagers : public testing::Test {
protected:
    ServiceManagers() { clear(); }

    ~ServiceManagers() override { clear(); }

    static void clear() {
        for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
            ::unsetenv(name);
    }

    static void set(const char* name, const std::string& value) { ::setenv(name, value.c_str(), 1); }

    std::string path() const { return folder_.path() / "notify"; }

    /// What a manager that gave these values wants of signs of life.
    std::optional<std::chrono::microseconds> watchdog(const std::string& interval, const std::string& process = {}) {
        set("NOTIFY_SOCKET", path());
        set("WATCHDOG_USEC", interval);
        if (!process.empty())
            set("WATCHDOG_PID", process);
        const auto found = ServiceManager::takeFromEnvironment().watchdog();
        clear();
        return found;
    }

    clitests::TemporaryFolder folder_;
};

TEST_F(ServiceManagers, withoutASocketThereIsNobodyAndNothingIsSaid) {
    set("WATCHDOG_USEC", "1000000");
    const auto manager = ServiceManager::takeFromEnvironment();
    EXPECT_FALSE(manager.listens());
    EXPECT_FALSE(manager.watchdog());
    manager.tell("READY=1\n");
    std::atomic<int> asked{0};
    ServiceReport report(manager, [&] {
        ++asked;
        return std::string("serving");
    });
    EXPECT_FALSE(report.isWanted());
    report.ready();
    report.stopping();
    report.stop();
    EXPECT_EQ(asked, 0);
}

TEST_F(ServiceManagers, whatIsToldIsHeardAtAPathAndAtANameWithoutOne) {
    const std::string nameless = "@kemvi-test-" + std::to_string(::getpid());
    for (const std::string& name : {path(), nameless}) {
        const Manager manager(name);
        set("NOTIFY_SOCKET", name);
        const auto told = ServiceManager::takeFromEnvironment();
        EXPECT_TRUE(told.listens());
        told.tell("READY=1\nSTATUS=x\n");
        EXPECT_EQ(manager.heard(), "READY=1\nSTATUS=x\n") << name;
    }
}

TEST_F(ServiceManagers, theLongestPathIsHeardAndALongerOneIsNobodys) {
    const std::size_t longest = sizeof(sockaddr_un::sun_path) - 1;
    const std::string name = "@" + std::string(longest - 1, 'x');
    const Manager manager(name);
    set("NOTIFY_SOCKET", name);
    ServiceManager::takeFromEnvironment().tell("READY=1\n");
    EXPECT_EQ(manager.heard(), "READY=1\n");
    set("NOTIFY_SOCKET", "/" + std::string(longest, 'x'));
    EXPECT_FALSE(ServiceManager::takeFromEnvironment().listens());
}

TEST_F(ServiceManagers, anAddressOfAnotherKindIsNobodys) {
    for (const char* address : {"", "notify", "./notify", "vsock:2:1234", "~/notify"}) {
        set("NOTIFY_SOCKET", address);
        const auto manager = ServiceManager::takeFromEnvironment();
        EXPECT_FALSE(manager.listens()) << address;
        manager.tell("READY=1\n");
    }
}

TEST_F(ServiceManagers, helpersDoNotInheritIt) {
    set("NOTIFY_SOCKET", path());
    set("WATCHDOG_USEC", "1000000");
    set("WATCHDOG_PID", std::to_string(::getpid()));
    ServiceManager::takeFromEnvironment();
    for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
        EXPECT_EQ(std::getenv(name), nullptr) << name;
}

TEST_F(ServiceManagers, signsOfLifeAreWantedWhereTheIntervalIsANumberAboveZero) {
    EXPECT_EQ(watchdog("1500000"), 1500000us);
    for (const char* interval : {"", "0", "-1", "soon", "10s", " 10", "99999999999999999999", "1.5"})
        EXPECT_FALSE(watchdog(interval)) << interval;
}

TEST_F(ServiceManagers, signsOfLifeAreWantedOfTheProcessThatIsMeant) {
    EXPECT_EQ(watchdog("1000000", std::to_string(::getpid())), 1s);
    for (const std::string& process : {std::to_string(::getppid()), std::string("1"), std::string("me")})
        EXPECT_FALSE(watchdog("1000000", process)) << process;
}

TEST_F(ServiceManagers, aManagerThatIsGoneIsToldNothing) {
    { const Manager manager(path()); }
    set("NOTIFY_SOCKET", path());
    const auto manager = ServiceManager::takeFromEnvironment();
    EXPECT_TRUE(manager.listens());
    manager.tell("READY=1\n");
    ::unlink(path().c_str());
    manager.tell("READY=1\n");
}

TEST_F(ServiceManagers, aManagerThatDoesNotReadHoldsUpNobody) {
    const Manager manager(path());
    set("NOTIFY_SOCKET", path());
    const auto told = ServiceManager::takeFromEnvironment();
    EXPECT_GT(fill(told), 0);
    EXPECT_FALSE(told.tell("READY=1\n"));
    while (!manager.isEmpty())
        continue;
    EXPECT_TRUE(told.tell("READY=1\n"));
    EXPECT_EQ(manager.heard(), "READY=1\n");
}

class ServiceReports : public ServiceManagers {
protected:
    ServiceReports() { set("NOTIFY_SOCKET", path()); }

    void setState(const std::string& state) {
        const std::lock_guard guard(lock_);
        state_ = state;
    }

    std::function<std::string()> state() {
        return [this] {
            const std::lock_guard guard(lock_);
            return state_;
        };
    }

    Manager manager_{path()};
    std::mutex lock_;
    std::string state_ = "starting";
};

TEST_F(ServiceReports, readinessTheStateAndTheEndAreTold) {
    ServiceReport report(ServiceManager::takeFromEnvironment(), state());
    EXPECT_TRUE(report.isWanted());
    EXPECT_EQ(manager_.heard(), "STATUS=starting\n");
    setState("serving");
    report.ready();
    EXPECT_EQ(manager_.heard(), "READY=1\n");
    EXPECT_EQ(manager_.heard(), "STATUS=serving\n");
    report.stopping(); // the state is as it was, and is told once
    EXPECT_EQ(manager_.heard(), "STOPPING=1\n");
    report.stop();
    EXPECT_TRUE(manager_.isEmpty());
}

TEST_F(ServiceReports, theStateIsNotAskedForAfterTheEnd) {
    std::atomic<int> asked{0};
    ServiceReport report(ServiceManager::takeFromEnvironment(), [&] {
        ++asked;
        return std::string("serving");
    });
    ASSERT_TRUE(manager_.hears("STATUS=serving\n"));
    report.stop();
    const int before = asked;
    report.ready();
    report.stop();
    EXPECT_EQ(asked, before);
    EXPECT_TRUE(manager_.isEmpty());
}

TEST_F(ServiceReports, signsOfLifeComeAtLeastTwiceInTheIntervalAndWithoutOneNever) {
    set("WATCHDOG_USEC", "200000");
    {
        ServiceReport report(ServiceManager::takeFromEnvironment(), state());
        for (int i = 0; i < 5; ++i)
            EXPECT_TRUE(manager_.hears("WATCHDOG=1\n"));
    }
    while (!manager_.isEmpty())
        continue;
    set("NOTIFY_SOCKET", path());
    ServiceReport quiet(ServiceManager::takeFromEnvironment(), state());
    EXPECT_EQ(manager_.heard(), "STATUS=starting\n");
    quiet.ready();
    EXPECT_EQ(manager_.heard(), "READY=1\n");
}

TEST_F(ServiceReports, readinessIsToldOnceThereIsRoom) {
    const auto manager = ServiceManager::takeFromEnvironment();
    ServiceReport report(manager, state());
    ASSERT_TRUE(manager_.hears("STATUS=starting\n"));
    const int count = fill(manager);
    report.ready();
    report.stopping();
    for (int i = 0; i < count; ++i)
        EXPECT_EQ(manager_.heard(), "STATUS=x\n");
    std::string heard = manager_.heard();
    if (heard == "READY=1\n")
        heard += manager_.heard();
    EXPECT_EQ(heard, "READY=1\nSTOPPING=1\n");
}

TEST_F(ServiceReports, aLongStateIsToldWhole) {
    const std::string path(4000, 'p'); // as long as any that the kernel knows
    setState("waiting since 12 s for read of /" + path);
    ServiceReport report(ServiceManager::takeFromEnvironment(), state());
    EXPECT_EQ(manager_.heard(), "STATUS=waiting since 12 s for read of /" + path + "\n");
}

} // namespace
