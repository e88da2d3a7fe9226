#include "Samples.h"
#include "foundation/Descriptor.h"
#include "recording/RecordingError.h"
#include "recording/Writer.h"

#include <gmock/gmock.h>

#include <condition_variable>
#include <fcntl.h>
#include <mutex>

namespace recording {
namespace {

using testing::HasSubstr;

constexpr const char* ping = R"({"id":"1","op":"ping"})";
constexpr const char* pong = R"({"id":"1","ok":true})";

/// Writes nothing until it is told to, and then fails where it is told to.
class PlayedOutput : public Output {
public:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        bool mayWrite = true;
        bool fails = false;
        std::string text;

        void set(bool writes, bool failing) {
            const std::lock_guard lock(mutex);
            mayWrite = writes;
            fails = failing;
            changed.notify_all();
        }
    };

    explicit PlayedOutput(std::shared_ptr<State> state) : state_(std::move(state)) {}

    void write(std::string_view bytes) override {
        std::unique_lock lock(state_->mutex);
        state_->changed.wait(lock, [&] { return state_->mayWrite; });
        if (state_->fails)
            throw RecordingError("No space left on device");
        state_->text += bytes;
    }

    void flush() override {}

    void finish() override {}

private:
    std::shared_ptr<State> state_;
};

std::vector<Entry> entriesOf(Reader& reader) {
    std::vector<Entry> entries;
    while (auto entry = reader.next())
        entries.push_back(std::move(*entry));
    return entries;
}

void recordSome(const std::string& path) {
    Writer writer(openOutput(path), {}, "0.1.0", "/mnt", {});
    const auto now = Writer::Clock::now();
    writer.exchange(now, std::chrono::microseconds(41), std::string(ping) + "\n", pong);
    writer.kernelRequest(R"({"op":"OPEN","path":"/a"})");
    writer.exchange(now, std::chrono::microseconds(1), R"({"id":"2","op":"getattr","path":"/a"})", std::nullopt);
}

void expectSome(Reader& reader) {
    EXPECT_EQ(reader.header().mountPoint, "/mnt");
    const auto entries = entriesOf(reader);
    ASSERT_EQ(entries.size(), 3U);
    const auto& exchange = std::get<Exchange>(entries[0]);
    EXPECT_EQ(exchange.op(), "ping");
    EXPECT_EQ(exchange.took, 41);
    EXPECT_TRUE(exchange.succeeded());
    EXPECT_EQ(*std::get<KernelRequest>(entries[1]).members.find("path")->asString(), "/a");
    EXPECT_FALSE(std::get<Exchange>(entries[2]).answer);
}

TEST(Recordings, ReadBackAsTheyWereWritten) {
    const Folder folder;
    recordSome(folder.file());
    Reader reader(folder.file());
    expectSome(reader);
    EXPECT_FALSE(reader.wasCut());
}

TEST(Recordings, AreCompressedWhereTheNameSaysSo) {
    const Folder folder;
    recordSome(folder.file("a.zst"));
    EXPECT_EQ(Folder::contents(folder.file("a.zst")).substr(0, 4), "\x28\xb5\x2f\xfd");
    Reader reader(folder.file("a.zst"));
    expectSome(reader);
    EXPECT_FALSE(reader.wasCut());
}

TEST(Recordings, AreReadUpToTheirCutWhereverItIs) {
    const Folder folder;
    recordSome(folder.file());
    const std::string whole = Folder::contents(folder.file());
    const std::size_t headerEnd = whole.find('\n') + 1;
    std::size_t most = 0;
    for (std::size_t size = headerEnd; size < whole.size(); ++size) {
        Reader reader(folder.write(whole.substr(0, size), "cut"));
        const std::size_t count = entriesOf(reader).size();
        EXPECT_TRUE(reader.wasCut()) << size;
        EXPECT_GE(count, most);
        most = count;
    }
    EXPECT_EQ(most, 3U);
    EXPECT_THROW(Reader(folder.write(whole.substr(0, headerEnd - 1), "cut")), RecordingError);
}

TEST(Recordings, ThatAreCompressedAreReadUpToTheirCut) {
    const Folder folder;
    {
        auto output = openOutput(folder.file("a.zst"));
        output->write(std::string(plainHeader) + "\n");
        for (int i = 0; i < 20'000; ++i) {
            output->write(R"({"t":0,"d":0,"q":{"op":"getattr","path":"/)" + std::to_string(i * 7919) +
                          "\"},\"a\":null}\n");
            if (i == 10'000)
                output->flush();
        }
        output->finish();
    }
    const std::string whole = Folder::contents(folder.file("a.zst"));
    Reader all(folder.file("a.zst"));
    EXPECT_EQ(entriesOf(all).size(), 20'000U);
    Reader reader(folder.write(whole.substr(0, whole.size() * 3 / 4), "cut.zst"));
    const std::size_t count = entriesOf(reader).size();
    EXPECT_GE(count, 10'000U);
    EXPECT_LT(count, 20'000U);
    EXPECT_TRUE(reader.wasCut());
}

TEST(Recordings, WithALineThatIsNoneNameIt) {
    const Folder folder;
    Reader reader(folder.write(joined({plainHeader, R"({"t":0,"q":{"op":"ping"},"a":null})", "oops"})));
    try {
        entriesOf(reader);
        FAIL() << "it was read";
    } catch (const RecordingError& error) {
        EXPECT_THAT(error.what(), HasSubstr("line 3 "));
    }
}

TEST(Recordings, PassOverLinesOfOtherKindsAndTellWhatIsMissing) {
    const Folder folder;
    Reader reader(
        folder.write(joined({plainHeader, R"({"new":1})", R"({"lost":4})", R"({"end":{"lines":1}})", R"({"k":{}})"})));
    const auto entries = entriesOf(reader);
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(std::get<Lost>(entries[0]).lines, 4U);
    EXPECT_FALSE(reader.wasCut());
}

TEST(Recordings, NeverReplaceAFile) {
    const Folder folder;
    folder.write("precious");
    try {
        openOutput(folder.file());
        FAIL() << "it was opened";
    } catch (const RecordingError& error) {
        EXPECT_THAT(error.what(), HasSubstr("exists already"));
    }
    EXPECT_EQ(Folder::contents(folder.file()), "precious");
}

TEST(Recordings, OfScrambledNamesDoNotTellTheMountPoint) {
    const Folder folder;
    { const Writer writer(openOutput(folder.file()), {Payloads::none, Names::scrambled}, "0.1.0", "/secret", {}); }
    EXPECT_EQ(Folder::contents(folder.file()).find("secret"), std::string::npos);
}

TEST(Writing, ThatFailsEndsTheRecordingAndSaysWhyOnce) {
    const auto state = std::make_shared<PlayedOutput::State>();
    std::vector<std::string> reasons;
    {
        Writer writer(std::make_unique<PlayedOutput>(state), {}, "0.1.0", "/mnt",
                      [&](const std::string& reason) { reasons.push_back(reason); });
        state->set(true, true);
        for (int i = 0; i < 100; ++i)
            writer.exchange(Writer::Clock::now(), {}, ping, pong);
        writer.close();
    }
    EXPECT_THAT(reasons, testing::ElementsAre("No space left on device"));
}

TEST(Writing, ThatIsTooSlowHoldsUpWhoeverRecordsOnceAndNoLongerThanItSays) {
    const auto state = std::make_shared<PlayedOutput::State>();
    std::vector<std::string> reasons;
    Writer writer(std::make_unique<PlayedOutput>(state), {}, "0.1.0", "/mnt",
                  [&](const std::string& reason) { reasons.push_back(reason); });
    state->set(false, false);
    const std::string large(Writer::mostWaiting / 4, 'x');
    for (int i = 0; i < 20; ++i)
        writer.exchange(Writer::Clock::now(), {}, ping, large);
    EXPECT_THAT(reasons, testing::ElementsAre(HasSubstr("as fast as it grows")));
    state->set(true, false);
    writer.close();
    EXPECT_EQ(reasons.size(), 1U);
}

} // namespace
} // namespace recording
