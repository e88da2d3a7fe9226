// A read-only file system of two files: what docs/writing-a-helper.md begins with.
import { PosixError, serve } from 'kemvi-helper';

const started = new Date();
const files = new Map([
    ['hello.txt', Buffer.from('Hello from a file system in JavaScript.\n')],
    ['numbers.txt', Buffer.from(Array.from({ length: 1000 }, (_, number) => `${number}\n`).join(''))],
]);

/** The contents of a file, or an error that the program using the mount understands. */
function contents(path) {
    const data = files.get(path.slice(1));
    if (data === undefined) throw new PosixError('ENOENT', `there is no ${path}`);
    return data;
}

serve({
    getattr(path) {
        if (path === '/') return { isDirectory: true, modifiedAt: started };
        return { size: contents(path).length, modifiedAt: started };
    },

    readdir(path) {
        if (path !== '/') throw new PosixError('ENOTDIR', `${path} is not a folder`);
        return Array.from(files, ([name, data]) => ({ name, size: data.length, modifiedAt: started }));
    },

    read(path, offset, length) {
        return contents(path).subarray(offset, offset + length);
    },
});
