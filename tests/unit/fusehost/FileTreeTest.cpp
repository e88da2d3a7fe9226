#include "FileTreeTest.h"

#include <utility>

namespace fusehosttests {

void throwGone() {
    foundation::NSErrorException gone(foundation::NSError{"protocol", 1, std::nullopt, "gone"});
    foundation::ErrorOrigin origin;
    origin.operation = "getattr";
    origin.state = "gone";
    gone.setOrigin(origin);
    throw gone;
}

bool isGone(const foundation::ErrorOrigin& origin) {
    return origin.state == "gone";
}

fusehost::FileTree& FileTreeTest::tree() {
    if (!tree_) {
        calls_ = std::make_unique<fusehost::VolumeCalls>(volume, fusehost::StateExplanation(), endTest);
        tree_ = std::make_unique<fusehost::FileTree>(*calls_, options);
        tree_->begin();
    }
    return *tree_;
}

TreeEntry FileTreeTest::counted(const TreeEntry& entry) {
    ++held_[entry.node];
    return entry;
}

TreeEntry FileTreeTest::lookup(const std::string& path) {
    if (path == "/")
        return {rootNodeID, tree().getAttributes(rootNodeID)};
    const auto [directory, name] = place(path);
    return counted(tree().lookup(directory, name));
}

std::pair<NodeID, std::string> FileTreeTest::place(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return {slash == 0 ? rootNodeID : node(path.substr(0, slash)), path.substr(slash + 1)};
}

OpenFileID FileTreeTest::open(const std::string& path, int flags) {
    const OpenFileID file = tree().open(node(path), flags);
    open_.insert(file);
    return file;
}

OpenFileID FileTreeTest::create(const std::string& path, int flags, mode_t mode) {
    const auto [directory, name] = place(path);
    const auto [entry, file] = tree().create(directory, name, flags | O_CREAT, mode);
    counted(entry);
    open_.insert(file);
    return file;
}

void FileTreeTest::makeNode(const std::string& path, mode_t mode) {
    const auto [directory, name] = place(path);
    counted(tree().makeNode(directory, name, mode));
}

void FileTreeTest::makeDirectory(const std::string& path, mode_t mode) {
    const auto [directory, name] = place(path);
    counted(tree().makeDirectory(directory, name, mode));
}

void FileTreeTest::write(OpenFileID file, std::int64_t offset, std::string_view bytes) {
    EXPECT_EQ(tree().write(file, offset, std::as_bytes(std::span(bytes))), bytes.size());
}

std::string FileTreeTest::read(OpenFileID file, std::int64_t offset, std::size_t count) {
    std::string bytes(count, '?');
    bytes.resize(tree().read(file, offset, std::as_writable_bytes(std::span(bytes))));
    return bytes;
}

int FileTreeTest::close(OpenFileID file) {
    const int error = errnoOf([&] { tree().flush(file); });
    release(file);
    return error;
}

void FileTreeTest::release(OpenFileID file) {
    open_.erase(file);
    tree().release(file);
    idle();
}

void FileTreeTest::idle() {
    while (tree().isPending())
        tree().doNext();
}

void FileTreeTest::remove(const std::string& path) {
    const auto [directory, name] = place(path);
    tree().removeFile(directory, name);
}

void FileTreeTest::removeDirectory(const std::string& path) {
    const auto [directory, name] = place(path);
    tree().removeDirectory(directory, name);
}

void FileTreeTest::rename(const std::string& oldPath, const std::string& newPath, unsigned flags) {
    const auto [from, name] = place(oldPath);
    const auto [to, newName] = place(newPath);
    tree().rename(from, name, to, newName, flags);
}

struct stat FileTreeTest::truncate(const std::string& path, std::uint64_t size) {
    fusehost::AttributeChange change;
    change.size = size;
    return tree().setAttributes(node(path), change);
}

std::vector<std::string> FileTreeTest::list(const std::string& path) {
    const fusehost::OpenDirectoryID directory = tree().openDirectory(node(path));
    tree().startListing(directory);
    std::vector<std::string> names;
    for (std::size_t index = 0; index < tree().listedCount(directory); ++index)
        if (const auto* entry = tree().listedEntry(directory, index))
            names.push_back(entry->name);
    tree().releaseDirectory(directory);
    return names;
}

void FileTreeTest::forget(NodeID node) {
    tree().forget(node, std::exchange(held_[node], 0));
}

void FileTreeTest::changeVolume() {
    tree().leaveVolume();
    EXPECT_EQ(served.openHandles(), 0U) << "the volume was left with something open";
    takeAnotherVolume();
}

void FileTreeTest::loseVolume() {
    tree().loseVolume();
    served.loseHandles();
    takeAnotherVolume();
}

void FileTreeTest::takeAnotherVolume() {
    volume = std::make_shared<MemoryVolume>(served);
    calls_->replace(volume);
    tree().takeVolume();
}

void FileTreeTest::end() {
    tree().end();
    calls_->end();
    EXPECT_TRUE(volume->isEnded());
    EXPECT_EQ(served.openHandles(), 0U);
    ended_ = true;
}

void FileTreeTest::TearDown() {
    served.before = {};
    if (ended_)
        return;
    for (const OpenFileID file : std::exchange(open_, {}))
        tree().release(file);
    idle();
    for (const auto& [node, count] : held_)
        tree().forget(node, count);
    EXPECT_EQ(served.openHandles(), 0U) << "helper handles were not given back";
    EXPECT_EQ(tree().openItems(), 0U) << "what is closed is still taken for open";
    EXPECT_EQ(tree().nodes().size(), 1U) << "nodes outlive the kernel's references";
    for (const std::string& name : served.names("/"))
        EXPECT_FALSE(name.starts_with(".kemvi-hidden")) << "a removed file was left behind";
    end();
}

} // namespace fusehosttests
