#pragma once

#include "cli/HelperSettings.h"

#include <string>

namespace cli {

/// What `kemvi init --store` is told of the store that a mount is to show.
struct StoreRequest {
    std::string store;    // "pglite:DIR", or a URL that begins with "postgres://"
    std::string contents; // "database", "s3://BUCKET/PREFIX", or empty: as the tree has it
    std::string tree;     // its name, or empty: the helper's default
};

/// The settings by which the helper of a store finds it. Throws CommandError, which names the option and what was
/// expected, for an address that cannot be one, or one that holds a password: the configuration can be read by others.
/// `source` is the source directory, for the message. Asks nothing of the store.
HelperSettings storeSettings(const StoreRequest& request, const std::string& source);

/// The folder of an embedded store, absolute; empty for one on a server.
std::string embeddedFolder(const std::string& store);

} // namespace cli
