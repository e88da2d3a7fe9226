// What `require('kemvi-helper/testing')` gives: the same as `import`.
'use strict';
const path = require('node:path');
const { load } = require('./load.cjs');

module.exports = load(path.join(__dirname, '../testing/index.mjs'));
