#include "Session.h"

#include "foundation/Base64.h"
#include "foundation/Descriptor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace kemvi::kit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

Time at(std::int64_t milliseconds) {
    return Time(std::chrono::milliseconds(milliseconds));
}

/// Notes what it is asked; a file is its path, and what is read of it its offset in letters.
class Notebook : public WritableFileSystem {
public:
    class Page : public File {
    public:
        Page(Notebook& book, std::string path) : book_(book), path_(std::move(path)) {}

        ~Page() override { book_.notes.push_back("gone " + path_); }

        std::size_t read(std::uint64_t offset, std::span<std::byte> into) override {
            book_.notes.push_back("read " + path_ + " " + std::to_string(offset) + " " + std::to_string(into.size()));
            const std::uint64_t left = offset < book_.size ? book_.size - offset : 0;
            const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(left, into.size()));
            std::fill_n(into.begin(), count, static_cast<std::byte>('a' + offset % 26));
            book_.before("piece at " + std::to_string(offset));
            return count + book_.tooMany;
        }

        void write(std::uint64_t offset, std::span<const std::byte> data) override {
            book_.notes.push_back("write " + path_ + " " + std::to_string(offset) + " " +
                                  std::string(reinterpret_cast<const char*>(data.data()), data.size()));
        }

        void flush() override { book_.notes.push_back("flush " + path_); }

        void release() override {
            book_.notes.push_back("release " + path_);
            book_.before("release");
        }

    private:
        Notebook& book_;
        std::string path_;
    };

    Stat getattr(const std::string& path) override {
        before("getattr " + path);
        const bool isEndless = path == "/endless";
        return {.isDirectory = path == "/",
                .size = isEndless ? std::nullopt : std::optional<std::uint64_t>(path == "/" ? 0 : size),
                .modifiedAt = modified};
    }

    void readdir(const std::string&, const Members& add) override {
        for (const std::string& name : members) {
            before("member " + name);
            add(name, {.size = 3, .modifiedAt = modified});
        }
    }

    std::unique_ptr<File> open(const std::string& path, const OpenFlags& flags) override {
        notes.push_back("open " + path + (flags.read ? " r" : "") + (flags.write ? " w" : "") +
                        (flags.create ? " c" : "") + (flags.truncate ? " t" : ""));
        return path == "/nothing" ? nullptr : std::make_unique<Page>(*this, path);
    }

    void rename(const std::string& oldPath, const std::string& newPath) override {
        notes.push_back("rename " + oldPath + " " + newPath);
        before("rename " + oldPath);
    }

    void chmod(const std::string& path, unsigned mode) override {
        notes.push_back("chmod " + path + " " + std::to_string(mode));
    }

    void utimes(const std::string& path, Time mtime) override {
        notes.push_back("utimes " + path + " " + std::to_string(mtime.time_since_epoch().count()));
    }

    void end() override { notes.push_back("end"); }

    void before(const std::string& what) const {
        if (fails)
            fails(what);
    }

    std::vector<std::string> notes;
    std::vector<std::string> members;
    std::uint64_t size = 5;
    std::size_t tooMany = 0;
    Time modified = at(1'714'566'896'789);
    std::function<void(const std::string& what)> fails;
};

class ReadOnly : public FileSystem {
public:
    Stat getattr(const std::string&) override { return {}; }

    void readdir(const std::string&, const Members&) override {}

    std::unique_ptr<File> open(const std::string&, const OpenFlags&) override { return nullptr; }
};

/// A session whose answers are read from a pipe.
class Sessions : public testing::Test {
protected:
    Sessions() {
        std::signal(SIGPIPE, SIG_IGN);
        start(book);
    }

    void start(FileSystem& fileSystem) {
        foundation::PipeEnds ends = foundation::openPipe();
        output_.emplace(std::move(ends.writing));
        answers_.emplace(std::move(ends.reading));
        session.emplace(fileSystem, *output_, [this](const std::string& text) { reports.push_back(text); });
    }

    /// The answer to one line, which may be longer than the pipe holds.
    std::string ask(std::string_view line) {
        std::string answer;
        std::thread reader([&] {
            foundation::ByteBuffer text;
            if (answers_->readLine(text))
                answer = text.view();
        });
        const bool answered = tell(line);
        reader.join();
        EXPECT_TRUE(answered);
        return answer;
    }

