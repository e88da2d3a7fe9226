// Files that are made when they are looked at: their contents, sizes and times change.
import { PosixError, serve } from 'kemvi-helper';

const started = Date.now();

// Each file: the time of its latest change, and its text as it was at that time.
const files = {
    'now.txt': {
        changed: () => Math.floor(Date.now() / 1000) * 1000,
        text: (time) => new Date(time).toISOString() + '\n',
    },
    'seconds.txt': {
        changed: () => started + Math.floor((Date.now() - started) / 1000) * 1000,
        text: (time) => Array.from({ length: (time - started) / 1000 + 1 }, (_, second) => `${second}\n`).join(''),
    },
};

function snapshot(name) {
    if (!Object.hasOwn(files, name)) throw new PosixError('ENOENT', `there is no ${name}`);
    const time = files[name].changed();
    return { name, data: Buffer.from(files[name].text(time)), modifiedAt: time };
}

const stat = ({ name, data, modifiedAt }) => ({ name, size: data.length, modifiedAt });

serve({
    getattr: (path) => (path === '/' ? { isDirectory: true } : stat(snapshot(path.slice(1)))),

    readdir(path) {
        if (path !== '/') throw new PosixError('ENOTDIR', `${path} is not a folder`);
        return Object.keys(files).map((name) => stat(snapshot(name)));
    },

    // What open returns is handed to read: whoever has a file open sees it as it was when it was opened.
    open: (path) => snapshot(path.slice(1)).data,
    read: (data, offset, length) => data.subarray(offset, offset + length),
});
