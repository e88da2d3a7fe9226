// A loop for helpers that misbehave in one way: answers a ping, one empty folder, and nothing else.
import { appendFileSync, existsSync, readFileSync, readSync, writeSync } from 'node:fs';

export function answer(request, members) {
    const bytes = Buffer.from(JSON.stringify({ id: request.id, ok: true, ...members }) + '\n');
    for (let done = 0; done < bytes.length; ) done += writeSync(1, bytes, done);
}

const file = { path: '/a.txt', name: 'a.txt', isDirectory: false, size: 6, modifiedAt: '2024-05-01T12:34:56.789Z' };
const usual = {
    ping: (request) => answer(request, {}),
    statfs: (request) => answer(request, { result: { files: 1, directories: 1, bytes: 6 } }),
    readdir: (request) => answer(request, { result: [file] }),
    getattr: (request) =>
        request.path === '/a.txt'
            ? answer(request, { result: file })
            : answer(request, { ok: false, error: { message: 'no such file', code: 'ENOENT' } }),
};

// Notes something for the test in a file beside the source directory.
export const note = (text) => appendFileSync(process.env.KEMVI_TEST_WORKSPACE + '/notes', text + '\n');

// What was noted so far, in this run and earlier ones.
export function notes() {
    const path = process.env.KEMVI_TEST_WORKSPACE + '/notes';
    return existsSync(path) ? readFileSync(path, 'utf8').split('\n') : [];
}

// Serves until the input ends; `special` replaces what is done for the operations named in it.
export function serve(special = {}) {
    const chunk = Buffer.alloc(1 << 20);
    let pieces = [];
    for (;;) {
        const count = readSync(0, chunk, 0, chunk.length, null);
        if (count === 0) return;
        pieces.push(Buffer.from(chunk.subarray(0, count)));
        if (chunk[count - 1] !== 10) continue;
        const lines = Buffer.concat(pieces).toString().split('\n');
        pieces = [];
        for (const line of lines.slice(0, -1)) {
            const request = JSON.parse(line);
            const act = special[request.op] ?? usual[request.op];
            if (act) act(request, answer);
            else answer(request, { ok: false, error: { message: 'not here', code: 'EROFS' } });
        }
    }
}

export const sleep = (milliseconds) => Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, milliseconds);
export const forever = () => {
    for (;;) sleep(1000);
};
