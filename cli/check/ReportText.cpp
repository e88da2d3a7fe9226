#include "cli/check/Report.h"
#include "cli/check/ShownLine.h"
#include "foundation/JSONWriter.h"

namespace cli::check {

using foundation::jsonString;

namespace {

std::string status(const Check& check) {
    if (check.failed())
        return "FAIL";
    if (!check.findings.empty())
        return "warn";
    return check.skipped || !check.examined ? "skip" : "ok";
}

/// Why a check was not made; empty if it was.
std::string whyNot(const Check& check) {
    return check.skipped ? shownLine(*check.skipped) : status(check) == "skip" ? "not reached" : "";
}

std::string details(const Finding& finding, const std::string& indent) {
    std::string text;
    const auto line = [&](const char* label, const std::string& value) {
        if (!value.empty())
            text += indent + label + shownLine(value) + "\n";
    };
    line("request: ", finding.request);
    line("answer:  ", finding.answer);
    line("wrong:   ", finding.problem);
    line("so:      ", finding.consequence);
    if (finding.more > 0)
        text += indent + "and " + std::to_string(finding.more) + " more like it\n";
    return text;
}

std::string summary(const Report& report) {
    return (report.interrupted() ? "interrupted; so far " : "") + std::to_string(report.count(Severity::error)) +
           " errors, " + std::to_string(report.count(Severity::warning)) + " warnings";
}

std::string findingJSON(const Finding& finding) {
    return std::string("{\"severity\":") + (finding.severity == Severity::error ? "\"error\"" : "\"warning\"") +
           ",\"problem\":" + jsonString(shownLine(finding.problem)) +
           ",\"consequence\":" + jsonString(finding.consequence) +
           ",\"request\":" + jsonString(shownLine(finding.request)) +
           ",\"answer\":" + jsonString(shownLine(finding.answer)) + ",\"more\":" + std::to_string(finding.more) + "}";
}

} // namespace

std::string plainText(const Report& report) {
    std::string text;
    for (const Check& check : report.checks()) {
        text += status(check) + std::string(6 - status(check).size(), ' ') + check.name;
        text += whyNot(check).empty() ? "\n" : " (" + whyNot(check) + ")\n";
        for (const Finding& finding : check.findings)
            text += details(finding, "        ");
    }
    return text + summary(report) + "\n";
}

std::string tapText(const Report& report) {
    std::string text = "TAP version 13\n1.." + std::to_string(report.checks().size()) + "\n";
    std::size_t number = 0;
    for (const Check& check : report.checks()) {
        text += (check.failed() ? "not ok " : "ok ") + std::to_string(++number) + " - " + check.name;
        text += whyNot(check).empty() ? "\n" : " # SKIP " + whyNot(check) + "\n";
        for (const Finding& finding : check.findings) {
            text += finding.severity == Severity::warning ? "# warning\n" : "# error\n";
            text += details(finding, "#   ");
        }
    }
    return text + (report.interrupted() ? "Bail out! interrupted\n" : "") + "# " + summary(report) + "\n";
}

std::string jsonText(const Report& report) {
    std::string text = "{\"errors\":" + std::to_string(report.count(Severity::error)) +
                       ",\"warnings\":" + std::to_string(report.count(Severity::warning)) +
                       ",\"interrupted\":" + (report.interrupted() ? "true" : "false") + ",\"checks\":[";
    for (const Check& check : report.checks()) {
        text += &check == &report.checks().front() ? "" : ",";
        text += "{\"name\":" + jsonString(check.name) + ",\"status\":" + jsonString(status(check)) + ",\"findings\":[";
        for (const Finding& finding : check.findings)
            text += (&finding == &check.findings.front() ? "" : ",") + findingJSON(finding);
        text += "]}";
    }
    return text + "]}\n";
}

} // namespace cli::check
