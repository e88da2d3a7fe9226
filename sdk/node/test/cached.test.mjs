// A file system that keeps what a slow one answers: what the slow one is asked, counted.
import assert from 'node:assert/strict';
import test from 'node:test';
import { cached, changed, MemoryFileSystem, PosixError } from '../src/index.mjs';

const reading = { read: true, write: false, create: false, truncate: false };
const writing = { read: true, write: true, create: false, truncate: false };
const block = 256 * 1024;

/**
 * A slow file system and the one that keeps its answers. `calls` are those that reached the slow one; while `isHeld`, none
 * of them ends.
 */
function slow(files, options = {}) {
    const source = {
        calls: [],
        time: 0,
        files: new Map(Object.entries(files)),
        mtime: 1000,
        isHeld: false,
        held: [],
        refuse: undefined,
        async did(what) {
            source.calls.push(what);
            if (source.isHeld) await new Promise((resolve) => source.held.push(resolve));
            if (source.refuse) throw source.refuse;
        },
        letGo() {
            source.isHeld = false;
            for (const resolve of source.held.splice(0)) resolve();
        },
        /** What was asked since this was called last. */
        asked: () => source.calls.splice(0),
    };
    const isFolder = (path) => path === '/' || [...source.files.keys()].some((each) => each.startsWith(path + '/'));
    const stat = (path) => {
        if (isFolder(path)) return { isDirectory: true, modifiedAt: source.mtime };
        if (!source.files.has(path)) throw new PosixError('ENOENT', `there is no ${path}`);
        return { size: source.files.get(path).length, modifiedAt: source.mtime };
    };
    const tree = {
        async getattr(path) {
            await source.did(`getattr ${path}`);
            return stat(path);
        },
        async readdir(path) {
            await source.did(`readdir ${path}`);
            const start = path === '/' ? '/' : path + '/';
            const inside = [...source.files.keys()].filter((each) => each.startsWith(start));
            const names = new Set(inside.map((each) => each.slice(start.length).split('/')[0]));
            return [...names].map((name) => ({ name, ...stat(start + name) }));
        },
        async read(path, offset, length) {
            await source.did(`read ${path} ${offset / block}`);
            return source.files.get(path).subarray(offset, offset + length);
        },
        async write(path, offset, data) {
            await source.did(`write ${path}`);
            source.files.set(path, Buffer.concat([source.files.get(path).subarray(0, offset), data]));
        },
        chmod: (path) => source.did(`chmod ${path}`),
        utimes: (path) => source.did(`utimes ${path}`),
        mkdir: (path) => source.did(`mkdir ${path}`),
        async unlink(path) {
            await source.did(`unlink ${path}`);
            source.files.delete(path);
        },
        async rename(from, to) {
            await source.did(`rename ${from} ${to}`);
            source.files.set(to, source.files.get(from));
            source.files.delete(from);
        },
    };
    return { source, tree, fileSystem: cached(tree, { now: () => source.time, ttl: 1000, ahead: 0, ...options }) };
}

async function readWhole(fileSystem, path, length = 100) {
    const open = await fileSystem.open(path, reading);
    const buffer = Buffer.alloc(length);
    const count = await fileSystem.read(open, 0, length, buffer);
    await fileSystem.release(open);
    return String(buffer.subarray(0, count));
}

test('the stats that follow a listing ask nothing, until it is too old', async () => {
    const { source, fileSystem } = slow({ '/a': Buffer.from('one'), '/d/b': Buffer.from('two') });
    assert.deepEqual(Array.from(await fileSystem.readdir('/'), ({ name }) => name), ['a', 'd']);
    assert.equal((await fileSystem.getattr('/a')).size, 3);
    assert.equal((await fileSystem.getattr('/d')).isDirectory, true);
    await fileSystem.readdir('/');
    assert.deepEqual(source.asked(), ['readdir /']);
    source.time = 999;
    await fileSystem.getattr('/a');
    assert.deepEqual(source.asked(), []);
    source.time = 1000;
    await fileSystem.getattr('/a');
    await fileSystem.readdir('/');
    assert.deepEqual(source.asked(), ['getattr /a', 'readdir /']);
});

