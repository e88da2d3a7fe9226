// Writes AsciiFoldings.h: node foldings.mjs > AsciiFoldings.h
// What stores that do not tell all spellings apart may take for ASCII text: characters that fold to it, or to nothing.
import { foldedText } from '../../node/src/filesystems/configurationGuard.mjs';

const runs = [];
for (let code = 0x80; code <= 0x10ffff; code++) {
    if (code >= 0xd800 && code <= 0xdfff) continue;
    const text = foldedText(String.fromCodePoint(code));
    if (/[^\0-\x7f]/.test(text)) continue;
    const last = runs.at(-1);
    const follows = last !== undefined && last.last === code - 1;
    const step = follows && last.text.length === 1 && text.length === 1
        ? text.charCodeAt(0) - last.text.charCodeAt(0) - (code - last.first) : -1;
    if (step === 0 || (follows && text === '' && last.text === '')) last.last = code;
    else runs.push({ first: code, last: code, text });
}

console.log(`#pragma once

// Made by foldings.mjs with Unicode ${process.versions.unicode}.
// clang-format off

namespace local {

/// Characters that fold to ASCII text. Of a run, the first one folds to \`text\`, each other to the character behind that
/// of the one before; all of them to nothing where \`text\` is empty.
struct AsciiFolding {
    char32_t first;
    char32_t last;
    const char* text;
};

inline constexpr AsciiFolding asciiFoldings[] = {`);
const hex = (code) => '0x' + code.toString(16).toUpperCase().padStart(4, '0');
let line = '   ';
for (const { first, last, text } of runs) {
    const entry = ` {${hex(first)}, ${hex(last)}, ${JSON.stringify(text)}},`;
    if (line.length + entry.length > 120) {
        console.log(line);
        line = '   ';
    }
    line += entry;
}
console.log(line);
console.log('};\n\n} // namespace local');
