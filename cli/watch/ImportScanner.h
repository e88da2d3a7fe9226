#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace cli {

/// What a script in JavaScript imports by a literal: the specifiers of `import ... from`, `export ... from`,
/// `import '...'`, `import('...')` and `require('...')`, in their order, each as often as it is there.
///
/// Reads no more of the language than that takes: comments, strings, templates and regular expressions. So it also
/// serves for a script that is half written. Where it errs, it is rather by an import too many.
std::vector<std::string> importsOf(std::string_view script);

} // namespace cli
