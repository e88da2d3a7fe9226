#include "cli/CommandError.h"
#include "cli/check/CheckNames.h"
#include "cli/check/Checks.h"
#include "cli/check/Scratch.h"
#include "cli/check/ScratchFiles.h"
#include "foundation/UUID.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <set>
#include <utility>

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
constexpr const char* cleanedUp = "what was made is removed again";

constexpr int manyFiles = 10000;
constexpr std::chrono::seconds longestListing{1};
constexpr const char* whatIsMade = "about 10,000 files in it, with 13 MB at a time";
constexpr std::array writeSizes{std::size_t{768} << 10, std::size_t{12} << 20}; // lines of 1 and 16 MiB

const std::vector<std::string> createFlags{"write", "create", "truncate"};
const std::vector<std::string> keepFlags{"write", "create"};

kemvi::HelperRequest renameRequest(std::string oldPath, std::string newPath) {
    kemvi::HelperRequest request;
    request.op = "rename";
    request.oldPath = std::move(oldPath);
    request.newPath = std::move(newPath);
    return request;
}

class WriteExamination : private ScratchFiles {
public:
    using ScratchFiles::ScratchFiles;

    void run();

private:
    /// Makes the folder for everything, and looks whether it is where and what it must be.
    bool makeScratch();
    bool listsOnlyWhatIsThere();

    void checkFolders();
    void checkWriting();
    void checkCreating();
    void checkRenaming();
    void checkRemoving();
    void checkAttributes();
    void checkNames();
    void checkLongWrites();
    void checkManyEntries();
};

void WriteExamination::run() {
    if (!makeScratch())
        return;
    using Examination = WriteExamination;
    const std::array<std::pair<const char*, void (Examination::*)()>, 9> examinations{{
        {folders, &Examination::checkFolders},
        {writing, &Examination::checkWriting},
        {creating, &Examination::checkCreating},
        {renaming, &Examination::checkRenaming},
        {removing, &Examination::checkRemoving},
        {modes, &Examination::checkAttributes},
        {oddNames, &Examination::checkNames},
        {longWrites, &Examination::checkLongWrites},
        {manyEntries, &Examination::checkManyEntries},
    }};
    for (const auto& [check, examine] : examinations) {
        if (!stopped_ && talk_.available()) {
            talk_.begin(check);
            talk_.report().done(check);
            (this->*examine)();
        }
    }
}

bool WriteExamination::makeScratch() {
    talk_.report().done(folders);
    if (!claim(folders, scratch_.path(), Scratch::Kind::folder))
        return false;
    const Answer answer = talk_.ask(pathRequest("mkdir", scratch_.path()));
    if (answer.code() == "EEXIST")
        scratch_.forget(scratch_.path());
    return succeeds(folders, answer, "no folder can be made") && listsOnlyWhatIsThere();
}

bool WriteExamination::listsOnlyWhatIsThere() {
    constexpr const char* consequence = "what is made in a new folder may land among other files";
    const Answer attributes = talk_.ask(pathRequest("getattr", scratch_.path()));
    const auto stat = statIn(attributes);
    if (!stat || !stat->isDirectory || stat->path != scratch_.path()) {
        talk_.find(folders, Severity::error, attributes, "the new folder is no folder of that path", "mkdir -p fails");
        return false;
    }
    const Answer listing = talk_.ask(pathRequest("readdir", scratch_.path()));
    const auto* entries = listing.result() != nullptr ? listing.result()->asArray() : nullptr;
    if (entries == nullptr || !entries->empty()) {
        talk_.find(folders, Severity::error, listing,
                   entries == nullptr ? "the new folder cannot be listed" : "the new folder is not empty", consequence);
        return false;
    }
    return true;
}

void WriteExamination::checkFolders() {
    const Answer again = talk_.ask(pathRequest("mkdir", scratch_.path()));
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
    if (!write(creating, "kept", createFlags, 0, "precious"))
        return;
    write(creating, "kept", keepFlags, 0, "");
    expect(creating, "kept", "precious", "opening a file for writing destroys it");
    write(creating, "kept", createFlags, 0, "");
    expect(creating, "kept", "", "rewriting a file with something shorter leaves its old end");
}

void WriteExamination::checkRenaming() {
    constexpr const char* consequence = "editors that save by renaming lose the file";
    if (!write(renaming, "from", createFlags, 0, "new") || !write(renaming, "to", createFlags, 0, "the old one"))
        return;
    const Answer answer = talk_.ask(renameRequest(path("from"), path("to")));
    if (answer.code() == "EEXIST") {
        talk_.find(renaming, Severity::warning, answer, "rename over a file is refused",
                   "a save by renaming is two steps, and a crash between them loses the file's name");
        return;
    }
    if (succeeds(renaming, answer, consequence)) {
        expect(renaming, "to", "new", consequence);
        if (exists("from"))
            error(renaming, "the old name is still there", "moved files show twice");
    }
}

void WriteExamination::checkRemoving() {
    talk_.report().done(fullFolders);
    if (!makeFolder(fullFolders, "full") || !write(fullFolders, "full/file", createFlags, 0, "precious"))
        return;
    const Answer answer = talk_.ask(pathRequest("unlink", path("full")));
    if (answer.ok() || !exists("full/file")) {
        talk_.find(fullFolders, Severity::error, answer, "the folder is gone with what was in it",
                   "removing a folder destroys what was just put into it");
        return;
    }
    if (answer.response && answer.code() != "ENOTEMPTY")
        talk_.find(fullFolders, Severity::warning, answer, "the code is not ENOTEMPTY", "the message misleads");
    for (const char* name : {"full/file", "full"})
        if (succeeds(removing, talk_.ask(pathRequest("unlink", path(name))), "nothing can be removed") && exists(name))
            error(removing, std::string("\"") + name + "\" is still there", "removed files come back");
}

