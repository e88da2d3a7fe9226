#pragma once

namespace cli {

/// Makes a start of what this process inherited, whatever that is: standard descriptors that were closed lead to
/// /dev/null, so that nothing opened later gets their numbers; no signal is blocked; and SIGCHLD and SIGTERM, which a
/// caller may have ignored, do what they do by default, without which no child could be waited for and no mount ended.
/// To be called first of all, before anything is opened and any thread runs.
void settleInheritedState();

} // namespace cli
