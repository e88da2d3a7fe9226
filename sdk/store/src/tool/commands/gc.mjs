// kemvi-store gc: removes what nothing needs any more.
import { leastAge, removeGarbage } from '../../contents/garbage.mjs';
import { leastRequestId } from '../../engine/requestId.mjs';
import { treeOption } from '../arguments.mjs';
import { ExitCode, UsageError } from '../failures.mjs';
import { countGarbage } from '../garbageCount.mjs';
import { withTree } from '../openTree.mjs';
import { readPlace } from '../place.mjs';
import { Progress } from '../progress.mjs';
import { countText, parseDuration } from '../text.mjs';

const forgottenAge = 3_600_000; // milliseconds, after which no answer to a request is awaited any more

/** @type {import('../arguments.mjs').Command} */
export const command = {
    name: 'gc',
    summary: 'remove objects that nothing names any more',
    about: 'Removes objects that were replaced, objects that a helper has put away and never committed, and what is remembered of ' +
        'old requests. Nothing that is in use or may come to be is removed, so mounts can go on meanwhile; run it once a day.',
    takes: [{ word: 'SOURCE' }],
    options: {
        ...treeOption,
        'older-than': { value: 'AGE', help: 'leave what is younger, such as 2h or 7d (default and least: 1h)' },
        unmounted: { help: 'no machine has the tree mounted: then an age of less than 1h is taken' },
        'dry-run': { help: 'remove nothing, and tell what would be' },
    },
    run({ words, options }) {
        const place = readPlace(/** @type {string} */ (words.SOURCE), options);
        const text = options['older-than'];
        const age = text === undefined ? leastAge : parseDuration('older-than', text);
        // An embedded store serves one process at a time, which is this one now.
        if (age < leastAge && !options.unmounted && place.store.kind !== 'pglite') {
            throw new UsageError(`--older-than: ${text} is less than 1h, in which a mount may still be about to name an object; ` +
                'add --unmounted when no machine has the tree mounted');
        }
        return withTree(place, async (open) => {
            if (options['dry-run']) tell('would remove', await countGarbage(open, age));
            else tell('removed', await collect(open, age));
            return ExitCode.success;
        });
    },
};

/** @param {import('../openTree.mjs').OpenTree} open @param {number} age milliseconds */
async function collect(open, age) {
    const progress = await Progress.start('objects looked at', undefined);
    try {
        const done = await removeGarbage(open, { age, onProgress: ({ looked }) => progress.at(looked) });
        const before = leastRequestId(Date.now() - forgottenAge);
        await open.engine.query('select kemvi_store.trim($1, $2)', [open.tree.id, before]);
        return done;
    } finally {
        progress.end();
    }
}

/** @param {string} verb @param {{looked: number, removed: number, uploads: number}} done */
function tell(verb, { looked, removed, uploads }) {
    console.log(`${verb} ${countText(removed, 'object')} and ${countText(uploads, 'upload')} that nobody goes on with; ` +
        `looked at ${countText(looked, 'object')}`);
}
