#include "hosts/fuse/tree/NodeTable.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using fusehost::Node;
using fusehost::NodeTable;
using fusehost::rootNodeID;

std::shared_ptr<fskit::FSItem> someItem() {
    return std::make_shared<fskit::FSItem>();
}

Node& held(NodeTable& table, Node& directory, std::string_view name) {
    Node& node = table.childOrNew(directory, name);
    node.item = someItem();
    ++node.lookups;
    return node;
}

TEST(NodeTable, knowsTheRootFromTheStartAndNeverForgetsIt) {
    NodeTable table;
    ASSERT_EQ(table.find(rootNodeID), &table.root());
    EXPECT_TRUE(table.root().isDirectory());
    EXPECT_TRUE(table.root().hasName());
    table.root().item = someItem();
    EXPECT_EQ(table.forget(rootNodeID, 1000), nullptr);
    EXPECT_EQ(table.find(rootNodeID), &table.root());
    EXPECT_NE(table.root().item, nullptr);
}

TEST(NodeTable, knowsNoNodeThatWasNeverMade) {
    NodeTable table;
    EXPECT_EQ(table.find(0), nullptr);
    EXPECT_EQ(table.find(77), nullptr);
    EXPECT_EQ(table.child(table.root(), "a"), nullptr);
    EXPECT_EQ(table.forget(77, 1), nullptr);
}

TEST(NodeTable, givesOneNodePerNameOfADirectory) {
    NodeTable table;
    Node& a = held(table, table.root(), "a");
    Node& b = held(table, table.root(), "b");
    Node& aInA = held(table, a, "a");
    EXPECT_EQ(&table.childOrNew(table.root(), "a"), &a);
    EXPECT_EQ(table.child(table.root(), "b"), &b);
    EXPECT_EQ(table.child(a, "a"), &aInA);
    EXPECT_EQ(table.child(b, "a"), nullptr);
    EXPECT_NE(a.id, b.id);
    EXPECT_NE(a.id, aInA.id);
}

TEST(NodeTable, endsWhatNobodyUsesWhenItsNameIsTaken) {
    NodeTable table;
    Node& node = held(table, table.root(), "a");
    const auto replaced = table.childOrNew(table.root(), "b").id;
    table.move(node, table.root(), "b");
    EXPECT_EQ(table.find(replaced), nullptr);
    EXPECT_EQ(table.child(table.root(), "b"), &node);
}

TEST(NodeTable, forgetsANodeWhenItsLastReferenceIsGone) {
    NodeTable table;
    Node& a = held(table, table.root(), "a");
    const auto id = a.id;
    const auto item = a.item;
    a.lookups = 3;
    EXPECT_EQ(table.forget(id, 2), nullptr);
    ASSERT_NE(table.find(id), nullptr);
    EXPECT_EQ(table.forget(id, 1), item);
    EXPECT_EQ(table.find(id), nullptr);
    EXPECT_EQ(table.child(table.root(), "a"), nullptr);
}

TEST(NodeTable, takesTooLargeACountForAll) {
    NodeTable table;
    Node& a = held(table, table.root(), "a");
    EXPECT_NE(table.forget(a.id, 1000000), nullptr);
    EXPECT_EQ(table.size(), 1U);
}

TEST(NodeTable, neverUsesANumberTwice) {
    NodeTable table;
    const auto first = held(table, table.root(), "a").id;
    table.forget(first, 1);
    EXPECT_GT(held(table, table.root(), "a").id, first);
}

TEST(NodeTable, keepsAForgottenDirectoryWhileItsChildrenLive) {
    NodeTable table;
    Node& outer = held(table, table.root(), "outer");
    Node& inner = held(table, outer, "inner");
    Node& file = held(table, inner, "file");
    const auto outerID = outer.id;
    const auto innerID = inner.id;
    EXPECT_NE(table.forget(outerID, 1), nullptr);
    EXPECT_NE(table.forget(innerID, 1), nullptr);
    EXPECT_EQ(file.parent, &inner);
    EXPECT_EQ(inner.parent, &outer);
    table.forget(file.id, 1);
    EXPECT_EQ(table.find(innerID), nullptr);
    EXPECT_EQ(table.find(outerID), nullptr);
    EXPECT_EQ(table.size(), 1U);
}

TEST(NodeTable, forgetsInAnyOrder) {
    NodeTable table;
    Node& directory = held(table, table.root(), "d");
    Node& a = held(table, directory, "a");
    Node& b = held(table, directory, "b");
    Node& c = held(table, directory, "c");
    for (const auto id : {b.id, directory.id, c.id, a.id})
        table.forget(id, 1);
    EXPECT_EQ(table.size(), 1U);
}

TEST(NodeTable, keepsAnOpenNodeAndItsItemAfterTheLastForget) {
    NodeTable table;
    Node& a = held(table, table.root(), "a");
    const auto id = a.id;
    a.readers = 1;
    EXPECT_EQ(table.forget(id, 1), nullptr);
    ASSERT_NE(table.find(id), nullptr);
    EXPECT_NE(a.item, nullptr);
    a.readers = 0;
    table.deleteIfUnused(a);
    EXPECT_EQ(table.find(id), nullptr);
}

TEST(NodeTable, keepsAHiddenNode) {
    NodeTable table;
    Node& a = held(table, table.root(), "a");
    a.hidden = true;
    table.forget(a.id, 1);
    EXPECT_EQ(table.child(table.root(), "a"), &a);
}

