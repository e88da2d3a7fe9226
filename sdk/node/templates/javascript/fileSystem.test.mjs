// The file system by itself, asked as a mount would ask it.
import assert from 'node:assert/strict';
import test from 'node:test';
import { mountless } from 'kemvi-helper/testing';
import { fileSystem } from './fileSystem.mjs';

test('hello.txt says hello', async () => {
    const tree = mountless(fileSystem);
    assert.deepEqual(await tree.readdir('/'), ['hello.txt', 'system']);
    assert.equal(await tree.readFile('/hello.txt', 'utf8'), 'Hello from {{NAME}}.\n');
});

test('what does not exist is ENOENT', async () => {
    const tree = mountless(fileSystem);
    await assert.rejects(tree.readFile('/none'), { code: 'ENOENT' });
});

test('a mount would find nothing wrong', async () => {
    await mountless(fileSystem).check();
});
