#include "cli/watch/PythonImports.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace cli {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Each import in one text, as "a.b" or "..a.b: c d".
std::vector<std::string> importsIn(std::string_view script) {
    std::vector<std::string> texts;
    for (const PythonImport& import : pythonImportsOf(script)) {
        std::string text(import.level, '.');
        for (const std::string& part : import.module)
            text += (&part == import.module.data() ? "" : ".") + part;
        for (const std::string& name : import.names)
            text += (&name == import.names.data() ? ": " : " ") + name;
        texts.push_back(text);
    }
    return texts;
}

TEST(PythonImports, areModulesByTheirNames) {
    EXPECT_THAT(importsIn("import a, b.c as d, \\\n  e\nimport f; import g # import h\n"),
                ElementsAre("a", "b.c", "e", "f", "g"));
    EXPECT_THAT(importsIn("if x: import a\nelse:\n\ttry: import b\n"), ElementsAre("a", "b"));
    EXPECT_THAT(importsIn("import gr\xc3\xbc\xc3\x9f\r\nimport last"), ElementsAre("gr\xc3\xbc\xc3\x9f", "last"));
}

TEST(PythonImports, areWhatIsTakenFromModules) {
    EXPECT_THAT(importsIn("from a import b as c, d\nfrom e.f import *\nfrom g import (h, # i\n  j as k,\n)\nimport l"),
                ElementsAre("a: b d", "e.f", "g: h j", "l"));
    EXPECT_THAT(importsIn("from . import a\nfrom ..b.c import d\nfrom ...import e\nfrom .f import(g)"),
                ElementsAre(".: a", "..b.c: d", "...: e", ".f: g"));
}

TEST(PythonImports, areNotInStringsAndComments) {
    EXPECT_THAT(importsIn(R"(
# import a
'import b'; """
import c
\""" '
import d"""
r'\'; import e'
'''
import f)"),
                IsEmpty());
    EXPECT_THAT(importsIn("x = 'it''s'; import a\ny = f\"{z}\" # '''\nimport b"), ElementsAre("a", "b"));
}

TEST(PythonImports, areNoOtherUseOfTheWords) {
    EXPECT_THAT(importsIn("raise A from b\nyield from c\nimported = from_ = importer\nx.important"), IsEmpty());
    EXPECT_THAT(importsIn("raise A from b\nimport c"), ElementsAre("c"));
}

TEST(PythonImports, areFoundInWhatIsHalfWritten) {
    EXPECT_THAT(importsIn("x = (1,\nimport a\ns = 'open\nimport b\nimport\nfrom\nfrom . \nfrom .c import (\nimport d\n"
                          "import e,"),
                ElementsAre("a", "b", ".c", "d", "e"));
}

} // namespace
} // namespace cli
