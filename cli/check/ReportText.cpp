#include "cli/CommandError.h"
#include "cli/JSONText.h"
#include "cli/check/Report.h"

namespace cli::check {

namespace {

constexpr std::size_t shownLine = 300; // bytes of a request or answer line shown to people

std::string shortened(const std::string& line) {
    std::string shown = escapedControls(std::string_view(line).substr(0, shownLine));
    if (line.size() > shownLine) {
        shown += "... (" + std::to_string(line.size()) + " bytes)";
    }
    return shown;
}

std::string status(const Check& check) {
    if (check.failed()) {
        return "FAIL";
    }
    if (!check.findings.empty()) {
        return "warn";
    }
    return check.skipped ? "skip" : "ok";
}

std::string details(const Finding& finding, const std::string& indent) {
    std::string text;
    const auto line = [&](const char* label, const std::string& value) {
        if (!value.empty()) {
            text += indent + label + shortened(value) + "\n";
        }
    };
    line("request: ", finding.request);
    line("answer:  ", finding.answer);
    line("wrong:   ", finding.problem);
    line("so:      ", finding.consequence);
    if (finding.more > 0) {
        text += indent + "and " + std::to_string(finding.more) + " more like it\n";
    }
    return text;
}

std::string summary(const Report& report) {
    return std::to_string(report.count(Severity::error)) + " errors, " +
           std::to_string(report.count(Severity::warning)) + " warnings";
}

std::string findingJSON(const Finding& finding) {
    return std::string("{\"severity\":") + (finding.severity == Severity::error ? "\"error\"" : "\"warning\"") +
           ",\"problem\":" + jsonString(finding.problem) + ",\"consequence\":" + jsonString(finding.consequence) +
           ",\"request\":" + jsonString(shortened(finding.request)) +
           ",\"answer\":" + jsonString(shortened(finding.answer)) + ",\"more\":" + std::to_string(finding.more) + "}";
}

} // namespace

std::string plainText(const Report& report) {
    std::string text;
    for (const Check& check : report.checks()) {
        text += status(check) + std::string(6 - status(check).size(), ' ') + check.name;
        text += check.skipped ? " (" + *check.skipped + ")\n" : "\n";
        for (const Finding& finding : check.findings) {
            text += details(finding, "        ");
        }
    }
    return text + summary(report) + "\n";
}

std::string tapText(const Report& report) {
    std::string text = "TAP version 13\n1.." + std::to_string(report.checks().size()) + "\n";
    std::size_t number = 0;
    for (const Check& check : report.checks()) {
        text += (check.failed() ? "not ok " : "ok ") + std::to_string(++number) + " - " + check.name;
        text += check.skipped ? " # SKIP " + *check.skipped + "\n" : "\n";
        for (const Finding& finding : check.findings) {
            text += finding.severity == Severity::warning ? "# warning\n" : "# error\n";
            text += details(finding, "#   ");
        }
    }
    return text + "# " + summary(report) + "\n";
}

std::string jsonText(const Report& report) {
    std::string text = "{\"errors\":" + std::to_string(report.count(Severity::error)) +
                       ",\"warnings\":" + std::to_string(report.count(Severity::warning)) + ",\"checks\":[";
    for (const Check& check : report.checks()) {
        text += &check == &report.checks().front() ? "" : ",";
        text += "{\"name\":" + jsonString(check.name) + ",\"status\":" + jsonString(status(check)) + ",\"findings\":[";
        for (const Finding& finding : check.findings) {
            text += (&finding == &check.findings.front() ? "" : ",") + findingJSON(finding);
        }
        text += "]}";
    }
    return text + "]}\n";
}

} // namespace cli::check
