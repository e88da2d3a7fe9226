#include "recording/Output.h"

#include "recording/RecordingError.h"

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>
#include <zstd.h>

namespace recording {
namespace {

constexpr std::size_t bufferSize = std::size_t{256} << 10; // bytes

[[noreturn]] void throwErrno(const std::string& what) {
    throw RecordingError(what + ": " + std::generic_category().message(errno));
}

class PlainOutput : public Output {
public:
    explicit PlainOutput(foundation::Descriptor descriptor) : descriptor_(std::move(descriptor)) {}

    void write(std::string_view bytes) override {
        buffer_ += bytes;
        if (buffer_.size() >= bufferSize)
            flush();
    }

    void flush() override {
        std::string_view left = buffer_;
        while (!left.empty()) {
            const auto written = ::write(descriptor_.number(), left.data(), left.size());
            if (written < 0 && errno != EINTR)
                throwErrno("cannot be written");
            left.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
        }
        buffer_.clear();
    }

    void finish() override {
        flush();
        if (!descriptor_.close())
            throwErrno("cannot be written");
    }

private:
    foundation::Descriptor descriptor_;
    std::string buffer_;
};

class CompressedOutput : public Output {
public:
    explicit CompressedOutput(foundation::Descriptor descriptor)
        : file_(std::move(descriptor)), context_(ZSTD_createCCtx(), &ZSTD_freeCCtx), room_(ZSTD_CStreamOutSize()) {
        if (!context_)
            throw RecordingError("cannot be compressed: no memory");
    }

    void write(std::string_view bytes) override { compress(bytes, ZSTD_e_continue); }

    void flush() override {
        compress({}, ZSTD_e_flush);
        file_.flush();
    }

    void finish() override {
        compress({}, ZSTD_e_end);
        file_.finish();
    }

private:
    void compress(std::string_view bytes, ZSTD_EndDirective directive) {
        ZSTD_inBuffer in{bytes.data(), bytes.size(), 0};
        for (;;) {
            ZSTD_outBuffer out{room_.data(), room_.size(), 0};
            const std::size_t left = ZSTD_compressStream2(context_.get(), &out, &in, directive);
            if (ZSTD_isError(left) != 0)
                throw RecordingError(std::string("cannot be compressed: ") + ZSTD_getErrorName(left));
            file_.write({room_.data(), out.pos});
            if (directive == ZSTD_e_continue ? in.pos == in.size : left == 0)
                return;
        }
    }

    PlainOutput file_;
    std::unique_ptr<ZSTD_CCtx, decltype(&ZSTD_freeCCtx)> context_;
    std::vector<char> room_;
};

} // namespace

std::unique_ptr<Output> plainOutput(foundation::Descriptor descriptor) {
    return std::make_unique<PlainOutput>(std::move(descriptor));
}

std::unique_ptr<Output> compressedOutput(foundation::Descriptor descriptor) {
    return std::make_unique<CompressedOutput>(std::move(descriptor));
}

std::unique_ptr<Output> openOutput(const std::string& path) {
    foundation::Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOCTTY, 0600));
    if (!file.isOpen() && errno == EEXIST)
        throw RecordingError("exists already; remove it, or name another file");
    if (!file.isOpen())
        throwErrno("cannot be made");
    return path.ends_with(".zst") ? compressedOutput(std::move(file)) : plainOutput(std::move(file));
}

} // namespace recording
