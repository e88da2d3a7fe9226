#include "ServedTree.h"

#include "kemvi/helper.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <stdlib.h>
#include <string>

namespace local {
namespace {

namespace filesystem = std::filesystem;

class ServedTrees : public testing::TestWithParam<ServedTree::Lookup> {
protected:
    ServedTrees() {
        std::string name = filesystem::temp_directory_path() / "kemvi-tree-XXXXXX";
        folder = ::mkdtemp(name.data());
        filesystem::create_directories(folder / "root/a/b/c");
        filesystem::create_directories(folder / "outside/d");
        std::ofstream(folder / "root/a/b/file") << "12345";
        std::ofstream(folder / "outside/d/file") << "secret";
        filesystem::create_directory_symlink("a/b", folder / "root/inside");
        filesystem::create_directory_symlink(folder / "root/a", folder / "root/absolute");
        filesystem::create_directory_symlink("../outside", folder / "root/out");
        filesystem::create_directory_symlink("..", folder / "root/a/up");
        filesystem::create_symlink("b/file", folder / "root/a/toFile");
        filesystem::create_symlink("self", folder / "root/self");
    }

    ~ServedTrees() override { filesystem::remove_all(folder); }

    /// The size of what is at a path, or the code of the error; "none" if nothing is there.
    std::string looked(const std::string& path) {
        try {
            const auto facts = ServedTree(folder / "root", GetParam()).locate(path).look(path);
            return facts ? std::to_string(S_ISREG(facts->st_mode) ? facts->st_size : 0) : "none";
        } catch (const kemvi::PosixError& error) {
            EXPECT_EQ(std::string(error.what()).find(folder), std::string::npos) << error.what();
            return error.code();
        }
    }

    std::string opened(const std::string& path, int flags) {
        try {
            return ServedTree(folder / "root", GetParam()).folder(path, flags).isOpen() ? "open" : "closed";
        } catch (const kemvi::PosixError& error) {
            return error.code();
        }
    }

    std::string followed(const std::string& path) {
        try {
            return ServedTree(folder / "root", GetParam()).followLink(path).name();
        } catch (const kemvi::PosixError& error) {
            return error.code();
        }
    }

    filesystem::path folder;
};

INSTANTIATE_TEST_SUITE_P(Ways, ServedTrees, testing::Values(ServedTree::Lookup::byOneCall, ServedTree::Lookup::byName),
                         [](const auto& way) {
                             return way.param == ServedTree::Lookup::byName ? "byName" : "byOneCall";
                         });

TEST_P(ServedTrees, findWhatLiesInThemThroughLinksThatStay) {
    EXPECT_EQ(looked("/"), "0");
    for (const char* path :
         {"/a/b/file", "/inside/file", "/absolute/b/file", "/a/up/a/b/file", "/absolute/up/inside/file"})
        EXPECT_EQ(looked(path), "5") << path;
    EXPECT_EQ(looked("/a/none"), "none");
}

TEST_P(ServedTrees, areNotLeft) {
    for (const char* path :
         {"/..", "/../outside", "/a/../../outside", "/out/d", "/out/none/none", "/a/up/out/d/file", "/a/.."})
        EXPECT_EQ(looked(path), "EACCES") << path;
    EXPECT_EQ(opened("/out", O_RDONLY), "EACCES");
    EXPECT_EQ(followed("/out"), "EACCES");
}

TEST_P(ServedTrees, refusePathsThatAreNotPlainOrLeadNowhere) {
    for (const std::string& path : {std::string(""), std::string("a"), std::string("//a"), std::string("/a//b"),
                                    std::string("/a/"), std::string("/a/./b"), std::string("/a\0b", 4)})
        EXPECT_EQ(looked(path), "EINVAL") << path;
    EXPECT_EQ(looked("/none/x"), "ENOENT");
    EXPECT_EQ(looked("/a/b/file/x"), "ENOTDIR");
    EXPECT_EQ(looked("/a/toFile/x"), "ENOTDIR");
    EXPECT_EQ(looked("/self/x"), "ELOOP");
    EXPECT_EQ(looked("/" + std::string(256, 'x')), "ENAMETOOLONG");
}

TEST_P(ServedTrees, openFolders) {
    for (const char* path : {"/", "/a/b", "/inside", "/absolute/b/c", "/a/up"})
        for (const int flags : {O_RDONLY, O_PATH})
            EXPECT_EQ(opened(path, flags), "open") << path;
    EXPECT_EQ(opened("/a/b/file", O_RDONLY), "ENOTDIR");
    EXPECT_EQ(opened("/a/toFile", O_RDONLY), "ENOTDIR");
    EXPECT_EQ(opened("/none", O_RDONLY), "ENOENT");
}

TEST_P(ServedTrees, followLinksUnlessThatHasNoEnd) {
    EXPECT_EQ(followed("/inside"), "b");
    EXPECT_EQ(followed("/a/toFile"), "file");
    EXPECT_EQ(followed("/a/up"), "ELOOP");
    EXPECT_EQ(followed("/self"), "ELOOP");
}

// What is found is held, so that nothing put in its way later is followed.
TEST_P(ServedTrees, keepAPlaceWhateverBecomesOfTheNamesAboveIt) {
    const ServedTree tree(folder / "root", GetParam());
    const Place place = tree.locate("/a/b/file");
    filesystem::rename(folder / "root/a/b", folder / "root/a/moved");
    filesystem::create_directory_symlink("../../outside/d", folder / "root/a/b");
    const auto facts = place.look("/a/b/file");
    ASSERT_TRUE(facts);
    EXPECT_EQ(facts->st_size, 5);
    EXPECT_EQ(looked("/a/b/file"), "EACCES");
}

} // namespace
} // namespace local
