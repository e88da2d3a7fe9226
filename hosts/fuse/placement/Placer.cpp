#include "hosts/fuse/placement/Placer.h"

#include "hosts/fuse/support/HostLog.h"

#include <algorithm>

namespace fusehost {
namespace {

using namespace std::chrono_literals;

/// What else has run there for a moment has mostly gone by then, or the two find another processor.
constexpr std::chrono::milliseconds shortestBar = 50ms;
constexpr std::chrono::milliseconds longestBar = 16s;
/// Whoever has started one process will start another.
constexpr std::chrono::milliseconds barForProcesses = 1s;
/// After so long without harm the next one counts as the first.
constexpr auto forgotten = 20s;

void tell(std::string_view text) {
    hostLog().debug({"placement: ", foundation::logPublic(text)});
}

} // namespace

Placer::Placer(Tasks& tasks, Pace& pace, const Companion& companion, Task host)
    : tasks_(tasks), pace_(pace), companion_(companion), host_(host), masks_(tasks, host),
      processors_(tasks.processors()), bar_(shortestBar) {
    judge_.excludeTogether(true); // until there is somebody
}

Placer::~Placer() {
    pace_.allowWaiting(false);
    masks_.putBack();
}

bool Placer::end(Clock::time_point now) {
    go(now, Way::apart);
    masks_.lookAfterOthers();
    return masks_.isSettled();
}

bool Placer::step(Clock::time_point now) {
    meetCompanion(now, companion_.process());
    if (const std::uint64_t requests = pace_.take(gaps_); requests > 0) {
        lastRequest_ = now;
        requests_ += requests;
    }
    if (now - lastRequest_ >= idleAfter) {
        beIdle(now);
        if (!masks_.isSettled())
            return true;
        tasks_.rest();
        return false;
    }
    checkDemand(now);
    checkHarm(now);
    if (!knowsWhoAnswers())
        return true;
    const auto cost = costOfLook();
    if (judge_.add(now, cost))
        tell(judge_.result() + " of the time apart; from now on " + nameOf(judge_.way()));
    if (judge_.way() != way_)
        forgetLook();
    go(now, judge_.way());
    return true;
}

// What others' work costs shows in few requests, each of which is late by milliseconds; by the usual ones nobody would
// see it.
std::optional<double> Placer::costOfLook() {
    auto cost = typicalCost(gaps_);
    if (cost) {
        *cost += static_cast<double>(strain_.takeWaited().count()) / static_cast<double>(requests_);
        forgetLook();
    }
    return cost;
}

void Placer::forgetLook() {
    gaps_.clear();
    requests_ = 0;
}

std::chrono::milliseconds Placer::untilNextStep() const {
    const bool isQuiet = way_ == Way::apart && judge_.way() == Way::apart && !judge_.isTrying() && masks_.isSettled();
    return isQuiet ? longStep : stepLength;
}

void Placer::meetCompanion(Clock::time_point now, pid_t family) {
    if (family == family_)
        return;
    go(now, Way::apart);
    family_ = family;
    answering_.reset();
    mayAnswer_.clear();
    lastRefusal_.clear();
    judge_.excludeTogether(family == 0);
}

// The companion may have a child that does its work. Who answers has a turn for each request.
bool Placer::knowsWhoAnswers() {
    if (family_ == 0 || answering_)
        return true;
    if (mayAnswer_.empty()) {
        std::vector<pid_t> processes = tasks_.children(family_).value_or(std::vector<pid_t>());
        processes.insert(processes.begin(), family_);
        for (const pid_t process : processes)
            if (const auto times = tasks_.times({process, process}))
                mayAnswer_.emplace_back(Task{process, process}, times->turns);
        if (mayAnswer_.size() > 1)
            return false;
    }
    std::uint64_t most = 0;
    isResuming_ = true; // what is compared is another's
    answering_ = Task{family_, family_};
    for (const auto& [task, turns] : mayAnswer_)
        if (const auto times = tasks_.times(task); times && times->turns - turns > most) {
            most = times->turns - turns;
            answering_ = task;
        }
    mayAnswer_.clear();
    return true;
}

// Not a harm that is remembered: it is looked for at every step.
void Placer::checkDemand(Clock::time_point now) {
    const bool wasHigh = demand_.isHigh();
    demand_.add(tasks_.runnable(), processors_);
    if (!demand_.isHigh())
        return;
    if (!wasHigh)
        tell("apart while others want every processor");
    judge_.bar(now + shortestBar);
    go(now, Way::apart);
}

void Placer::checkHarm(Clock::time_point now) {
    const int started = masks_.lookAfterOthers();
    const auto host = tasks_.times(host_);
    const auto companion = answering_ ? tasks_.times(*answering_) : host;
    if (way_ == Way::apart) {
        if (host && companion && !std::exchange(isResuming_, false))
            strain_.addUsual(now, *host, *companion);
        else if (host && companion)
            strain_.begin(now, *host, *companion);
        return;
    }
    if (way_ == Way::together) {
        if (!companion)
            return giveUp(now, "the companion has gone");
        if (!masks_.areOurs()) {
            giveUp(now, "somebody else has changed on which processors they run");
            judge_.excludeTogether(true);
            return;
        }
        if (started > 0) {
            bar_ = std::max(bar_, barForProcesses);
            return giveUp(now, "the companion starts processes");
        }
    }
    if (!host || !companion)
        return;
    if (const std::string harm = strain_.add(now, *host, *companion); !harm.empty())
        giveUp(now, harm);
    else if (now - lastGoneWell_ > forgotten)
        bar_ = shortestBar;
}

void Placer::giveUp(Clock::time_point now, const std::string& reason) {
    tell("given up for " + std::to_string(bar_.count()) + " ms: " + reason);
    judge_.bar(now + bar_);
    bar_ = std::min(longestBar, bar_ * 2);
    lastGoneWell_ = now;
    answering_.reset();
    go(now, Way::apart);
}

void Placer::go(Clock::time_point now, Way way) {
    if (way == way_)
        return;
    if (way_ == Way::together)
        masks_.putBack();
    if (way == Way::together && !place())
        way = judge_.way();
    way_ = way;
    pace_.allowWaiting(way != Way::apart);
    const auto host = tasks_.times(host_);
    const auto companion = answering_ ? tasks_.times(*answering_) : host;
    if (host && companion)
        strain_.begin(now, *host, *companion);
}

bool Placer::place() {
    const std::string refusal =
        masks_.place(family_, *answering_, [&](int processor) { companion_.tellPlaced(processor); });
    if (refusal.empty()) {
        if (!judge_.isTrying())
            tell("together on processor " + std::to_string(masks_.processor()) + " with thread " +
                 std::to_string(answering_->thread));
        return true;
    }
    if (refusal != lastRefusal_)
        tell("not together: " + refusal);
    lastRefusal_ = refusal;
    answering_.reset();
    judge_.excludeTogether(true);
    return false;
}

void Placer::beIdle(Clock::time_point now) {
    if (way_ == Way::together && !judge_.isTrying())
        tell("the mount is idle");
    go(now, Way::apart);
    forgetLook();
    demand_.begin();
    isResuming_ = true;
    masks_.lookAfterOthers();
}

} // namespace fusehost
