#include "cli/control/StatusOperation.h"

#include "cli/control/OptionsInForce.h"
#include "foundation/ISO8601.h"

#include <chrono>
#include <string>
#include <unistd.h>

namespace cli {

namespace {

using control::Members;
using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point then) {
    constexpr double thousandth = 1000;
    const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - then);
    return static_cast<double>(passed.count()) / thousandth;
}

std::string now() {
    const std::chrono::duration<double> sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return foundation::ISO8601DateFormatter().string({sinceEpoch.count()});
}

const char* stateOf(const StatusSources& sources) {
    switch (sources.stop.phase()) {
    case StopControl::Phase::starting: return "starting";
    case StopControl::Phase::writing: return "writing";
    case StopControl::Phase::ending:
    case StopControl::Phase::ended: return "ending";
    case StopControl::Phase::serving: break;
    }
    if (sources.helpers.ended())
        return "helperDead";
    return "serving";
}

Members helperOf(const StatusSources& sources) {
    Members helper;
    helper.add("path", sources.plan.helperPath);
    if (const auto pid = sources.helpers.pid())
        helper.add("pid", *pid);
    helper.add("answers", !sources.helpers.ended());
    if (sources.helpers.ended()) {
        const auto status = sources.helpers.knownExitStatus();
        helper.add("end", status ? status->description() : "has closed its output");
    }
    return helper;
}

} // namespace

void addStatusOperation(control::ControlServer& server, const StatusSources& sources) {
    server.handle("status", {},
                  [sources, since = now(), start = Clock::now()](const control::Request&, control::Reply& reply) {
                      reply.succeed(Members()
                                        .add("version", KEMVI_VERSION)
                                        .add("source", sources.plan.source)
                                        .add("mountPoint", sources.plan.mountPoint)
                                        .add("state", stateOf(sources))
                                        .add("host", Members().add("pid", ::getpid()))
                                        .add("helper", helperOf(sources))
                                        .add("owner", ::geteuid())
                                        .add("since", since)
                                        .add("seconds", secondsSince(start))
                                        .add("options", optionsInForce(sources.plan.options)));
                  });
}

} // namespace cli
