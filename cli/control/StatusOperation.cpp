#include "cli/control/StatusOperation.h"

#include "cli/ProcessTable.h"
#include "cli/control/OptionsInForce.h"
#include "foundation/ISO8601.h"

#include <chrono>
#include <optional>
#include <string>
#include <unistd.h>

namespace cli {

namespace {

using control::Members;
using Clock = std::chrono::steady_clock;

constexpr auto usual = std::chrono::seconds(1); // for one request; beyond, the mount is said to wait

double secondsSince(Clock::time_point then) {
    constexpr double thousandth = 1000;
    const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - then);
    return static_cast<double>(passed.count()) / thousandth;
}

std::string now() {
    const std::chrono::duration<double> sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return foundation::ISO8601DateFormatter().string({sinceEpoch.count()});
}

using UnderWay = std::optional<fusehost::RequestUnderWay>;

/// The state as one word. A request that lasts is what the mount is at, whatever else there is.
const char* stateOf(const StatusSources& sources, const UnderWay& underWay) {
    switch (sources.stop.phase()) {
    case StopControl::Phase::starting: return "starting";
    case StopControl::Phase::writing: return "writing";
    case StopControl::Phase::ending:
    case StopControl::Phase::ended: return "ending";
    case StopControl::Phase::serving: break;
    }
    if (sources.supervisor.isRestarting())
        return "restarting";
    if (sources.supervisor.hasEnded())
        return "helperDead";
    return underWay && Clock::now() - underWay->since > usual ? "waiting" : "serving";
}

/// The request that is being executed; nobody is named for what the host does of its own accord.
Members currentOf(const fusehost::RequestUnderWay& underWay) {
    Members current;
    current.add("op", fusehost::nameOf(underWay.operation))
        .add("path", underWay.path)
        .add("seconds", secondsSince(underWay.since));
    if (const auto process = processOfThread(static_cast<pid_t>(underWay.thread)))
        current.add("pid", *process).add("process", processName(*process));
    return current;
}

/// How the helper has ended, as a clause that it is the subject of.
std::string endOf(const StatusSources& sources) {
    if (const auto status = sources.helpers.knownExitStatus())
        return status->description();
    const std::string breach = sources.supervisor.breach();
    return breach.empty() ? "has closed its output" : "is not believed any more: " + breach;
}

Members helperOf(const StatusSources& sources) {
    Members helper;
    helper.add("path", sources.plan.helperPath);
    if (!sources.plan.helperCommand.empty())
        helper.add("command", sources.plan.helperCommand);
    if (!sources.plan.helperSettings.empty())
        helper.add("settings", sources.plan.helperSettings);
    if (const auto pid = sources.helpers.pid())
        helper.add("pid", *pid);
    const bool hasEnded = sources.supervisor.hasEnded();
    helper.add("answers", !hasEnded && !sources.supervisor.isRestarting());
    if (hasEnded)
        helper.add("end", endOf(sources));
    if (sources.watch != nullptr)
        helper.add("watched", sources.watch->paths());
    return helper;
}

} // namespace

Members changingStatus(const StatusSources& sources) {
    const auto& monitor = sources.host.monitor();
    const auto underWay = monitor.underWay();
    Members status;
    status.add("state", stateOf(sources, underWay)).add("mounted", sources.host.isMounted());
    if (underWay)
        status.add("current", currentOf(*underWay));
    return status.add("helper", helperOf(sources))
        .add("requests", monitor.requests())
        .add("restarts", std::uint64_t{sources.helpers.restarts()});
}

void addStatusOperation(control::ControlServer& server, const StatusSources& sources) {
    server.handle("status", {},
                  [sources, since = now(), start = Clock::now()](const control::Request&, control::Reply& reply) {
                      reply.succeed(Members()
                                        .add("version", KEMVI_VERSION)
                                        .add("source", sources.plan.source)
                                        .add("mountPoint", sources.plan.mountPoint)
                                        .append(changingStatus(sources))
                                        .add("host", Members().add("pid", ::getpid()))
                                        .add("owner", ::geteuid())
                                        .add("since", since)
                                        .add("seconds", secondsSince(start))
                                        .add("options", optionsInForce(sources.plan.options)));
                  });
}

} // namespace cli
