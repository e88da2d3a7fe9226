#include "cli/MountSession.h"

#include "cli/CommandError.h"
#include "cli/DeathWatch.h"
#include "cli/ExchangeMeter.h"
#include "cli/HelperProcesses.h"
#include "cli/HostRecord.h"
#include "cli/MountControl.h"
#include "cli/MountPoint.h"
#include "cli/ServiceReport.h"
#include "cli/StatusText.h"
#include "cli/StopControl.h"
#include "cli/Supervisor.h"
#include "cli/SupervisorThread.h"
#include "cli/control/InvalidateOperation.h"
#include "cli/control/LogOperation.h"
#include "cli/control/RecordOperation.h"
#include "cli/control/RestartOperation.h"
#include "cli/control/StatsOperation.h"
#include "cli/control/StatusOperation.h"
#include "cli/control/TraceOperation.h"
#include "cli/control/UnmountOperation.h"
#include "cli/trace/TraceFeed.h"
#include "cli/watch/HelperWatch.h"
#include "control/JSONText.h"
#include "extension/KemviUnaryFileSystem.h"
#include "foundation/ControlCharacters.h"
#include "foundation/Error.h"
#include "foundation/PosixErrno.h"
#include "hosts/fuse/FuseHost.h"
#include "hosts/fuse/calls/Quietly.h"
#include "hosts/fuse/mounting/MountError.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <mutex>
#include <optional>
#include <sys/prctl.h>
#include <sys/vfs.h>
#include <thread>
#include <unistd.h>

namespace cli {

namespace {

using namespace std::chrono_literals;

constexpr long fuseMagic = 0x65735546; // f_type of a FUSE mount
/// What a helper gets to finish should this process be killed; one that is still there then hangs.
constexpr Patience afterOurDeath{5s, 2s};

void nameProcess(const std::string& name) {
    ::prctl(PR_SET_NAME, name.c_str());
}

/// Calls `ready` from a thread of its own when the kernel has had an answer from the mount. Asking for the volume's
/// figures is enough for that and costs the helper nothing.
class Announcer {
public:
    Announcer(const std::string& mountPoint, std::function<void()> ready) : state_(std::make_shared<State>()) {
        state_->ready = std::move(ready);
        // Detached: should the mount break before it has answered, the question is never answered either.
        std::thread([state = state_, mountPoint] {
            struct statfs figures {};
            if (::statfs(mountPoint.c_str(), &figures) != 0 || figures.f_type != fuseMagic)
                return;
            const std::lock_guard lock(state->mutex);
            if (state->ready) {
                fusehost::quietly("saying that it is mounted", [&] { state->ready(); });
                state->ready = nullptr;
                state->announced = true;
            }
        }).detach();
    }

    ~Announcer() { cancel(); }

    Announcer(const Announcer&) = delete;
    Announcer& operator=(const Announcer&) = delete;

    /// From here on nothing is announced any more. True if it was before.
    bool cancel() {
        const std::lock_guard lock(state_->mutex);
        state_->ready = nullptr;
        return state_->announced;
    }

private:
    struct State {
        std::mutex mutex;
        std::function<void()> ready;
        bool announced = false;
    };

