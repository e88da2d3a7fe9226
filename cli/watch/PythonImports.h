#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// One module of `import a.b`, or what `from ..a.b import c, d` names.
struct PythonImport {
    std::size_t level = 0;           // the dots in front: 0 is looked for along the path of modules
    std::vector<std::string> module; // a, b
    std::vector<std::string> names;  // c, d: each may be a module of a package, or anything else

    friend bool operator==(const PythonImport&, const PythonImport&) = default;
};

/// What a script in Python imports by its `import` and `from` statements, in their order.
///
/// Reads no more of the language than that takes: comments and strings. So it also serves for a script that is half
/// written. Where it errs, it is rather by an import too many.
std::vector<PythonImport> pythonImportsOf(std::string_view script);

} // namespace cli
