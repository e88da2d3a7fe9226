#include "cli/MountControl.h"

#include "control/ControlClient.h"
#include "foundation/Log.h"

#include <cstdlib>
#include <exception>

namespace cli {

namespace {

void logWithout(const char* reason) {
    foundation::Logger(foundation::bundleIdentifier, "control")
        .warning({"the mount cannot be asked (kemvi status and others): ", foundation::logPublic(reason)});
}

} // namespace

MountControl::MountControl(const MountPlan& plan) {
    try {
        server_ =
            std::make_unique<control::ControlServer>(control::ControlServer::Greeting{KEMVI_VERSION, plan.mountPoint});
    } catch (const std::exception& error) {
        logWithout(error.what());
    }
    // The variable is there already (tellSourceToHelpers), so whoever reads another one meanwhile finds it in its
    // place.
    ::setenv(control::environmentName, path().c_str(), 1);
}

std::string MountControl::path() const {
    return server_ ? server_->path() : std::string();
}

void MountControl::serve(const std::function<void(control::ControlServer&)>& addOperations) {
    if (!server_)
        return;
    addOperations(*server_);
    try {
        server_->start();
    } catch (const std::system_error& error) {
        logWithout(error.what());
    }
}

void MountControl::stop() noexcept {
    if (server_)
        server_->stop();
}

} // namespace cli
