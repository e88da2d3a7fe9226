#include "Fuzz.h"

#include "MeasuredMount.h"
#include "RequestScript.h"
#include "foundation/Error.h"
#include "foundation/Log.h"
#include "foundation/PosixErrno.h"

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <string>
#include <string_view>

namespace fuzz {
namespace {

namespace posixErrno = foundation::posixErrno;

constexpr std::size_t longest = 400;        // longer sequences show nothing that a short one does not
constexpr std::uint32_t mostWrite = 16'384; // of one request where the helper's are shortest

class Silence final : public foundation::LogSink {
public:
    void write(foundation::LogLevel, std::string_view, std::string_view, std::string_view) override {}
};

const std::string& nameFrom(RequestScript& script) {
    static const std::array<std::string, 7> names = {std::string(256, 'n'),    "a", "b", "c", "d", "e",
                                                     ".kemvi-hidden-other-one"};
    return names[static_cast<std::uint8_t>(script.byte() - '`') % names.size()]; // 'a' is "a"
}

std::uint32_t sizeFrom(RequestScript& script) {
    constexpr std::array<std::uint32_t, 10> sizes = {0, 1, 2, 100, 4095, 4096, 4097, 9000, 16'384, 70'000};
    return sizes[script.choice(sizes.size())];
}

int flagsFrom(RequestScript& script, int optional) {
    constexpr std::array<int, 3> access = {O_RDONLY, O_WRONLY, O_RDWR};
    const std::size_t choice = script.choice(12);
    const int mode = access[choice % 3];
    int flags = mode;
    if (choice / 3 % 2 == 1 && mode != O_RDONLY)
        flags |= O_TRUNC;
    if (choice / 6 == 1)
        flags |= optional;
    return flags;
}

bool bit(std::size_t bits, unsigned number) {
    return (bits >> number & 1) != 0;
}

fusehost::MountOptions optionsFrom(RequestScript& script) {
    const std::size_t bits = script.choice(256);
    fusehost::MountOptions options;
    options.writeback = bit(bits, 0);
    if (bit(bits, 1))
        options.entryTimeout = options.attrTimeout = fusehost::Seconds(0);
    if (bit(bits, 2))
        options.requestSize = 4096;
    if (bit(bits, 3))
        options.negativeTimeout = fusehost::Seconds(1);
    return options;
}

// Refuses one request in so many, of one kind as often as of another. Reads come from several threads.
class Refusals {
public:
    void operator()(const std::string& request) {
        constexpr std::array errors = {posixErrno::EIO_, posixErrno::ENOENT_, posixErrno::EEXIST_, posixErrno::EACCES_};
        const bool isRead = request.starts_with("read ");
        const std::size_t number = std::hash<std::string>()(request) + (isRead ? 0 : 7919 * ++*others_);
        if (number % 6 == 0)
            foundation::throwPosix(errors[number / 6 % errors.size()]);
    }

private:
    std::shared_ptr<std::size_t> others_ = std::make_shared<std::size_t>(0);
};

bool setUpHelper(RequestScript& script, fusehosttests::ServedTree& served) {
    const std::size_t bits = script.choice(256);
    served.renameReplaces = !bit(bits, 0);
    served.renameReplacesAnything = bit(bits, 1);
    served.unlinkIsRecursive = bit(bits, 2);
    served.listsNamesAlone = bit(bits, 3);
    if (bit(bits, 4))
        served.mostPerRead = 1000;
    if (bit(bits, 5))
        served.before = Refusals();
    return bit(bits, 5);
}

void onName(MeasuredMount& mount, RequestScript& script, char operation) {
    const std::size_t node = script.choice(mount.nodes());
    const std::string& name = nameFrom(script);
    switch (operation) {
    case 'c': {
        const int flags = flagsFrom(script, O_EXCL);
        mount.create(node, name, flags, (flags & O_EXCL) != 0 ? 0600 : 0644);
        break;
    }
    case 'h': mount.makeOddities(node, name); break;
    case 'k': mount.makeDirectory(node, name); break;
    case 'l': mount.lookup(node, name); break;
    case 'n': mount.makeFile(node, name); break;
    case 't': {
        const std::size_t to = script.choice(mount.nodes());
        const std::string& newName = nameFrom(script);
        mount.rename(node, name, to, newName, script.choice(4) != 3);
        break;
    }
    case 'u': mount.removeFile(node, name); break;
    default: mount.removeDirectory(node, name); break;
    }
}

void onNode(MeasuredMount& mount, RequestScript& script, char operation) {
    const std::size_t node = script.choice(mount.nodes());
    switch (operation) {
    case 'd': mount.openDirectory(node); break;
    case 'e': mount.forget(node, 1 + script.choice(4)); break;
    case 'g': mount.getAttributes(node); break;
    case 'm': {
        const std::size_t value = script.choice(16);
        if (value % 2 == 0)
            mount.setTime(node, 1'000'000 + value);
        else
            mount.setMode(node, value % 4 == 1 ? 0644 : 0700);
        break;
    }
    case 'o': mount.open(node, flagsFrom(script, 0)); break;
    default: mount.setSize(node, sizeFrom(script)); break;
    }
}

void onFile(MeasuredMount& mount, RequestScript& script, char operation) {
    if (mount.files() == 0)
        return;
    const std::size_t file = script.choice(mount.files());
    switch (operation) {
    case 'f': mount.flush(file); break;
    case 'r': {
        const std::uint32_t offset = sizeFrom(script);
        mount.read(file, offset, std::max(sizeFrom(script), 1U));
        break;
    }
    case 'w': {
        const std::uint32_t offset = sizeFrom(script);
        mount.write(file, offset, std::clamp(sizeFrom(script), 1U, mostWrite));
        break;
    }
    case 'x': mount.release(file); break;
    default: mount.synchronize(file); break;
    }
}

void onDirectory(MeasuredMount& mount, RequestScript& script, char operation) {
    if (mount.directories() == 0)
        return;
    const std::size_t directory = script.choice(mount.directories());
    if (operation == 'q') {
        mount.releaseDirectory(directory);
        return;
    }
    const std::size_t kind = script.choice(16);
    mount.list(directory, 512 + 128 * static_cast<std::uint32_t>(kind / 2), kind % 2 == 1);
}

void carryOut(MeasuredMount& mount, RequestScript& script) {
    constexpr std::string_view onNames = "chklntuv";
    constexpr std::string_view onNodes = "degmos";
    constexpr std::string_view onFiles = "frwxy";
    constexpr std::string_view onDirectories = "pq";
    constexpr std::string_view all = "chklntuvdegmosfrwxypqij";
    const char given = static_cast<char>(script.byte());
    const char operation = all.find(given) != all.npos ? given : all[static_cast<unsigned char>(given) % all.size()];
    if (onNames.find(operation) != onNames.npos)
        onName(mount, script, operation);
    else if (onNodes.find(operation) != onNodes.npos)
        onNode(mount, script, operation);
    else if (onFiles.find(operation) != onFiles.npos)
        onFile(mount, script, operation);
    else if (onDirectories.find(operation) != onDirectories.npos)
        onDirectory(mount, script, operation);
    else if (operation == 'i')
        mount.idle();
    else
        mount.figures();
}

} // namespace

void requests(Input input) {
    foundation::Log::setSink(std::make_shared<Silence>());
    RequestScript script(input.first(std::min(input.size(), longest)));
    fusehosttests::ServedTree served;
    MeasuredMount::Kind kind;
    kind.options = optionsFrom(script);
    kind.helperFails = setUpHelper(script, served);
    MeasuredMount mount(served, kind);
    while (!script.isAtEnd())
        carryOut(mount, script);
    mount.end();
    foundation::Log::setSink(nullptr);
}

} // namespace fuzz
