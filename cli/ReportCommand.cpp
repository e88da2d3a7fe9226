#include "cli/ReportCommand.h"

#include "cli/CommandError.h"
#include "cli/RecordedFile.h"
#include "foundation/Descriptor.h"
#include "recording/Report.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace cli {

namespace {

struct Request {
    std::string file;
    std::string output;
    bool json = false;
};

[[noreturn]] void refuseWriting(const std::string& path) {
    throw CommandError(ExitCode::failure, path, "cannot be written: " + errnoText(errno));
}

/// Puts the whole page in place in one step. What is there already is replaced if it is a page of ours, which can be
/// made again; anything else stays.
void writePage(const std::string& path, const std::string& page) {
    foundation::Descriptor before(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (before.isOpen()) {
        std::string begin(page.find("<title>"), '\0');
        const auto count = ::read(before.number(), begin.data(), begin.size());
        if (count != static_cast<ssize_t>(begin.size()) || !page.starts_with(begin))
            throw CommandError(ExitCode::usage, path, "exists already and is no report; name another file with -o");
    }
    std::string temporary = path + ".XXXXXX";
    foundation::Descriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!file.isOpen())
        refuseWriting(path);
    std::string_view left = page;
    while (!left.empty()) {
        const auto written = ::write(file.number(), left.data(), left.size());
        if (written < 0 && errno != EINTR)
            break;
        left.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
    if (!left.empty() || ::fchmod(file.number(), 0644) != 0 || !file.close() ||
        ::rename(temporary.c_str(), path.c_str()) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        errno = error;
        refuseWriting(path);
    }
}

ExitCode run(const Request& request) {
    return readingRecording(request.file, [&] {
        if (request.output.empty() && !request.json)
            throw CommandError(ExitCode::usage, "report", "where to? Give -o FILE.html, or --json");
        recording::Reader reader(request.file);
        const recording::Report report(reader);
        if (reader.wasCut())
            printMessage(request.file + ": breaks off after line " + std::to_string(reader.line()) +
                         "; the report tells what is before");
        if (request.json)
            std::printf("%s\n", report.json().c_str());
        if (!request.output.empty())
            writePage(request.output, report.page(std::filesystem::path(request.file).filename().string()));
        return ExitCode::success;
    });
}

} // namespace

void addReportCommand(CLI::App& app, ExitCode& result) {
    auto request = std::make_shared<Request>();
    CLI::App* command = app.add_subcommand("report", "Make a page of charts and tables of a recording");
    command->add_option("FILE", request->file, "Recording, as \"kemvi record\" makes it")->required();
    command->add_option("-o,--output", request->output, "The page: one HTML file that needs nothing else")
        ->type_name("FILE.html");
    command->add_flag("--json", request->json, "Print what the page tells as one JSON object");
    command->callback([request, &result] { result = run(*request); });
}

} // namespace cli
