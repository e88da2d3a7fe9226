#include "cli/store/StoreAddress.h"

#include "cli/CommandError.h"

#include <filesystem>
#include <gmock/gmock.h>

namespace cli {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string stored(const std::string& store) {
    return storeSettings({store, "", ""}, "/src").at(0).second;
}

std::string refusal(const StoreRequest& request) {
    try {
        storeSettings(request, "/src");
    } catch (const CommandError& error) {
        EXPECT_EQ(error.code(), ExitCode::usage);
        return error.what();
    }
    return "";
}

TEST(StoreAddress, OfAServerStandsAsItWasGiven) {
    for (const char* each :
         {"postgres://db/tree", "postgres://alice@db:5433/tree",
          "postgres://a%40b@db.example.org,10.0.0.2:5433/tree?sslmode=require", "postgres://[::1]:5432/tree",
          "postgres:///tree?host=/run/postgresql&port=5433&user=alice"})
        EXPECT_EQ(stored(each), each);
    EXPECT_EQ(stored("postgresql://db/tree"), "postgres://db/tree");
}

TEST(StoreAddress, OfAnEmbeddedOneIsMadeAbsolute) {
    EXPECT_EQ(stored("pglite:/a/../b/"), "pglite:/b");
    EXPECT_EQ(stored("pglite:c"), "pglite:" + (std::filesystem::current_path() / "c").string());
    EXPECT_EQ(embeddedFolder("pglite:/b/"), "/b");
    EXPECT_EQ(embeddedFolder("postgres://db/tree"), "");
}

TEST(StoreAddress, WithAPasswordIsRefusedAndNotRepeated) {
    for (const char* each :
         {"postgres://alice:s3cret@db/tree", "postgres://db/tree?password=s3cret", "postgres://alice:s3cret@@db/tree",
          "postgresql://:s3cret@/tree?host=/run", "postgres://alice:s3cret/more@db/tree",
          "postgres://alice:s3cret?more@db/tree", "postgres://db/tree?sslmode=require&password=s3cret"}) {
        const std::string told = refusal({each, "", ""});
        EXPECT_THAT(told, HasSubstr("--store: the URL holds a password")) << each;
        EXPECT_THAT(told, HasSubstr(".pgpass")) << each;
        EXPECT_THAT(told, HasSubstr("PGPASSWORD=... into /src/mount-secrets.env")) << each;
        EXPECT_THAT(told, Not(HasSubstr("s3cret"))) << each;
    }
    EXPECT_THAT(refusal({"mysql://alice:s3cret@db/tree", "", ""}), Not(HasSubstr("s3cret")));
}

TEST(StoreAddress, ThatIsNoneIsRefusedWithWhatWasExpected) {
    EXPECT_THAT(refusal({"/srv/tree", "", ""}),
                HasSubstr("--store /srv/tree: is no store; expected pglite:DIR, or postgres://"));
    EXPECT_THAT(refusal({"mysql://db/tree", "", ""}), HasSubstr("--store mysql:...: is no store"));
    EXPECT_THAT(refusal({"pglite:", "", ""}), HasSubstr("names no directory"));
    for (const char* each : {"postgres://db", "postgres://db/", "postgres://db?user=a", "postgres://db/a/b"})
        EXPECT_THAT(refusal({each, "", ""}), HasSubstr("the URL names no database")) << each;
    for (const char* each : {"postgres:///tree", "postgres:///tree?user=a"})
        EXPECT_THAT(refusal({each, "", ""}), HasSubstr("the URL names no host")) << each;
    for (const char* each :
         {"postgres://a,/tree", "postgres://a b/tree", "postgres://a_%/tree", "postgres://:5432/tree"})
        EXPECT_THAT(refusal({each, "", ""}), testing::AnyOf(HasSubstr("is no host"), HasSubstr("holds a blank")))
            << each;
    for (const char* each :
         {"postgres://a:/tree", "postgres://a:0/tree", "postgres://a:65536/tree", "postgres://a:x/tree",
          "postgres://[::1]5432/tree", "postgres://a,b:999999999999999999999/tree"})
        EXPECT_THAT(refusal({each, "", ""}), HasSubstr("expected a number from 1 to 65535")) << each;
    EXPECT_THAT(refusal({"postgres://[::1/tree", "", ""}), HasSubstr("lacks a \"]\""));
}

TEST(StoreAddress, TellsOfContentsAndTreeOnlyWhatWasGiven) {
    EXPECT_EQ(storeSettings({"pglite:/b", "", ""}, "/src").size(), 1);
    EXPECT_EQ(storeSettings({"pglite:/b", "database", "my tree"}, "/src"),
              (HelperSettings{{"KEMVI_STORE", "pglite:/b"},
                              {"KEMVI_STORE_CONTENTS", "database"},
                              {"KEMVI_STORE_TREE", "my tree"}}));
    const auto contents = [](const char* each) { return storeSettings({"pglite:/b", each, ""}, "/src").at(1).second; };
    EXPECT_EQ(contents("s3://my.bucket-1/a/b/"), "s3://my.bucket-1/a/b");
    EXPECT_EQ(contents("s3://bucket"), "s3://bucket");
}

TEST(StoreAddress, RefusesContentsThatAreNoPlace) {
    const auto told = [](const char* each) { return refusal({"pglite:/b", each, ""}); };
    EXPECT_THAT(told("s3:/bucket"), HasSubstr("--contents s3:/bucket: expected database, or s3://BUCKET"));
    EXPECT_THAT(told("https://bucket/a"), HasSubstr("expected database, or s3://BUCKET"));
    for (const char* each : {"s3://", "s3://ab", "s3://Bucket/a", "s3://-bucket", "s3://bucket./a", "s3://a..b/c",
                             "s3://bu_cket", "s3://0123456789012345678901234567890123456789012345678901234567890123/a"})
        EXPECT_THAT(told(each), HasSubstr("is no name of a bucket; expected 3 to 63")) << each;
    EXPECT_THAT(told("s3://bucket//a"), HasSubstr("has an empty part"));
    EXPECT_THAT(told("s3://bucket/a b"), HasSubstr("a blank"));
    EXPECT_THAT(told("s3://bucket/a?b"), HasSubstr("\"?\""));
    EXPECT_THAT(told(("s3://bucket/" + std::string(501, 'a')).c_str()), HasSubstr("more than 500 bytes"));
    EXPECT_EQ(told(("s3://bucket/" + std::string(500, 'a')).c_str()), "");
    EXPECT_THAT(told("s3://KEY:s3cret@bucket/a"),
                testing::AllOf(HasSubstr("AWS_SECRET_ACCESS_KEY"), Not(HasSubstr("s3cret"))));
}

TEST(StoreAddress, RefusesATreeWhoseNameIsNone) {
    std::string umlauts;
    for (int count = 0; count < 100; ++count)
        umlauts += "\xc3\xa4";
    for (const std::string& each : {std::string("a\nb"), std::string(101, 'a'), umlauts + "a"})
        EXPECT_THAT(refusal({"pglite:/b", "", each}), HasSubstr("is no name of a tree")) << each;
    EXPECT_EQ(refusal({"pglite:/b", "", umlauts}), "");
}

} // namespace
} // namespace cli
