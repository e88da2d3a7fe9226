#pragma once

#include "cli/ExchangeMeter.h"
#include "cli/trace/TraceFeed.h"
#include "control/ControlServer.h"

#include <string>

namespace cli {

/// Adds the operation "record": from then on the lines of a recording, its header first, until the peer goes. Members
/// "payloads" ("full", "hash", "none") and "scramble". A peer that cannot keep up loses lines and is told how many; the
/// last line is the peer's to write. Exchanges and feed must outlive the server.
void addRecordOperation(control::ControlServer& server, const std::string& mountPoint, ExchangeMeter& exchanges,
                        TraceFeed& requests);

} // namespace cli
