#include "cli/watch/WatchedHelper.h"

#include "TemporaryFolder.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/stat.h>

namespace cli {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

/// A folder with a helper "tree.mjs", and what becomes of it.
class WatchedHelpers : public testing::Test {
protected:
    std::string path(const std::string& name) const { return folder.path() / name; }

    void write(const std::string& name, const std::string& text) const {
        std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
        std::ofstream(path(name), std::ios::binary) << text;
    }

    void replace(const std::string& name, const std::string& text) const {
        write(name + "~", text);
        std::filesystem::rename(path(name + "~"), path(name));
    }

    WatchedHelper& helper() {
        if (!helper_)
            helper_.emplace(std::vector{path("tree.mjs")}, path("mnt"));
        return *helper_;
    }

    /// What there is to be done about all that happened; nothing where nothing was seen.
    std::string change(bool isHelperGone = false) {
        return helper().take() ? helper().look(isHelperGone).change : std::string();
    }

    bool isSeen() { return helper().take(); }

    clitests::TemporaryFolder folder;

private:
    std::optional<WatchedHelper> helper_;
};

TEST_F(WatchedHelpers, areMadeOfAllThatTheyImport) {
    write("tree.mjs", "import './lib/a.mjs'; import 'package'; require('./b'); import './c%20d.mjs?x';");
    write("lib/a.mjs", "import '../e.mjs'; import '../tree.mjs'; import '../mnt/f.mjs'; import '/missing/g.mjs'");
    write("b.js", "");
    write("c d.mjs", "");
    write("e.mjs", "");
    EXPECT_THAT(helper().paths(), UnorderedElementsAre(path("tree.mjs"), path("lib/a.mjs"), path("b.js"),
                                                       path("c d.mjs"), path("e.mjs"), "/missing/g.mjs"));
    EXPECT_EQ(helper().paths().front(), path("tree.mjs"));
}

TEST_F(WatchedHelpers, inPythonAreMadeOfWhatLiesBesideTheScript) {
    write("tree.py", "import json, rows, pack.inner\nfrom pack import used, value\nfrom names import *\n");
    write("rows.py", "import deep\nfrom . import beside\n"); // no package: looked for all the same
    write("beside.py", "import mnt.f");
    write("deep.py", "");
    write("mnt/f.py", "");
    write("names/a.py", "a folder that nothing is taken of");
    write("pack/__init__.py", "from .made import all\nfrom ..above import y");
    write("pack/inner.py", "import rows\nfrom . import used\nimport beside_pack");
    write("pack/used.py", "");
    write("pack/beside_pack.py", "found from the script alone");
    WatchedHelper python({path("tree.py")}, path("mnt"));
    EXPECT_THAT(python.paths(), UnorderedElementsAre(path("tree.py"), path("rows.py"), path("beside.py"),
                                                     path("deep.py"), path("pack/__init__.py"), path("pack/inner.py"),
                                                     path("pack/used.py"), path("pack/made.py"), path("above.py")));
    write("pack/made.py", "");
    EXPECT_TRUE(python.take());
    EXPECT_THAT(python.look(false).change, testing::HasSubstr("made.py"));
}

TEST_F(WatchedHelpers, changeWhenTheirScriptIsWrittenOrReplaced) {
    write("tree.mjs", "1");
    EXPECT_EQ(change(), "");
    write("tree.mjs", "2");
    EXPECT_EQ(change(), "tree.mjs changed");
    EXPECT_EQ(change(), "");
    replace("tree.mjs", "3");
    EXPECT_EQ(change(), "tree.mjs changed");
}

TEST_F(WatchedHelpers, doNotChangeWithTheSameContentsUnlessTheyAreGone) {
    write("tree.mjs", "1");
    helper();
    write("tree.mjs", "1");
    EXPECT_EQ(change(), "");
    replace("tree.mjs", "1");
    EXPECT_EQ(change(), "");
    write("tree.mjs", "1");
    EXPECT_EQ(change(true), "the helper was saved");
}

TEST_F(WatchedHelpers, areNotConcernedByOtherFilesOfTheirFolder) {
    write("tree.mjs", "1");
    helper();
    write("notes.txt", "");
    EXPECT_FALSE(isSeen());
}

TEST_F(WatchedHelpers, areLookedAtWhenWhatIsWrittenIsComplete) {
    write("tree.mjs", "import './a.mjs'");
    helper();
    std::ofstream file(path("a.mjs"));
    file << "half" << std::flush;
    EXPECT_FALSE(isSeen());
    file.close();
    EXPECT_EQ(change(), "a.mjs changed");
}

TEST_F(WatchedHelpers, changeWithAFileThatTheyImport) {
    write("tree.mjs", "import './lib/a.mjs'");
    write("lib/a.mjs", "1");
    helper();
    write("lib/a.mjs", "2");
    EXPECT_EQ(change(), "lib/a.mjs changed");
}

TEST_F(WatchedHelpers, tellSeveralFilesInOne) {
    write("tree.mjs", "import './a.mjs'; import './b.mjs'");
    write("a.mjs", "1");
    write("b.mjs", "1");
    helper();
    write("a.mjs", "2");
    write("b.mjs", "2");
    EXPECT_EQ(change(), "a.mjs and b.mjs changed");
    write("a.mjs", "3");
    write("b.mjs", "3");
    write("tree.mjs", "import './a.mjs'; import './b.mjs'; 3");
    EXPECT_EQ(change(), "a.mjs and 2 other files changed");
}

TEST_F(WatchedHelpers, includeWhatTheyImportFromNowOn) {
    write("tree.mjs", "1");
    write("lib/new.mjs", "1");
    helper();
    write("lib/new.mjs", "2");
    EXPECT_FALSE(isSeen());
    write("tree.mjs", "import './lib/new.mjs'");
    EXPECT_EQ(change(), "tree.mjs changed");
    write("lib/new.mjs", "3");
    EXPECT_EQ(change(), "lib/new.mjs changed");
    write("tree.mjs", "no more");
    EXPECT_EQ(change(), "tree.mjs changed");
    write("lib/new.mjs", "4");
    EXPECT_FALSE(isSeen());
}

TEST_F(WatchedHelpers, waitForAFileThatIsNotThereYetNorItsFolder) {
    write("tree.mjs", "import './new/deep/a.mjs'");
    helper();
    write("new/deep/a.mjs", "1");
    // The folder comes first; the look that it causes finds all of it.
    EXPECT_EQ(change(), "new/deep/a.mjs changed");
    write("new/deep/a.mjs", "2");
    EXPECT_EQ(change(), "new/deep/a.mjs changed");
}

TEST_F(WatchedHelpers, goOnWhileTheirScriptIsGone) {
    write("tree.mjs", "import './lib/a.mjs'");
    write("lib/a.mjs", "1");
    helper();
    std::filesystem::rename(path("tree.mjs"), path("away"));
    ASSERT_TRUE(isSeen());
    const auto news = helper().look(false);
    EXPECT_EQ(news.change, "");
    EXPECT_EQ(news.missing, "tree.mjs is gone");
    write("lib/a.mjs", "2");
    EXPECT_EQ(change(), "") << "what is changed meanwhile waits for the script";
    std::filesystem::rename(path("away"), path("tree.mjs"));
    EXPECT_EQ(change(), "lib/a.mjs changed");
}

TEST_F(WatchedHelpers, thatAreGoneAreNotBroughtBackByARemoval) {
    write("tree.mjs", "import './a.mjs'");
    write("a.mjs", "1");
    helper();
    std::filesystem::remove(path("a.mjs"));
    EXPECT_EQ(change(true), "");
    write("a.mjs", "1");
    EXPECT_EQ(change(true), "the helper was saved");
}

TEST_F(WatchedHelpers, areFoundAgainWhenTheirFolderWasReplaced) {
    write("tree.mjs", "import './lib/a.mjs'");
    write("lib/a.mjs", "1");
    helper();
    std::filesystem::rename(path("lib"), path("old"));
    EXPECT_EQ(change(), "");
    write("lib/a.mjs", "2");
    EXPECT_EQ(change(), "lib/a.mjs changed");
    write("lib/a.mjs", "3");
    EXPECT_EQ(change(), "lib/a.mjs changed");
}

TEST_F(WatchedHelpers, behindALinkChangeWithTheLinkAndWithTheFile) {
    write("real/script.mjs", "import './beside.mjs'");
    write("real/beside.mjs", "1");
    write("other.mjs", "1");
    std::filesystem::create_symlink("real/script.mjs", path("tree.mjs"));
    EXPECT_THAT(helper().paths(), ElementsAre(path("tree.mjs"), path("real/beside.mjs")));
    write("real/beside.mjs", "2");
    EXPECT_EQ(change(), "real/beside.mjs changed");
    replace("real/script.mjs", "2");
    EXPECT_EQ(change(), "tree.mjs changed");
    std::filesystem::remove(path("tree.mjs"));
    std::filesystem::create_symlink("other.mjs", path("tree.mjs"));
    EXPECT_EQ(change(), "tree.mjs changed");
}

TEST_F(WatchedHelpers, waitForNoPipeInThePlaceOfAFile) {
    write("tree.mjs", "import './pipe.mjs'");
    ASSERT_EQ(::mkfifo(path("pipe.mjs").c_str(), 0600), 0);
    EXPECT_EQ(helper().paths().size(), 2U);
}

TEST_F(WatchedHelpers, thatAreProgramsAreTheProgramItself) {
    write("config/mount-config.json", R"({"driveId":"d","kemviHome":"h","repoRoot":"r","helperPath":")" +
                                          path("program.mjs") + R"(","helperCommand":[")" + path("program") +
                                          R"(","/not/this"]})");
    EXPECT_THAT(helperRoots(readMountSource(path("config"))), ElementsAre(path("program.mjs"), path("program")));
    write("config/mount-config.json", R"({"driveId":"d","kemviHome":"h","repoRoot":"r","helperPath":")" +
                                          path("program.mjs") +
                                          R"(","helperCommand":["python3","/srv/tree.py","/x"]})");
    EXPECT_THAT(helperRoots(readMountSource(path("config"))), ElementsAre(path("program.mjs"), "/srv/tree.py"));
    write("config/mount-config.json",
          R"({"driveId":"d","kemviHome":"h","repoRoot":"r","helperPath":")" + path("program.mjs") +
              R"(","helperCommand":["/usr/bin/python3","-B","/srv/tree.py","/srv/data.db"]})");
    EXPECT_THAT(helperRoots(readMountSource(path("config"))),
                ElementsAre(path("program.mjs"), "/usr/bin/python3", "/srv/tree.py"));
}

} // namespace
} // namespace cli
