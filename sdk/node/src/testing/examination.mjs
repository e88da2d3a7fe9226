// All that `kemvi check` examines, in its order.
import { checks, readingChecks, writingChecks } from './checks.mjs';
import { checkReading } from './readChecks.mjs';
import { checkRequests } from './requestChecks.mjs';
import { checkTree } from './treeChecks.mjs';
import { checkWriting } from './writeChecks.mjs';

export const longestEnd = 5000; // milliseconds

/**
 * Examines a file system, and ends it.
 * @param {import('./conversation.mjs').Conversation} talk
 * @param {string | false} directory in which changes are tried
 * @returns {Promise<import('./findings.mjs').CheckResult>}
 */
export async function examine(talk, directory) {
    /** @type {Set<string>} */
    const skipped = new Set();
    await checkRequests(talk);
    const files = await checkTree(talk);
    if (files.length === 0) for (const check of readingChecks) skipped.add(check);
    await checkReading(talk, files);
    const isWritten = directory !== false && (await checkWriting(talk, directory));
    if (!isWritten) for (const check of writingChecks) skipped.add(check);
    await checkEnd(talk);
    const names = (/** @type {boolean} */ isSkipped) =>
        Object.keys(checks).filter((check) => skipped.has(check) === isSkipped).map((check) => checks[check]);
    return {
        errors: talk.findings.of('error'), warnings: talk.findings.of('warning'),
        examined: names(false), skipped: names(true),
    };
}

/** @param {import('./conversation.mjs').Conversation} talk */
async function checkEnd(talk) {
    const { ended, said } = await talk.end(longestEnd);
    if (ended) return;
    const problem = `release or end is not done 5 s after the end of the input${said && `; it said: ${said}`}`;
    talk.findings.add('ends', 'error', problem, 'every unmount hangs until someone kills the helper');
}
