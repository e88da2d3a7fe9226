#include "cli/control/RestartOperation.h"

#include <memory>
#include <string>
#include <utility>

namespace cli {

void addRestartOperation(control::ControlServer& server, Supervisor& supervisor, const HelperProcesses& helpers) {
    server.handle("restart", {"keepCaches"},
                  [&supervisor, &helpers](const control::Request& request, control::Reply& reply) {
                      const auto caches =
                          request.isSet("keepCaches") ? fusehost::KernelCaches::keep : fusehost::KernelCaches::drop;
                      const auto later = std::make_shared<control::Reply>(std::move(reply));
                      supervisor.restart(caches, [later, &helpers](const std::string& problem) {
                          if (problem.empty())
                              later->succeed(control::Members().add("pid", helpers.pid().value_or(0)));
                          else
                              later->refuse("failed", problem);
                      });
                  });
}

} // namespace cli
