#include "cli/record/RecordSettings.h"

#include "cli/CommandError.h"

namespace cli {

recording::Settings RecordOptions::settings() const {
    const auto names = scramble ? recording::Names::scrambled : recording::Names::plain;
    if (payloads.empty())
        return {scramble ? recording::Payloads::none : recording::Payloads::full, names};
    const auto chosen = recording::payloadsNamed(payloads);
    if (!chosen)
        throw CommandError(ExitCode::usage, payloads, "expected full, hash or none for the payloads of a recording");
    if (scramble && *chosen == recording::Payloads::full)
        throw CommandError(ExitCode::usage, payloads,
                           "whole contents tell what scrambled names hide; use none, or hash");
    return {*chosen, names};
}

void addRecordOptions(CLI::App& command, RecordOptions& options, const std::string& prefix) {
    command
        .add_option(prefix + "payloads", options.payloads,
                    "What is kept of file contents: full (default), hash, or none (default with scrambled names)")
        ->type_name("KIND");
    command.add_flag(prefix + "scramble", options.scramble, "Replace every name by one that tells nothing");
}

} // namespace cli
