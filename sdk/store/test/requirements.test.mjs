// That a store is what a mount requires, by the rules of `kemvi check`.
import { test } from 'node:test';
import { mountless } from 'kemvi-helper/testing';
import { openStore } from '../src/openStore.mjs';
import { readSettings } from '../src/settings.mjs';
import { noServer, scratchFolder, Server } from './engines.mjs';

/** @param {string} address */
async function examine(address) {
    const fileSystem = await openStore(readSettings({ KEMVI_STORE: address }), { changed: () => {}, say: () => {} });
    await mountless(fileSystem, { limit: 60_000 }).check(); // which ends it
}

test('pglite: what a mount requires holds', () => examine(`pglite:${scratchFolder()}/store`));
test('postgres: what a mount requires holds', { skip: noServer }, () => examine(new Server().url));
