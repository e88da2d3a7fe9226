#pragma once

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

namespace controltests {

/// A folder of this test's own, gone with it.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string pattern = testing::TempDir() + "kemvi-control-XXXXXX";
        path_ = ::mkdtemp(pattern.data()) != nullptr ? pattern : std::string();
    }

    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

} // namespace controltests
