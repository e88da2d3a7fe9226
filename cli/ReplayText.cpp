#include "cli/ReplayText.h"

#include "cli/check/ShownLine.h"
#include "foundation/JSONWriter.h"

#include <array>
#include <cstdio>

namespace cli {

namespace {

using check::shownLine;
using foundation::jsonString;

std::string valueText(const std::string& value) {
    return value.empty() ? "nothing" : shownLine(value);
}

std::string seconds(std::int64_t microseconds) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.2f s", static_cast<double>(microseconds) / 1e6);
    return text.data();
}

std::string summary(const recording::ReplayTotals& totals, std::uint64_t lines) {
    const auto number = [](std::uint64_t count) { return std::to_string(count); };
    std::string text = number(totals.asked) + " of " + number(totals.requests) + " requests asked, " +
                       (totals.different == 0 ? "no" : number(totals.different)) +
                       (totals.different == 1 ? " answer differs" : " answers differ") + "; recorded " +
                       seconds(totals.recordedTime) + ", now " + seconds(totals.time) + "\n";
    const auto remark = [&](std::uint64_t count, const char* what) {
        if (count > 0)
            text += number(count) + what;
    };
    remark(totals.withoutFile, " not asked: of files opened before the recording began, or not open now\n");
    remark(totals.unanswered, " had no answer when they were recorded\n");
    remark(totals.notCompared, " compared by their length alone: of files whose contents were not recorded\n");
    remark(totals.lost, " lines are missing in the recording\n");
    if (totals.cut)
        text += "The recording breaks off after line " + number(lines) + "; all before it was replayed\n";
    return text;
}

std::string totalsJSON(const recording::ReplayTotals& totals) {
    const auto member = [](const char* name, auto value) {
        return std::string("\"") + name + "\":" + std::to_string(value) + ",";
    };
    return member("requests", totals.requests) + member("asked", totals.asked) + member("different", totals.different) +
           member("withoutFile", totals.withoutFile) + member("unanswered", totals.unanswered) +
           member("notCompared", totals.notCompared) + member("lost", totals.lost) +
           member("recordedMicroseconds", totals.recordedTime) + member("microseconds", totals.time) +
           "\"cut\":" + (totals.cut ? "true" : "false") + ",\"stopped\":" + (totals.stopped ? "true" : "false");
}

} // namespace

void ReplayText::print(const std::string& text) const {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

void ReplayText::add(const recording::DifferentAnswer& found) {
    if (++found_ > limit_ && limit_ > 0)
        return;
    const recording::Difference& difference = found.difference;
    if (form_ == Form::json) {
        print((found_ == 1 ? "{\"differences\":[" : ",") + std::string("{\"line\":") + std::to_string(found.line) +
              ",\"request\":" + jsonString(found.request) + ",\"member\":" + jsonString(difference.member) +
              ",\"recorded\":" + jsonString(difference.recorded) + ",\"now\":" + jsonString(difference.now) + "}");
        return;
    }
    if (found.line != lastLine_)
        print("line " + std::to_string(found.line) + ": " + shownLine(found.request) + "\n");
    lastLine_ = found.line;
    print("    " + shownLine(difference.member) + ": recorded " + valueText(difference.recorded) + ", now " +
          valueText(difference.now) + "\n");
}

void ReplayText::end(const recording::ReplayTotals& totals, bool interrupted) {
    const std::uint64_t more = limit_ > 0 && found_ > limit_ ? found_ - limit_ : 0;
    if (form_ == Form::json) {
        print((found_ == 0 ? "{\"differences\":[" : "") + std::string("],\"more\":") + std::to_string(more) +
              ",\"interrupted\":" + (interrupted ? "true," : "false,") + totalsJSON(totals) + "}\n");
        return;
    }
    if (more > 0)
        print("and " + std::to_string(more) + " differences more; --limit 0 shows all\n");
    print((interrupted ? "interrupted; so far " : "") + summary(totals, totals.lastLine));
}

} // namespace cli
