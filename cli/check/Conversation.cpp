#include "cli/check/Conversation.h"

#include "cli/check/CheckNames.h"
#include "cli/check/ErrorCodes.h"
#include "foundation/DecodingError.h"
#include "foundation/Error.h"

#include <algorithm>

namespace cli::check {

namespace {

using namespace std::chrono_literals;

constexpr int mostRestarts = 3;
constexpr auto strayWait = 300ms;
constexpr auto endLimit = 5000ms;

constexpr const char* starts = "the helper starts and answers a ping";
constexpr const char* inTime = "every request is answered, in time";
using name::echoesID;
using name::isResponse;
using name::onlyAnswers;
constexpr const char* errorsSpeak = "every error has a message and a POSIX code";
constexpr const char* ends = "the helper ends within 5 s after its input ended";

constexpr const char* everythingFails = "every operation that meets this fails with an input/output error";

std::string unfinished(const std::string& line) {
    return line.empty() ? std::string() : "; there were " + std::to_string(line.size()) + " bytes without a line break";
}

} // namespace

std::string Answer::code() const {
    return response && response->error && response->error->code ? *response->error->code : std::string();
}

const kemvi::JSONValue* Answer::result() const {
    return ok() && response->result ? &*response->result : nullptr;
}

Conversation::Conversation(const kemvi::KemviMountConfig& config, CheckedHelper::Duration limit, Report& report)
    : config_(config), limit_(limit), report_(report) {
    for (const char* check : {starts, inTime, isResponse, echoesID, onlyAnswers, errorsSpeak})
        report_.begin(check);
}

bool Conversation::start() {
    helper_ = std::make_unique<CheckedHelper>(config_, limit_, attention_);
    try {
        helper_->start();
    } catch (const foundation::Error& error) {
        report_.add(starts, {Severity::error, error.description(), "nothing can be mounted", {}, {}});
        helper_.reset();
        return false;
    }
    for (const char* check : {starts, inTime, isResponse, echoesID, onlyAnswers, errorsSpeak})
        report_.done(check);
    kemvi::HelperRequest ping;
    ping.op = "ping";
    const Answer answer = ask(ping);
    if (!answer.ok())
        find(starts, Severity::error, answer, "the ping was not answered with success", "nothing can be mounted");
    return answer.ok();
}

bool Conversation::available() {
    if (helper_ && !helper_->lost())
        return true;
    return !attention_.gaveUp() && restarts_++ < mostRestarts && start();
}

void Conversation::beginCleaning() {
    attention_.beginCleaning();
    restarts_ = mostRestarts - 1;
}

void Conversation::throwIfInterrupted() const {
    if (attention_.mustStop())
        throw Interrupted();
}

Answer Conversation::ask(kemvi::HelperRequest request) {
    return askLine([&](const std::string& id) {
        request.id = id;
        const auto line = encoder_.encode(request);
        std::string text = std::string(line.head) + std::string(line.payload) + std::string(line.tail);
        text.pop_back();
        return text;
    });
}

Answer Conversation::askLine(const std::function<std::string(const std::string& id)>& line) {
    if (!helper_ || helper_->lost())
        return {};
    const std::string unasked = helper_->unaskedOutput(0ms);
    if (!unasked.empty())
        report_.add(onlyAnswers, {Severity::error, "wrote without being asked: " + unasked, everythingFails, {}, {}});
    const std::string id = helper_->nextID();
    Exchange exchange = helper_->exchange(line(id));
    throwIfInterrupted();
    return judge(std::move(exchange), id);
}

Answer Conversation::judge(Exchange exchange, const std::string& id) {
    Answer answer{std::move(exchange), {}};
    if (!answer.exchange.answered()) {
        reportLost(answer);
        return answer;
    }
    if (!decode(answer))
        skipStrayLines(answer, id);
    if (!answer.response) {
        find(isResponse, Severity::error, answer, decodingProblem_, everythingFails);
        return answer;
    }
    if (answer.response->id != id) {
        find(echoesID, Severity::error, answer, "the id is \"" + answer.response->id + "\", not \"" + id + "\"",
             everythingFails);
    }
    if (!answer.response->ok)
        judgeError(answer);
    return answer;
}

void Conversation::judgeError(const Answer& answer) {
    constexpr const char* unspecific = "whatever was wrong shows as an input/output error";
    if (!answer.response->error) {
        find(errorsSpeak, Severity::error, answer, "ok is false and there is no error", unspecific);
        return;
    }
    if (answer.response->error->message.empty()) {
        find(errorsSpeak, Severity::warning, answer, "the error's message is empty",
             "the log cannot say what was wrong");
    }
    if (!isPosixCode(answer.code())) {
        find(errorsSpeak, Severity::error, answer,
             answer.code().empty() ? std::string("the error has no code")
                                   : "\"" + answer.code() + "\" is no POSIX code",
             unspecific);
    }
}

void Conversation::reportLost(const Answer& answer) {
    if (attention_.interrupted())
        return; // it had less time than it may take
    const bool late = answer.exchange.outcome == Exchange::Outcome::timedOut;
    find(inTime, Severity::error, answer,
         late ? "no answer within " + std::to_string(limit_.count()) + " ms" + unfinished(answer.exchange.answer)
              : std::string("the helper ended instead of answering"),
         late ? "programs that need this answer hang"
              : "from here on every operation fails with an input/output error");
}

void Conversation::skipStrayLines(Answer& answer, const std::string& id) {
    const std::string stray = answer.exchange.answer;
    const std::string problem = decodingProblem_;
    while (auto line = helper_->nextLine(std::min<CheckedHelper::Duration>(strayWait, limit_))) {
        answer.exchange.answer = *line;
        if (decode(answer) && answer.response->id == id) {
            Answer shown = answer;
            shown.exchange.answer = stray;
            find(onlyAnswers, Severity::error, shown, "a line that is no answer", everythingFails);
            return;
        }
        answer.response.reset();
    }
    answer.exchange.answer = stray;
    decodingProblem_ = problem;
}

bool Conversation::decode(Answer& answer) {
    auto line = std::make_shared<foundation::ByteBuffer>();
    line->append(answer.exchange.answer);
    try {
        answer.response = kemvi::HelperResponse::decode(std::move(line), reader_);
        return true;
    } catch (const foundation::Error& error) {
        decodingProblem_ = error.description();
        return false;
    }
}

void Conversation::find(const std::string& check, Severity severity, const Answer& answer, std::string problem,
                        std::string consequence) {
    report_.add(
        check, {severity, std::move(problem), std::move(consequence), answer.exchange.request, answer.exchange.answer});
}

void Conversation::end() {
    throwIfInterrupted();
    report_.begin(ends);
    begin("the end of the helper");
    if (!helper_ || helper_->lost()) {
        report_.skip(ends, "it had ended before");
        return;
    }
    const std::string unasked = helper_->unaskedOutput(strayWait);
    if (!unasked.empty())
        report_.add(onlyAnswers, {Severity::error, "wrote without being asked: " + unasked, everythingFails, {}, {}});
    const bool ended = helper_->end(endLimit);
    throwIfInterrupted();
    report_.done(ends);
    if (!ended) {
        report_.add(ends, {Severity::error,
                           "it still ran 5 s after the end of its input and was killed",
                           "every unmount hangs until someone kills the helper",
                           {},
                           {}});
    }
}

} // namespace cli::check
