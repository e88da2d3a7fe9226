#include "extension/ToldFileSystem.h"

#include "extension/EnvironmentLoan.h"
#include "extension/FurtherKeys.h"
#include "extension/KemviFSExtension.h"
#include "extension/KemviMountConfig.h"
#include "extension/MountSecrets.h"
#include "extension/ScopedAccess.h"
#include "foundation/DecodingError.h"
#include "foundation/FileContents.h"
#include "foundation/JSONWriter.h"
#include "foundation/Log.h"
#include "foundation/RealPath.h"
#include "fskit/Answer.h"

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kemvi {
namespace {

// The loan of the load that runs on this thread.
thread_local EnvironmentLoan* loan = nullptr;

// Ends it as soon as the helper has its environment: a helper that never answers keeps no other load waiting.
class LoanEnd final : public HelperObserver {
public:
    void helperStarted(const std::shared_ptr<foundation::ChildProcess>&) noexcept override {
        if (loan != nullptr)
            loan->giveBack();
    }

    void helperEnded(const std::shared_ptr<foundation::ChildProcess>&, const std::string&) noexcept override {}
};

HelperObserver& loanEnd() {
    static auto* const end = new LoanEnd; // volumes may outlive every static object
    return *end;
}

// With what a thread's loan is known by.
class ThreadsLoan {
public:
    explicit ThreadsLoan(const HelperSettings& variables) : loan_(variables) { loan = &loan_; }

    ~ThreadsLoan() { loan = nullptr; }

    ThreadsLoan(const ThreadsLoan&) = delete;
    ThreadsLoan& operator=(const ThreadsLoan&) = delete;

private:
    EnvironmentLoan loan_;
};

std::string jsonText(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "[" : ",") + foundation::jsonString(word);
    return text + "]";
}

// The bytes of a configuration that all can be read of which each must have; else nothing, and the load will tell.
std::optional<std::pair<std::string, KemviMountConfig>> readConfiguration(const std::string& path) {
    try {
        std::string bytes = foundation::contentsOfFile(path);
        KemviMountConfig config = KemviMountConfig::decode(bytes);
        return std::pair(std::move(bytes), std::move(config));
    } catch (const foundation::Error&) {
        return std::nullopt;
    }
}

HelperSettings toldBy(const std::string& directory) {
    const std::string source =
        foundation::realPath(directory).value_or(std::filesystem::path(directory + "/").parent_path().string());
    const std::string path = source + "/mount-config.json";
    const auto configuration = readConfiguration(path);
    if (!configuration)
        return {};
    const auto& [bytes, config] = *configuration;
    const FurtherKeys keys = FurtherKeys::read(bytes, config.helperPath, path);
    HelperSettings told = keys.settings;
    for (auto& secret : secretsOf(source, config.repoRoot))
        told.push_back(std::move(secret));
    told.emplace_back("KEMVI_SOURCE", source);
    if (!keys.command.empty())
        told.emplace_back("KEMVI_COMMAND", jsonText(keys.command));
    return told;
}

} // namespace

ToldFileSystem::ToldFileSystem() : beneath_(KemviFSExtension().fileSystem(loanEnd())) {}

void ToldFileSystem::probeResource(const std::shared_ptr<fskit::FSResource>& resource, fskit::ProbeReply reply) {
    beneath_->probeResource(resource, std::move(reply));
}

void ToldFileSystem::loadResource(const std::shared_ptr<fskit::FSResource>& resource,
                                  const fskit::FSTaskOptions& options, fskit::VolumeReply reply) {
    const auto* directory = dynamic_cast<const fskit::FSPathURLResource*>(resource.get());
    if (directory == nullptr) {
        beneath_->loadResource(resource, options, std::move(reply));
        return;
    }
    const ScopedAccess access(directory->url()); // ends last of all, after the reply
    HelperSettings told;
    auto error = fskit::caughtError([&] { told = toldBy(directory->url().path()); });
    if (error) {
        const foundation::Logger logger(foundation::bundleIdentifier, "FileSystem");
        logger.info({"loadResource: ", foundation::logPrivate(resource->description())});
        logger.error({"loadResource failed: ", foundation::logPublic(error->description())});
        reply(nullptr, std::move(error));
        return;
    }
    const ThreadsLoan untilStarted(told);
    const auto accessed = std::make_shared<foundation::URL>(directory->url().path()); // begins no access of its own
    beneath_->loadResource(std::make_shared<fskit::FSPathURLResource>(accessed, directory->isWritable()), options,
                           std::move(reply));
}

void ToldFileSystem::unloadResource(const std::shared_ptr<fskit::FSResource>& resource,
                                    const fskit::FSTaskOptions& options, fskit::ErrorReply reply) {
    beneath_->unloadResource(resource, options, std::move(reply));
}

} // namespace kemvi
