#include "RoomTest.h"

#include "hosts/fuse/tree/Listings.h"
#include "hosts/fuse/tree/OutsideChanges.h"

namespace fusehosttests {
namespace {

using fusehost::ToForget;

class OutsideChangesTest : public RoomTest {
protected:
    Node& foundIn(Node& directory, const std::string& name) {
        Node& node = nodes.adopt(directory, nodes.find(directory, name));
        node.lookups = 1;
        return node;
    }

    Node& directoryNamed(const std::string& name) {
        served.putDirectory("/" + name);
        return found(name);
    }

    ToForget noted(const std::string& path) {
        ToForget toForget;
        outsideChanges.note(path, toForget);
        return toForget;
    }

    static std::vector<std::string> namesOf(const ToForget& toForget) {
        std::vector<std::string> names;
        for (const ToForget::Name& name : toForget.names)
            names.push_back(std::to_string(name.directory) + "/" + name.name + (name.isFile ? " file" : ""));
        return names;
    }

    static std::string at(const Node& directory, const std::string& name) {
        return std::to_string(directory.id) + "/" + name;
    }

    fusehost::Listings listings{calls, nodes, hidden, attributes, freshness};
    fusehost::ToldAbsences absences{Seconds(10), 3, clock};
    fusehost::OutsideChanges outsideChanges{nodes, contents, freshness, absence, absences};
};

TEST_F(OutsideChangesTest, ofAKnownFileItsNameItsNodeAndItsDirectoryAreMeant) {
    const Node& file = fileNamed("a", "1");
    fileNamed("b", "1");
    for (const char* path : {"/a", "a", "//a/"}) {
        const ToForget toForget = noted(path);
        EXPECT_THAT(namesOf(toForget), ElementsAre("1/a file")) << path;
        EXPECT_THAT(toForget.nodes, ElementsAre(file.id)) << path;
        EXPECT_THAT(toForget.directories, ElementsAre(rootNodeID)) << path;
    }
}

TEST_F(OutsideChangesTest, nothingIsAskedOfTheVolume) {
    fileNamed("a", "1");
    served.takeRequests();
    noted("/a");
    noted("/unknown/too");
    noted("/");
    EXPECT_THAT(served.takeRequests(), IsEmpty());
}

TEST_F(OutsideChangesTest, ofAnUnknownPathTheFirstUnknownNameIsMeant) {
    const Node& folder = directoryNamed("d");
    EXPECT_THAT(namesOf(noted("/d/new")), ElementsAre(at(folder, "new")));
    const ToForget deeper = noted("/d/new/deeper/still");
    EXPECT_THAT(namesOf(deeper), ElementsAre(at(folder, "new")));
    EXPECT_THAT(deeper.nodes, IsEmpty());
    EXPECT_THAT(deeper.directories, ElementsAre(folder.id));
}

TEST_F(OutsideChangesTest, aFileWithSomethingBeneathItIsNoFileAnyMore) {
    const Node& file = fileNamed("a", "1");
    const ToForget toForget = noted("/a/b");
    EXPECT_THAT(namesOf(toForget), ElementsAre("1/a file"));
    EXPECT_THAT(toForget.nodes, ElementsAre(file.id));
}

TEST_F(OutsideChangesTest, aDirectoryStandsForEverythingBeneathIt) {
    Node& folder = directoryNamed("d");
    served.putDirectory("/d/e");
    served.put("/d/e/f", "1");
    Node& inner = foundIn(folder, "e");
    const Node& file = foundIn(inner, "f");
    fileNamed("beside", "1");
    const ToForget toForget = noted("/d");
    EXPECT_THAT(namesOf(toForget), ElementsAre("1/d", at(folder, "e"), at(inner, "f") + " file"));
    EXPECT_THAT(toForget.nodes, ElementsAre(folder.id, inner.id, file.id));
}

TEST_F(OutsideChangesTest, theRootHasNoNameAndStandsForEverything) {
    const Node& file = fileNamed("a", "1");
    const ToForget toForget = noted("/");
    EXPECT_THAT(namesOf(toForget), ElementsAre("1/a file"));
    EXPECT_THAT(toForget.nodes, ElementsAre(rootNodeID, file.id));
    EXPECT_THAT(toForget.directories, IsEmpty());
}

TEST_F(OutsideChangesTest, absencesThatTheKernelRemembersAreMeantWithTheirDirectory) {
    Node& folder = directoryNamed("d");
    EXPECT_TRUE(absences.add(root(), "absent"));
    EXPECT_TRUE(absences.add(folder, "gone"));
    EXPECT_THAT(namesOf(noted("/d")), ElementsAre("1/d", at(folder, "gone")));
    EXPECT_THAT(namesOf(noted("/")), ElementsAre("1/d", "1/absent", at(folder, "gone")));
}

TEST_F(OutsideChangesTest, whatWasShownJustNowIsAskedForAnew) {
    Node& file = fileNamed("a", "1");
    attributes.ask(file);
    ASSERT_NE(freshness.shown(file), nullptr);
    noted("/a");
    EXPECT_EQ(freshness.shown(file), nullptr);
}

TEST_F(OutsideChangesTest, aNameThatWasMissingJustNowIsAskedForAnew) {
    absence.note(root(), "a");
    noted("/b");
    EXPECT_FALSE(absence.take());
}

TEST_F(OutsideChangesTest, aListingTellsNothingOfItAnyMoreAndTheRestAsBefore) {
    fileNamed("a", "1");
    fileNamed("b", "1");
    listings.start(listings.open(root()));
    noted("/a");
    EXPECT_FALSE(listings.told(root(), "a", Seconds(10)));
    EXPECT_TRUE(listings.told(root(), "b", Seconds(10)));
}

TEST_F(OutsideChangesTest, aListingTellsNothingOfAnUnknownNameAnyMore) {
    served.put("/a", "1");
    listings.start(listings.open(root()));
    noted("/a");
    EXPECT_FALSE(listings.told(root(), "a", Seconds(10)));
}

TEST_F(OutsideChangesTest, whatWasReadAheadIsReadAnew) {
    Node& file = fileNamed("a", "12345678");
    handles.open(file, FSVolumeOpenModes::read);
    std::array<std::byte, 4> block{};
    handles.readAhead(file, 4, sizeof block);
    noted("/a");
    EXPECT_EQ(handles.takeReadAhead(file, 4, block), 0U);
    handles.closeEverything(file);
}

class ToldAbsencesTest : public OutsideChangesTest {
protected:
    std::size_t remembered() {
        std::size_t count = 0;
        absences.forEach([](NodeID) { return true; }, [&](NodeID, const std::string&) { ++count; });
        return count;
    }
};

TEST_F(ToldAbsencesTest, noMoreAreToldThanCanBeKept) {
    for (const char* name : {"a", "b", "c"})
        EXPECT_TRUE(absences.add(root(), name));
    EXPECT_FALSE(absences.add(root(), "d"));
    EXPECT_EQ(remembered(), 3U);
}

TEST_F(ToldAbsencesTest, theyAreKeptForAsLongAsTheKernelRemembersThem) {
    EXPECT_TRUE(absences.add(root(), "a"));
    now += std::chrono::seconds(10);
    EXPECT_EQ(remembered(), 1U);
    now += std::chrono::seconds(2);
    EXPECT_EQ(remembered(), 0U);
    for (const char* name : {"a", "b", "c"})
        EXPECT_TRUE(absences.add(root(), name));
}

TEST_F(ToldAbsencesTest, noneIsToldWhereTheKernelIsToRememberNone) {
    fusehost::ToldAbsences none(Seconds(0), 3, clock);
    EXPECT_FALSE(none.add(root(), "a"));
}

} // namespace
} // namespace fusehosttests
