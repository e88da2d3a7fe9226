#include "cli/watch/PythonFiles.h"

#include "cli/watch/PythonImports.h"

#include <system_error>
#include <utility>

namespace cli {

namespace filesystem = std::filesystem;

namespace {

constexpr const char* packageFile = "__init__.py"; // runs before the modules beside it

class FoundFiles {
public:
    /// The file of the package or the module at a path that has no ending yet. False if there is none.
    bool add(const filesystem::path& module) {
        return addIfThere(module / packageFile) || addIfThere(asScript(module));
    }

    bool addIfThere(const filesystem::path& path) {
        std::error_code error;
        const bool isThere = filesystem::is_regular_file(path, error);
        if (isThere)
            files_.push_back(path.string());
        return isThere;
    }

    void addInAnyCase(const filesystem::path& module) { files_.push_back(asScript(module).string()); }

    std::vector<std::string>&& take() { return std::move(files_); }

private:
    static filesystem::path asScript(filesystem::path module) {
        module += ".py";
        return module;
    }

    std::vector<std::string> files_;
};

void add(FoundFiles& files, const PythonImport& import, filesystem::path at) {
    std::error_code error;
    bool isThere = true;
    for (const std::string& part : import.module) {
        at /= part;
        isThere = files.add(at) || filesystem::is_directory(at, error);
    }
    if (import.module.empty())
        files.addIfThere(at / packageFile);
    if (!isThere && import.level > 0)
        files.addInAnyCase(at);
    for (const std::string& name : import.names)
        files.add(at / name);
}

} // namespace

std::vector<std::string> pythonFilesOf(std::string_view script, const filesystem::path& folder,
                                       const filesystem::path& home) {
    FoundFiles files;
    for (const PythonImport& import : pythonImportsOf(script)) {
        filesystem::path at = import.level == 0 ? home : folder;
        for (std::size_t level = 1; level < import.level; ++level)
            at = at.parent_path();
        add(files, import, std::move(at));
    }
    return files.take();
}

} // namespace cli
