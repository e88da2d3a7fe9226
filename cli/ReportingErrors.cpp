#include "cli/ReportingErrors.h"

#include "cli/CommandError.h"

#include <exception>

namespace cli {

ExitCode reportingErrors(const std::function<ExitCode()>& serve) {
    try {
        return serve();
    } catch (const CommandError& error) {
        printMessage(error.what());
        return error.code();
    } catch (const std::exception& error) {
        printMessage(error.what());
        return ExitCode::failure;
    }
}

} // namespace cli
