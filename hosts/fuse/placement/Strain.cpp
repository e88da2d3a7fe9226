#include "hosts/fuse/placement/Strain.h"

#include <algorithm>
#include <utility>

namespace fusehost {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

/// Whoever is woken on the other's processor waits until that one goes to sleep.
constexpr nanoseconds oneTurn = 20us;
/// Within the steps that are kept. Below it falls what any machine does beside its work.
constexpr nanoseconds tooLong = 5ms;
/// So much of what was usual is remembered in full.
constexpr nanoseconds usualTime = 100ms;
/// So long the companion may use a processor up.
constexpr nanoseconds burningTime = 15ms;

nanoseconds waitedBeyondTurns(const TaskTimes& before, const TaskTimes& after) {
    const auto turns = static_cast<nanoseconds::rep>(after.turns - before.turns);
    return std::max(nanoseconds(0), after.delayed - before.delayed - turns * oneTurn);
}

std::string milliseconds(nanoseconds time) {
    return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
}

} // namespace

void Strain::begin(Clock::time_point now, const TaskTimes& host, const TaskTimes& companion) {
    last_ = now;
    host_ = host;
    companion_ = companion;
    steps_ = {};
    waited_ = {};
}

Strain::Step Strain::take(Clock::time_point now, const TaskTimes& host, const TaskTimes& companion) {
    const Step step{now - last_, waitedBeyondTurns(host_, host) + waitedBeyondTurns(companion_, companion),
                    companion.run - companion_.run};
    last_ = now;
    host_ = host;
    companion_ = companion;
    waited_ += step.waited;
    return step;
}

nanoseconds Strain::takeWaited() {
    return std::exchange(waited_, nanoseconds(0));
}

void Strain::addUsual(Clock::time_point now, const TaskTimes& host, const TaskTimes& companion) {
    const Step step = take(now, host, companion);
    if (usual_.length > usualTime) {
        usual_.length /= 2;
        usual_.waited /= 2;
    }
    usual_.length += step.length;
    usual_.waited += step.waited;
}

std::string Strain::add(Clock::time_point now, const TaskTimes& host, const TaskTimes& companion) {
    steps_[next_] = take(now, host, companion);
    next_ = (next_ + 1) % kept;
    Step sum;
    for (const Step& step : steps_) {
        sum.length += step.length;
        sum.waited += step.waited;
        sum.burnt += step.burnt;
    }
    const double usually = usual_.length.count() > 0
                               ? static_cast<double>(usual_.waited.count()) / static_cast<double>(usual_.length.count())
                               : 0;
    if (static_cast<double>((sum.waited - tooLong).count()) >= 1.5 * usually * static_cast<double>(sum.length.count()))
        return "the two had to wait for the processor, " + milliseconds(sum.waited) + " of " +
               milliseconds(sum.length) + " ms";
    if (sum.burnt >= burningTime && sum.burnt * 20 >= sum.length * 19)
        return "the companion uses the processor up";
    return {};
}

} // namespace fusehost
