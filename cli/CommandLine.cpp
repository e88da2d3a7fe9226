#include "cli/CommandLine.h"

#include "cli/CommandError.h"
#include "cli/Spelling.h"
#include "cli/VersionText.h"

#include <algorithm>
#include <vector>

namespace cli {

namespace {

/// "kemvi help" and "kemvi help COMMAND" as the options that they stand for.
std::vector<std::string> withoutHelpCommand(std::vector<std::string> words) {
    if (!words.empty() && words.front() == "help") {
        words.erase(words.begin());
        words.emplace_back("--help");
    }
    return words;
}

std::vector<std::string> commandNames(const CLI::App& app) {
    std::vector<std::string> names{"help"};
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(command->get_name());
        names.insert(names.end(), command->get_aliases().begin(), command->get_aliases().end());
    }
    return names;
}

/// Throws CommandError unless the first word, which there must be, is a command or an option.
void checkCommand(const CLI::App& app, const std::vector<std::string>& words) {
    const std::string& word = words.front();
    const auto known = commandNames(app);
    if (word.starts_with('-') || std::find(known.begin(), known.end(), word) != known.end())
        return;
    const auto meant = likelyMeant(word, known);
    throw CommandError(ExitCode::usage, word,
                       "there is no such command; " +
                           (meant ? "did you mean kemvi " + *meant + "?" : std::string("see kemvi --help")));
}

} // namespace

int runCommandLine(CLI::App& app, const ExitCode& result, const std::string& missing, int argc, char** argv) {
    auto words = withoutHelpCommand({argv + 1, argv + argc});
    if (words.empty()) {
        printMessage(missing);
        return static_cast<int>(ExitCode::usage);
    }
    checkCommand(app, words);
    try {
        std::reverse(words.begin(), words.end()); // as it is taken: the last word first
        app.parse(words);
    } catch (const CLI::CallForVersion&) {
        printVersion();
    } catch (const CLI::Success& answered) { // --help
        return app.exit(answered);
    } catch (const CLI::ParseError& error) {
        printMessage(std::string(error.what()) + "; see kemvi --help");
        return static_cast<int>(ExitCode::usage);
    }
    return static_cast<int>(result);
}

} // namespace cli
