#include "cli/CheckCommand.h"

#include "cli/CommandError.h"
#include "cli/MountSource.h"
#include "cli/check/CheckedHelper.h"
#include "foundation/DecodingError.h"
#include "helper/HelperResponse.h"

#include <csignal>
#include <cstdio>
#include <memory>
#include <string>

namespace cli {

namespace {

struct Request {
    std::string source;
    double opTimeout = 10; // seconds
};

constexpr std::chrono::seconds endLimit{5};

void checkPing(const MountSource& source, check::CheckedHelper& helper) {
    const std::string id = helper.nextID();
    const auto exchange = helper.exchange(R"({"id":")" + id + R"(","op":"ping"})");
    const auto fail = [&](const std::string& problem) {
        throw CommandError(ExitCode::helperFailed, source.config.helperPath, problem);
    };
    if (exchange.outcome == check::Exchange::Outcome::timedOut) {
        fail("did not answer a ping within " + std::to_string(helper.limit().count() / 1000) + " seconds");
    }
    if (exchange.outcome == check::Exchange::Outcome::closed) {
        fail("ended before it answered a ping");
    }
    std::string answer = exchange.answer;
}

ExitCode run(const Request& request) {
    const MountSource source = readMountSource(request.source);
    std::printf("ok: %s\n", source.configurationPath().c_str());
    checkHelperAvailable(source);
    std::printf("ok: node and %s are there\n", source.config.helperPath.c_str());
    std::signal(SIGPIPE, SIG_IGN);
    check::CheckedHelper helper(source.config, std::chrono::milliseconds(static_cast<long>(request.opTimeout * 1000)));
    helper.start();
    checkPing(source, helper);
    std::printf("ok: the helper starts and answers a ping\n");
    if (!helper.end(endLimit)) {
        throw CommandError(ExitCode::helperFailed, source.config.helperPath,
                           "did not end within 5 seconds after its input ended");
    }
    std::printf("ok: the helper ends when its input does\n");
    return ExitCode::success;
}

} // namespace

void addCheckCommand(CLI::App& app, ExitCode& result) {
    auto request = std::make_shared<Request>();
    CLI::App* command = app.add_subcommand("check", "Examine a source directory and its helper");
    command->add_option("SOURCE", request->source, "Directory that holds mount-config.json")->required();
    command->add_option("--op-timeout", request->opTimeout, "Longest time for one answer, in seconds (default: 10)")
        ->check(CLI::PositiveNumber);
    command->callback([request, &result] { result = run(*request); });
}

} // namespace cli
