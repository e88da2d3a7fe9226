#pragma once

#include "foundation/JSON.h"
#include "helper/HelperRequest.h"
#include "recording/Comparison.h"
#include "recording/InventedContents.h"
#include "recording/Reader.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace recording {

/// A helper that is asked what another one was asked.
class AskedHelper {
public:
    virtual ~AskedHelper() = default;

    /// Numbers the request, asks it, and returns the line of the answer. Nothing if none came: there is nobody to ask
    /// any more then, and `whyNot` tells why.
    virtual std::optional<std::string> ask(kemvi::HelperRequest& request) = 0;
    virtual std::string whyNot() const = 0;

    /// The mount that was recorded started its helper anew here. False if that failed.
    virtual bool restart() = 0;
};

/// An answer that is not the recorded one.
struct DifferentAnswer {
    std::uint64_t line = 0; // of the recording
    std::string request;    // for people: "read /a/b.txt 0+65536"
    Difference difference;
};

struct ReplayTotals {
    std::uint64_t requests = 0;    // in the recording
    std::uint64_t asked = 0;       // of them
    std::uint64_t different = 0;   // requests whose answers differ
    std::uint64_t withoutFile = 0; // not asked: of a file that was opened before the recording began, or is not open
    std::uint64_t unanswered = 0;  // had no answer to compare with when they were recorded
    std::uint64_t notCompared = 0; // reads of files whose contents were not recorded
    std::uint64_t lost = 0;        // lines that were not recorded
    std::int64_t recordedTime = 0; // microseconds, of those asked
    std::int64_t time = 0;         // microseconds
    std::uint64_t lastLine = 0;    // the last line that was read
    bool cut = false;              // the recording breaks off
    bool stopped = false;          // not all could be asked

    bool isSame() const { return different == 0 && !stopped; }
};

/// Whether a request changes what is served.
bool isChange(const Exchange& exchange);

/// Asks a helper the requests of a recording, in their order, with the numbers of handles that this helper gives, and
/// compares each answer with the recorded one. Bytes to be written that were not recorded are replaced by zeros. Not
/// thread-safe.
class Replayer {
public:
    using Found = std::function<void(const DifferentAnswer&)>;

    Replayer(Reader& reader, AskedHelper& helper, CompareOptions options, Found found)
        : reader_(reader), helper_(helper), options_(options), found_(std::move(found)) {}

    /// Goes on until the recording ends or the helper is lost. `mustStop` is asked between two requests. Throws
    /// RecordingError.
    ReplayTotals run(const std::function<bool()>& mustStop);

private:
    struct OpenFile {
        std::int64_t handle = 0; // the asked helper's number
        std::string path;
    };

    void replay(const Exchange& recorded);
    bool fill(kemvi::HelperRequest& request, const Exchange& recorded);
    void fillData(kemvi::HelperRequest& request, const Exchange& recorded);
    void compare(const Exchange& recorded, const std::string& id, const std::string& line);
    void note(const Exchange& recorded, Difference difference);
    void follow(const Exchange& recorded, const kemvi::JSONObject& now);
    void followOpen(const Exchange& recorded, const kemvi::JSONObject& now);
    DataRule dataRule(const Exchange& recorded);
    const OpenFile* fileOf(const Exchange& recorded) const;
    std::string shown(const Exchange& recorded) const;

    Reader& reader_;
    AskedHelper& helper_;
    const CompareOptions options_;
    const Found found_;
    ReplayTotals totals_;
    std::map<std::int64_t, OpenFile> files_; // by the recorded number
    InventedContents invented_;
    std::string payload_; // of the request under way
    foundation::JSONReader json_;
};

} // namespace recording
