// The table of nodes: time per operation and memory per node, for directories of 1,000 names each.
#include "hosts/fuse/tree/NodeTable.h"

#include <benchmark/benchmark.h>

#include <malloc.h>
#include <string>
#include <vector>

namespace {

using fusehost::Node;
using fusehost::NodeID;
using fusehost::NodeTable;

constexpr std::int64_t perDirectory = 1000;

std::string nameOf(std::int64_t index) {
    return "name-" + std::to_string(index);
}

// Names as long as std::string holds without further memory, so that what is counted is the table's own.
std::vector<NodeID> fill(NodeTable& table, std::int64_t count) {
    std::vector<NodeID> nodes;
    nodes.reserve(static_cast<std::size_t>(count));
    Node* directory = nullptr;
    for (std::int64_t i = 0; i < count; ++i) {
        const bool startsDirectory = i % perDirectory == 0;
        Node& node = table.childOrNew(startsDirectory ? table.root() : *directory, nameOf(i));
        node.type = startsDirectory ? fskit::FSItemType::directory : fskit::FSItemType::file;
        ++node.lookups;
        if (startsDirectory)
            directory = &node;
        nodes.push_back(node.id);
    }
    return nodes;
}

void forgetAll(NodeTable& table, const std::vector<NodeID>& nodes) {
    for (const NodeID node : nodes)
        benchmark::DoNotOptimize(table.forget(node, 1));
}

std::size_t bytesInUse() {
    const struct mallinfo2 figures = mallinfo2();
    return figures.uordblks + figures.hblkhd;
}

void nodeAddAndForget(benchmark::State& state) {
    double perNode = 0;
    double left = 0;
    for (auto _ : state) {
        NodeTable table;
        const std::size_t before = bytesInUse();
        const auto nodes = fill(table, state.range(0));
        const std::size_t full = bytesInUse() - nodes.capacity() * sizeof(NodeID);
        forgetAll(table, nodes);
        const std::size_t after = bytesInUse() - nodes.capacity() * sizeof(NodeID);
        perNode = static_cast<double>(full - before) / static_cast<double>(state.range(0));
        left = static_cast<double>(after) - static_cast<double>(before);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
    state.counters["bytesPerNode"] = perNode;
    state.counters["bytesLeftAfterForget"] = left;
}

void nodeFindByNumber(benchmark::State& state) {
    NodeTable table;
    const auto nodes = fill(table, state.range(0));
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(table.find(nodes[next]));
        next = (next + 7919) % nodes.size();
    }
}

void nodeFindByName(benchmark::State& state) {
    NodeTable table;
    fill(table, state.range(0));
    Node& directory = table.childOrNew(table.root(), nameOf(0));
    std::vector<std::string> names;
    for (std::int64_t i = 1; i < perDirectory; ++i)
        names.push_back(nameOf(i));
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(table.child(directory, names[next]));
        next = (next + 1) % names.size();
    }
}

BENCHMARK(nodeAddAndForget)->Arg(1000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(nodeFindByNumber)->Arg(1000)->Arg(100000);
BENCHMARK(nodeFindByName)->Arg(1000)->Arg(100000);

} // namespace
