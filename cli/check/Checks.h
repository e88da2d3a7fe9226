#pragma once

#include "cli/check/Conversation.h"

#include <cstdint>
#include <string>
#include <vector>

namespace cli::check {

/// A file of the served tree to read.
struct SampleFile {
    std::string path;
    std::int64_t size = 0; // bytes, as listed
};

/// What a helper must answer to requests that cannot succeed, and to lines of unusual form.
void checkRequests(Conversation& talk);

/// Looks at the listings of the served tree, from the root down, and at the attributes of what is in them; returns some
/// files to read.
std::vector<SampleFile> checkTree(Conversation& talk);

/// Reads files in several ways and compares.
void checkReading(Conversation& talk, const std::vector<SampleFile>& files);

/// Makes, changes and removes things in a new folder inside `directory`, a path of the served tree.
void checkWriting(Conversation& talk, const std::string& directory);

/// Requests by operation, without their ids.
kemvi::HelperRequest pathRequest(const char* op, std::string path);
kemvi::HelperRequest openRequest(std::string path, std::vector<std::string> flags);
kemvi::HelperRequest handleRequest(const char* op, std::int64_t handle);

/// The path of `name` in the folder `path`.
std::string childPath(const std::string& path, const std::string& name);

/// The handle in the answer to an open; nothing if it holds none.
std::optional<std::int64_t> handleIn(const Answer& answer);

/// The bytes in the answer to a read; nothing if it holds none.
std::optional<std::string> bytesIn(const Answer& answer);

/// Reads at most `length` bytes at `offset`.
Answer askRead(Conversation& talk, std::int64_t handle, std::int64_t offset, std::int64_t length);

/// Everything from `offset` on, by reads of at most `piece` bytes, until a read gives none or `limit` bytes have come;
/// nothing if a read fails.
std::optional<std::string> readOn(Conversation& talk, std::int64_t handle, std::int64_t offset, std::int64_t piece,
                                  std::size_t limit);

} // namespace cli::check