test('contents outlive the ttl while size and time stay the same', async () => {
    const { source, fileSystem } = slow({ '/a': Buffer.from('one') });
    assert.equal(await readWhole(fileSystem, '/a'), 'one');
    assert.equal(await readWhole(fileSystem, '/a'), 'one');
    assert.deepEqual(source.asked(), ['getattr /a', 'read /a 0']);
    source.time = 2000;
    assert.equal(await readWhole(fileSystem, '/a'), 'one');
    assert.deepEqual(source.asked(), ['getattr /a']);
    source.time = 4000;
    source.mtime = 2000;
    source.files.set('/a', Buffer.from('two'));
    assert.equal(await readWhole(fileSystem, '/a'), 'two');
    assert.deepEqual(source.asked(), ['getattr /a', 'read /a 0']);
});

test('without a time of modification contents are kept for the ttl', async () => {
    const { source, fileSystem } = slow({ '/a': Buffer.from('one') });
    source.mtime = undefined;
    await readWhole(fileSystem, '/a');
    await readWhole(fileSystem, '/a');
    assert.deepEqual(source.asked(), ['getattr /a', 'read /a 0']);
    source.time = 1000;
    await readWhole(fileSystem, '/a');
    assert.deepEqual(source.asked(), ['getattr /a', 'read /a 0']);
});

test('contents of a size that is not known are kept for the ttl', async () => {
    for (const size of [undefined, -1]) {
        const { source, tree } = slow({ '/a': Buffer.from('one') });
        const fileSystem = cached({ ...tree, getattr: async () => ({ size, modifiedAt: 0 }) }, { now: () => source.time, ttl: 1000 });
        await readWhole(fileSystem, '/a');
        assert.equal(await readWhole(fileSystem, '/a'), 'one');
        assert.deepEqual(source.asked(), ['read /a 0']);
        source.time = 1000;
        await readWhole(fileSystem, '/a');
        assert.deepEqual(source.asked(), ['read /a 0']);
    }
});

test('that there is nothing is kept, other errors are not', async () => {
    const { source, fileSystem } = slow({});
    await assert.rejects(fileSystem.getattr('/a'), { code: 'ENOENT' });
    await assert.rejects(fileSystem.getattr('/a'), { code: 'ENOENT' });
    assert.deepEqual(source.asked(), ['getattr /a']);
    source.time = 1000;
    await assert.rejects(fileSystem.getattr('/a'), { code: 'ENOENT' });
    assert.deepEqual(source.asked(), ['getattr /a']);
    source.refuse = new PosixError('ETIMEDOUT', 'late');
    for (const step of [() => fileSystem.getattr('/b'), () => fileSystem.readdir('/')]) {
        await assert.rejects(step(), { code: 'ETIMEDOUT' });
        await assert.rejects(step(), { code: 'ETIMEDOUT' });
        assert.equal(source.asked().length, 2);
    }
});

test('what several want is asked for once', async () => {
    const { source, fileSystem } = slow({ '/a': Buffer.from('one') });
    source.isHeld = true;
    const wanted = [fileSystem.getattr('/a'), fileSystem.getattr('/a'), fileSystem.readdir('/'), fileSystem.readdir('/')];
    source.letGo();
    await Promise.all(wanted);
    const reads = [readWhole(fileSystem, '/a'), readWhole(fileSystem, '/a')];
    assert.deepEqual(await Promise.all(reads), ['one', 'one']);
    assert.deepEqual(source.asked(), ['getattr /a', 'readdir /', 'read /a 0']);
});

