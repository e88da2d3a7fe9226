#include "helper/AdapterError.h"
#include "helper/HelperRecords.h"

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <limits>

namespace kemvi {
namespace {

JSONValue object(std::vector<JSONObject::Member> members) {
    return JSONObject(std::move(members));
}

KemviFileStat stat(std::vector<JSONObject::Member> members) {
    return KemviFileStat(object(std::move(members)));
}

template <typename Make>
std::string protocolError(Make make) {
    try {
        make();
        return "<no error>";
    } catch (const AdapterError& error) {
        return error.description();
    }
}

TEST(KemviFileStat, readsEveryMember) {
    const KemviFileStat read = stat({{"path", "/docs/a.txt"},
                                     {"name", "other"},
                                     {"isDirectory", true},
                                     {"size", 12.0},
                                     {"modifiedAt", "2024-05-01T12:34:56.789Z"}});
    EXPECT_EQ(read.path, "/docs/a.txt");
    EXPECT_EQ(read.name, "other");
    EXPECT_TRUE(read.isDirectory);
    EXPECT_EQ(read.size, 12);
    EXPECT_EQ(read.modifiedAt, foundation::Date{1714566896.789});
}

TEST(KemviFileStat, ofAnEmptyObjectHasDefaults) {
    const KemviFileStat read = stat({});
    EXPECT_EQ(read, KemviFileStat());
    EXPECT_EQ(read.path, "");
    EXPECT_EQ(read.name, "");
    EXPECT_FALSE(read.isDirectory);
    EXPECT_EQ(read.size, 0);
    EXPECT_FALSE(read.modifiedAt);
}

TEST(KemviFileStat, takesDefaultsForMembersOfTheWrongType) {
    const KemviFileStat read =
        stat({{"path", 5.0}, {"name", true}, {"isDirectory", 1.0}, {"size", "12"}, {"modifiedAt", 1714566896.0}});
    EXPECT_EQ(read, KemviFileStat());
    EXPECT_FALSE(stat({{"isDirectory", "true"}}).isDirectory);
    EXPECT_EQ(stat({{"path", JSONValue::Null{}}, {"name", JSONValue::Null{}}}), KemviFileStat());
}

TEST(KemviFileStat, namesItselfAfterTheLastPieceOfThePath) {
    const std::pair<const char*, const char*> names[] = {
        {"/docs/a.txt", "a.txt"}, {"/", "/"},    {"", ""},     {"a/b", "b"}, {"/a/b/", "b"}, {"a", "a"}, {"//", "//"},
        {"///", "///"},           {"/a//", "a"}, {"a//b", "b"}};
    for (const auto& [path, name] : names)
        EXPECT_EQ(stat({{"path", path}}).name, name) << path;
    EXPECT_EQ(stat({{"path", "/a/b"}, {"name", ""}}).name, "");
}

TEST(KemviFileStat, cutsSizesOffTowardZeroAndKeepsNegativeOnes) {
    EXPECT_EQ(stat({{"size", 4096.7}}).size, 4096);
    EXPECT_EQ(stat({{"size", 5.9}}).size, 5);
    EXPECT_EQ(stat({{"size", -5.9}}).size, -5);
    EXPECT_EQ(stat({{"size", -1.0}}).size, -1);
    EXPECT_EQ(stat({{"size", -9223372036854775808.0}}).size, std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(stat({{"size", 9223372036854774784.0}}).size, 9223372036854774784);
}

TEST(KemviFileStat, hasNoTimeWithoutAFractionAndReadsOffsets) {
    EXPECT_FALSE(stat({{"modifiedAt", "2024-05-01T12:34:56Z"}}).modifiedAt);
    EXPECT_FALSE(stat({{"modifiedAt", ""}}).modifiedAt);
    EXPECT_EQ(stat({{"modifiedAt", "2024-05-01T14:34:56.789+02:00"}}).modifiedAt, foundation::Date{1714566896.789});
    EXPECT_FALSE(stat({{"mtime", "2024-05-01T12:34:56.789Z"}}).modifiedAt);
}

TEST(KemviFileStat, refusesAnythingButAnObject) {
    for (const JSONValue& value : {JSONValue("x"), JSONValue(1.0), JSONValue(JSONValue::Array{}), JSONValue()})
        EXPECT_EQ(protocolError([&] { const KemviFileStat read(value); }), "file stat was not an object");
}

TEST(KemviFileStat, showsKindAndPath) {
    EXPECT_EQ(stat({{"path", "/a"}, {"isDirectory", true}}).description(), "dir /a");
    EXPECT_EQ(stat({{"path", "/a"}}).description(), "file /a");
}

TEST(KemviDirEntry, copiesAStatAndHasItsSizeAlways) {
    const KemviFileStat from =
        stat({{"path", "/a"}, {"isDirectory", true}, {"modifiedAt", "2024-05-01T12:34:56.789Z"}});
    const KemviDirEntry entry(from);
    EXPECT_EQ(entry.path, "/a");
    EXPECT_EQ(entry.name, "a");
    EXPECT_TRUE(entry.isDirectory);
    EXPECT_EQ(entry.size, 0);
    EXPECT_EQ(entry.modifiedAt, from.modifiedAt);
    EXPECT_FALSE(KemviDirEntry().size);
}

TEST(KemviDirEntry, alignsPathsInItsDisplayText) {
    EXPECT_EQ(KemviDirEntry(stat({{"path", "/a"}, {"isDirectory", true}})).description(), "dir  /a");
    EXPECT_EQ(KemviDirEntry(stat({{"path", "/a"}})).description(), "file /a");
}

TEST(KemviStatFS, readsNumbersAndTakesZeroForTheRest) {
    const KemviStatFS read(object({{"files", 3.9}, {"directories", "2"}}));
    EXPECT_EQ(read.files, 3);
    EXPECT_EQ(read.directories, 0);
    EXPECT_EQ(read.bytes, 0);
    EXPECT_EQ(KemviStatFS(object({})), KemviStatFS());
    const KemviStatFS all(object({{"files", 3.0}, {"directories", 4.0}, {"bytes", 5.0}}));
    EXPECT_EQ(all.directories, 4);
    EXPECT_EQ(all.bytes, 5);
}

TEST(KemviStatFS, refusesAnythingButAnObject) {
    EXPECT_EQ(protocolError([] { const KemviStatFS read(std::nullopt); }), "statfs result was not an object");
    EXPECT_EQ(protocolError([] { const KemviStatFS read(JSONValue{}); }), "statfs result was not an object");
    EXPECT_EQ(protocolError([] { const KemviStatFS read(JSONValue(JSONValue::Array{})); }),
              "statfs result was not an object");
}

TEST(NumberRuleDeathTest, stopsTheProcessAtNumbersThatDoNotFit) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    for (const double number :
         {9223372036854775808.0, -9223372036854777856.0, 1e300, infinity, -infinity, std::nan("")}) {
        EXPECT_EXIT(integerFromNumber(number), testing::KilledBySignal(SIGABRT), "does not fit") << number;
        EXPECT_EXIT(stat({{"size", number}}), testing::KilledBySignal(SIGABRT), "does not fit") << number;
        for (const char* member : {"files", "directories", "bytes"})
            EXPECT_EXIT(KemviStatFS(object({{member, number}})), testing::KilledBySignal(SIGABRT), "does not fit");
    }
}

TEST(KemviFs, isOneFormatter) {
    EXPECT_EQ(&kemviFs(), &kemviFs());
    EXPECT_EQ(kemviFs().string(*kemviFs().date("2024-05-01T12:34:56.789Z")), "2024-05-01T12:34:56.789Z");
}

TEST(AdapterError, hasTheTextsAndOrdinalsOfItsCases) {
    const AdapterError notImplemented = AdapterError::notImplemented("not here");
    const AdapterError failed = AdapterError::helperFailed(1);
    const AdapterError protocol = AdapterError::protocolError("odd answer");
    EXPECT_EQ(notImplemented.description(), "not here");
    EXPECT_EQ(failed.description(), "KemviFS helper failed with exit code 1");
    EXPECT_EQ(AdapterError::helperFailed(-1).description(), "KemviFS helper failed with exit code -1");
    EXPECT_EQ(protocol.description(), "odd answer");
    EXPECT_EQ(notImplemented.nsError().code, 0);
    EXPECT_EQ(failed.nsError().code, 1);
    EXPECT_EQ(protocol.nsError(), (foundation::NSError{"KemviFSExtension.AdapterError", 2, std::nullopt, {}}));
}

} // namespace
} // namespace kemvi
