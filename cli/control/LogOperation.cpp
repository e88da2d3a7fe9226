#include "cli/control/LogOperation.h"

#include <utility>

namespace cli {

void addLogOperation(control::ControlServer& server, std::shared_ptr<RecentLog> log) {
    server.handle("log", {"follow"}, [log = std::move(log)](const control::Request& request, control::Reply& reply) {
        if (request.isSet("follow"))
            log->follow(reply);
        else
            reply.succeed(control::Members().add("lines", log->lines()));
    });
}

} // namespace cli
