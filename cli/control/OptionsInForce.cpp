#include "cli/control/OptionsInForce.h"

#include "control/Members.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

namespace cli {

namespace {

std::string octal(std::uint32_t bits) {
    constexpr std::size_t longest = 12;
    constexpr int eight = 8;
    std::array<char, longest> text{};
    return "0" + std::string(text.data(), std::to_chars(text.data(), text.data() + text.size(), bits, eight).ptr);
}

std::string_view nameOf(foundation::LogLevel level) {
    switch (level) {
    case foundation::LogLevel::debug: return "debug";
    case foundation::LogLevel::info: return "info";
    case foundation::LogLevel::warning: return "warning";
    default: return "error";
    }
}

std::string_view nameOf(fusehost::OnDeath onDeath) {
    switch (onDeath) {
    case fusehost::OnDeath::exit: return "exit";
    case fusehost::OnDeath::restart: return "restart";
    default: return "fail";
    }
}

class OptionList {
public:
    void addFlag(const char* name, bool isSet) {
        if (isSet)
            list_.emplace_back(name);
    }

    void add(const char* name, std::string_view value) { list_.push_back(std::string(name).append("=").append(value)); }

    void add(const char* name, fusehost::Seconds value) { add(name, control::numberText(value.count())); }

    std::vector<std::string> list_;
};

} // namespace

std::vector<std::string> optionsInForce(const fusehost::MountOptions& options) {
    OptionList list;
    list.addFlag(options.readOnly ? "ro" : "rw", true);
    list.addFlag("allow_other", options.allowOther);
    list.addFlag("default_permissions", options.kernelChecksPermissions());
    list.add("entry_timeout", options.entryTimeout);
    list.add("attr_timeout", options.attrTimeout);
    list.add("negative_timeout", options.negativeTimeout);
    list.add("request_size", std::to_string(options.requestSize));
    list.add("placement", options.placement ? "auto" : "off");
    list.add("on_death", nameOf(options.onDeath));
    if (options.operationTimeout)
        list.add("op_timeout", *options.operationTimeout);
    list.addFlag("writeback", options.writeback);
    list.addFlag("close_to_open", options.closeToOpen);
    list.addFlag("quiet", options.quiet);
    list.addFlag("nonempty", options.nonEmpty);
    if (options.fileMask)
        list.add("fmask", octal(*options.fileMask));
    if (options.directoryMask)
        list.add("dmask", octal(*options.directoryMask));
    if (options.uid)
        list.add("uid", std::to_string(*options.uid));
    if (options.gid)
        list.add("gid", std::to_string(*options.gid));
    if (options.fsname)
        list.add("fsname", *options.fsname);
    if (options.logFile)
        list.add("log_file", *options.logFile);
    if (options.logLevel)
        list.add("log_level", nameOf(*options.logLevel));
    list.addFlag("show_private", options.showPrivate);
    list.list_.insert(list.list_.end(), options.kernelOptions.begin(), options.kernelOptions.end());
    return list.list_;
}

} // namespace cli
