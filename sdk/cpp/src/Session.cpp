#include "Session.h"

#include "Errors.h"
#include "foundation/DecodingError.h"
#include "foundation/ISO8601.h"
#include "foundation/JSONWriter.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace kemvi::kit {
namespace {

// Longer reads are asked of the file in pieces of this size, so that no length is too long for the memory. A multiple
// of 3, so that the pieces' base64 texts make one.
constexpr std::size_t mostAtOnce = std::size_t{3} << 19;
constexpr std::int64_t everyPermission = 07777;

std::string textOf(const std::string& path, const std::string& what) {
    return path + " " + what;
}

const std::string& checkedPath(const TextField& field, const char* name) {
    if (!field.isGiven || !field.text.starts_with('/'))
        throw PosixError("EINVAL", textOf(name, "must be a string that starts with \"/\""));
    return field.text;
}

std::int64_t checkedCount(const std::optional<std::int64_t>& field, const char* name) {
    if (!field)
        throw PosixError("EINVAL", textOf(name, "must be a whole number, 0 or more"));
    return *field;
}

OpenFlags checkedFlags(const Request& request) {
    if (!request.hasFlags)
        throw PosixError("EINVAL", "flags must be an array of strings");
    if (!request.unknownFlag.empty())
        throw PosixError("EINVAL", "unknown flag " + foundation::jsonString(request.unknownFlag));
    const OpenFlags flags{request.reads, request.writes, request.creates, request.truncates};
    if (!flags.read && !flags.write)
        throw PosixError("EINVAL", R"(flags must contain "read" or "write")");
    if (!flags.write && (flags.create || flags.truncate))
        throw PosixError("EINVAL", R"(the flags "create" and "truncate" need "write")");
    return flags;
}

std::span<const std::byte> checkedData(const Request& request) {
    if (request.payload == Request::Payload::notBase64)
        throw PosixError("EINVAL", "dataBase64 is not padded base64");
    if (request.payload != Request::Payload::given)
        throw PosixError("EINVAL", "dataBase64 must be a string");
    return request.data();
}

Time checkedTime(const TextField& field) {
    const auto date = field.isGiven ? foundation::ISO8601DateFormatter().date(field.text) : std::nullopt;
    if (!date)
        throw PosixError("EINVAL", "mtime must be a time like 2024-05-01T12:34:56.789Z");
    // A double has no exact milliseconds; far from now the nearest one is a thirtieth of a millisecond away.
    return Time(std::chrono::milliseconds(static_cast<std::int64_t>(std::floor(date->secondsSince1970 * 1000 + 0.05))));
}

} // namespace

// In the order of how often they come.
const Session::Operation Session::operations[] = {
    {"getattr", &Session::getattr}, {"read", &Session::read},       {"write", &Session::write},
    {"open", &Session::open},       {"release", &Session::release}, {"readdir", &Session::readdir},
    {"flush", &Session::flush},     {"unlink", &Session::unlink},   {"utimes", &Session::utimes},
    {"chmod", &Session::chmod},     {"rename", &Session::rename},   {"mkdir", &Session::mkdir},
    {"statfs", &Session::statfs},   {"ping", &Session::ping},
};

Session::Session(FileSystem& fileSystem, foundation::FileHandle& output, Reporter report)
    : fileSystem_(fileSystem), writable_(dynamic_cast<WritableFileSystem*>(&fileSystem)), report_(std::move(report)),
      line_(output) {}

bool Session::answer(std::string_view line) {
    try {
        request_.read(line);
    } catch (const foundation::DecodingError& error) {
        answerMalformed(line, error.what());
        return line_.isHeard();
    }
    if (!request_.id.isGiven || !request_.op.isGiven) {
        answerIncomplete();
        return line_.isHeard();
    }
    try {
        carryOut();
        line_.end();
    } catch (...) {
        fail();
    }
    return line_.isHeard();
}

void Session::carryOut() {
    const auto* const operation = std::find_if(std::begin(operations), std::end(operations),
                                               [this](const Operation& each) { return each.name == request_.op.text; });
    if (operation == std::end(operations))
        throw PosixError("EINVAL", "unknown operation " + foundation::jsonString(request_.op.text));
    line_.begin(request_.id.text);
    (this->*operation->run)();
}

std::string Session::subject() const {
    const std::string& op = request_.op.text;
    if (request_.path.isGiven)
        return op + " of " + request_.path.text;
    if (request_.oldPath.isGiven)
        return op + " of " + request_.oldPath.text + " to " + request_.newPath.text;
    if (!request_.handle)
        return op;
    const auto open = open_.find(*request_.handle);
    return op + " of " + (open != open_.end() ? open->second.path : "the handle " + std::to_string(*request_.handle));
}

// Called while an exception is handled.
void Session::fail() {
    const Failure failure = currentFailure();
    if (failure.code.empty())
        report_(subject() + " failed: " + failure.message);
    line_.fail(request_.id.text, failure.code, failure.message);
}

// Its sender waits all the same, so it is answered if it shows an id.
void Session::answerMalformed(std::string_view line, const char* problem) {
    constexpr std::size_t shown = 200; // bytes
    const std::string message = std::string("the request line cannot be read: ") + problem;
    report_(message + ": " + foundation::jsonString(line.substr(0, shown)));
    if (const auto id = idAtFront(line))
        line_.failQuoted(*id, "EINVAL", message);
}