test('reads across blocks and past the end give what is there', async () => {
    const data = Buffer.from(Array.from({ length: 2 * block + 10 }, (_, index) => index % 251));
    const { fileSystem } = slow({ '/a': data });
    const open = await fileSystem.open('/a', reading);
    for (const [offset, length] of [[0, block], [block - 3, 6], [5, 2 * block], [2 * block, 100], [2 * block + 10, 5], [9 * block, 5], [20, 5], [2 * block + 20, 5]]) {
        const buffer = Buffer.alloc(length);
        const count = await fileSystem.read(open, offset, length, buffer);
        assert.deepEqual(buffer.subarray(0, count), data.subarray(offset, offset + length), `${length} from ${offset}`);
    }
});

test('a file that is longer than was told is read to its end', async () => {
    const data = Buffer.alloc(2 * block + 10, 'x');
    const { tree } = slow({ '/a': data });
    const fileSystem = cached({ ...tree, getattr: async () => ({ modifiedAt: 0 }) }, { ahead: 0 });
    assert.equal((await readWhole(fileSystem, '/a', 3 * block)).length, data.length);
});

test('a reader in order finds the next blocks asked for', async () => {
    const { source, fileSystem } = slow({ '/a': Buffer.alloc(20 * block) }, { ahead: 4 });
    const open = await fileSystem.open('/a', reading);
    const buffer = Buffer.alloc(block);
    await fileSystem.read(open, 10 * block, 10, buffer);
    assert.deepEqual(source.asked(), ['getattr /a', 'read /a 10'], 'a jump asks for nothing else');
    await fileSystem.read(open, 11 * block, 10, buffer);
    assert.deepEqual(source.asked(), ['read /a 11', 'read /a 12', 'read /a 13']);
    await fileSystem.read(open, 12 * block, 10, buffer);
    assert.deepEqual(source.asked(), ['read /a 14', 'read /a 15', 'read /a 16']);
    await fileSystem.read(open, 12 * block + 10, 10, buffer);
    assert.deepEqual(source.asked(), []);
});

const many = Object.fromEntries(Array.from({ length: 40 }, (_, index) => [`/f${index + 10}`, Buffer.from('text')]));

test('files opened in the order of their listing find the next ones fetched', async () => {
    const { source, fileSystem } = slow(many, { ahead: 8 });
    await fileSystem.readdir('/');
    source.asked();
    const asked = [];
    for (const name of Object.keys(many).slice(0, 3)) {
        await readWhole(fileSystem, name);
        asked.push(source.asked().map((call) => call.slice(5, -2)));
    }
    const from = (first, count) => Array.from({ length: count }, (_, index) => `/f${first + index}`);
    assert.deepEqual(asked, [['/f10'], from(11, 5), from(16, 5)]);
});

test('what is fetched ahead is bounded, and its failure is nobody\'s', async () => {
    const { source, fileSystem } = slow(many, { ahead: 2 });
    await fileSystem.readdir('/');
    await readWhole(fileSystem, '/f10');
    source.asked();
    source.isHeld = true;
    const second = readWhole(fileSystem, '/f11');
    await new Promise(setImmediate);
    assert.deepEqual(source.asked(), ['read /f11 0', 'read /f12 0', 'read /f13 0']);
    const third = readWhole(fileSystem, '/f12');
    await new Promise(setImmediate);
    assert.deepEqual(source.asked(), [], 'two are under way');
    source.refuse = new PosixError('EIO', 'no');
    source.letGo();
    await assert.rejects(second, { code: 'EIO' });
    await assert.rejects(third, { code: 'EIO' });
    source.refuse = undefined;
    assert.equal(await readWhole(fileSystem, '/f12'), 'text');
});

test('large files are not fetched ahead, and none when prefetch is 0', async () => {
    for (const [files, options] of [
        [Object.fromEntries(Object.keys(many).map((name) => [name, Buffer.alloc(70_000)])), {}],
        [many, { prefetch: 0 }],
    ]) {
        const { source, fileSystem } = slow(files, { ahead: 8, ...options });
        await fileSystem.readdir('/');
        for (const name of Object.keys(many).slice(0, 4)) await readWhole(fileSystem, name);
        assert.equal(source.asked().length, 5);
    }
});

