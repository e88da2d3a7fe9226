#pragma once

#include "foundation/URL.h"
#include "fskit/FSIdentifiers.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace fskit {

/// Something a volume can be made from.
class FSResource {
public:
    virtual ~FSResource();
    /// Display text for logs.
    virtual std::string description() const = 0;
};

/// A directory or file given by its path.
class FSPathURLResource final : public FSResource {
public:
    FSPathURLResource(std::shared_ptr<foundation::URL> url, bool writable)
        : url_(std::move(url)), writable_(writable) {}

    foundation::URL& url() const { return *url_; }

    bool isWritable() const { return writable_; }

    std::string description() const override;

private:
    std::shared_ptr<foundation::URL> url_;
    bool writable_;
};

enum class FSMatchResult : std::int64_t { notRecognized = 0, recognized = 1, usableButLimited = 2, usable = 3 };

/// The answer to a probe. Name and container identifier are present unless the result is notRecognized.
class FSProbeResult {
public:
    FSProbeResult() = default;

    static FSProbeResult usable(std::string name, FSContainerIdentifier containerID) {
        FSProbeResult probe;
        probe.result_ = FSMatchResult::usable;
        probe.name_ = std::move(name);
        probe.containerID_ = containerID;
        return probe;
    }

    FSMatchResult result() const { return result_; }

    const std::string& name() const { return name_; }

    const std::optional<FSContainerIdentifier>& containerID() const { return containerID_; }

private:
    FSMatchResult result_ = FSMatchResult::notRecognized;
    std::string name_;
    std::optional<FSContainerIdentifier> containerID_;
};

/// Options of a task, in the form of a command line ("-o", "ro", ...).
class FSTaskOptions {
public:
    FSTaskOptions() = default;

    explicit FSTaskOptions(std::vector<std::string> taskOptions) : taskOptions_(std::move(taskOptions)) {}

    const std::vector<std::string>& taskOptions() const { return taskOptions_; }

private:
    std::vector<std::string> taskOptions_;
};

} // namespace fskit
