#include "recording/Input.h"

#include "foundation/Descriptor.h"
#include "recording/RecordingError.h"

#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>
#include <zstd.h>

namespace recording {
namespace {

constexpr std::string_view zstdMagic = "\x28\xb5\x2f\xfd";
constexpr std::size_t pieceSize = std::size_t{256} << 10; // bytes

[[noreturn]] void throwErrno(const std::string& what) {
    throw RecordingError(what + ": " + std::generic_category().message(errno));
}

/// The bytes of a file, as they are or without their compression.
class Bytes {
public:
    explicit Bytes(foundation::Descriptor file) : file_(std::move(file)), raw_(pieceSize) {
        readRaw();
        if (std::string_view(raw_.data(), rawEnd_).starts_with(zstdMagic))
            context_.reset(ZSTD_createDCtx());
    }

    /// The next bytes behind `into`; false at the end.
    bool appendTo(std::string& into) {
        if (context_)
            return appendUnpacked(into);
        if (rawStart_ == rawEnd_ && !readRaw())
            return false;
        into.append(raw_.data() + rawStart_, rawEnd_ - rawStart_);
        rawStart_ = rawEnd_;
        return true;
    }

    bool endedWithin() const { return endedWithin_; }

private:
    bool readRaw() {
        ssize_t count = 0;
        do
            count = ::read(file_.number(), raw_.data(), raw_.size());
        while (count < 0 && errno == EINTR);
        if (count < 0)
            throwErrno("cannot be read");
        rawStart_ = 0;
        rawEnd_ = static_cast<std::size_t>(count);
        return count > 0;
    }

    bool appendUnpacked(std::string& into) {
        const std::size_t before = into.size();
        while (into.size() == before) {
            if (rawStart_ == rawEnd_ && !holdsMore_ && !readRaw()) {
                endedWithin_ = withinFrame_;
                return false;
            }
            into.resize(before + pieceSize);
            ZSTD_inBuffer in{raw_.data(), rawEnd_, rawStart_};
            ZSTD_outBuffer out{into.data() + before, pieceSize, 0};
            const std::size_t left = ZSTD_decompressStream(context_.get(), &out, &in);
            into.resize(before + out.pos);
            if (ZSTD_isError(left) != 0)
                throw RecordingError(std::string("cannot be unpacked: ") + ZSTD_getErrorName(left));
            withinFrame_ = left != 0;
            holdsMore_ = out.pos == out.size; // the library may have more of what it was given
            rawStart_ = in.pos;
        }
        return true;
    }

    struct Free {
        void operator()(ZSTD_DCtx* context) const { ZSTD_freeDCtx(context); }
    };

    foundation::Descriptor file_;
    std::unique_ptr<ZSTD_DCtx, Free> context_; // none where nothing is compressed
    std::vector<char> raw_;                    // read and not handed on: from rawStart_ to rawEnd_
    std::size_t rawStart_ = 0;
    std::size_t rawEnd_ = 0;
    bool withinFrame_ = false;
    bool holdsMore_ = false;
    bool endedWithin_ = false;
};

class FileInput : public Input {
public:
    explicit FileInput(foundation::Descriptor file) : bytes_(std::move(file)) {}

    bool readLine(std::string& line) override {
        std::size_t searched = start_;
        std::size_t end = 0;
        while ((end = held_.find('\n', searched)) == std::string::npos) {
            held_.erase(0, start_);
            start_ = 0;
            searched = held_.size();
            if (searched > longestLine)
                throw RecordingError("has a line of more than 256 MiB");
            if (!bytes_.appendTo(held_)) {
                cut_ = !held_.empty() || bytes_.endedWithin();
                return false;
            }
        }
        line.assign(held_, start_, end - start_);
        start_ = end + 1;
        return true;
    }

    bool wasCut() const override { return cut_; }

private:
    Bytes bytes_;
    std::string held_; // what is not handed out yet: from start_ on
    std::size_t start_ = 0;
    bool cut_ = false;
};

} // namespace

std::unique_ptr<Input> openInput(const std::string& path) {
    foundation::Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (!file.isOpen())
        throwErrno("cannot be read");

    struct stat status {};

    if (::fstat(file.number(), &status) != 0 || !S_ISREG(status.st_mode))
        throw RecordingError("is no file; expected a recording");
    return std::make_unique<FileInput>(std::move(file));
}

} // namespace recording