    bool tell(std::string_view line) {
        foundation::ByteBuffer padded;
        padded.append(line);
        return session->answer(padded.view());
    }

    void stopReading() { answers_.reset(); }

    Notebook book;
    std::vector<std::string> reports;
    std::optional<Session> session;

private:
    std::optional<foundation::FileHandle> output_;
    std::optional<foundation::FileHandle> answers_;
};

TEST_F(Sessions, answerWithWhatTheFileSystemTells) {
    EXPECT_EQ(ask(R"({"id":"1","op":"ping"})"), R"({"id":"1","ok":true})");
    EXPECT_EQ(ask(R"({"id":"a\"b","op":"getattr","path":"\/d\/f"})"),
              R"({"id":"a\"b","ok":true,"result":{"path":"/d/f","name":"f","isDirectory":false,"size":5,)"
              R"("modifiedAt":"2024-05-01T12:34:56.789Z"}})");
    EXPECT_THAT(ask(R"({"id":"3","op":"getattr","path":"\/"})"),
                HasSubstr(R"("path":"/","name":"/","isDirectory":true,"size":0)"));
    EXPECT_EQ(ask(R"({"id":"4","op":"statfs"})"),
              R"({"id":"4","ok":true,"result":{"files":0,"directories":0,"bytes":0}})");
    book.members = {"x\"y", "z"};
    EXPECT_EQ(ask(R"({"id":"5","op":"readdir","path":"\/d"})"),
              R"({"id":"5","result":[{"path":"/d/x\"y","name":"x\"y","isDirectory":false,"size":3,)"
              R"("modifiedAt":"2024-05-01T12:34:56.789Z"},{"path":"/d/z","name":"z","isDirectory":false,"size":3,)"
              R"("modifiedAt":"2024-05-01T12:34:56.789Z"}],"ok":true})");
    EXPECT_THAT(ask(R"({"id":"6","op":"readdir","path":"\/"})"), HasSubstr(R"({"path":"/z","name":"z")"));
}

TEST_F(Sessions, openReadWriteAndReleaseByHandles) {
    EXPECT_EQ(ask(R"({"id":"1","op":"open","path":"\/f","flags":["read","write","create","truncate"]})"),
              R"({"id":"1","ok":true,"result":{"handle":1}})");
    EXPECT_EQ(ask(R"({"id":"2","op":"read","handle":1,"offset":1,"length":100})"),
              R"({"id":"2","ok":true,"dataBase64":"YmJiYg=="})");
    EXPECT_EQ(ask(R"({"id":"3","op":"read","handle":1,"offset":5,"length":0})"),
              R"({"id":"3","ok":true,"dataBase64":""})");
    EXPECT_EQ(ask(R"({"id":"4","op":"write","handle":1,"offset":9,"dataBase64":"Zm9v"})"), R"({"id":"4","ok":true})");
    ask(R"({"id":"5","op":"flush","handle":1})");
    EXPECT_EQ(ask(R"({"id":"6","op":"release","handle":1})"), R"({"id":"6","ok":true})");
    EXPECT_THAT(book.notes,
                ElementsAre("open /f r w c t", "read /f 1 100", "write /f 9 foo", "flush /f", "release /f", "gone /f"));
    EXPECT_THAT(ask(R"({"id":"7","op":"release","handle":1})"), HasSubstr("EBADF"));
    EXPECT_THAT(ask(R"({"id":"8","op":"open","path":"\/g","flags":["read"]})"), HasSubstr("\"handle\":2"));
    EXPECT_THAT(ask(R"({"id":"9","op":"write","handle":2,"offset":0,"dataBase64":""})"), HasSubstr("EBADF"));
}

TEST_F(Sessions, tellASizeThatIsNotKnownByMinusOne) {
    EXPECT_THAT(ask(R"({"id":"1","op":"getattr","path":"\/endless"})"), HasSubstr(R"("isDirectory":false,"size":-1,)"));
}

