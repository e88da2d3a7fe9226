#include "cli/check/CheckNames.h"
#include "cli/check/Checks.h"

#include <array>
#include <utility>

namespace cli::check {

namespace {

using name::missingNames;

constexpr const char* unknownOperations = "an unknown operation is answered with an error";
constexpr const char* keyOrder = "the keys of a request may come in any order";
constexpr const char* longLines = "request lines of 1 MiB and 16 MiB are answered";

constexpr const char* missing = "/kemvi-check: no such name";

void checkMissingName(Conversation& talk) {
    for (const auto& request : {pathRequest("getattr", missing), openRequest(missing, {"read"})}) {
        const Answer answer = talk.ask(request);
        if (answer.response && (answer.ok() || answer.code() != "ENOENT")) {
            talk.find(missingNames, Severity::error, answer,
                      answer.ok() ? "success" : "the code is \"" + answer.code() + "\"",
                      "no new file can be made: programs take the name for taken, or see an input/output error");
        }
    }
}

void checkUnknownOperation(Conversation& talk) {
    kemvi::HelperRequest request;
    request.op = "kemvi-check-unknown";
    const Answer answer = talk.ask(request);
    if (answer.ok()) {
        talk.find(unknownOperations, Severity::error, answer, "success",
                  "an operation that the helper lacks seems to work and does nothing");
    }
}

void checkKeyOrder(Conversation& talk) {
    const Answer answer = talk.askLine(
        [](const std::string& id) { return R"({"path":"\u002f","later":null,"op":"getattr","id":")" + id + R"("})"; });
    if (answer.response && !answer.ok() && answer.code() != "ENOENT") { // with that it was understood
        talk.find(keyOrder, Severity::error, answer, "the request was refused",
                  "a later version of Kemvi may not work with this helper");
    }
}

void checkLongLines(Conversation& talk) {
    for (const std::size_t size : {std::size_t{1} << 20, std::size_t{16} << 20}) {
        if (!talk.available())
            return;
        const Answer answer = talk.ask(pathRequest("getattr", "/" + std::string(size, 'x')));
        if (!answer.exchange.answered()) {
            talk.find(longLines, Severity::error, answer,
                      "a line of " + std::to_string(size) + " bytes was not answered", "large writes fail or hang");
        } else if (answer.ok()) {
            talk.find(longLines, Severity::warning, answer, "success for a name of " + std::to_string(size) + " bytes",
                      "names are shown that no kernel takes");
        }
    }
}

} // namespace

void checkRequests(Conversation& talk) {
    constexpr std::array checks{std::pair{missingNames, &checkMissingName},
                                std::pair{unknownOperations, &checkUnknownOperation},
                                std::pair{keyOrder, &checkKeyOrder}, std::pair{longLines, &checkLongLines}};
    for (const auto& [name, check] : checks)
        talk.report().begin(name);
    for (const auto& [name, check] : checks) {
        if (talk.available()) {
            talk.begin(name);
            check(talk);
            talk.report().done(name);
        }
    }
}

} // namespace cli::check
