#pragma once

#include "KernelEnd.h"
#include "UnixTree.h"

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace fuzz {

/// A mount whose every answer is compared with what a Unix file system says to the same request. It plays the kernel:
/// keeps account of the nodes and handles that it was given, and asks for nothing that a kernel would not.
class MeasuredMount {
public:
    /// How a mount and its helper are.
    struct Kind {
        fusehost::MountOptions options;
        bool helperFails = false; // now and then; what is asked for may then fail, and contents are not compared
    };

    MeasuredMount(fusehosttests::ServedTree& served, const Kind& kind);

    std::size_t nodes() const { return nodes_.size(); }

    std::size_t files() const { return files_.size(); }

    std::size_t directories() const { return directories_.size(); }

    // Each takes nodes, open files and open directories by their place in those lists.
    void lookup(std::size_t node, const std::string& name);
    void getAttributes(std::size_t node);
    void forget(std::size_t node, std::uint64_t count);
    void setSize(std::size_t node, std::uint64_t size);
    void setMode(std::size_t node, std::uint32_t mode);
    void setTime(std::size_t node, std::uint64_t seconds);
    void create(std::size_t node, const std::string& name, int flags, std::uint32_t mode);
    void makeDirectory(std::size_t node, const std::string& name);
    void makeFile(std::size_t node, const std::string& name);
    void makeOddities(std::size_t node, const std::string& name);
    void removeFile(std::size_t node, const std::string& name);
    void removeDirectory(std::size_t node, const std::string& name);
    void rename(std::size_t from, const std::string& name, std::size_t to, const std::string& newName, bool replaces);
    void open(std::size_t node, int flags);
    void read(std::size_t file, std::uint64_t offset, std::uint32_t size);
    void write(std::size_t file, std::uint64_t offset, std::uint32_t size);
    void flush(std::size_t file);
    void synchronize(std::size_t file);
    void release(std::size_t file);
    void openDirectory(std::size_t node);
    void list(std::size_t directory, std::uint32_t bufferSize, bool withAttributes);
    void releaseDirectory(std::size_t directory);
    void figures();
    void idle();

    /// Gives everything back; nothing may be left, and the helper serves what it should.
    void end();

private:
    using Answer = KernelEnd::Answer;

    struct KnownNode {
        std::uint64_t id = 0;
        InodePtr inode;
        std::uint64_t lookups = 0;
    };

    struct OpenFile {
        std::uint64_t handle = 0;
        std::uint64_t node = 0;
        InodePtr inode;
        bool reads = false;
        bool writes = false;
    };

    struct OpenDirectory {
        std::uint64_t handle = 0;
        std::uint64_t node = 0;
        InodePtr inode;
    };

    bool isOpen(const Inode& inode) const;
    Errors errorsOfNode(const Inode& inode) const;
    bool succeeded(const Answer& answer, const Errors& errors) const;
    void takeNode(std::string_view entry, InodePtr inode);
    void compare(std::string_view attributes, const Inode& inode) const;
    void addFile(std::string_view opened, std::uint64_t node, const InodePtr& inode, int flags);
    void setAttributes(std::size_t node, const std::string& request, const Errors& errors);
    void createAndTake(const Answer& answer, Inode& directory, const std::string& name, const Errors& errors,
                       int flags);
    std::size_t takeEntries(const std::string& body, const Inode& directory, bool withAttributes,
                            std::multiset<std::string>& names);
    void compareServed(const std::string& path, const Inode& directory) const;

    fusehosttests::ServedTree& served_;
    bool isExact_;
    bool negativeEntries_;
    bool readsToWrite_;
    KernelEnd kernel_;
    InodePtr root_;
    std::vector<KnownNode> nodes_;
    std::vector<OpenFile> files_;
    std::vector<OpenDirectory> directories_;
    unsigned writes_ = 0;
};

} // namespace fuzz