TEST_F(Sessions, readMoreThanFitsAtOncePieceByPiece) {
    book.size = 4'000'000;
    ask(R"({"id":"1","op":"open","path":"\/f","flags":["read"]})");
    const std::string answer = ask(R"({"id":"2","op":"read","handle":1,"offset":0,"length":9007199254740991})");
    EXPECT_THAT(book.notes,
                ElementsAre("open /f r", "read /f 0 1572864", "read /f 1572864 1572864", "read /f 3145728 1572864"));
    const std::string front = R"({"id":"2","dataBase64":")";
    const std::string back = R"(","ok":true})";
    ASSERT_TRUE(answer.starts_with(front) && answer.ends_with(back));
    const std::string_view text =
        std::string_view(answer).substr(front.size(), answer.size() - front.size() - back.size());
    EXPECT_EQ(foundation::base64::decodedLength(text), 4'000'000U);
    EXPECT_TRUE(foundation::base64::decode(text, {}));
}

TEST_F(Sessions, endALongAnswerWithAnErrorThatComesLate) {
    book.size = 4'000'000;
    book.fails = [](const std::string& what) {
        if (what == "piece at 1572864")
            throw PosixError("EACCES", "no more");
    };
    ask(R"({"id":"1","op":"open","path":"\/f","flags":["read"]})");
    EXPECT_TRUE(ask(R"({"id":"2","op":"read","handle":1,"offset":0,"length":4000000})")
                    .ends_with(R"(","ok":false,"error":{"message":"no more","code":"EACCES"}})"));
    EXPECT_EQ(ask(R"({"id":"3","op":"ping"})"), R"({"id":"3","ok":true})");
}

TEST_F(Sessions, endAListingWithAnErrorWhetherItIsOnItsWayOrNot) {
    for (int i = 0; i < 10'000; ++i)
        book.members.push_back("member " + std::to_string(i));
    book.fails = [](const std::string& what) {
        if (what == "member member 9999")
            throw PosixError(ENOTDIR, "no folder");
    };
    const std::string answer = ask(R"({"id":"1","op":"readdir","path":"\/"})");
    EXPECT_TRUE(answer.starts_with(R"({"id":"1","result":[{"path":"/member 0")"));
    EXPECT_TRUE(answer.ends_with(R"(],"ok":false,"error":{"message":"no folder","code":"ENOTDIR"}})"));
    book.members = {"member 1", "member 9999"};
    EXPECT_EQ(ask(R"({"id":"2","op":"readdir","path":"\/"})"),
              R"({"id":"2","ok":false,"error":{"message":"no folder","code":"ENOTDIR"}})");
}

TEST_F(Sessions, passErrorsOnByTheirNames) {
    book.fails = [](const std::string& what) {
        if (what == "getattr /posix")
            throw PosixError("ENOENT", "there is no /posix");
        if (what == "getattr /number")
            throw PosixError(ENOTEMPTY, "full");
        if (what == "getattr /system")
            throw std::system_error(EACCES, std::generic_category(), "closed");
    };
    const std::string failed = R"({"id":"1","ok":false,"error":{"message":)";
    EXPECT_EQ(ask(R"({"id":"1","op":"getattr","path":"\/posix"})"),
              failed + R"("there is no /posix","code":"ENOENT"}})");
    EXPECT_EQ(ask(R"({"id":"1","op":"getattr","path":"\/number"})"), failed + R"("full","code":"ENOTEMPTY"}})");
    EXPECT_THAT(ask(R"({"id":"1","op":"getattr","path":"\/system"})"), HasSubstr(R"("code":"EACCES")"));
    EXPECT_TRUE(reports.empty());
}

TEST_F(Sessions, reportFaultsAndGoOn) {
    book.fails = [](const std::string& what) {
        if (what == "getattr /fault")
            throw std::out_of_range("beyond");
        if (what == "getattr /spelling")
            throw PosixError("enoent", "lower case");
        if (what == "getattr /int")
            throw 5;
    };
    EXPECT_EQ(ask(R"({"id":"1","op":"getattr","path":"\/fault"})"),
              R"({"id":"1","ok":false,"error":{"message":"beyond"}})");
    ask(R"({"id":"2","op":"getattr","path":"\/spelling"})");
    ask(R"({"id":"3","op":"getattr","path":"\/int"})");
    ask(R"({"id":"4","op":"open","path":"\/nothing","flags":["read"]})");
    EXPECT_THAT(reports, ElementsAre("getattr of /fault failed: beyond", HasSubstr("\"enoent\" is not the name"),
                                     HasSubstr("no std::exception"), HasSubstr("open of /nothing failed: ")));
    EXPECT_EQ(ask(R"({"id":"5","op":"ping"})"), R"({"id":"5","ok":true})");
}

TEST_F(Sessions, refuseWhatTheFileSystemMustNotTell) {
    for (const char* name : {"", ".", "..", "a/b", "\xff"}) {
        book.members = {name};
        EXPECT_THAT(ask(R"({"id":"1","op":"readdir","path":"\/"})"), HasSubstr(R"("ok":false)")) << name;
    }
    book.tooMany = 100;
    ask(R"({"id":"1","op":"open","path":"\/f","flags":["read"]})");
    EXPECT_THAT(ask(R"({"id":"2","op":"read","handle":1,"offset":0,"length":10})"),
                HasSubstr("expected a count of 0 to 10"));
    EXPECT_EQ(reports.size(), 6U);
}

TEST_F(Sessions, tellTimesAsTheProtocolWritesThem) {
    const std::map<std::int64_t, std::string> texts = {{-1, "1969-12-31T23:59:59.999Z"},
                                                       {0, "1970-01-01T00:00:00.000Z"},
                                                       {86'399'999, "1970-01-01T23:59:59.999Z"},
                                                       {-62'135'596'800'001, "0001-01-01T00:00:00.000Z"},
                                                       {253'402'300'800'000, "9999-12-31T23:59:59.999Z"}};
    for (const auto& [milliseconds, text] : texts) {
        book.modified = at(milliseconds);
        EXPECT_THAT(ask(R"({"id":"1","op":"getattr","path":"\/f"})"), HasSubstr("\"modifiedAt\":\"" + text + "\""));
    }
    for (const char* text : {"1969-12-31T23:59:59.999Z", "9999-12-31T23:59:59.999Z", "0001-01-01T00:00:00.000Z",
                             "2024-05-01T14:34:56.789+02:00"})
        ask(R"({"id":"1","op":"utimes","path":"\/f","mtime":")" + std::string(text) + "\"}");
    EXPECT_THAT(book.notes, ElementsAre("utimes /f -1", "utimes /f 253402300799999", "utimes /f -62135596800000",
                                        "utimes /f 1714566896789"));
}

