#include "cli/check/ScratchFiles.h"

#include "foundation/Base64.h"

#include <span>

namespace cli::check {

bool ScratchFiles::claim(const char* check, const std::string& path, Scratch::Kind kind) {
    const auto claim = scratch_.claim(path, kind);
    if (claim == Scratch::Claim::taken) {
        stopped_ = true;
        error(check, "\"" + path + "\" is there before it was made; nothing more is written",
              "files are overwritten that have another name");
    } else if (claim == Scratch::Claim::unknown) {
        error(check, "the helper does not say whether there is a \"" + path + "\"", "no new file can be made");
    }
    return claim == Scratch::Claim::ours;
}

bool ScratchFiles::makeFolder(const char* check, const std::string& name) {
    return claim(check, path(name), Scratch::Kind::folder) &&
           succeeds(check, talk_.ask(pathRequest("mkdir", path(name))), "no folder can be made");
}

bool ScratchFiles::write(const char* check, const std::string& name, const Flags& flags, std::int64_t offset,
                         std::string_view bytes) {
    if (!claim(check, path(name), Scratch::Kind::file))
        return false;
    const auto handle = handleIn(talk_.ask(openRequest(path(name), flags)));
    if (!handle) {
        error(check, "\"" + name + "\" could not be opened for writing", "no file can be written");
        return false;
    }
    bool kept = true;
    if (!bytes.empty()) {
        std::string text(foundation::base64::escapedRoom(bytes.size()), '\0');
        text.resize(foundation::base64::encodeEscapingSlashes(std::as_bytes(std::span(bytes)), text.data()));
        auto request = handleRequest("write", *handle);
        request.offset = offset;
        request.dataBase64 = text;
        kept = succeeds(check, talk_.ask(request), "writing fails");
    }
    kept = succeeds(check, talk_.ask(handleRequest("flush", *handle)), "close and fsync report an error") && kept;
    return succeeds(check, talk_.ask(handleRequest("release", *handle)), "close reports an error") && kept;
}

std::optional<std::string> ScratchFiles::contents(const std::string& name) {
    const auto handle = handleIn(talk_.ask(openRequest(path(name), {"read"})));
    if (!handle)
        return std::nullopt;
    auto bytes = readOn(talk_, *handle, 0, 1 << 20, std::size_t{32} << 20);
    talk_.ask(handleRequest("release", *handle));
    return bytes;
}

void ScratchFiles::expect(const char* check, const std::string& name, const std::string& bytes,
                          const char* consequence) {
    const auto found = contents(name);
    if (!found || *found != bytes) {
        error(check,
              "\"" + name + "\" holds " +
                  (found ? std::to_string(found->size()) + " bytes that differ" : "nothing readable") + "; expected " +
                  std::to_string(bytes.size()) + " bytes",
              consequence);
    }
}

} // namespace cli::check
