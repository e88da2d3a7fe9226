#include "cli/VersionText.h"

#include "foundation/JSONLibrary.h"

#include <iostream>

namespace cli {

void printVersion() {
    std::cout << "kemvi " KEMVI_VERSION "\n"
              << "simdjson " << foundation::jsonLibraryVersion() << "\n"
              << std::flush;
}

} // namespace cli
