#include "cli/SystemMount.h"

#include "cli/CommandError.h"
#include "cli/Paths.h"

#include <memory>
#include <string_view>
#include <vector>

namespace cli {

namespace {

bool isPlain(char each) {
    const bool isLetterOrDigit =
        (each >= 'a' && each <= 'z') || (each >= 'A' && each <= 'Z') || (each >= '0' && each <= '9');
    return isLetterOrDigit || std::string_view("/._-+,:@%").find(each) != std::string_view::npos ||
           (static_cast<unsigned char>(each) & 0x80U) != 0;
}

std::string shellWord(const std::string& text) {
    std::string quoted = "'";
    bool plain = !text.empty();
    for (const char each : text) {
        plain = plain && isPlain(each);
        quoted += each == '\'' ? std::string("'\\''") : std::string(1, each);
    }
    return plain ? text : quoted + "'";
}

} // namespace

std::string systemMount(const std::string& source, const std::string& mountPoint) {
    return "mount -F -t kemvifs " + shellWord(source) + " " + shellWord(mountPoint);
}

void addSystemMountCommand(CLI::App& app, ExitCode& result) {
    struct Request {
        std::string source;
        std::string mountPoint;
        std::vector<std::string> options;
    };

    auto request = std::make_shared<Request>();
    CLI::App* command = app.add_subcommand("mount", "Say how the system mounts a source directory");
    command->add_option("SOURCE", request->source, "Directory that holds mount-config.json")->required();
    command->add_option("MOUNTPOINT", request->mountPoint, "Empty directory to mount on")->required();
    command->add_option("-o", request->options, "Mount options, which mean nothing here")
        ->type_name("OPTIONS")
        ->allow_extra_args(false)
        ->take_all();
    command->callback([request, &result] {
        printMessage("macOS mounts by itself; run: " +
                     systemMount(absolutePath(request->source), absolutePath(request->mountPoint)));
        result = ExitCode::usage;
    });
}

} // namespace cli
