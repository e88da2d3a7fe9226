// Serves a tree that many machines share. KEMVI_STORE and the settings beside it (src/settings.mjs) say which.
import { changed, serve } from 'kemvi-helper';
import { openStore } from '../src/openStore.mjs';
import { readSettings } from '../src/settings.mjs';

const say = (/** @type {string} */ text) => console.error(`kemvi-store: ${text}`);
const tell = process.env.KEMVI_CONTROL ? changed : () => {}; // without a mount there is nobody to tell
try {
    await serve(await openStore(readSettings(process.env), { changed: tell, say }), { loop: 'events' });
} catch (error) {
    say(/** @type {Error} */ (error).message);
    process.exitCode = 1;
}
