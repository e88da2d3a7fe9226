#pragma once

#include "cli/stats/MountFigures.h"

#include <string>
#include <vector>

namespace cli {

/// A mount to be shown to a Prometheus server.
struct ScrapedMount {
    std::string mountPoint;
    std::optional<MountFigures> figures; // nothing if it did not answer
};

/// The figures of mounts in the text format of Prometheus (version 0.0.4).
std::string prometheusText(const std::vector<ScrapedMount>& mounts);

} // namespace cli
