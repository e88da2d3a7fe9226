#include "cli/check/Checks.h"
#include "foundation/Base64.h"
#include "foundation/UUID.h"
#include "helper/HelperRecords.h"

#include <chrono>
#include <set>
#include <span>

namespace cli::check {

namespace {

constexpr const char* folders = "folders are made, and made once only";
constexpr const char* writing = "what was written is read back";
constexpr const char* creating = "create keeps an existing file, and truncate empties it";
constexpr const char* renaming = "rename replaces a file and moves its contents";
constexpr const char* fullFolders = "unlink of a folder that is not empty is refused";
constexpr const char* removing = "unlink removes files and empty folders";
constexpr const char* settingTimes = "utimes sets the time to the millisecond";
constexpr const char* modes = "chmod is accepted";
constexpr const char* oddNames = "names with spaces, quotes, backslashes, line breaks and UTF-8 are kept";
constexpr const char* longWrites = "writes of 1 MiB and 12 MiB in one line are kept";
constexpr const char* manyEntries = "a folder of 10,000 entries is listed whole, in a second";

constexpr int manyFiles = 10000;
constexpr double longestListing = 1.0; // seconds

kemvi::HelperRequest renameRequest(std::string oldPath, std::string newPath) {
    kemvi::HelperRequest request;
    request.op = "rename";
    request.oldPath = std::move(oldPath);
    request.newPath = std::move(newPath);
    return request;
}

class WriteExamination {
public:
    WriteExamination(Conversation& talk, std::string scratch) : talk_(talk), scratch_(std::move(scratch)) {}

    void run();

private:
    using Flags = std::vector<std::string>;

    /// Notes an error under the check unless the answer is a success. True if it is.
    bool succeeds(const char* check, const Answer& answer, const char* consequence) {
        if (answer.response && !answer.ok()) {
            talk_.find(check, Severity::error, answer, "it was refused", consequence);
        }
        return answer.ok();
    }

    void error(const char* check, std::string problem, const char* consequence) {
        talk_.report().add(check, {Severity::error, std::move(problem), consequence, {}, {}});
    }

    std::string path(const std::string& name) const { return childPath(scratch_, name); }

    bool exists(const std::string& name) { return talk_.ask(pathRequest("getattr", path(name))).ok(); }

    bool write(const char* check, const std::string& name, const Flags& flags, std::int64_t offset,
               std::string_view bytes);
    std::optional<std::string> contents(const std::string& name);
    void expect(const char* check, const std::string& name, const std::string& bytes, const char* consequence);

    void checkFolders();
    void checkWriting();
    void checkCreating();
    void checkRenaming();
    void checkRemoving();
    void checkAttributes();
    void checkNames();
    void checkLongWrites();
    void checkManyEntries();
    void removeAll(const std::string& folder);

