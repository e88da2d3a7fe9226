#pragma once

#include "cli/stats/MountFigures.h"

#include <string>

namespace cli {

/// The figures of a mount since it was made, in lines for people.
std::string figuresText(const MountFigures& figures);

/// The same of a passed interval (MountFigures::since), with what was done per second.
std::string figuresOfInterval(const MountFigures& interval, double secondsSinceMount);

} // namespace cli
