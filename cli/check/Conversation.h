#pragma once

#include "cli/check/Attention.h"
#include "cli/check/CheckedHelper.h"
#include "cli/check/Report.h"
#include "helper/HelperRequest.h"
#include "helper/HelperResponse.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace cli::check {

/// One request with its answer, as far as it could be understood.
struct Answer {
    Exchange exchange;
    std::optional<kemvi::HelperResponse> response;

    bool ok() const { return response && response->ok; }

    /// The symbolic error code; empty if there is none.
    std::string code() const;
    const kemvi::JSONValue* result() const;
};

/// Speaks with the helper and judges what every answer must satisfy, whatever it answers: in time, one line, a
/// response, the request's id. A helper that was lost (hangs, has ended) is started anew for the next check. Every
/// question throws Interrupted once a signal has asked for the end. Not thread-safe.
class Conversation {
public:
    Conversation(const kemvi::KemviMountConfig& config, CheckedHelper::Duration limit, Report& report);

    /// Starts the helper. False if it does not start or does not answer a ping.
    bool start();

    /// What is being examined from here on, for the user.
    void begin(std::string what) { attention_.begin(std::move(what)); }

    /// Something may be made at this place of the served tree.
    void makingAt(std::string place) { attention_.makingAt(std::move(place)); }

    /// From here on what was made is being removed: a signal does not throw any more, and a helper that is lost is
    /// started anew once.
    void beginCleaning();

    void endCleaning() { attention_.endCleaning(); }

    /// There is no time for anything more.
    bool gaveUp() const { return attention_.gaveUp(); }

    /// Sends a request; its id is filled in. An answer without a response has been reported.
    Answer ask(kemvi::HelperRequest request);
    /// Sends a line of the caller's own, made for the given id.
    Answer askLine(const std::function<std::string(const std::string& id)>& line);

    /// Notes a finding about an answer.
    void find(const std::string& check, Severity severity, const Answer& answer, std::string problem,
              std::string consequence);

    /// True if there is a helper to ask; starts one if the last was lost, a few times at most.
    bool available();

    /// Ends the helper's input and judges how it ends.
    void end();

    Report& report() { return report_; }

    CheckedHelper::Duration limit() const { return limit_; }

private:
    void throwIfInterrupted() const;
    Answer judge(Exchange exchange, const std::string& id);
    void judgeError(const Answer& answer);
    void reportLost(const Answer& answer);
    /// Reads on until a line is a response: stray lines are reported.
    void skipStrayLines(Answer& answer, const std::string& id);
    bool decode(Answer& answer);

    const kemvi::KemviMountConfig& config_;
    const CheckedHelper::Duration limit_;
    Report& report_;
    Attention attention_{"check"};
    std::unique_ptr<CheckedHelper> helper_;
    foundation::JSONReader reader_;
    kemvi::HelperRequestEncoder encoder_;
    std::string decodingProblem_;
    int restarts_ = 0;
};

} // namespace cli::check
