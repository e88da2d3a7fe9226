#include "cli/check/Checks.h"

#include <algorithm>
#include <array>

namespace cli::check {

namespace {

constexpr const char* opening = "files open and give a whole number as handle";
constexpr const char* distinct = "two opens give two handles";
constexpr const char* wholeSize = "a file has as many bytes as its size says";
constexpr const char* data = "read answers with dataBase64";
constexpr const char* amount = "a read gives no more than was asked for";
constexpr const char* pastTheEnd = "reading past the end gives no bytes";
constexpr const char* offsets = "reads at odd offsets equal the whole";
constexpr const char* released = "a handle that was given back is of no more use";

constexpr std::size_t mostBytes = 16 << 20; // a longer file is read to here
constexpr std::size_t surplus = 4096;       // no file is read further than this beyond its size: it may never end
constexpr std::int64_t piece = 65536;

class ReadExamination {
public:
    ReadExamination(Conversation& talk, SampleFile file) : talk_(talk), file_(std::move(file)) {}

    void run() {
        const auto handle = open();
        if (!handle)
            return;
        const auto other = open();
        if (other && *other == *handle) {
            talk_.report().add(distinct, {Severity::error,
                                          "both opens of " + file_.path + " gave " + std::to_string(*handle),
                                          "closing a file in one program breaks it in another",
                                          {},
                                          {}});
        } else if (other) {
            talk_.ask(handleRequest("release", *other));
        }
        readWhole(*handle);
        release(*handle);
    }

private:
    std::optional<std::int64_t> open() {
        const Answer answer = talk_.ask(openRequest(file_.path, {"read"}));
        const auto handle = handleIn(answer);
        if (answer.ok() && !handle) {
            talk_.find(opening, Severity::error, answer, "there is no number in result.handle", "no file can be read");
        } else if (answer.response && !answer.ok()) {
            talk_.find(opening, Severity::warning, answer, file_.path + ": a listed file cannot be opened",
                       "its reader gets this error");
        }
        return handle;
    }

    void readWhole(std::int64_t handle) {
        const Answer first = askRead(talk_, handle, 0, piece);
        const auto start = bytesIn(first);
        if (!start) {
            if (first.ok()) {
                talk_.find(data, Severity::error, first, "dataBase64 is missing or no strict base64",
                           "every read fails with an input/output error");
            } else if (first.response) {
                talk_.find(data, Severity::error, first, file_.path + ": a file that was opened cannot be read",
                           "its reader gets an error after open(2) has promised otherwise");
            }
            return;
        }
        if (start->size() > static_cast<std::size_t>(piece)) {
            talk_.find(amount, Severity::error, first,
                       std::to_string(start->size()) + " bytes for " + std::to_string(piece),
                       "the surplus is transferred and thrown away");
        }
        const std::size_t limit =
            file_.size < 0 ? mostBytes : std::min(mostBytes, static_cast<std::size_t>(file_.size) + surplus);
        const auto whole = readOn(talk_, handle, 0, piece, limit);
        const auto again = readOn(talk_, handle, 0, piece, limit);
        if (!whole || !again || *whole != *again)
            return; // it changes while it is read: nothing can be compared
        checkSize(*whole);
        checkEnd(handle, static_cast<std::int64_t>(whole->size()));
        checkOffsets(handle, *whole);
    }

    void checkSize(const std::string& whole) {
        const Answer answer = talk_.ask(pathRequest("getattr", file_.path));
        const auto* object = answer.result() != nullptr ? answer.result()->asObject() : nullptr;
        const auto* size = object != nullptr ? object->find("size") : nullptr;
        if (whole.size() < mostBytes && size != nullptr && size->asNumber() != nullptr && *size->asNumber() >= 0 &&
            *size->asNumber() != static_cast<double>(whole.size())) {
            talk_.find(wholeSize, Severity::error, answer,
                       file_.path + " gives " + std::to_string(whole.size()) + " bytes",
                       "programs read too little, or zeros at the end");
        }
    }

    void checkEnd(std::int64_t handle, std::int64_t size) {
        for (const std::int64_t offset : {size, size + 1000}) {
            const Answer answer = askRead(talk_, handle, offset, piece);
            const auto bytes = bytesIn(answer);
            if (answer.response && size < static_cast<std::int64_t>(mostBytes) && (!bytes || !bytes->empty())) {
                talk_.find(pastTheEnd, Severity::error, answer,
                           bytes ? std::to_string(bytes->size()) + " bytes"
                                 : std::string("no bytes, but no success either"),
                           "programs that read to the end never stop, or get an error there");
            }
        }
    }

    void checkOffsets(std::int64_t handle, const std::string& whole) {
        for (const std::size_t offset :
             {std::size_t{1}, whole.size() / 3, whole.size() - std::min<std::size_t>(whole.size(), 7)}) {
            const std::size_t length = std::min<std::size_t>(whole.size() - std::min(offset, whole.size()), 4097);
            const Answer answer =
                askRead(talk_, handle, static_cast<std::int64_t>(offset), static_cast<std::int64_t>(length));
            const auto bytes = bytesIn(answer);
            if (bytes && whole.compare(std::min(offset, whole.size()), std::min(bytes->size(), length), *bytes, 0,
                                       length) != 0) {
                talk_.find(offsets, Severity::error, answer, "other bytes than at the same place of the whole",
                           "programs that seek read wrong data");
            }
        }
    }

    void release(std::int64_t handle) {
        const Answer answer = talk_.ask(handleRequest("release", handle));
        if (answer.response && !answer.ok()) {
            talk_.find(released, Severity::error, answer, "giving the handle back failed", "close(2) reports an error");
            return;
        }
        const Answer after = askRead(talk_, handle, 0, 1);
        if (after.ok()) {
            talk_.find(released, Severity::error, after, "a read by it succeeds after release",
                       "files stay open in the helper until its descriptors run out");
        }
    }

    Conversation& talk_;
    SampleFile file_;
};

} // namespace

void checkReading(Conversation& talk, const std::vector<SampleFile>& files) {
    constexpr std::array checks{opening, distinct, data, amount, wholeSize, pastTheEnd, offsets, released};
    for (const char* check : checks) {
        talk.report().begin(check);
        if (files.empty())
            talk.report().skip(check, "no file to read was found");
    }
    for (const SampleFile& file : files) {
        if (talk.available()) {
            talk.begin("reading " + file.path);
            ReadExamination(talk, file).run();
            for (const char* check : checks)
                talk.report().done(check);
        }
    }
}

} // namespace cli::check
