// A helper that shows one file of the folder in KEMVI_REPO_ROOT, and says that what is written to the pipe `tell` there
// has changed, line by line.
#include <kemvi/helper.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace {

const std::filesystem::path& folder() {
    static const std::filesystem::path path = std::getenv("KEMVI_REPO_ROOT");
    return path;
}

class Shown : public kemvi::File {
public:
    std::size_t read(std::uint64_t offset, std::span<std::byte> into) override {
        std::ifstream file(folder() / "file", std::ios::binary);
        file.seekg(static_cast<std::streamoff>(offset));
        file.read(reinterpret_cast<char*>(into.data()), static_cast<std::streamsize>(into.size()));
        return static_cast<std::size_t>(file.gcount());
    }
};

class Tree : public kemvi::FileSystem {
public:
    kemvi::Stat getattr(const std::string& path) override {
        if (path == "/")
            return {.isDirectory = true};
        if (path == "/file" && std::filesystem::exists(folder() / "file"))
            return {.size = std::filesystem::file_size(folder() / "file")};
        throw kemvi::PosixError("ENOENT", "there is no " + path);
    }

    void readdir(const std::string&, const Members& add) override {
        if (std::filesystem::exists(folder() / "file"))
            add("file", getattr("/file"));
    }

    std::unique_ptr<kemvi::File> open(const std::string&, const kemvi::OpenFlags&) override {
        return std::make_unique<Shown>();
    }
};

void tellWhatIsSaid() {
    while (true) {
        std::ifstream said(folder() / "tell"); // waits for somebody to write
        for (std::string line; std::getline(said, line);)
            kemvi::changed(line);
    }
}

} // namespace

int main() {
    std::thread(tellWhatIsSaid).detach();
    Tree tree;
    const int code = kemvi::serve(tree);
    std::_Exit(code); // the other thread waits for good
}