TEST_F(Sessions, answerEPERMWhereAFunctionIsMissing) {
    EXPECT_THAT(ask(R"({"id":"1","op":"mkdir","path":"\/d"})"), HasSubstr("EPERM"));
    EXPECT_THAT(ask(R"({"id":"2","op":"unlink","path":"\/d"})"), HasSubstr("EPERM"));
}

TEST_F(Sessions, answerEROFSToEveryChangeOfWhatIsOnlyRead) {
    ReadOnly fileSystem;
    start(fileSystem);
    for (const char* rest : {R"("mkdir","path":"\/d"})", R"("unlink","path":"\/d"})",
                             R"("chmod","path":"\/d","mode":1})", R"("rename","oldPath":"\/d","newPath":"\/e"})",
                             R"("utimes","path":"\/d","mtime":"2024-05-01T12:34:56.789Z"})",
                             R"("open","path":"\/d","flags":["write","create"]})"})
        EXPECT_THAT(ask(std::string(R"({"id":"1","op":)") + rest), HasSubstr("EROFS")) << rest;
}

TEST_F(Sessions, takeRequestsStrictly) {
    ask(R"({"id":"1","op":"open","path":"\/f","flags":["read","write"]})");
    for (const char* rest : {R"("getattr"})",
                             R"("getattr","path":"f"})",
                             R"("getattr","path":7})",
                             R"("readdir","path":""})",
                             R"("open","path":"\/f"})",
                             R"("open","path":"\/f","flags":[]})",
                             R"("open","path":"\/f","flags":["create"]})",
                             R"("open","path":"\/f","flags":["read","truncate"]})",
                             R"("open","path":"\/f","flags":["read","append"]})",
                             R"("read","handle":1,"offset":-1,"length":1})",
                             R"("read","handle":1,"offset":0})",
                             R"("write","handle":1,"offset":0})",
                             R"("write","handle":1,"offset":0,"dataBase64":"A"})",
                             R"("write","handle":1,"offset":0,"dataBase64":null})",
                             R"("chmod","path":"\/f","mode":4096})",
                             R"("chmod","path":"\/f","mode":"7"})",
                             R"("utimes","path":"\/f","mtime":5})",
                             R"("utimes","path":"\/f","mtime":"2024-05-01T12:34:56Z"})",
                             R"("rename","oldPath":"\/f"})",
                             R"("nonsense"})",
                             R"("Ping"})"})
        EXPECT_THAT(ask(std::string(R"({"id":"1","op":)") + rest), HasSubstr("EINVAL")) << rest;
    EXPECT_THAT(book.notes, ElementsAre("open /f r w"));
    EXPECT_TRUE(reports.empty());
}

