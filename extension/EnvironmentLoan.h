#pragma once

#include "extension/HelperSettings.h"

#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kemvi {

/// Variables in this process's own environment, which a helper inherits, until it was started: what is set for one
/// helper is then not told to the next. One loan at a time; the next one waits. What others read of the environment
/// meanwhile is protected as far as the platform does that.
class EnvironmentLoan {
public:
    explicit EnvironmentLoan(const HelperSettings& variables);

    ~EnvironmentLoan() { giveBack(); }

    EnvironmentLoan(const EnvironmentLoan&) = delete;
    EnvironmentLoan& operator=(const EnvironmentLoan&) = delete;

    /// Makes the environment what it was. May be called again, on the thread that made the loan.
    void giveBack();

private:
    std::unique_lock<std::mutex> turn_;
    std::vector<std::pair<std::string, std::optional<std::string>>> before_; // in the order of setting
};

} // namespace kemvi
