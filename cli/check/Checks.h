#pragma once

#include "cli/check/Conversation.h"
#include "helper/HelperRecords.h"

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

/// Looks at one folder and at what is in it, in the same way.
void checkFolder(Conversation& talk, const std::string& path);

/// Reads files in several ways and compares.
void checkReading(Conversation& talk, const std::vector<SampleFile>& files);

/// Makes, changes and removes things in a new folder inside `directory`, a path of the served tree; begins only where
/// no name and no path was found wrong. Removes what it made and nothing else, also when it is left by an exception.
void checkWriting(Conversation& talk, const std::string& directory);

/// Requests by operation, without their ids.
kemvi::HelperRequest pathRequest(const char* op, std::string path);
kemvi::HelperRequest openRequest(std::string path, std::vector<std::string> flags);
kemvi::HelperRequest handleRequest(const char* op, std::int64_t handle);

/// The path of `name` in the folder `path`.
std::string childPath(const std::string& path, const std::string& name);

/// The attributes in a result or in an entry of a listing; nothing where they are no object, or hold a number that no
/// record can take.
std::optional<kemvi::KemviFileStat> statIn(const kemvi::JSONValue& value);
std::optional<kemvi::KemviFileStat> statIn(const Answer& answer);

/// False for what no kernel takes as a name in a folder: nothing, ".", "..", and what has a slash or NUL in it.
bool isPossibleName(const std::string& name);

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
