#pragma once

#include "cli/check/Attention.h"
#include "cli/check/HelperGuard.h"
#include "cli/check/HelperWords.h"
#include "extension/KemviMountConfig.h"
#include "helper/HelperProcess.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace cli::check {

/// One request and what came back.
struct Exchange {
    enum class Outcome { answered, timedOut, closed };

    std::string request; // the line without its break
    std::string answer;  // the same; what had come of it if it never ended
    Outcome outcome = Outcome::closed;
    std::chrono::duration<double> took{0};

    bool answered() const { return outcome == Outcome::answered; }
};

/// A helper under examination: started as a mount starts it, but talked to with a time limit, and with an eye on
/// everything that it writes. It dies with this process, however that ends. Not thread-safe. SIGPIPE must be ignored.
class CheckedHelper {
public:
    using Duration = std::chrono::milliseconds;

    /// `limit` is the longest time that one exchange may take. `attention` must outlive this object.
    CheckedHelper(const kemvi::KemviMountConfig& config, Duration limit, Attention& attention);
    /// Ends the helper if it still runs: in order within a second if it was not lost, otherwise by killing it.
    ~CheckedHelper();
    CheckedHelper(const CheckedHelper&) = delete;
    CheckedHelper& operator=(const CheckedHelper&) = delete;

    /// Launches the helper. Throws the launch error.
    void start();

    /// The id of the next request, as the client of a mount counts it.
    std::string nextID() { return std::to_string(nextID_++); }

    /// Writes a line and reads one back. After a time-out or the end of the stream the helper is of no further use.
    Exchange exchange(std::string line);

    /// The next line that the helper writes without being asked, if it comes within the given time.
    std::optional<std::string> nextLine(Duration wait);

    /// What the helper has written without being asked, at most waiting the given time for it. What it returns is
    /// forgotten.
    std::string unaskedOutput(Duration wait);

    /// Closes the helper's input and waits for its end. False if it has not ended within `limit`, or when a signal
    /// came; it is killed then.
    bool end(Duration limit);

    /// The helper answers no more.
    bool lost() const { return lost_; }

    Duration limit() const { return limit_; }

private:
    using Clock = Attention::Clock;

    // The descriptors of the helper's standard input and output.
    int requests() { return process_.input().fileHandleForWriting().fileDescriptor(); }

    int answers() { return process_.output().fileHandleForReading().fileDescriptor(); }

    bool writeLine(std::string_view line, Clock::time_point deadline);
    /// Reads what there is, waiting until `deadline` at most. False if nothing came.
    bool fill(Clock::time_point deadline);

    const Duration limit_;
    Attention& attention_;
    kemvi::HelperProcess process_;
    HelperWords words_;
    std::optional<HelperGuard> guard_; // while it runs
    std::string unread_;               // read and not yet handed out
    bool ended_ = false;               // the helper's output has ended
    bool lost_ = false;
    std::int64_t nextID_ = 1;
};

} // namespace cli::check