    std::shared_ptr<State> state_;
};

/// Why the helper could not be started at all.
std::string launchProblem(const foundation::NSError& error) {
    std::string problem = "the helper could not be started: ";
    if (!error.isPosix())
        return error.description(); // a sentence of its own
    const int number = foundation::platformErrno(static_cast<std::int32_t>(error.code));
    problem += errnoText(number);
    switch (number) {
    case EMFILE: return problem + "; this process may open no more (ulimit -n)";
    case E2BIG: return problem + "; its environment, or one variable of it, is larger than the system allows";
    case EAGAIN: return problem + "; this user may have no more processes (ulimit -u)";
    default: return problem;
    }
}

/// How the helper ended before it had answered anything.
std::string earlyEnd(const HelperProcesses& helpers) {
    constexpr int cannotExecute = 126; // env(1)
    constexpr int notFound = 127;
    const auto status = helpers.exitStatus();
    if (!status)
        return "the helper closed its output before it answered the first request";
    if (status->code() == notFound || status->code() == cannotExecute)
        return "node could not be run (exit status " + std::to_string(*status->code()) + ")";
    return "the helper ended before it answered the first request (it " + status->description() + ")";
}

/// What a failed start means, in words for the user.
std::string startProblem(const foundation::NSError& error, const HelperProcesses& helpers) {
    const std::string text = error.description();
    if (!helpers.pid())
        return launchProblem(error);
    if (helpers.ended())
        return earlyEnd(helpers);
    if (error.isPosix())
        return "the helper answered the first request with an error: " + text;
    if (error.domain == foundation::NSCocoaErrorDomain)
        return "the helper's first answer is not a line of the protocol: " + text;
    return "the helper did not answer the first request as it must: " + text;
}

/// Null where nothing is to be watched.
std::unique_ptr<HelperWatch> watchOf(const MountPlan& plan) {
    if (plan.watched.empty())
        return nullptr;
    try {
        return std::make_unique<HelperWatch>(plan.watched, plan.mountPoint);
    } catch (const WatchError& error) {
        throw CommandError(ExitCode::failure, "--watch", error.what());
    }
}

class MountSession {
public:
    explicit MountSession(const MountPlan& plan)
        : plan_(plan), lock_(std::in_place, plan.mountPoint), control_(plan), record_(plan.mountPoint, control_.path()),
          watch_(afterOurDeath, plan.mountPoint), helpers_(watch_, &companion_), helperWatch_(watchOf(plan)),
          host_(
              std::make_shared<kemvi::KemviUnaryFileSystem>(helpers_, &exchanges_), plan.source, plan.mountPoint,
              plan.options, [this](const foundation::ErrorOrigin&) { return helpers_.afterEndOfOutput(); }, &companion_,
              &supervisor_),
          stop_(host_, helpers_, plan.mountPoint), report_(plan.manager, [this] { return stateLine(); }) {
        control_.serve([this](control::ControlServer& server) { addOperations(server); });
    }

    ~MountSession() { // what the channel's operations look at, and the report tells of, goes next
        control_.stop();
        report_.stop();
    }

    MountSession(const MountSession&) = delete;
    MountSession& operator=(const MountSession&) = delete;

    ExitCode run(const Progress& progress) {
        nameProcess("kemvi-starting");
        recording_ = recordMount(plan_.record, plan_.mountPoint, exchanges_, trace_);
        load();
        const bool served = mountAndServe(progress);
        end();
        if (stop_.gaveUp())
            return ExitCode::gaveUpWaiting;
        if (const auto verdict = supervisor_.verdict())
            throwHelperEnded(*verdict);
        if (interrupted_ || stop_.interrupted())
            throwInterrupted();
        if (!served)
            throw CommandError(ExitCode::mountFailed, plan_.mountPoint, "the connection to the kernel broke");
        return stop_.lostChanges() ? ExitCode::failure : ExitCode::success;
    }

private:
    StatusSources statusSources() { return {plan_, helpers_, supervisor_, stop_, host_, helperWatch_.get()}; }

    std::string stateLine() {
        return foundation::escapedControls(plan_.mountPoint) + ": " +
               stateText(control::parsedObject(changingStatus(statusSources()).json()));
    }

    void addOperations(control::ControlServer& server) {
        addStatusOperation(server, statusSources());
        addStatsOperation(server, {plan_, helpers_, supervisor_, host_.monitor(), exchanges_});
        addTraceOperation(server, trace_);
        addUnmountOperation(server, plan_.mountPoint, [this] { return device_.load(); });
        addInvalidateOperation(server, host_);
        addLogOperation(server, plan_.log);
        addRecordOperation(server, plan_.mountPoint, exchanges_, trace_);
        addRestartOperation(server, supervisor_, helpers_);
    }

    [[noreturn]] void throwInterrupted() const {
        throw CommandError(ExitCode::interrupted, plan_.mountPoint, "interrupted before the mount was ready");
    }

    [[noreturn]] void throwHelperEnded(ExitCode verdict) const {
        throw CommandError(verdict, plan_.helperName, problemOf(verdict));
    }

