// The best loop that can be written by hand, for six operations and nothing else: no checks, no errors, no other
// operations. What the kit's loop is measured against.
import fs from 'node:fs';
import { compileLate } from '../../sdk/node/src/compilation.mjs';

/**
 * @param {object} codec `allocate`, `encode` and `decodeInPlace`, as the kit's
 */
export function runBareLoop(codec) {
    compileLate(); // as the helpers that ship do: what is compared is the loops, not how far they have been compiled
    const root = process.env.KEMVI_REPO_ROOT;
    const input = codec.allocate(2 << 20);
    const output = codec.allocate(256 * 1024);
    const scratch = codec.allocate(1 << 20);
    const dataKey = Buffer.from('"dataBase64":"');
    let used = 0;

    function send() {
        for (let sent = 0; sent < used; ) sent += fs.writeSync(1, output, sent, used - sent);
        used = 0;
    }

    function read({ id, handle, offset, length }) {
        const count = fs.readSync(handle, scratch, 0, length, offset);
        used += output.latin1Write(`{"id":"${id}","ok":true,"dataBase64":"`, used);
        for (let position = 0; position < count; position += 49152) {
            used += codec.encode(scratch, position, Math.min(position + 49152, count), output, used);
            if (used >= 65536) send();
        }
        used += output.latin1Write('"}\n', used);
        send();
    }

    function write(start, end) {
        const dataStart = input.indexOf(dataKey, start) + dataKey.length;
        const dataEnd = input.indexOf(34, dataStart);
        const request = JSON.parse(input.latin1Slice(start, dataStart) + input.latin1Slice(dataEnd, end));
        const decodedEnd = codec.decodeInPlace(input, dataStart, dataEnd);
        fs.writeSync(request.handle, input, dataStart, decodedEnd - dataStart, request.offset);
        used = output.latin1Write(`{"id":"${request.id}","ok":true}\n`, 0);
        send();
    }

    function statText(path, name) {
        const stat = fs.lstatSync(root + path);
        return `{"path":"${path}","name":"${name}","isDirectory":${stat.isDirectory()},"size":${
            stat.size
        },"modifiedAt":"${stat.mtime.toISOString()}"}`;
    }

    function answer(start, end) {
        if (end - start > 512) return write(start, end);
        const request = JSON.parse(input.latin1Slice(start, end));
        if (request.op === 'read') return read(request);
        let result = '';
        if (request.op === 'getattr') {
            result = `,"result":${statText(request.path, request.path.slice(request.path.lastIndexOf('/') + 1))}`;
        } else if (request.op === 'readdir') {
            const members = fs.readdirSync(root + request.path).map((name) => statText(`${request.path}/${name}`, name));
            result = `,"result":[${members.join(',')}]`;
        } else if (request.op === 'open') {
            const { O_RDWR, O_CREAT, O_RDONLY } = fs.constants;
            const flags = request.flags.includes('write') ? O_RDWR | O_CREAT : O_RDONLY;
            result = `,"result":{"handle":${fs.openSync(root + request.path, flags, 0o666)}}`;
        }
        used = output.latin1Write(`{"id":"${request.id}","ok":true${result}}\n`, 0);
        send();
    }

    let begin = 0;
    let end = 0;
    for (;;) {
        const count = fs.readSync(0, input, end, input.length - end, null);
        if (count === 0) break;
        const scanned = end;
        end += count;
        let newline = input.indexOf(10, scanned);
        while (newline >= 0 && newline < end) {
            answer(begin, newline);
            begin = newline + 1;
            newline = begin < end ? input.indexOf(10, begin) : -1;
        }
        if (begin === end) begin = end = 0;
    }
}
