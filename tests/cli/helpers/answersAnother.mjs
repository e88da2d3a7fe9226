// Answers, but never what it was asked.
console.error('answersAnother.mjs: starting');
process.stdin.on('data', () => console.log('{"id":"77","ok":true}'));
