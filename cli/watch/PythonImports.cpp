#include "cli/watch/PythonImports.h"

#include <algorithm>
#include <utility>

namespace cli {

namespace {

bool isWordCharacter(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') ||
           byte == '_' || byte >= 0x80;
}

constexpr std::string_view lineEnd = "\n";
constexpr std::string_view value = "'"; // stands for any string

/// Cuts a script into words, signs, ends of lines and strings. Comments, blanks and lines that go on are passed over.
class PythonTokens {
public:
    explicit PythonTokens(std::string_view script) : script_(script) { take(); }

    /// The token that is read now; empty at the end.
    std::string_view now() const { return token_; }

    bool isWord() const { return !token_.empty() && isWordCharacter(token_.front()); }

    void take() {
        passBlanks();
        if (at_ >= script_.size())
            token_ = {};
        else if (isWordCharacter(script_[at_]))
            takeWord();
        else if (script_[at_] == '\'' || script_[at_] == '"')
            takeString(script_[at_]);
        else
            token_ = script_.substr(at_++, 1);
    }

private:
    void passBlanks() {
        while (at_ < script_.size()) {
            const std::string_view rest = script_.substr(at_);
            if (rest.front() == ' ' || rest.front() == '\t' || rest.front() == '\r' || rest.front() == '\f')
                ++at_;
            else if (rest.starts_with("\\\n"))
                at_ += 2;
            else if (rest.starts_with("\\\r\n"))
                at_ += 3;
            else if (rest.front() == '#')
                at_ = std::min(script_.find('\n', at_), script_.size());
            else
                return;
        }
    }

    /// Also what stands before a string's quote (`rb'...'`), which then is a word of its own.
    void takeWord() {
        const std::size_t begin = at_;
        while (at_ < script_.size() && isWordCharacter(script_[at_]))
            ++at_;
        token_ = script_.substr(begin, at_ - begin);
    }

    /// One that is not finished ends with its line, or with the script.
    void takeString(char quote) {
        const std::string triple(3, quote);
        const bool isLong = script_.substr(at_).starts_with(triple);
        const std::string_view end = isLong ? std::string_view(triple) : std::string_view(triple).substr(0, 1);
        token_ = value;
        for (at_ += end.size(); at_ < script_.size(); ++at_) {
            if (script_[at_] == '\\') {
                ++at_;
            } else if (script_.substr(at_).starts_with(end)) {
                at_ += end.size();
                return;
            } else if (script_[at_] == '\n' && !isLong) {
                return;
            }
        }
        at_ = script_.size();
    }

    const std::string_view script_;
    std::size_t at_ = 0;
    std::string_view token_;
};

/// `import` is a word of the language and in no expression, so no statement has to be known but these two.
class PythonImportReader {
public:
    explicit PythonImportReader(std::string_view script) : tokens_(script) {}

    std::vector<PythonImport> read() {
        while (!tokens_.now().empty()) {
            if (takeIf("import"))
                readImport();
            else if (takeIf("from"))
                readFrom();
            else
                tokens_.take();
        }
        return std::move(imports_);
    }

private:
    bool takeIf(std::string_view token) {
        if (tokens_.now() != token)
            return false;
        tokens_.take();
        return true;
    }

    bool isName() const { return tokens_.isWord() && tokens_.now() != "import" && tokens_.now() != "from"; }

    std::string takeName() {
        std::string name(tokens_.now());
        tokens_.take();
        return name;
    }

    std::vector<std::string> takeModule() {
        std::vector<std::string> module;
        while (isName()) {
            module.push_back(takeName());
            if (!takeIf("."))
                break;
        }
        return module;
    }

    void passOtherName() {
        if (takeIf("as") && isName())
            tokens_.take();
    }

    void readImport() {
        do {
            PythonImport found{0, takeModule(), {}};
            if (found.module.empty())
                return;
            imports_.push_back(std::move(found));
            passOtherName();
        } while (takeIf(","));
    }

    void readFrom() {
        PythonImport found;
        while (takeIf("."))
            ++found.level;
        found.module = takeModule();
        if ((found.level == 0 && found.module.empty()) || !takeIf("import"))
            return; // `raise ... from`, `yield from`
        const bool isBracketed = takeIf("(");
        const auto passLineEnds = [&] {
            while (isBracketed && takeIf(lineEnd)) {
            }
        };
        for (passLineEnds(); isName(); passLineEnds()) {
            found.names.push_back(takeName());
            passOtherName();
            passLineEnds();
            if (!takeIf(","))
                break;
        }
        imports_.push_back(std::move(found));
    }

    PythonTokens tokens_;
    std::vector<PythonImport> imports_;
};

} // namespace

std::vector<PythonImport> pythonImportsOf(std::string_view script) {
    return PythonImportReader(script).read();
}

} // namespace cli