test('folders listed in order find the next ones listed', async () => {
    const files = Object.fromEntries(Object.keys(many).map((name) => [`${name}/in`, Buffer.from('text')]));
    const { source, fileSystem } = slow(files, { ahead: 8 });
    await fileSystem.readdir('/');
    for (const name of ['/f10', '/f11']) await fileSystem.readdir(name);
    await new Promise(setImmediate);
    source.asked();
    for (const name of ['/f12', '/f13', '/f14', '/f15']) {
        await fileSystem.readdir(name);
        assert.ok(!source.asked().includes(`readdir ${name}`), name);
    }
});

test('the memory is bounded, and what was used longest ago goes first', async () => {
    const files = Object.fromEntries(['/a', '/b', '/c'].map((name) => [name, Buffer.alloc(1000)]));
    const { source, fileSystem } = slow(files, { memory: 3500 }); // room for two files and some attributes
    await fileSystem.readdir('/');
    for (const name of ['/a', '/b', '/a', '/c']) await readWhole(fileSystem, name, 1000);
    source.asked();
    await readWhole(fileSystem, '/c', 1000);
    await readWhole(fileSystem, '/a', 1000);
    assert.deepEqual(source.asked(), []);
    await readWhole(fileSystem, '/b', 1000);
    assert.deepEqual(source.asked(), ['read /b 0']);
});

test('what is larger than the memory is given all the same', async () => {
    const { source, fileSystem } = slow({ '/a': Buffer.alloc(1000, 'x') }, { memory: 100 });
    assert.equal((await readWhole(fileSystem, '/a', 1000)).length, 1000);
    assert.equal((await readWhole(fileSystem, '/a', 1000)).length, 1000);
    assert.equal(source.asked().length, 4);
});

for (const [what, change] of Object.entries({
    chmod: (fileSystem) => fileSystem.chmod('/a', 0o600),
    utimes: (fileSystem) => fileSystem.utimes('/a', new Date()),
    unlink: (fileSystem) => fileSystem.unlink('/a'),
    'rename away': (fileSystem) => fileSystem.rename('/a', '/c'),
    'rename onto': (fileSystem) => fileSystem.rename('/b', '/a'),
    'mkdir': (fileSystem) => fileSystem.mkdir('/a'),
    async write(fileSystem) {
        await fileSystem.write(await fileSystem.open('/a', writing), 0, Buffer.from('new'));
    },
    changed: () => changed('/a'),
    'changed of the folder': () => changed(['/nothing', '/']),
})) {
    test(`${what} drops what is known of the path, and of its folder`, async () => {
        const { source, fileSystem } = slow({ '/a': Buffer.from('one'), '/b': Buffer.from('two') });
        await fileSystem.readdir('/');
        for (const name of ['/a', '/b']) await readWhole(fileSystem, name);
        await change(fileSystem);
        source.files.set('/a', Buffer.from('new'));
        source.asked();
        assert.equal(await readWhole(fileSystem, '/a'), 'new');
        await fileSystem.readdir('/');
        assert.deepEqual(source.asked(), ['getattr /a', 'read /a 0', 'readdir /']);
    });
}

test('a change of a folder drops what is beneath it, and nothing else', async () => {
    const { source, fileSystem } = slow({ '/d/a': Buffer.from('one'), '/da': Buffer.from('two') });
    for (const name of ['/d/a', '/da']) await readWhole(fileSystem, name);
    changed('/d');
    source.asked();
    for (const name of ['/d/a', '/da']) await readWhole(fileSystem, name);
    assert.deepEqual(source.asked(), ['getattr /d/a', 'read /d/a 0']);
});

