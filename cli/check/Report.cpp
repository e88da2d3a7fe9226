#include "cli/check/Report.h"

#include <algorithm>

namespace cli::check {

std::size_t Check::count(Severity severity) const {
    return static_cast<std::size_t>(std::count_if(
        findings.begin(), findings.end(), [&](const Finding& finding) { return finding.severity == severity; }));
}

Check& Report::find(const std::string& name) {
    const auto found =
        std::find_if(checks_.begin(), checks_.end(), [&](const Check& check) { return check.name == name; });
    if (found != checks_.end())
        return *found;
    checks_.push_back({name, {}, {}, false});
    return checks_.back();
}

void Report::begin(const std::string& check) {
    find(check);
}

void Report::done(const std::string& check) {
    find(check).examined = true;
}

void Report::add(const std::string& check, Finding finding) {
    auto& findings = find(check).findings;
    const auto alike = std::find_if(findings.begin(), findings.end(), [&](const Finding& known) {
        return known.consequence == finding.consequence && known.severity == finding.severity;
    });
    if (alike != findings.end())
        ++alike->more;
    else
        findings.push_back(std::move(finding));
}

void Report::skip(const std::string& check, std::string reason) {
    find(check).skipped = std::move(reason);
}

bool Report::failed(const std::string& check) const {
    return std::any_of(checks_.begin(), checks_.end(),
                       [&](const Check& known) { return known.name == check && known.failed(); });
}

std::size_t Report::count(Severity severity) const {
    std::size_t count = 0;
    for (const Check& check : checks_)
        count += check.count(severity);
    return count;
}

} // namespace cli::check
