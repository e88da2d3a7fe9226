#include "PrivateFolder.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <random>
#include <system_error>
#include <vector>

namespace bench {

PrivateFolder::PrivateFolder() {
    const std::filesystem::path memory = "/dev/shm";
    std::error_code none;
    const auto parent = std::filesystem::is_directory(memory, none) ? memory : std::filesystem::temp_directory_path();
    std::string pattern = (parent / "kemvi-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr)
        throw std::system_error(errno, std::generic_category(), pattern);
    path_ = pattern;
}

PrivateFolder::~PrivateFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void PrivateFolder::addFile(const std::string& name, std::size_t size) const {
    std::mt19937_64 generator(7);
    std::vector<std::uint64_t> words((size + 7) / 8);
    for (std::uint64_t& word : words)
        word = generator();
    std::ofstream file(path_ / name, std::ios::binary);
    file.write(reinterpret_cast<const char*>(words.data()), static_cast<std::streamsize>(size));
    if (!file.flush())
        throw std::system_error(errno, std::generic_category(), name);
}

void PrivateFolder::addFolderOfFiles(const std::string& name, std::size_t count) const {
    std::filesystem::create_directory(path_ / name);
    for (std::size_t i = 0; i < count; ++i)
        std::ofstream(path_ / name / ("entry-" + std::to_string(i)));
}

} // namespace bench
