#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// The words of a command line, as a shell splits them, without any of its other powers: blanks part words; between
/// single quotes all stands for itself, between double quotes all but a backslash before a double quote or a backslash;
/// elsewhere a backslash takes the next character as it is. Variables, patterns, pipes and redirections mean nothing.
/// Throws CommandError for a quote or a backslash without its other half.
std::vector<std::string> commandWords(std::string_view text);

/// The command that a user gave, as a mount can run it, whose folder and PATH are others: the program by its absolute
/// path, and each argument that names an existing file by that file's. Throws CommandError if there is no such program,
/// or no such script.
std::vector<std::string> absoluteCommand(std::vector<std::string> words);

/// The command for people: words with blanks in them are quoted, as `commandWords` reads them.
std::string commandText(const std::vector<std::string>& command);

} // namespace cli
