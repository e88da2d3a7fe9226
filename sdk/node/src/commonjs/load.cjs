// The kit for programs that use `require`. Node can require an ES module since 20.19 and 22.12; for the ones before, the same
// sources are translated while they are loaded: there is one text of the kit and nothing to build.
'use strict';
const fs = require('node:fs');
const path = require('node:path');
const vm = require('node:vm');

/** @type {Map<string, Record<string, any>>} */
const loaded = new Map();

/**
 * @param {string} file an absolute path
 * @returns {Record<string, any>} what the module exports
 */
function load(file) {
    const { features } = /** @type {{features: {require_module?: boolean}}} */ (process);
    return features.require_module ? require(file) : translated(file);
}

/** @param {string} file */
function translated(file) {
    let exported = loaded.get(file);
    if (exported === undefined) {
        exported = {};
        const take = (/** @type {string} */ name) =>
            name.startsWith('.') ? translated(path.resolve(path.dirname(file), name)) : require(name);
        const code = translate(fs.readFileSync(file, 'utf8'), file);
        vm.compileFunction(code, ['exports', 'take'], { filename: file })(exported, take);
        loaded.set(file, exported);
    }
    return exported;
}

/**
 * The text of a module of this kit as that of a function, each line where it was. Knows the forms of import and export
 * that the kit uses.
 * @param {string} text
 * @param {string} file
 */
function translate(text, file) {
    /** @type {string[]} */
    const names = [];
    const bindings = (/** @type {string} */ list) => list.replace(/ as /g, ': ');
    const local = (/** @type {string} */ whole, /** @type {string} */ before, /** @type {string} */ name) => {
        names.push(name);
        return before + name;
    };
    const code = text
        .replace(/^import (\w+) from ('node:[\w/]+');$/gm, 'const $1 = take($2);')
        .replace(/^import (\{[^}]*\}) from ('[^']+');$/gm, (_, list, from) => `const ${bindings(list)} = take(${from});`)
        .replace(/^export (\{[^}]*\}) from ('[^']+');$/gm, (_, list, from) =>
            `{ const ${bindings(list)} = take(${from}); Object.assign(exports, ${list.replace(/\w+ as /g, '')}); }`)
        .replace(/^export ((?:async )?(?:function\*?|class|const) )(\w+)/gm, local);
    const rest = /^(?:import|export)\b.*/m.exec(code);
    if (rest !== null) throw new SyntaxError(`${file}: "${rest[0]}" is not translated for require`);
    return `'use strict';${code}\nObject.assign(exports, { ${names.join(', ')} });`;
}

module.exports = { load, translated };
