#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>

namespace kemvi {

/// A folder with a program named "node" that runs the shell, so that helpers can be real processes without node.
class ShellAsNode {
public:
    ShellAsNode() {
        std::string name = (std::filesystem::temp_directory_path() / "kemvi-helper-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("no temporary folder");
        folder_ = name;
        std::ofstream(folder_ / "node") << "#!/bin/sh\nexec /bin/sh \"$@\"\n";
        std::filesystem::permissions(folder_ / "node", std::filesystem::perms(0755));
    }

    ~ShellAsNode() { std::filesystem::remove_all(folder_); }

    ShellAsNode(const ShellAsNode&) = delete;
    ShellAsNode& operator=(const ShellAsNode&) = delete;

    /// The path of a helper with this shell text.
    std::string helper(const std::string& text) const {
        std::ofstream(folder_ / "a helper.sh") << text;
        return folder_ / "a helper.sh";
    }

    /// An environment in which "node" is the shell.
    std::map<std::string, std::string> environment() const {
        return {{"PATH", folder_.string() + ":/usr/bin:/bin"}, {"KEMVI_TEST", "told"}};
    }

private:
    std::filesystem::path folder_;
};

} // namespace kemvi