    Conversation& talk_;
    const std::string scratch_;
};

const std::vector<std::string> createFlags{"write", "create", "truncate"};
const std::vector<std::string> keepFlags{"write", "create"};

void WriteExamination::run() {
    for (const char* check : {folders, writing, creating, renaming, fullFolders, removing, settingTimes, modes,
                              oddNames, longWrites, manyEntries}) {
        talk_.report().begin(check);
    }
    if (!succeeds(folders, talk_.ask(pathRequest("mkdir", scratch_)), "no folder can be made")) {
        return;
    }
    for (const auto check :
         {&WriteExamination::checkFolders, &WriteExamination::checkWriting, &WriteExamination::checkCreating,
          &WriteExamination::checkRenaming, &WriteExamination::checkRemoving, &WriteExamination::checkAttributes,
          &WriteExamination::checkNames, &WriteExamination::checkLongWrites, &WriteExamination::checkManyEntries}) {
        if (talk_.available()) {
            (this->*check)();
        }
    }
    if (talk_.available()) {
        removeAll(scratch_);
    }
}

bool WriteExamination::write(const char* check, const std::string& name, const Flags& flags, std::int64_t offset,
                             std::string_view bytes) {
    const auto handle = handleIn(talk_.ask(openRequest(path(name), flags)));
    if (!handle) {
        error(check, "\"" + name + "\" could not be opened for writing", "no file can be written");
        return false;
    }
    bool kept = true;
    if (!bytes.empty()) {
        std::string text(foundation::base64::escapedRoom(bytes.size()), '\0');
        text.resize(foundation::base64::encodeEscapingSlashes(std::as_bytes(std::span(bytes)), text.data()));
        auto request = handleRequest("write", *handle);
        request.offset = offset;
        request.dataBase64 = text;
        kept = succeeds(check, talk_.ask(request), "writing fails");
    }
    kept = succeeds(check, talk_.ask(handleRequest("flush", *handle)), "close and fsync report an error") && kept;
    return succeeds(check, talk_.ask(handleRequest("release", *handle)), "close reports an error") && kept;
}

std::optional<std::string> WriteExamination::contents(const std::string& name) {
    const auto handle = handleIn(talk_.ask(openRequest(path(name), {"read"})));
    if (!handle) {
        return std::nullopt;
    }
    auto bytes = readOn(talk_, *handle, 0, 1 << 20, std::size_t{32} << 20);
    talk_.ask(handleRequest("release", *handle));
    return bytes;
}

void WriteExamination::expect(const char* check, const std::string& name, const std::string& bytes,
                              const char* consequence) {
    const auto found = contents(name);
    if (!found || *found != bytes) {
        error(check,
              "\"" + name + "\" holds " +
                  (found ? std::to_string(found->size()) + " bytes that differ" : "nothing readable") + "; expected " +
                  std::to_string(bytes.size()) + " bytes",
              consequence);
    }
}

void WriteExamination::checkFolders() {
    const Answer stat = talk_.ask(pathRequest("getattr", scratch_));
    const auto* object = stat.result() != nullptr ? stat.result()->asObject() : nullptr;
    const auto* directory = object != nullptr ? object->find("isDirectory") : nullptr;
    if (directory == nullptr || directory->asBool() == nullptr || !*directory->asBool()) {
        talk_.find(folders, Severity::error, stat, "the new folder is no folder", "mkdir -p fails");
    }
    const Answer again = talk_.ask(pathRequest("mkdir", scratch_));
    if (again.response && again.code() != "EEXIST") {
        talk_.find(folders, Severity::error, again, "making it again is not answered with EEXIST",
                   "mkdir -p and locks made by mkdir fail");
    }
}

void WriteExamination::checkWriting() {
    constexpr const char* lost = "what programs write is lost or changed";
    if (write(writing, "file", createFlags, 0, "hello, world")) {
        write(writing, "file", keepFlags, 7, "there");
        expect(writing, "file", "hello, there", lost);
        write(writing, "file", keepFlags, 14, "!");
        expect(writing, "file", std::string("hello, there\0\0!", 15), lost);
    }
}

void WriteExamination::checkCreating() {
    if (!write(creating, "kept", createFlags, 0, "precious")) {
        return;
    }
    write(creating, "kept", keepFlags, 0, "");
    expect(creating, "kept", "precious", "opening a file for writing destroys it");
    write(creating, "kept", createFlags, 0, "");
    expect(creating, "kept", "", "rewriting a file with something shorter leaves its old end");
}

void WriteExamination::checkRenaming() {
    constexpr const char* consequence = "editors that save by renaming lose the file";
    if (!write(renaming, "from", createFlags, 0, "new") || !write(renaming, "to", createFlags, 0, "the old one")) {
        return;
    }
    const Answer answer = talk_.ask(renameRequest(path("from"), path("to")));
    if (answer.code() == "EEXIST") {
        talk_.find(renaming, Severity::warning, answer, "rename over a file is refused",
                   "a save by renaming is two steps, and a crash between them loses the file's name");
        return;
    }
    if (succeeds(renaming, answer, consequence)) {
        expect(renaming, "to", "new", consequence);
        if (exists("from")) {
            error(renaming, "the old name is still there", "moved files show twice");
        }
    }
}

void WriteExamination::checkRemoving() {
    if (!succeeds(fullFolders, talk_.ask(pathRequest("mkdir", path("full"))), "no folder can be made") ||
        !write(fullFolders, "full/file", createFlags, 0, "precious")) {
        return;
    }
    const Answer answer = talk_.ask(pathRequest("unlink", path("full")));
    if (answer.ok() || !exists("full/file")) {
        talk_.find(fullFolders, Severity::error, answer, "the folder is gone with what was in it",
                   "removing a folder destroys what was just put into it");
        return;
    }
    if (answer.response && answer.code() != "ENOTEMPTY") {
        talk_.find(fullFolders, Severity::warning, answer, "the code is not ENOTEMPTY", "the message misleads");
    }
    for (const char* name : {"full/file", "full"}) {
        if (succeeds(removing, talk_.ask(pathRequest("unlink", path(name))), "nothing can be removed") &&
            exists(name)) {
            error(removing, std::string("\"") + name + "\" is still there", "removed files come back");
        }
    }
}

void WriteExamination::checkAttributes() {
    if (!write(modes, "attributes", createFlags, 0, "x")) {
        return;
    }
    auto chmod = pathRequest("chmod", path("attributes"));
    chmod.mode = 0600;
    succeeds(modes, talk_.ask(chmod), "cp -p, tar and rsync report errors");
    auto utimes = pathRequest("utimes", path("attributes"));
    utimes.mtime = "2001-02-03T04:05:06.789Z";
    if (succeeds(settingTimes, talk_.ask(utimes), "touch, cp -p, tar and rsync report errors")) {
        const Answer stat = talk_.ask(pathRequest("getattr", path("attributes")));
        const bool set = stat.result() != nullptr && stat.result()->asObject() != nullptr &&
                         kemvi::KemviFileStat(*stat.result()).modifiedAt == kemvi::kemviFs().date(*utimes.mtime);
        if (!set) {
            talk_.find(settingTimes, Severity::error, stat, "the time is not " + *utimes.mtime,
                       "rsync and make take files for changed");
        }
    }
}

void WriteExamination::checkNames() {
    const Answer listing = talk_.ask(pathRequest("mkdir", path("names")));
    std::set<std::string> wanted{"two words", "\"quoted\"", "back\\slash", "line\nbreak", "gr\xc3\xbc\xc3\x9f", "-x"};
    for (const std::string& name : wanted) {
        if (!write(oddNames, "names/" + name, createFlags, 0, "x")) {
            return;
        }
    }
    const Answer answer = talk_.ask(pathRequest("readdir", path("names")));
    std::set<std::string> found;
    if (answer.result() != nullptr && answer.result()->asArray() != nullptr) {
        for (const auto& entry : *answer.result()->asArray()) {
            if (entry.asObject() != nullptr) {
                found.insert(kemvi::KemviFileStat(entry).name);
            }
        }
    }
    if (found != wanted) {
        talk_.find(oddNames, Severity::error, answer, "the names listed are not those that were made",
                   "files with such names cannot be found again");
    }
}

void WriteExamination::checkLongWrites() {
    for (const std::size_t size : {std::size_t{768} << 10, std::size_t{12} << 20}) {
        std::string bytes(size, '\0');
        for (std::size_t i = 0; i < size; ++i) {
            bytes[i] = static_cast<char>(i * 131 >> 3);
        }
        if (!talk_.available() || !write(longWrites, "long", createFlags, 0, bytes)) {
            return;
        }
        expect(longWrites, "long", bytes, "large files arrive damaged");
    }
}

void WriteExamination::checkManyEntries() {
    talk_.ask(pathRequest("mkdir", path("many")));
    for (int i = 0; i < manyFiles && talk_.available(); ++i) {
        const auto handle = handleIn(talk_.ask(openRequest(path("many/" + std::to_string(i)), createFlags)));
        if (!handle) {
            error(manyEntries, "file " + std::to_string(i) + " could not be made", "large folders cannot be filled");
            return;
        }
        talk_.ask(handleRequest("release", *handle));
    }
    const Answer answer = talk_.ask(pathRequest("readdir", path("many")));
    const auto* entries = answer.result() != nullptr ? answer.result()->asArray() : nullptr;
    if (entries == nullptr || entries->size() != manyFiles) {
        talk_.find(manyEntries, Severity::error, answer, "not every file is listed",
                   "files in large folders are not seen");
    } else if (answer.exchange.took.count() > longestListing) {
        talk_.find(manyEntries, Severity::warning, answer,
                   "it took " + std::to_string(answer.exchange.took.count()) + " s",
                   "ls waits noticeably in large folders");
    }
}

void WriteExamination::removeAll(const std::string& folder) {
    const Answer answer = talk_.ask(pathRequest("readdir", folder));
    if (answer.result() != nullptr && answer.result()->asArray() != nullptr) {
        for (const auto& entry : *answer.result()->asArray()) {
            if (entry.asObject() == nullptr) {
                continue;
            }
            const kemvi::KemviFileStat stat(entry);
            const std::string child = childPath(folder, stat.name);
            if (stat.isDirectory) {
                removeAll(child);
            } else {
                talk_.ask(pathRequest("unlink", child));
            }
        }
    }
    talk_.ask(pathRequest("unlink", folder));
}

} // namespace

void checkWriting(Conversation& talk, const std::string& directory) {
    const std::string name = "kemvi-check-" + foundation::UUID::random().uuidString();
    if (talk.available()) {
        WriteExamination(talk, childPath(directory, name)).run();
    }
}

} // namespace cli::check