void WriteExamination::checkAttributes() {
    if (!write(modes, "attributes", createFlags, 0, "x"))
        return;
    auto chmod = pathRequest("chmod", path("attributes"));
    chmod.mode = 0600;
    succeeds(modes, talk_.ask(chmod), "cp -p, tar and rsync report errors");
    talk_.report().done(settingTimes);
    auto utimes = pathRequest("utimes", path("attributes"));
    utimes.mtime = "2001-02-03T04:05:06.789Z";
    if (succeeds(settingTimes, talk_.ask(utimes), "touch, cp -p, tar and rsync report errors")) {
        const Answer stat = talk_.ask(pathRequest("getattr", path("attributes")));
        const auto found = statIn(stat);
        if (!found || found->modifiedAt != kemvi::kemviFs().date(*utimes.mtime)) {
            talk_.find(settingTimes, Severity::error, stat, "the time is not " + *utimes.mtime,
                       "rsync and make take files for changed");
        }
    }
}

void WriteExamination::checkNames() {
    if (!makeFolder(oddNames, "names"))
        return;
    std::set<std::string> wanted{"two words", "\"quoted\"", "back\\slash", "line\nbreak", "gr\xc3\xbc\xc3\x9f", "-x"};
    for (const std::string& name : wanted)
        if (!write(oddNames, "names/" + name, createFlags, 0, "x"))
            return;
    const Answer answer = talk_.ask(pathRequest("readdir", path("names")));
    std::set<std::string> found;
    if (answer.result() != nullptr && answer.result()->asArray() != nullptr) {
        for (const auto& entry : *answer.result()->asArray())
            if (const auto stat = statIn(entry))
                found.insert(stat->name);
    }
    if (found != wanted) {
        talk_.find(oddNames, Severity::error, answer, "the names listed are not those that were made",
                   "files with such names cannot be found again");
    }
}

void WriteExamination::checkLongWrites() {
    for (const std::size_t size : writeSizes) {
        std::string bytes(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            bytes[i] = static_cast<char>(i * 131 >> 3);
        if (!talk_.available() || !write(longWrites, "long", createFlags, 0, bytes))
            return;
        expect(longWrites, "long", bytes, "large files arrive damaged");
    }
}

void WriteExamination::checkManyEntries() {
    if (!makeFolder(manyEntries, "many"))
        return;
    for (int i = 0; i < manyFiles && talk_.available(); ++i) {
        talk_.begin("making 10,000 files, " + std::to_string(manyFiles - i) + " to go");
        const std::string file = path("many/" + std::to_string(i));
        if (!claim(manyEntries, file, Scratch::Kind::file))
            return;
        const auto handle = handleIn(talk_.ask(openRequest(file, createFlags)));
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
    } else if (answer.exchange.took > longestListing) {
        talk_.find(manyEntries, Severity::warning, answer,
                   "it took " + std::to_string(answer.exchange.took.count()) + " s",
                   "ls waits noticeably in large folders");
    }
}

constexpr std::array allChecks{folders,      writing, creating, renaming,   fullFolders, removing,
                               settingTimes, modes,   oddNames, longWrites, manyEntries, cleanedUp};

/// Why nothing may be written; nothing if the served tree is what it seems as far as was seen.
std::optional<std::string> reasonNotToWrite(Conversation& talk, const std::string& directory) {
    if (!talk.available())
        return "there was no helper to ask";
    const Answer answer = talk.ask(pathRequest("getattr", directory));
    const auto stat = statIn(answer);
    if (!stat || !stat->isDirectory) {
        talk.report().add(folders, {Severity::error, directory + " is no folder of the served tree",
                                    "nothing can be tried there; name one that exists", answer.exchange.request,
                                    answer.exchange.answer});
        return directory + " is no folder of the served tree";
    }
    checkFolder(talk, directory);
    for (const char* check : name::neededToWrite)
        if (talk.report().failed(check))
            return std::string("nothing is written unless ") + check;
    return std::nullopt;
}

void cleanUp(Conversation& talk, Scratch& scratch) {
    talk.report().done(cleanedUp);
    talk.beginCleaning();
    const auto problem = scratch.remove();
    talk.endCleaning();
    if (problem) {
        const std::string text = scratch.path() + " stays in the served tree: " + *problem;
        talk.report().add(cleanedUp, {Severity::error, text, "somebody has to remove it", {}, {}});
        printMessage(text + "; remove it yourself");
    }
}

} // namespace

void checkWriting(Conversation& talk, const std::string& directory) {
    for (const char* check : allChecks)
        talk.report().begin(check);
    if (const auto reason = reasonNotToWrite(talk, directory)) {
        for (const char* check : allChecks)
            talk.report().skip(check, *reason);
        return;
    }
    Scratch scratch(talk, childPath(directory, "kemvi-check-" + foundation::UUID::random().uuidString()));
    printMessage("check: making the folder " + scratch.path() + " with " + whatIsMade + ", to be removed afterwards");
    talk.makingAt(scratch.path());
    std::exception_ptr failure;
    try {
        WriteExamination(talk, scratch).run();
    } catch (...) {
        failure = std::current_exception();
    }
    cleanUp(talk, scratch);
    if (failure)
        std::rethrow_exception(failure);
}

} // namespace cli::check
