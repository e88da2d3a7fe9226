// Loaded before a program: says on standard error what the program sets of V8, and leaves V8 as it is.
const v8 = require('node:v8');

v8.setFlagsFromString = (flags) => console.error(`V8 is set: ${flags}`);
require('node:module').syncBuiltinESMExports();
