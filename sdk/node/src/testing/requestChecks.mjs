// What must be answered to requests that cannot succeed, and to long lines.

const missing = '/kemvi-check: no such name';

/** @param {import('./conversation.mjs').Conversation} talk */
export async function checkRequests(talk) {
    await checkMissingName(talk);
    for (const size of [1 << 20, 16 << 20]) if (talk.available()) await checkLongLine(talk, size);
}

/** @param {import('./conversation.mjs').Conversation} talk */
async function checkMissingName(talk) {
    for (const [op, fields] of /** @type {[string, object][]} */ ([['getattr', {}], ['open', { flags: ['read'] }]])) {
        const answer = await talk.ask(op, { path: missing, ...fields });
        if (!answer.came || answer.code === 'ENOENT') continue;
        const problem = answer.ok ? 'success' : `the code is "${answer.code}"`;
        const consequence =
            'no new file can be made: programs take the name for taken, or see an input/output error';
        talk.findings.add('missingNames', 'error', problem, consequence, answer);
        if (answer.ok && op === 'open') await talk.ask('release', { handle: answer.result.handle });
    }
}

/**
 * @param {import('./conversation.mjs').Conversation} talk
 * @param {number} size
 */
async function checkLongLine(talk, size) {
    const answer = await talk.ask('getattr', { path: '/' + 'x'.repeat(size) });
    if (!answer.came) {
        const problem = `a line of ${size} bytes was not answered`;
        talk.findings.add('longLines', 'error', problem, 'large writes fail or hang', answer);
    } else if (answer.ok) {
        const problem = `success for a name of ${size} bytes`;
        talk.findings.add('longLines', 'warning', problem, 'names are shown that no kernel takes', answer);
    }
}
