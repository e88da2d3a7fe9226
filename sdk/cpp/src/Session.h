#pragma once

#include "AnswerLine.h"
#include "Request.h"
#include "StatWriter.h"
#include "kemvi/helper.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kemvi::kit {

/// One run of a helper: its open files, and the answer to each request line. Not thread-safe.
class Session {
public:
    /// Takes lines for people.
    using Reporter = std::function<void(const std::string& text)>;

    Session(FileSystem& fileSystem, foundation::FileHandle& output, Reporter report);

    /// Answers one line, behind which `copySlack` bytes can be read. False once nobody reads the answers.
    bool answer(std::string_view line);

    /// Releases what is still open, then ends the file system. What fails is reported, and the rest goes on.
    void end();

private:
    struct OpenFile {
        std::unique_ptr<File> file;
        std::string path; // with which it was opened
        bool reads;
        bool writes;
    };

    struct Operation {
        std::string_view name;
        void (Session::*run)();
    };

    static const Operation operations[];

    void carryOut();
    void fail();
    /// What the request is about, for people: "read of /a.txt".
    std::string subject() const;
    void answerMalformed(std::string_view line, const char* problem);
    void answerIncomplete();
    void attempt(const std::string& what, const std::function<void()>& step);

    void ping() {}

    void statfs();
    void getattr();
    void readdir();
    void open();
    void read();
    void write();
    void flush();
    void release();
    void mkdir();
    void unlink();
    void rename();
    void chmod();
    void utimes();

    void readLong(File& file, std::uint64_t offset, std::uint64_t length);
    std::span<const std::byte> readPiece(File& file, std::uint64_t offset, std::size_t length);
    OpenFile& openFile();
    /// The file system, where it can be changed; throws EROFS otherwise.
    WritableFileSystem& changing() const;

    FileSystem& fileSystem_;
    WritableFileSystem* const writable_; // the same, if it is one
    const Reporter report_;
    Request request_;
    AnswerLine line_;
    StatWriter stats_{line_};
    std::unordered_map<std::int64_t, OpenFile> open_;
    std::int64_t lastHandle_ = 0; // never used twice
    std::vector<std::byte> scratch_;
};

} // namespace kemvi::kit
