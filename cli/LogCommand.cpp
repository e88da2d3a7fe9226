#include "cli/LogCommand.h"

#include "cli/MountChannel.h"
#include "cli/Output.h"
#include "foundation/JSON.h"
#include "helper/JSONValue.h"

#include <cstddef>
#include <memory>
#include <string>

namespace cli {

namespace {

struct Request {
    std::string mountPoint;
    std::size_t lines = 1000;
    bool follow = false;
};

void printLast(const kemvi::JSONObject& answer, std::size_t count) {
    const kemvi::JSONValue* lines = answer.find("lines");
    if (lines == nullptr || lines->asArray() == nullptr)
        return;
    const auto& all = *lines->asArray();
    std::string text;
    for (std::size_t index = all.size() > count ? all.size() - count : 0; index < all.size(); ++index)
        if (const std::string* line = all[index].asString())
            text += *line + "\n";
    print(text);
}

/// {"line":...}, or {"lost":N} where this command was too slow.
void printEvent(std::string_view event, foundation::JSONReader& reader) {
    reader.readObject(event, [](std::string_view key, foundation::JSONElement& element) {
        const auto value = kemvi::JSONValue::read(element);
        if (key == "line" && value.asString() != nullptr)
            print(*value.asString() + "\n");
        else if (key == "lost")
            print("(" + value.description() + " lines lost)\n");
    });
}

ExitCode run(const Request& request) {
    auto channel = connectToMount(request.mountPoint);
    try {
        const control::Members members = request.follow ? control::Members().add("follow", true) : control::Members();
        printLast(channel.ask("log", members), request.lines);
        if (!request.follow)
            return ExitCode::success;
        foundation::JSONReader reader;
        while (const auto event = channel.nextLine())
            printEvent(*event, reader);
    } catch (const control::ChannelError& error) {
        throwChannelProblem(request.mountPoint, error);
    }
    return ExitCode::success;
}

} // namespace

void addLogCommand(CLI::App& app, ExitCode& result) {
    auto request = std::make_shared<Request>();
    CLI::App* command = app.add_subcommand("log", "Show the last lines of a mount's log");
    command->add_option("MOUNTPOINT", request->mountPoint, "Directory that is mounted on")->required();
    command->add_flag("-f,--follow", request->follow, "Go on with what is logged, until the mount ends");
    command->add_option("-n,--lines", request->lines, "No more than so many of the last lines (default: 1000)")
        ->type_name("COUNT");
    command->footer("The mount keeps them in memory, wherever its log goes. Answers also while the helper hangs.");
    command->callback([request, &result] { result = run(*request); });
}

} // namespace cli
