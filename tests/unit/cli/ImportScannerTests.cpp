#include "cli/watch/ImportScanner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace cli {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(Imports, areThoseOfEveryStatementThatImports) {
    EXPECT_THAT(importsOf("import './a.mjs';\n"
                          "import b from \"./b.mjs\";\n"
                          "import { c,\n  d as e } from './c.mjs'\n"
                          "import * as f from'./f.mjs';import g, {h} from './g.mjs'\n"
                          "export * from './i.mjs'; export { j } from './j.mjs';\n"
                          "const k = await import('./k.mjs'), l = require( './l.cjs' ).l;\n"
                          "import m from './m.json' with { type: 'json' };"),
                ElementsAre("./a.mjs", "./b.mjs", "./c.mjs", "./f.mjs", "./g.mjs", "./i.mjs", "./j.mjs", "./k.mjs",
                            "./l.cjs", "./m.json"));
}

TEST(Imports, mayBeTemplatesWithoutValues) {
    EXPECT_THAT(importsOf("import(`./a.mjs`); import(`./${name}.mjs`); import('./b.mjs')"),
                ElementsAre("./a.mjs", "./b.mjs"));
}

TEST(Imports, ofPackagesAreToldToo) {
    EXPECT_THAT(importsOf("import { serve } from 'kemvi-helper'; import fs from 'node:fs';"),
                ElementsAre("kemvi-helper", "node:fs"));
}

TEST(Imports, areNotWhatCommentsAndStringsSay) {
    EXPECT_THAT(importsOf("#!/usr/bin/env -S node import './hashbang'\n"
                          "// import './line'\n"
                          "/* import './block'\n require('./block') */\n"
                          "const text = \"import './string'\", other = 'require(\"./string\")';\n"
                          "const template = `\nimport './template'\n ${ require('./value') } import './after'`;\n"
                          "Array.from('./call'); log('./argument'); import(/* so it is named */ './real');"),
                ElementsAre("./value", "./real"));
}

TEST(Imports, areFoundBehindSignsThatOnlyLookLikeOtherThings) {
    EXPECT_THAT(importsOf("const url = 'http://a'; import './a';\n"
                          "const quote = text.replace(/['\"`]/g, ''); import './b';\n"
                          "const half = (1 + 2) / 2; const third = list[0] / 3; import './c';\n"
                          "return /[/'`]\\/'/.test(x) /* ' */; import './d';\n"
                          "const deep = `a ${ { b: `c ${ '}' } ` } } d`; import './e';\n"
                          "const escaped = 'it\\'s // `'; import './f';"),
                ElementsAre("./a", "./b", "./c", "./d", "./e", "./f"));
}

TEST(Imports, areFoundInWhatIsHalfWritten) {
    EXPECT_THAT(importsOf("const text = 'not finished\nimport './a.mjs';\nfunction (((\nimport './b.mjs"),
                ElementsAre("./a.mjs"));
    for (const char* script : {"", "/", "/*", "'", "`", "`${", "`\\", "import", "import '\\", "#!", "/a\\"})
        EXPECT_THAT(importsOf(script), IsEmpty()) << script;
}

TEST(Imports, areReadWithoutTheirEscapes) {
    EXPECT_THAT(importsOf("import './it\\'s.mjs'"), ElementsAre("./it's.mjs"));
}

} // namespace
} // namespace cli
