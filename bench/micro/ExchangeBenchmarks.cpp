// What an exchange costs this side of the pipes: the answers lie ready, and what is asked is read away afterwards.
#include "helper/HelperClient.h"

#include <benchmark/benchmark.h>

#include <csignal>
#include <string>
#include <vector>

namespace {

/// A client whose helper has answered before it is asked. One round must fit into the pipes.
class AnsweredClient {
public:
    AnsweredClient() : client("/helper.mjs", {}) { std::signal(SIGPIPE, SIG_IGN); }

    /// Answers the next requests with these members.
    void answer(int count, const std::string& members) {
        std::string lines;
        for (int i = 0; i < count; ++i)
            lines += "{\"id\":\"" + std::to_string(nextID_++) + "\",\"ok\":true" + members + "}\n";
        client.output().fileHandleForWriting().write(lines);
    }

    void readRequests(int count) {
        for (int i = 0; i < count; ++i)
            client.input().fileHandleForReading().readLine(line_);
    }

    kemvi::HelperClient client;

private:
    std::int64_t nextID_ = 1;
    foundation::ByteBuffer line_;
};

template <typename Ask>
void measure(benchmark::State& state, int count, const std::string& members, Ask ask) {
    AnsweredClient answered;
    for (auto _ : state) {
        state.PauseTiming();
        answered.answer(count, members);
        state.ResumeTiming();
        for (int i = 0; i < count; ++i)
            ask(answered.client);
        state.PauseTiming();
        answered.readRequests(count);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * count);
}

void exchangePing(benchmark::State& state) {
    measure(state, 500, "", [](kemvi::HelperClient& client) { client.ping(); });
}

void exchangeGetattr(benchmark::State& state) {
    const std::string stat = R"(,"result":{"path":"/sources/implementation.cpp","name":"implementation.cpp",)"
                             R"("isDirectory":false,"size":18231,"modifiedAt":"2026-03-04T05:06:07.890Z"})";
    measure(state, 500, stat, [](kemvi::HelperClient& client) { client.getattr("/sources/implementation.cpp"); });
}

void exchangeRead(benchmark::State& state) {
    const auto length = static_cast<std::size_t>(state.range(0));
    const int count = static_cast<int>((std::size_t{512} << 10) / length);
    std::vector<std::byte> into(length);
    measure(state, count, ",\"dataBase64\":\"" + std::string((length + 2) / 3 * 4, 'A') + "\"",
            [&](kemvi::HelperClient& client) { client.read(1, 0, static_cast<std::int64_t>(length), into); });
}

void exchangeWrite(benchmark::State& state) {
    const std::vector<std::byte> data(static_cast<std::size_t>(state.range(0)));
    const int count = static_cast<int>((std::size_t{512} << 10) / data.size());
    measure(state, count, "", [&](kemvi::HelperClient& client) { client.write(1, 0, data); });
}

BENCHMARK(exchangePing);
BENCHMARK(exchangeGetattr);
BENCHMARK(exchangeRead)->Arg(4096)->Arg(65536);
BENCHMARK(exchangeWrite)->Arg(4096)->Arg(65536);

} // namespace
