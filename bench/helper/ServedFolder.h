#pragma once

#include "AnswerLine.h"
#include "RequestFields.h"
#include "foundation/ISO8601.h"

#include <cstddef>
#include <string>
#include <sys/stat.h>
#include <unordered_map>
#include <vector>

namespace bench {

/// Answers the protocol's operations from a folder. For measurements in a folder of one's own: nothing keeps a link
/// from leading out of it.
class ServedFolder {
public:
    explicit ServedFolder(std::string root) : root_(std::move(root)) {}

    /// Carries out one request and completes its answer, which the caller has begun. Throws std::system_error for what
    /// the system refuses and std::runtime_error for an unknown operation.
    void answer(const RequestFields& request, AnswerLine& line);

private:
    void getattr(const RequestFields& request, AnswerLine& line);
    void readdir(const RequestFields& request, AnswerLine& line);
    void open(const RequestFields& request, AnswerLine& line);
    void read(const RequestFields& request, AnswerLine& line);
    void write(const RequestFields& request);
    void release(const RequestFields& request);
    void unlink(const RequestFields& request);
    void change(const RequestFields& request);
    void utimes(const RequestFields& request);
    void addStat(AnswerLine& line, std::string_view path, std::string_view name, const struct stat& facts);
    int descriptor(const RequestFields& request) const;

    std::string real(const std::string& path) const { return root_ + path; }

    const std::string root_;
    foundation::ISO8601DateFormatter times_;
    std::unordered_map<std::int64_t, int> open_;
    std::int64_t lastHandle_ = 0;
    std::vector<std::byte> scratch_;
};

} // namespace bench
