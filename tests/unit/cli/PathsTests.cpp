#include "cli/Paths.h"
#include "unit/cli/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

namespace {

namespace filesystem = std::filesystem;

using cli::absolutePath;
using cli::findInPath;
using cli::isWithin;
using cli::realParentPath;
using cli::realPath;
using clitests::TemporaryFolder;

TEST(Paths, areMadeAbsoluteWithoutLookingAtAnything) {
    EXPECT_EQ(absolutePath("/a/./b//c/"), "/a/b/c");
    EXPECT_EQ(absolutePath("/a/absent/../b"), "/a/b");
    EXPECT_EQ(absolutePath("/"), "/");
    EXPECT_EQ(absolutePath("/.."), "/");
    EXPECT_EQ(absolutePath("a"), filesystem::current_path() / "a");
}

TEST(Paths, lieWithinADirectoryByWholeComponents) {
    EXPECT_TRUE(isWithin("/a/b", "/a/b"));
    EXPECT_TRUE(isWithin("/a/b/c", "/a/b"));
    EXPECT_FALSE(isWithin("/a/bc", "/a/b"));
    EXPECT_FALSE(isWithin("/a", "/a/b"));
    EXPECT_TRUE(isWithin("/a", "/"));
    EXPECT_TRUE(isWithin("/", "/"));
}

TEST(Paths, leadThroughLinksToTheRealOne) {
    const TemporaryFolder folder;
    filesystem::create_directory(folder.path() / "real");
    filesystem::create_directory_symlink("real", folder.path() / "link");
    EXPECT_EQ(realPath(folder.path() / "link"), folder.path() / "real");
    EXPECT_EQ(realPath(folder.path() / "absent"), std::nullopt);
}

TEST(Paths, leaveTheLastComponentAlone) {
    const TemporaryFolder folder;
    filesystem::create_directories(folder.path() / "real" / "inner");
    filesystem::create_directory_symlink("real", folder.path() / "link");
    filesystem::create_symlink("nowhere", folder.path() / "real" / "dangling");
    for (const char* name : {"absent", "dangling", "inner"})
        EXPECT_EQ(realParentPath(folder.path() / "link" / name), folder.path() / "real" / name);
    EXPECT_EQ(realParentPath(folder.path() / "link"), folder.path() / "link");
    EXPECT_EQ(realParentPath(folder.path() / "absent" / "x"), std::nullopt);
}

TEST(Paths, mayEndInSlashesAndDots) {
    const TemporaryFolder folder;
    filesystem::create_directories(folder.path() / "real" / "inner");
    filesystem::create_directory_symlink("real/inner", folder.path() / "link");
    for (const char* end : {"real/", "real//", "real/.", "real/./", "real/inner/.."})
        EXPECT_EQ(realParentPath(folder.path().string() + "/" + end), folder.path() / "real") << end;
    // As the kernel follows it: the parent of what the link leads to.
    EXPECT_EQ(realParentPath(folder.path() / "link" / ".." / "x"), folder.path() / "real" / "x");
}

class ProgramSearch : public testing::Test {
protected:
    ProgramSearch() : before_(std::getenv("PATH")) {
        for (const char* name : {"first", "second"})
            filesystem::create_directory(folder.path() / name);
    }

    ~ProgramSearch() override { ::setenv("PATH", before_.c_str(), 1); }

    void makeProgram(const std::string& name, filesystem::perms permissions) {
        std::ofstream(folder.path() / name) << "#!/bin/sh\n";
        filesystem::permissions(folder.path() / name, permissions);
    }

    void searchIn(const std::string& path) { ::setenv("PATH", path.c_str(), 1); }

    std::string in(const char* name) { return folder.path() / name; }

    const TemporaryFolder folder;

private:
    std::string before_;
};

TEST_F(ProgramSearch, findsTheFirstThatCanBeRun) {
    makeProgram("first/tool", filesystem::perms::owner_read);
    makeProgram("second/tool", filesystem::perms::owner_all);
    searchIn(in("absent") + ":" + in("first") + ":" + in("second"));
    EXPECT_EQ(findInPath("tool"), in("second/tool"));
    filesystem::permissions(in("first/tool"), filesystem::perms::owner_all);
    EXPECT_EQ(findInPath("tool"), in("first/tool"));
}

TEST_F(ProgramSearch, takesNoFolderForAProgram) {
    filesystem::create_directory(in("first/tool"));
    searchIn(in("first"));
    EXPECT_EQ(findInPath("tool"), std::nullopt);
}

TEST_F(ProgramSearch, takesAnEmptyPlaceForTheWorkingDirectory) {
    makeProgram("first/tool", filesystem::perms::owner_all);
    const filesystem::path before = filesystem::current_path();
    filesystem::current_path(in("first"));
    searchIn(in("second") + ":");
    EXPECT_EQ(findInPath("tool"), "./tool");
    filesystem::current_path(before);
}

} // namespace
