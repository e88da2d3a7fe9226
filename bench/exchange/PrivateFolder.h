#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace bench {

/// A folder of this run alone, on memory where the machine has a memory file system, gone with the object.
class PrivateFolder {
public:
    PrivateFolder();
    ~PrivateFolder();
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;

    std::string path() const { return path_.string(); }

    void addFile(const std::string& name, std::size_t size) const;
    void addFolderOfFiles(const std::string& name, std::size_t count) const;

private:
    std::filesystem::path path_;
};

} // namespace bench