    static std::string problemOf(ExitCode verdict) {
        switch (verdict) {
        case ExitCode::helperEnded: return "the helper ended, and with it the mount (on_death=exit)";
        case ExitCode::helperKeepsEnding: return "the helper ended again and again; the mount ends (on_death=restart)";
        default: return "the helper ended at the end of the mount; not everything that programs have changed is safe";
        }
    }

    void load() {
        try {
            host_.load();
        } catch (const foundation::Error& error) {
            const std::string problem = startProblem(error.nsError(), helpers_);
            if (stop_.interrupted())
                throwInterrupted();
            throw CommandError(ExitCode::helperFailed, plan_.helperName,
                               problem + "; see what it said, or run: kemvi check " + plan_.source);
        }
    }

    /// False if the connection to the kernel failed.
    bool mountAndServe(const Progress& progress) {
        try {
            host_.mount();
        } catch (const fusehost::MountError& error) {
            end();
            throw CommandError(ExitCode::mountFailed, plan_.mountPoint, error.what());
        }
        lock_.reset();
        if (const auto device = host_.deviceMinor()) {
            nameProcess("kemvi-" + std::to_string(*device));
            record_.setDevice(*device);
            device_ = *device;
            watch_.begin(*device);
        }
        progress.mounted();
        supervising_.emplace(SupervisorThread::Watched{supervisor_, helpers_, exchanges_, host_}, plan_.options);
        if (helperWatch_)
            helperWatch_->begin(supervisor_);
        stop_.enter(StopControl::Phase::serving);
        const auto writing = [&] { stop_.enter(StopControl::Phase::writing); };
        if (!progress.ready && !report_.isWanted())
            return host_.serve(writing);
        Announcer announcer(plan_.mountPoint, [&] {
            report_.ready();
            if (progress.ready)
                progress.ready();
        });
        const bool served = host_.serve(writing);
        interrupted_ = !announcer.cancel();
        return served;
    }

    /// Lets the helper go.
    void end() {
        // The device number may now be given to another mount, whose process must not be taken for this one.
        nameProcess("kemvi-ending");
        if (helperWatch_)
            helperWatch_->end();
        supervising_.reset(); // which would take for a death what is an end
        record_.setDevice(std::nullopt);
        device_ = std::nullopt;
        watch_.release();
        stop_.enter(StopControl::Phase::ending);
        report_.stopping();
        host_.shutdown();
        recording_.reset();
    }

    const MountPlan& plan_;
    std::optional<MountPointLock> lock_; // until it is mounted; then the mount table says so
    MountControl control_;               // stopped before what follows goes
    HostRecord record_;
    DeathWatch watch_; // goes after the helper, which it ends should this process be killed
    fusehost::Companion companion_{[this](int processor) { watch_.placing(processor); }}; // the helper, for the host
    HelperProcesses helpers_; // goes after the host: by then the helper's input is closed
    ExchangeMeter exchanges_;
    Supervisor supervisor_{helpers_, plan_.options,
                           plan_.watched.empty() ? Supervisor::Files::notWatched : Supervisor::Files::watched};
    const std::unique_ptr<HelperWatch> helperWatch_; // or null
    fusehost::FuseHost host_;
    std::optional<SupervisorThread> supervising_;
    TraceFeed trace_{host_.monitor(), exchanges_};
    std::unique_ptr<RecordTap> recording_; // or null
    StopControl stop_;
    ServiceReport report_;                          // stopped before what it tells of goes
    std::atomic<std::optional<unsigned>> device_{}; // while it is served
    bool interrupted_ = false;                      // the end came between the mount and its first answer
};

/// Whatever folder the command was called in must not stay busy for as long as the mount lives. Staying there is no
/// reason to refuse the mount.
void leaveFolder(const MountPlan& plan) {
    if (::chdir("/") == 0)
        return;
    [[maybe_unused]] const int failed = ::chdir(plan.source.c_str());
}

} // namespace

ExitCode runMountSession(const MountPlan& plan, const Progress& progress) {
    leaveFolder(plan);
    return MountSession(plan).run(progress);
}

} // namespace cli
