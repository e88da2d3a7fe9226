#pragma once

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
/// response, the request's id. A helper that was lost (hangs, has ended) is started anew for the next check. Not
/// thread-safe.
class Conversation {
public:
    Conversation(const kemvi::KemviMountConfig& config, CheckedHelper::Duration limit, Report& report);

    /// Starts the helper. False if it does not start or does not answer a ping.
    bool begin();

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
    Answer judge(Exchange exchange, const std::string& id);
    void reportLost(const Answer& answer);
    /// Reads on until a line is a response: stray lines are reported.
    void skipStrayLines(Answer& answer, const std::string& id);
    bool decode(Answer& answer);

    const kemvi::KemviMountConfig& config_;
    const CheckedHelper::Duration limit_;
    Report& report_;
    std::unique_ptr<CheckedHelper> helper_;
    foundation::JSONReader reader_;
    kemvi::HelperRequestEncoder encoder_;
    std::string decodingProblem_;
    int restarts_ = 0;
};

} // namespace cli::check