TEST(NodeTable, movesANodeWithEverythingBeneathIt) {
    NodeTable table;
    Node& from = held(table, table.root(), "from");
    Node& to = held(table, table.root(), "to");
    Node& moved = held(table, from, "old");
    Node& beneath = held(table, moved, "beneath");
    const auto id = moved.id;
    table.move(moved, to, "new");
    EXPECT_EQ(table.find(id), &moved);
    EXPECT_EQ(table.child(from, "old"), nullptr);
    EXPECT_EQ(table.child(to, "new"), &moved);
    EXPECT_EQ(moved.name, "new");
    EXPECT_EQ(table.child(moved, "beneath"), &beneath);
    EXPECT_EQ(moved.item, nullptr);
    EXPECT_EQ(beneath.item, nullptr);
    EXPECT_NE(from.item, nullptr);
}

TEST(NodeTable, moveTakesTheNameFromWhoeverHasIt) {
    NodeTable table;
    Node& a = held(table, table.root(), "a");
    Node& b = held(table, table.root(), "b");
    table.move(a, table.root(), "b");
    EXPECT_EQ(table.child(table.root(), "b"), &a);
    EXPECT_FALSE(b.hasName());
    EXPECT_EQ(table.find(b.id), &b) << "the kernel still holds it";
    table.forget(b.id, 1);
    EXPECT_EQ(table.size(), 2U);
}

TEST(NodeTable, moveOntoItsOwnNameKeepsTheNode) {
    NodeTable table;
    Node& a = held(table, table.root(), "a");
    table.move(a, table.root(), "a");
    EXPECT_EQ(table.child(table.root(), "a"), &a);
    EXPECT_TRUE(a.hasName());
}

TEST(NodeTable, moveLetsGoOfADirectoryKeptForTheNodeAlone) {
    NodeTable table;
    Node& from = held(table, table.root(), "from");
    Node& node = held(table, from, "a");
    table.forget(from.id, 1);
    table.move(node, table.root(), "a");
    EXPECT_EQ(table.child(table.root(), "from"), nullptr);
    EXPECT_EQ(table.size(), 2U);
}

TEST(NodeTable, detachedNodeLosesItsNameAndTheItemsBeneathIt) {
    NodeTable table;
    Node& directory = held(table, table.root(), "d");
    Node& child = held(table, directory, "c");
    table.detach(directory);
    EXPECT_FALSE(directory.hasName());
    EXPECT_EQ(directory.item, nullptr);
    EXPECT_EQ(child.item, nullptr);
    EXPECT_EQ(table.child(table.root(), "d"), nullptr);
    EXPECT_EQ(table.child(directory, "c"), &child);
    Node& other = held(table, table.root(), "d");
    EXPECT_NE(other.id, directory.id);
}

TEST(NodeTable, aDirectoryKeptForAChildThatLosesItsNameGoesWithTheNextForget) {
    NodeTable table;
    Node& above = held(table, table.root(), "above");
    Node& directory = held(table, above, "directory");
    Node& child = held(table, directory, "child");
    Node& other = held(table, table.root(), "other");
    table.forget(above.id, 1);
    table.forget(directory.id, 1);
    table.detach(child);
    EXPECT_EQ(table.size(), 5U) << "whoever took the name away may go on using the directory";
    table.forget(other.id, 1);
    EXPECT_EQ(table.size(), 2U) << "the root, and the child, which the kernel holds";
}

TEST(NodeTable, detachLetsGoOfTheMiddleOfManySiblings) {
    NodeTable table;
    Node& a = held(table, table.root(), "a");
    Node& b = held(table, table.root(), "b");
    Node& c = held(table, table.root(), "c");
    table.detach(b);
    table.detach(b); // no harm
    int count = 0;
    for (Node* child = table.root().firstChild; child != nullptr; child = child->nextSibling)
        ++count;
    EXPECT_EQ(count, 2);
    EXPECT_EQ(table.child(table.root(), "a"), &a);
    EXPECT_EQ(table.child(table.root(), "c"), &c);
}

TEST(NodeTable, findsEveryOneOfManyWhileTheyComeAndGo) {
    constexpr std::size_t count = 5000;
    NodeTable table;
    std::vector<fusehost::NodeID> ids;
    for (std::size_t i = 0; i < count; ++i)
        ids.push_back(held(table, table.root(), std::to_string(i)).id);
    const auto expectAllFrom = [&](std::size_t first) {
        for (std::size_t i = 0; i < count; ++i) {
            const Node* node = table.find(ids[i]);
            ASSERT_EQ(node != nullptr, i >= first) << i;
            ASSERT_EQ(table.child(table.root(), std::to_string(i)), node) << i;
        }
    };
    expectAllFrom(0);
    for (std::size_t i = 0; i < count; ++i) {
        table.forget(ids[i], 1);
        if (i % 500 == 499)
            expectAllFrom(i + 1);
    }
    EXPECT_EQ(table.size(), 1U);
}

#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// Bytes of memory that the process holds.
std::size_t residentMemory() {
    std::ifstream file("/proc/self/statm");
    std::size_t all = 0;
    std::size_t resident = 0;
    file >> all >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

TEST(NodeTable, givesTheMemoryOfForgottenNodesBackToTheSystem) {
    constexpr std::size_t count = 200'000;
    NodeTable table;
    std::vector<fusehost::NodeID> ids(count);
    const std::size_t before = residentMemory();
    for (std::size_t i = 0; i < count; ++i)
        ids[i] = held(table, table.root(), std::to_string(i)).id;
    const std::size_t full = residentMemory();
    ASSERT_GT(full, before + count * sizeof(Node));
    const auto last = std::make_unique<std::string>(100, 'x'); // keeps the end of the heap in use
    for (const auto id : ids)
        table.forget(id, 1);
    EXPECT_LT(residentMemory(), before + (full - before) / 4);
}
#endif

} // namespace
