#include "foundation/Error.h"
#include "foundation/FileContents.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

class FileContents : public testing::Test {
protected:
    FileContents() {
        std::string pattern = std::filesystem::temp_directory_path() / "kemvi-contents-XXXXXX";
        if (!mkdtemp(pattern.data()))
            throw std::runtime_error("no temporary directory");
        path_ = pattern;
    }

    ~FileContents() override {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::string write(const std::string& contents) const {
        const std::string file = path_ + "/file";
        std::ofstream(file, std::ios::binary) << contents;
        return file;
    }

    std::string path_;
};

TEST_F(FileContents, areReadToTheLastByte) {
    std::string bytes(100'001, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i * 7);
    EXPECT_TRUE(foundation::contentsOfFile(write(bytes)) == bytes);
}

TEST_F(FileContents, ofAnEmptyFileAreEmpty) {
    EXPECT_EQ(foundation::contentsOfFile(write("")), "");
}

TEST_F(FileContents, ofAMissingFileThrowNamingIt) {
    try {
        foundation::contentsOfFile(path_ + "/missing");
        FAIL() << "nothing was thrown";
    } catch (const foundation::NSErrorException& error) {
        EXPECT_EQ(error.nsError().domain, foundation::NSCocoaErrorDomain);
        EXPECT_EQ(error.nsError().code, foundation::cocoaError::fileReadNoSuchFile);
        EXPECT_EQ(error.nsError().localizedDescription,
                  "The file \"" + path_ + "/missing\" couldn't be opened because there is no such file.");
    }
}

TEST_F(FileContents, behindAFileThatIsNoDirectoryThrowTheUnknownReason) {
    try {
        foundation::contentsOfFile(write("x") + "/below");
        FAIL() << "nothing was thrown";
    } catch (const foundation::NSErrorException& error) {
        EXPECT_EQ(error.nsError().code, foundation::cocoaError::fileReadUnknown);
    }
}

} // namespace
