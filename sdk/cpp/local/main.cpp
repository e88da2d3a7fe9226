// Serves the folder in KEMVI_REPO_ROOT.
#include "LocalFolder.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

namespace {

std::string setting(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

} // namespace

int main() {
    std::setlocale(LC_CTYPE, "C.UTF-8"); // names are UTF-8, whatever the user's language is
    const std::string root = setting("KEMVI_REPO_ROOT");
    try {
        if (root.empty())
            throw kemvi::PosixError("ENOENT", "it is not set");
        local::LocalFolder folder(root, setting("KEMVI_SOURCE"));
        return kemvi::serve(folder);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kemvi-helper: cannot serve the folder in KEMVI_REPO_ROOT (%s): %s\n", root.c_str(),
                     error.what());
        return 1;
    }
}