void Session::answerIncomplete() {
    const std::string message = std::string(request_.id.isGiven ? "op" : "id") + " of the request must be a string";
    report_(message);
    if (request_.id.isGiven)
        line_.fail(request_.id.text, "EINVAL", message);
    else if (request_.numberAsId)
        line_.fail(std::to_string(*request_.numberAsId), "EINVAL", message);
}

void Session::end() {
    for (auto& [_, open] : open_)
        attempt("release of " + open.path, [file = open.file.get()] { file->release(); });
    open_.clear();
    attempt("end", [this] { fileSystem_.end(); });
}

void Session::attempt(const std::string& what, const std::function<void()>& step) {
    try {
        step();
    } catch (...) {
        report_(what + " failed: " + currentFailure().message);
    }
}

void Session::statfs() {
    const Figures figures = fileSystem_.statfs();
    line_.raw(",\"result\":{\"files\":").number(figures.files);
    line_.raw(",\"directories\":").number(figures.directories).raw(",\"bytes\":").number(figures.bytes).raw("}");
}

void Session::getattr() {
    const std::string& path = checkedPath(request_.path, "path");
    const Stat stat = fileSystem_.getattr(path);
    line_.raw(",\"result\":");
    stats_.one(path, stat);
}

void Session::readdir() {
    const std::string& path = checkedPath(request_.path, "path");
    line_.beginParts(request_.id.text, "\"result\":[", "]");
    stats_.beginMembers(path);
    fileSystem_.readdir(path, [this](std::string_view name, const Stat& stat) { stats_.member(name, stat); });
}

void Session::open() {
    const std::string& path = checkedPath(request_.path, "path");
    const OpenFlags flags = checkedFlags(request_);
    if (flags.write)
        changing();
    std::unique_ptr<File> file = fileSystem_.open(path, flags);
    if (!file)
        throw std::logic_error("open of the file system gave no file");
    const std::int64_t handle = ++lastHandle_;
    open_.emplace(handle, OpenFile{std::move(file), path, flags.read, flags.write});
    line_.raw(",\"result\":{\"handle\":").number(static_cast<std::uint64_t>(handle)).raw("}");
}

void Session::read() {
    const OpenFile& open = openFile();
    const auto offset = static_cast<std::uint64_t>(checkedCount(request_.offset, "offset"));
    const auto length = static_cast<std::uint64_t>(checkedCount(request_.length, "length"));
    if (!open.reads)
        throw PosixError("EBADF", "handle " + std::to_string(*request_.handle) + " is not open for reading");
    if (length > mostAtOnce) {
        readLong(*open.file, offset, length);
        return;
    }
    const auto data = readPiece(*open.file, offset, length);
    line_.raw(",\"dataBase64\":\"").base64(data).raw("\"");
}

void Session::readLong(File& file, std::uint64_t offset, std::uint64_t length) {
    line_.beginParts(request_.id.text, "\"dataBase64\":\"", "\"");
    for (std::uint64_t done = 0; done < length;) {
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(length - done, mostAtOnce));
        const auto data = readPiece(file, offset + done, wanted);
        line_.base64(data);
        if (data.size() < wanted)
            return;
        line_.sendIfLong();
        done += wanted;
    }
}

std::span<const std::byte> Session::readPiece(File& file, std::uint64_t offset, std::size_t length) {
    if (length == 0)
        return {};
    if (scratch_.size() < length)
        scratch_.resize(length);
    const std::size_t count = file.read(offset, std::span(scratch_).first(length));
    if (count > length) {
        throw std::logic_error("read of the file gave " + std::to_string(count) + ", expected a count of 0 to " +
                               std::to_string(length));
    }
    return std::span(scratch_).first(count);
}

void Session::write() {
    const OpenFile& open = openFile();
    const std::int64_t offset = checkedCount(request_.offset, "offset");
    if (!open.writes)
        throw PosixError("EBADF", "handle " + std::to_string(*request_.handle) + " is not open for writing");
    open.file->write(static_cast<std::uint64_t>(offset), checkedData(request_));
}

void Session::flush() {
    openFile().file->flush();
}

void Session::release() {
    OpenFile open = std::move(openFile());
    open_.erase(*request_.handle);
    request_.path = {true, std::move(open.path)}; // by which a failure is told; the handle tells nothing of it now
    open.file->release();
}

void Session::mkdir() {
    changing().mkdir(checkedPath(request_.path, "path"));
}

void Session::unlink() {
    changing().unlink(checkedPath(request_.path, "path"));
}

void Session::rename() {
    changing().rename(checkedPath(request_.oldPath, "oldPath"), checkedPath(request_.newPath, "newPath"));
}

void Session::chmod() {
    const std::string& path = checkedPath(request_.path, "path");
    const std::int64_t mode = checkedCount(request_.mode, "mode");
    if (mode > everyPermission)
        throw PosixError("EINVAL", "mode must be 0 to 4095");
    changing().chmod(path, static_cast<unsigned>(mode));
}

void Session::utimes() {
    const std::string& path = checkedPath(request_.path, "path");
    changing().utimes(path, checkedTime(request_.mtime));
}

Session::OpenFile& Session::openFile() {
    const auto found = request_.handle ? open_.find(*request_.handle) : open_.end();
    if (found == open_.end()) {
        throw PosixError("EBADF", request_.handle ? "handle " + std::to_string(*request_.handle) + " is not open"
                                                  : "handle must be a number that open gave");
    }
    return found->second;
}

WritableFileSystem& Session::changing() const {
    if (writable_ == nullptr)
        throw PosixError("EROFS", "this file system is read-only");
    return *writable_;
}

} // namespace kemvi::kit
