#pragma once

#include <optional>
#include <string>
#include <vector>

namespace cli::check {

enum class Severity { warning, error };

/// Something that is wrong with a helper.
struct Finding {
    Severity severity = Severity::error;
    std::string problem;
    std::string consequence; // what a user of the mount would see because of it
    std::string request;     // the lines that show it; empty where there are none
    std::string answer;
    std::size_t more = 0; // how many further findings of the same kind were not kept
};

/// One promise that was examined.
struct Check {
    std::string name;
    std::vector<Finding> findings;
    std::optional<std::string> skipped; // why it was not examined
    bool examined = false;

    std::size_t count(Severity severity) const;

    bool failed() const { return count(Severity::error) > 0; }
};

/// What an examination has found so far. Not thread-safe.
class Report {
public:
    /// Takes a check into the list, as one that has not been reached; one that is in it already stays as it is.
    void begin(const std::string& check);

    /// The check has been made: without a finding it counts as passed.
    void done(const std::string& check);

    /// Notes a finding under a check. Of findings with the same consequence under one check only the first is kept,
    /// with a count.
    void add(const std::string& check, Finding finding);

    void skip(const std::string& check, std::string reason);

    /// The examination was ended before it was through.
    void interrupt() { interrupted_ = true; }

    bool interrupted() const { return interrupted_; }

    const std::vector<Check>& checks() const { return checks_; }

    /// True if there is an error under the check.
    bool failed(const std::string& check) const;

    std::size_t count(Severity severity) const;

private:
    Check& find(const std::string& name);

    std::vector<Check> checks_;
    bool interrupted_ = false;
};

/// The report for people, as the Test Anything Protocol, and as one JSON object. Each ends with a line break.
std::string plainText(const Report& report);
std::string tapText(const Report& report);
std::string jsonText(const Report& report);

} // namespace cli::check
