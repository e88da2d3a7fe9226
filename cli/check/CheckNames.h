#pragma once

namespace cli::check::name {

// Where one of these fails, a path may lead elsewhere than it says, or an answer belong to another question: then
// nothing is changed in the served tree.
constexpr const char* isResponse = "every answer is one line with one JSON object of the protocol";
constexpr const char* echoesID = "every answer carries its request's id";
constexpr const char* onlyAnswers = "nothing but answers is written to standard output";
constexpr const char* missingNames = "a missing name is answered with ENOENT";
constexpr const char* listings = "folders are listed";
constexpr const char* paths = "the path of an entry is its folder's path, a slash, and its name";
constexpr const char* names = "names are such as a kernel takes";
constexpr const char* duplicates = "no name stands twice in a listing";
constexpr const char* types = "every member has its type";
constexpr const char* agreement = "listing and getattr agree";

constexpr const char* neededToWrite[] = {isResponse, echoesID, onlyAnswers, missingNames, listings,
                                         paths,      names,    duplicates,  types,        agreement};

} // namespace cli::check::name
