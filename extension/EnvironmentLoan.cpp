#include "extension/EnvironmentLoan.h"

#include <cstdlib>

namespace kemvi {
namespace {

std::mutex& turns() {
    static auto* const lock = new std::mutex; // a load may still run while the process ends
    return *lock;
}

} // namespace

EnvironmentLoan::EnvironmentLoan(const HelperSettings& variables) : turn_(turns()) {
    for (const auto& [name, value] : variables) {
        const char* const before = std::getenv(name.c_str());
        before_.emplace_back(name, before != nullptr ? std::optional<std::string>(before) : std::nullopt);
        ::setenv(name.c_str(), value.c_str(), 1);
    }
}

void EnvironmentLoan::giveBack() {
    if (!turn_.owns_lock())
        return;
    for (; !before_.empty(); before_.pop_back()) {
        const auto& [name, value] = before_.back();
        if (value)
            ::setenv(name.c_str(), value->c_str(), 1);
        else
            ::unsetenv(name.c_str());
    }
    turn_.unlock();
}

} // namespace kemvi
