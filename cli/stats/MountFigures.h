#pragma once

#include "helper/JSONValue.h"
#include "hosts/fuse/monitor/LatencyHistogram.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace cli {

/// What was counted of one operation, of the kernel or of the helper.
struct OperationFigures {
    std::string operation;
    fusehost::LatencyCounts latency;
    std::uint64_t bytes = 0;
    std::map<std::string, std::uint64_t> errors; // by name or code
};

/// What a mount answers to "stats". A member that it lacks, as another version may, counts as 0.
struct MountFigures {
    std::string version;
    std::string source;
    std::string mountPoint;
    double seconds = 0; // since the mount was made
    std::vector<OperationFigures> kernel;
    std::vector<OperationFigures> exchanges;
    double requestSeconds = 0; // what all requests have taken, and of that:
    double waitingSeconds = 0; // they waited for one another
    double helperSeconds = 0;  // the helper took
    double bytesRead = 0;      // of files
    double bytesWritten = 0;
    double bytesSent = 0; // lines to the helper
    double bytesReceived = 0;
    double nodes = 0;
    double openFiles = 0;
    double helperHandles = 0;
    double hiddenFiles = 0;
    double waitingRequests = 0;
    double currentExchangeSeconds = 0;
    double helperRestarts = 0;
    bool helperUp = false;
    double hostBytes = 0; // resident
    std::optional<double> helperBytes;

    static MountFigures of(const kemvi::JSONObject& answer);

    /// What was counted since `earlier`, an answer of the same mount; gauges are those of now.
    MountFigures since(const MountFigures& earlier) const;
};

} // namespace cli
