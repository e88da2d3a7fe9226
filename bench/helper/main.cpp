// Serves the folder in KEMVI_REPO_ROOT. Started as "node SCRIPT"; the script is not looked at.
#include "ServedFolder.h"

#include "foundation/Descriptor.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <system_error>
#include <unistd.h>

namespace {

const char* nameOf(int number) {
    switch (number) {
    case ENOENT: return "ENOENT";
    case EEXIST: return "EEXIST";
    case EINVAL: return "EINVAL";
    case EISDIR: return "EISDIR";
    case ENOTDIR: return "ENOTDIR";
    case ENOTEMPTY: return "ENOTEMPTY";
    case EACCES: return "EACCES";
    case EPERM: return "EPERM";
    case EROFS: return "EROFS";
    default: return "EIO";
    }
}

} // namespace

int main() {
    const char* root = std::getenv("KEMVI_REPO_ROOT");
    if (root == nullptr || *root == '\0') {
        std::fputs("kemvi_bench_helper: KEMVI_REPO_ROOT is not set; expected the folder to serve\n", stderr);
        return 1;
    }
    foundation::FileHandle input{foundation::Descriptor(STDIN_FILENO)};
    foundation::FileHandle output{foundation::Descriptor(STDOUT_FILENO)};
    foundation::ByteBuffer line;
    foundation::JSONReader reader;
    bench::RequestFields request;
    bench::AnswerLine answer;
    bench::ServedFolder folder(root);
    while (input.readLine(line)) {
        try {
            request.read(line.view(), reader);
            answer.begin(request.id);
            folder.answer(request, answer);
        } catch (const std::system_error& error) {
            answer.fail(request.id, nameOf(error.code().value()), error.what());
        } catch (const std::exception& error) {
            answer.fail(request.id, "EIO", error.what());
        }
        if (!answer.send(output))
            break;
    }
}
