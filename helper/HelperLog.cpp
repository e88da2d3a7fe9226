#include "helper/HelperLog.h"

#include "foundation/Log.h"

namespace kemvi {

void HelperLog::take(std::string_view bytes) {
    for (const std::string& line : lines_.take(bytes))
        log(line);
}

void HelperLog::finish() {
    if (const auto last = lines_.rest())
        log(*last);
}

void HelperLog::log(const std::string& line) {
    // Never destroyed: helpers may have last words while the process ends.
    static const auto* const logger = new foundation::Logger(foundation::bundleIdentifier, "Helper");
    logger->warning({foundation::logPublic(line)});
}

} // namespace kemvi
