#include "hosts/fuse/mounting/MountOptions.h"

#include "Fuzz.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <tuple>

namespace fuzz {
namespace {

using fusehost::MountOptions;

auto all(const MountOptions& o) {
    return std::tie(o.readOnly, o.allowOther, o.quiet, o.writeback, o.nonEmpty, o.entryTimeout, o.attrTimeout,
                    o.negativeTimeout, o.requestSize, o.fileMask, o.directoryMask, o.uid, o.gid, o.fsname,
                    o.kernelOptions);
}

std::optional<MountOptions> added(const MountOptions& to, std::string_view text) {
    MountOptions options = to;
    try {
        options.add(text);
        return options;
    } catch (const fusehost::MountOptionError& error) {
        require(std::string_view(error.what()).starts_with("option \""), "an error names the option");
        return std::nullopt;
    }
}

/// Where the next option ends: at a comma, but for one that a backslash takes with it.
std::size_t endOfOption(std::string_view text) {
    std::size_t end = 0;
    while (end < text.size() && text[end] != ',') {
        const std::string_view pair = text.substr(end, 2);
        end += pair == "\\," || pair == "\\\\" ? 2 : 1;
    }
    return end;
}

std::optional<MountOptions> addedOneByOne(std::string_view text) {
    std::optional<MountOptions> options = MountOptions();
    while (options && !text.empty()) {
        const std::size_t end = endOfOption(text);
        options = added(*options, text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return options;
}

void checkRanges(const MountOptions& options) {
    for (const auto timeout : {options.entryTimeout, options.attrTimeout, options.negativeTimeout})
        require(std::isfinite(timeout.count()) && timeout.count() >= 0, "a timeout is a number, 0 or more");
    require(options.requestSize >= 4096 && options.requestSize <= 1024 * 1024 && options.requestSize % 4096 == 0,
            "a request is some pages long");
    require(options.fileMask.value_or(0) <= 0777 && options.directoryMask.value_or(0) <= 0777,
            "a mask has permission bits alone");
    require(options.uid != ~std::uint32_t{0} && options.gid != ~std::uint32_t{0}, "an owner is somebody");
    for (const std::string& option : options.kernelOptions)
        require(option.find_first_not_of("abcdefghijklmnopqrstuvwxyz") == std::string::npos,
                "what is handed to the kernel is a plain word");
}

} // namespace

void mountOptions(Input input) {
    const auto once = added({}, textOf(input));
    const auto oneByOne = addedOneByOne(textOf(input));
    require(once.has_value() == oneByOne.has_value() && (!once || all(*once) == all(*oneByOne)),
            "options in one list are the same as one by one");
    if (!once)
        return;
    checkRanges(*once);
    auto twice = added(*once, textOf(input));
    require(twice.has_value(), "what was accepted is accepted again");
    twice->kernelOptions = once->kernelOptions; // these add up
    require(all(*twice) == all(*once), "options given twice change nothing more");
}

} // namespace fuzz
