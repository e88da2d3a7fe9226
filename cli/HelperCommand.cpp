#include "cli/HelperCommand.h"

#include "cli/CommandError.h"
#include "cli/HelperScript.h"
#include "cli/Paths.h"

#include <cerrno>
#include <filesystem>
#include <optional>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace cli {

namespace filesystem = std::filesystem;

namespace {

constexpr std::string_view blanks = " \t\n";

[[noreturn]] void refuse(std::string_view text, const std::string& problem) {
    throw CommandError(ExitCode::usage, "--command " + std::string(text), problem);
}

/// Reads one command line from its start to its end.
class WordReader {
public:
    explicit WordReader(std::string_view text) : text_(text) {}

    std::vector<std::string> words() {
        while (at_ < text_.size()) {
            const char next = text_[at_++];
            if (blanks.find(next) != std::string_view::npos)
                finishWord();
            else
                read(next);
        }
        finishWord();
        return std::move(words_);
    }

private:
    void read(char next) {
        isInWord_ = true; // which may be an empty one, between quotes
        if (next == '\'')
            readSingleQuoted();
        else if (next == '"')
            readDoubleQuoted();
        else
            word_ += next == '\\' ? takeEscaped() : next;
    }

    void readSingleQuoted() {
        const std::size_t end = text_.find('\'', at_);
        if (end == std::string_view::npos)
            refuse(text_, "a single quote (') has no other half");
        word_ += text_.substr(at_, end - at_);
        at_ = end + 1;
    }

    void readDoubleQuoted() {
        while (at_ < text_.size() && text_[at_] != '"') {
            const bool escapes =
                text_[at_] == '\\' && at_ + 1 < text_.size() && (text_[at_ + 1] == '"' || text_[at_ + 1] == '\\');
            at_ += escapes ? 1 : 0;
            word_ += text_[at_++];
        }
        if (at_ == text_.size())
            refuse(text_, "a double quote (\") has no other half");
        ++at_;
    }

    char takeEscaped() {
        if (at_ == text_.size())
            refuse(text_, "a backslash at the end stands for nothing; write it twice");
        return text_[at_++];
    }

    void finishWord() {
        if (isInWord_)
            words_.push_back(std::exchange(word_, {}));
        isInWord_ = false;
    }

    const std::string_view text_;
    std::size_t at_ = 0;
    bool isInWord_ = false;
    std::string word_; // the one being read
    std::vector<std::string> words_;
};

std::string absoluteProgram(const std::string& name) {
    if (name.find('/') == std::string::npos) {
        if (const auto found = findInPath(name))
            return absolutePath(*found);
        throw CommandError(ExitCode::helperUnavailable, name, "is not in PATH; install it, or give its path");
    }
    std::error_code error;
    std::string path = absolutePath(name);
    if (!filesystem::is_regular_file(path, error))
        throw CommandError(ExitCode::helperUnavailable, name, "there is no such program");
    if (::access(path.c_str(), X_OK) != 0) {
        const auto interpreter = foreignInterpreter(path);
        throw CommandError(ExitCode::helperUnavailable, name,
                           "cannot be executed: " + errnoText(errno) +
                               (interpreter ? "; use --command '" + *interpreter + " " + commandText({name}) + "'"
                                            : std::string("; chmod +x makes a program of it")));
    }
    return path;
}

/// A file is named by its own path from here on. What looks like a script and is not there is a slip.
std::string absoluteArgument(const std::string& argument) {
    std::error_code error;
    if (argument.empty() || argument.starts_with('-'))
        return argument;
    if (filesystem::is_regular_file(argument, error))
        return absolutePath(argument);
    if (foreignInterpreter(argument))
        throw CommandError(ExitCode::helperUnavailable, argument, "there is no such script");
    return argument;
}

} // namespace

std::vector<std::string> commandWords(std::string_view text) {
    std::vector<std::string> words = WordReader(text).words();
    if (words.empty() || words.front().empty())
        refuse(text, "names no program; expected a program and its arguments, such as 'python3 /path/tree.py'");
    return words;
}

std::vector<std::string> absoluteCommand(std::vector<std::string> words) {
    words.front() = absoluteProgram(words.front());
    for (std::size_t number = 1; number < words.size(); ++number)
        words[number] = absoluteArgument(words[number]);
    return words;
}

std::string commandText(const std::vector<std::string>& command) {
    std::string text;
    for (const std::string& word : command) {
        text += text.empty() ? "" : " ";
        if (!word.empty() && word.find_first_of(" \t\n'\"\\") == std::string::npos) {
            text += word;
            continue;
        }
        text += '"';
        for (const char each : word)
            text += each == '"' || each == '\\' ? std::string("\\") + each : std::string(1, each);
        text += '"';
    }
    return text;
}

} // namespace cli
