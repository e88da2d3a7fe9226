// Ends before it has answered anything.
console.error('exits.mjs: cannot read my settings');
process.exit(3);
