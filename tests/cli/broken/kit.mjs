// A file system made with the helper kit whose author has made the one mistake that kemviHome names.
const { PosixError, serve } = await import(process.env.KEMVI_SDK + '/src/index.mjs');

const is = (name) => process.env.KEMVI_HOME === name;
const contents = Buffer.from('hello');
const members = {
    '/': () => [{ name: 'a.txt', size: contents.length }, { name: 'folder', isDirectory: true }],
    '/folder': () => {
        if (is('folder fails')) throw new PosixError('EIO', 'broken');
        return is('slash') ? [{ name: 'x/y', size: 1 }] : [];
    },
};

if (is('escapes')) console.error('\x1b]0;title\x07 \u009b31m red');

serve({
    getattr(path) {
        if (path in members) return { isDirectory: true };
        if (path === '/a.txt') return { size: contents.length };
        if (is('throws anything')) throw new Error('what is ' + path + '?');
        if (is('code of its own')) throw Object.assign(new Error('no'), { code: 'ERR_NO_PAGE' });
        throw new PosixError('ENOENT', 'there is no ' + path);
    },
    readdir: (path) => members[path](),
    read: (file, offset, length) =>
        is('text') ? contents.toString().slice(offset, offset + length) : contents.subarray(offset, offset + length),
});