TEST_F(Sessions, answerBrokenLinesThatShowAnId) {
    EXPECT_THAT(ask(R"({"id":"7", oops)"), HasSubstr(R"({"id":"7","ok":false,"error":)"));
    EXPECT_THAT(ask(R"({"id":7,"op":"ping"})"), HasSubstr(R"({"id":"7","ok":false,"error":)"));
    EXPECT_THAT(ask(R"({"id":"8","op":9})"), HasSubstr("op of the request must be a string"));
    EXPECT_TRUE(tell("oops")); // without one nobody could tell what is answered
    EXPECT_TRUE(tell(R"({"op":"ping"})"));
    EXPECT_EQ(ask(R"({"id":"9","op":"ping"})"), R"({"id":"9","ok":true})");
    EXPECT_EQ(reports.size(), 5U);
}

TEST_F(Sessions, releaseWhatIsOpenAtTheEndWhateverFails) {
    ask(R"({"id":"1","op":"open","path":"\/f","flags":["read"]})");
    ask(R"({"id":"2","op":"open","path":"\/g","flags":["read"]})");
    book.notes.clear();
    book.fails = [](const std::string&) { throw std::runtime_error("stuck"); };
    session->end();
    EXPECT_THAT(book.notes, testing::UnorderedElementsAre("release /f", "release /g", "gone /f", "gone /g", "end"));
    EXPECT_EQ(book.notes.back(), "end");
    EXPECT_THAT(reports, testing::UnorderedElementsAre("release of /f failed: stuck", "release of /g failed: stuck"));
}

TEST_F(Sessions, nameWhatFailedByItsPath) {
    ask(R"({"id":"1","op":"open","path":"\/f","flags":["read"]})");
    book.fails = [](const std::string&) { throw std::runtime_error("stuck"); };
    ask(R"({"id":"2","op":"read","handle":1,"offset":0,"length":3})");
    ask(R"({"id":"3","op":"rename","oldPath":"\/f","newPath":"\/g"})");
    ask(R"({"id":"4","op":"release","handle":1})");
    EXPECT_THAT(reports, ElementsAre("read of /f failed: stuck", "rename of /f to /g failed: stuck",
                                     "release of /f failed: stuck"));
}

TEST_F(Sessions, noticeThatNobodyReadsAnyMore) {
    EXPECT_EQ(ask(R"({"id":"1","op":"ping"})"), R"({"id":"1","ok":true})");
    stopReading();
    EXPECT_FALSE(tell(R"({"id":"2","op":"ping"})"));
}

TEST(StoredTimes, areCutOffToTheMillisecondUnlessTheyAreMeantToBeTheNext) {
    EXPECT_EQ(timeOf({1, 0}), at(1000));
    EXPECT_EQ(timeOf({1, 999'999}), at(1001)); // what a fraction of a second in floating point makes of .001
    EXPECT_EQ(timeOf({1, 999'400}), at(1000));
    EXPECT_EQ(timeOf({-1, 999'000'000}), at(-1));
    EXPECT_EQ(timespecOf(at(-1)).tv_sec, -1);
    EXPECT_EQ(timespecOf(at(-1)).tv_nsec, 999'000'000);
    EXPECT_EQ(timespecOf(at(1500)).tv_nsec, 500'000'000);
}

} // namespace
} // namespace kemvi::kit
