#include "cli/watch/ImportScanner.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <utility>

namespace cli {

namespace {

bool isWordCharacter(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') ||
           byte == '_' || byte == '$' || byte == '#' || byte >= 0x80;
}

/// Words behind which an expression begins, and so a "/" a regular expression.
bool isBeforeExpression(std::string_view word) {
    constexpr std::array<std::string_view, 15> words{"return", "typeof", "case",       "in",    "of",
                                                     "delete", "void",   "throw",      "new",   "do",
                                                     "else",   "yield",  "instanceof", "await", "default"};
    return std::find(words.begin(), words.end(), word) != words.end();
}

class ImportScanner {
public:
    explicit ImportScanner(std::string_view script) : script_(script) {}

    std::vector<std::string> scan() {
        if (script_.starts_with("#!"))
            passLine();
        while (at_ < script_.size())
            passToken();
        return std::move(imports_);
    }

private:
    char next(std::size_t distance = 0) const {
        return at_ + distance < script_.size() ? script_[at_ + distance] : '\0';
    }

    /// A token that may mean something for the next.
    void note(std::string_view token) {
        beforeLast_ = last_;
        last_ = token;
    }

    void passToken() {
        const char character = next();
        if (character == ' ' || character == '\t' || character == '\n' || character == '\r')
            ++at_;
        else if (character == '/')
            passSlash();
        else if (character == '\'' || character == '"')
            passString(character);
        else if (character == '`')
            passTemplate();
        else if (isWordCharacter(character))
            passWord();
        else
            passSign(character);
    }

    void passSlash() {
        if (next(1) == '/')
            passLine();
        else if (next(1) == '*')
            at_ = std::min(script_.find("*/", at_ + 2), script_.size() - 2) + 2;
        else if (!mayBeginExpression() || !passExpression())
            passSign('/');
    }

    void passLine() { at_ = std::min(script_.find('\n', at_), script_.size()); }

    bool mayBeginExpression() const {
        if (last_.empty())
            return true;
        if (isWordCharacter(last_.front()))
            return isBeforeExpression(last_);
        return last_ != ")" && last_ != "]" && last_ != "}" && last_ != value;
    }

    /// A regular expression. False, and nothing passed, if it does not end in its line.
    bool passExpression() {
        bool isInClass = false;
        for (std::size_t end = at_ + 1; end < script_.size() && script_[end] != '\n'; ++end) {
            if (script_[end] == '\\')
                ++end;
            else if (script_[end] == '[')
                isInClass = true;
            else if (script_[end] == ']')
                isInClass = false;
            else if (script_[end] == '/' && !isInClass) {
                at_ = end + 1;
                note(value);
                return true;
            }
        }
        return false;
    }

    void passWord() {
        const std::size_t begin = at_;
        while (at_ < script_.size() && isWordCharacter(script_[at_]))
            ++at_;
        note(script_.substr(begin, at_ - begin));
    }

    void passSign(char character) {
        note(script_.substr(at_, 1));
        ++at_;
        if (templates_.empty())
            return;
        if (character == '{')
            ++templates_.back();
        else if (character == '}' && templates_.back()-- == 0) {
            templates_.pop_back();
            if (passTemplateText())
                note(value);
        }
    }

    void passString(char quote) {
        const std::size_t begin = at_ + 1;
        for (std::size_t end = begin; end < script_.size() && script_[end] != '\n'; ++end) {
            if (script_[end] == '\\') {
                ++end;
            } else if (script_[end] == quote) {
                at_ = end + 1;
                noteText(script_.substr(begin, end - begin));
                return;
            }
        }
        passSign(quote); // no string after all, or one that is not finished yet
    }

    /// A template without values is a literal as well.
    void passTemplate() {
        const std::size_t begin = at_ + 1;
        ++at_;
        if (passTemplateText())
            noteText(script_.substr(begin, at_ - 1 - begin));
    }

    /// Up to the end of the template, which gives true, or to the value within it.
    bool passTemplateText() {
        for (; at_ < script_.size(); ++at_) {
            if (next() == '\\') {
                ++at_;
            } else if (next() == '`') {
                ++at_;
                return true;
            } else if (next() == '$' && next(1) == '{') {
                at_ += 2;
                note("(");
                templates_.push_back(0);
                return false;
            }
        }
        at_ = script_.size();
        return false;
    }

    void noteText(std::string_view text) {
        const bool isCalled = last_ == "(" && (beforeLast_ == "import" || beforeLast_ == "require");
        if (isCalled || last_ == "from" || last_ == "import")
            imports_.push_back(withoutEscapes(text));
        note(value);
    }

    static std::string withoutEscapes(std::string_view text) {
        std::string plain;
        for (std::size_t at = 0; at < text.size(); ++at) {
            if (text[at] == '\\' && at + 1 < text.size())
                ++at;
            plain += text[at];
        }
        return plain;
    }

    static constexpr std::string_view value = "'"; // stands for any literal

    const std::string_view script_;
    std::size_t at_ = 0;
    std::string_view last_; // token; and the one before it
    std::string_view beforeLast_;
    std::vector<std::size_t> templates_; // whose values are being read: the open braces in each
    std::vector<std::string> imports_;
};

} // namespace

std::vector<std::string> importsOf(std::string_view script) {
    return ImportScanner(script).scan();
}

} // namespace cli
