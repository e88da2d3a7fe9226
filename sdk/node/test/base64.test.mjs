// Both ways to encode and decode, against node's own.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { randomBytes } from 'node:crypto';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { VectorCodec } from '../src/base64/codec.mjs';
import { moduleText } from '../src/base64/build.mjs';
import { PlainCodec } from '../src/base64/plain.mjs';
import { packageFolder } from './driver.mjs';

const sizes = [...Array(150).keys(), 12_287, 12_288, 36_863, 36_864, 49_151, 49_152, 49_153, 65_536, 100_000, 200_001];

for (const [name, Codec, own] of [
    ['vectors', VectorCodec, true], ['vectors, buffers of others', VectorCodec, false], ['plain', PlainCodec, false],
]) {
    const codec = new Codec();
    const buffer = (size) => (own ? codec.allocate(size) : Buffer.alloc(size));
    const source = buffer(200_100);
    const text = buffer(600_000);

    test(`${name}: every length encodes as node does`, () => {
        for (const size of sizes) {
            const data = randomBytes(size);
            data.copy(source, 5);
            const length = codec.encode(source, 5, 5 + size, text, 7);
            assert.equal(text.latin1Slice(7, 7 + length), data.toString('base64'), `${size} bytes`);
        }
    });

    test(`${name}: every length decodes in place, slashes escaped or not, and what follows stays`, () => {
        for (const size of sizes) {
            for (const data of [randomBytes(size), Buffer.alloc(size, 255), Buffer.alloc(size, 0x3f)]) {
                const plain = data.toString('base64');
                for (const written of [plain, plain.replaceAll('/', '\\/')]) {
                    const end = 9 + text.latin1Write(written, 9);
                    text.latin1Write('"}\\/follows', end);
                    assert.equal(codec.decodeInPlace(text, 9, end), 9 + size, `${size} bytes`);
                    assert.ok(text.subarray(9, 9 + size).equals(data), `${size} bytes`);
                    assert.equal(text.latin1Slice(end, end + 11), '"}\\/follows');
                }
            }
        }
    });

    test(`${name}: escaped slashes decode wherever they stand`, () => {
        const letters = 'A'.repeat(132);
        for (let first = 0; first < letters.length; first++) {
            for (let second = first; second < letters.length; second++) {
                const characters = [...letters];
                characters[first] = characters[second] = '/';
                const data = Buffer.from(characters.join(''), 'base64');
                characters[first] = characters[second] = '\\/';
                const length = text.latin1Write(characters.join(''), 0);
                assert.equal(codec.decodeInPlace(text, 0, length), data.length, `at ${first} and ${second}`);
                assert.ok(text.subarray(0, data.length).equals(data), `at ${first} and ${second}`);
            }
        }
    });

    test(`${name}: escaped slashes decode across the borders of the pieces that a long text is taken in`, () => {
        for (const border of [4096, 8192, 49_152, 65_536]) {
            for (let before = 0; before <= 40; before++) {
                for (const slashes of [1, 2, 3, 33]) {
                    const plain = 'B'.repeat(border - before) + '/'.repeat(slashes);
                    const whole = plain + 'C'.repeat(60 + ((4 - (plain.length % 4)) % 4));
                    const data = Buffer.from(whole, 'base64');
                    const length = text.latin1Write(whole.replaceAll('/', '\\/'), 3);
                    assert.equal(codec.decodeInPlace(text, 3, 3 + length), 3 + data.length, `${before}, ${slashes}`);
                    assert.ok(text.subarray(3, 3 + data.length).equals(data), `${before}, ${slashes}`);
                }
            }
        }
    });

    test(`${name}: a backslash that precedes no slash is refused wherever it stands`, () => {
        const right = 'D'.repeat(128);
        for (const wrong of ['\\', '\\\\', '\\\\/', '\\/\\', '\\n', '\\/\\/\\D']) {
            const others = right.length - wrong.replaceAll('\\', '').length; // a whole text but for the backslashes
            for (let place = 0; place <= others; place++) {
                const written = right.slice(0, place) + wrong + right.slice(0, others - place);
                const length = text.latin1Write(written, 0);
                text[length] = 0x2f; // what follows the text is not part of it
                assert.equal(codec.decodeInPlace(text, 0, length), -1, `${wrong} at ${place}`);
            }
        }
    });

    test(`${name}: a text with one wrong character anywhere is refused`, () => {
        for (const size of [3, 36, 90, 60_000]) {
            const right = Buffer.from(randomBytes(size).toString('base64').replaceAll('/', '\\/'));
            for (const wrong of [0, 0x20, 0x22, 0x2d, 0x3d, 0x5c, 0x5f, 0x80, 0xff]) {
                for (let round = 0; round < 20; round++) {
                    right.copy(text, 0);
                    text[Math.floor(Math.random() * right.length)] = wrong;
                    const shown = text.latin1Slice(0, right.length).replaceAll('\\/', '/');
                    const valid = /^[A-Za-z0-9+/]*={0,2}$/.test(shown) && shown.length % 4 === 0;
                    assert.equal(codec.decodeInPlace(text, 0, right.length) >= 0, valid, shown.slice(0, 100));
                }
            }
        }
    });
}

function compiler() {
    try {
        return ['clang-14', 'wasm-ld-14'].map((program) => execFileSync(program, ['--version']));
    } catch {
        return undefined;
    }
}

const skip = compiler() === undefined && 'clang-14 or lld-14 is not installed';

test('the module that ships is what its source gives', { skip }, () => {
    const shipped = fs.readFileSync(path.join(packageFolder, 'src/base64/base64Module.mjs'), 'utf8');
    assert.equal(shipped, moduleText(), 'out of date: node src/base64/build.mjs');
});