test('an answer that was asked for before a change is not kept', async () => {
    const { source, fileSystem } = slow({ '/a': Buffer.from('one') });
    source.isHeld = true;
    const before = fileSystem.getattr('/a');
    await new Promise(setImmediate);
    changed('/a');
    const after = fileSystem.getattr('/a');
    const [first, second] = source.held;
    second();
    await after;
    first();
    await before;
    assert.equal(source.asked().length, 2);
    await fileSystem.getattr('/a');
    assert.equal(source.asked().length, 0, 'the later one is');
});

test('nor is one when many changes came meanwhile', async () => {
    const { source, fileSystem } = slow({ '/a': Buffer.from('one') });
    source.isHeld = true;
    const before = fileSystem.getattr('/a');
    changed('/a');
    for (let index = 0; index < 1500; index++) changed(`/other/${index}`);
    source.letGo();
    await before;
    source.asked();
    await fileSystem.getattr('/a');
    assert.deepEqual(source.asked(), ['getattr /a']);
});

test('any number of changes drops what it should, and nothing else', async () => {
    const { source, fileSystem } = slow({ '/a': Buffer.from('one'), '/b': Buffer.from('two') });
    for (const name of ['/a', '/b']) await fileSystem.getattr(name);
    for (let index = 0; index < 1500; index++) changed(`/other/${index}`);
    changed('/a');
    for (let index = 0; index < 1500; index++) changed(`/other/${index}`);
    source.asked();
    for (const name of ['/a', '/b']) await fileSystem.getattr(name);
    assert.deepEqual(source.asked(), ['getattr /a']);
});

test('whoever has a file open goes on with it when its name means something else', async () => {
    const memory = new MemoryFileSystem();
    const fileSystem = cached(memory);
    const make = async (path, text) => {
        const open = await fileSystem.open(path, { read: true, write: true, create: true, truncate: false });
        await fileSystem.write(open, 0, Buffer.from(text));
        await fileSystem.release(open);
    };
    await make('/a', 'first');
    await make('/b', 'other');
    const open = await fileSystem.open('/a', reading); // nothing was read yet
    await fileSystem.rename('/b', '/a');
    const buffer = Buffer.alloc(10);
    const got = await fileSystem.read(open, 0, 10, buffer);
    assert.equal(String(typeof got === 'number' ? buffer.subarray(0, got) : got), 'first');
    await fileSystem.release(open);
    assert.equal(await readWhole(fileSystem, '/a'), 'other');
});

test('every file that was opened is given back', async () => {
    const { source, tree } = slow(many);
    let open = 0;
    const counted = {
        ...tree,
        open: async (path) => (open++, path),
        release: async () => void open--,
    };
    const fileSystem = cached(counted, { ahead: 8 });
    await fileSystem.readdir('/');
    for (const name of Object.keys(many)) await readWhole(fileSystem, name);
    await new Promise(setImmediate);
    assert.equal(source.asked().length, 41);
    assert.equal(open, 0);
});

test('only what the slow file system has is there', () => {
    const { tree } = slow({});
    const { getattr, readdir, read } = tree;
    const readOnly = cached({ getattr, readdir, read });
    for (const name of ['write', 'mkdir', 'unlink', 'rename', 'chmod', 'utimes', 'statfs']) {
        assert.equal(readOnly[name], undefined, name);
    }
});

test('wrong options and contents are told', async () => {
    const { tree } = slow({ '/a': Buffer.from('one') });
    assert.throws(() => cached({}), /^TypeError: cached: the file system has no function getattr/);
    assert.throws(() => cached(tree, { ttl: '10s' }), /cached: ttl is "10s" \(a string\); it must be a whole number/);
    assert.throws(() => cached(tree, { size: 1 }), /cached: there is no option size; there are memory, ttl/);
    const wrong = cached({ ...tree, read: async () => 'text' });
    await assert.rejects(readWhole(wrong, '/a'), /what read of \/a gave is "text" \(a string\)/);
});
