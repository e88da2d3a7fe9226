// What is served: replace the tree below by what you have.
import { PosixError, type FileSystem, type Stat } from 'kemvi-helper';

// A text is a file, an object is a folder.
type Node = string | { [name: string]: Node };

const tree: Node = {
    'hello.txt': 'Hello from {{NAME}}.\n',
    system: {
        'platform.txt': `${process.platform}\n`,
        'versions.json': JSON.stringify(process.versions, null, 2) + '\n',
    },
};
const started = new Date();

/** The file or folder at a path such as "/system/platform.txt". */
function find(path: string): Node {
    let found: Node = tree;
    for (const name of path.split('/').filter((part) => part !== '')) {
        if (typeof found === 'string' || !Object.hasOwn(found, name)) throw new PosixError('ENOENT', `there is no ${path}`);
        found = found[name]!;
    }
    return found;
}

function stat(found: Node): Stat {
    if (typeof found !== 'string') return { isDirectory: true, modifiedAt: started };
    return { size: Buffer.byteLength(found), modifiedAt: started };
}

export const fileSystem = {
    getattr: (path) => stat(find(path)),

    readdir(path) {
        const folder = find(path);
        if (typeof folder === 'string') throw new PosixError('ENOTDIR', `${path} is not a folder`);
        return Object.entries(folder).map(([name, found]) => ({ name, ...stat(found) }));
    },

    read(path, offset, length) {
        const text = find(path);
        if (typeof text !== 'string') throw new PosixError('EISDIR', `${path} is a folder`);
        return Buffer.from(text).subarray(offset, offset + length);
    },
} satisfies FileSystem<string>;
