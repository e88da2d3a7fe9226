// What --help shows.

/** @typedef {import('./arguments.mjs').Command} Command */

const width = 110;
const column = 26;

/** @param {Command[]} commands */
export function toolHelp(commands) {
    return [
        'Usage: kemvi-store COMMAND SOURCE ...',
        '',
        ...commands.map(({ name, summary }) => `  ${name.padEnd(8)}  ${summary}`),
        '',
        ...wrapped(
            'SOURCE is a directory with a mount-config.json that "kemvi init --store" has made, or the address of the store itself: ' +
                'pglite:DIR, or postgres://[USER@]HOST[:PORT][,HOST[:PORT]...]/DATABASE; its tree is "main", or that of --tree.',
        ),
        '',
        ...wrapped(
            'Passwords and keys are never given here: they come from ~/.pgpass, from where the AWS tools have theirs, or from ' +
                'mount-secrets.env beside the mount-config.json.',
        ),
        '',
        'kemvi-store COMMAND --help tells more. Exit codes: 0 done, 1 not done, 3 done but for what was named, 4 damage was found and is left.',
    ].join('\n');
}

/** @param {Command} command */
export function commandHelp({ name, about, takes, options }) {
    const words = takes.map(({ word, isOptional }) => (isOptional ? `[${word}]` : word));
    const rows = Object.entries(options).map(([option, { value, help }]) => [`--${option}${value ? ` ${value}` : ''}`, help]);
    return [
        `Usage: kemvi-store ${name} ${words.join(' ')}${rows.length > 0 ? ' [OPTION...]' : ''}`,
        '',
        ...wrapped(about),
        ...(rows.length > 0 ? [''] : []),
        ...rows.flatMap(([left, right]) => {
            const lines = wrapped(right, width - column);
            return lines.map((line, at) => (at === 0 ? `  ${left}`.padEnd(column - 1) + ` ${line}` : ' '.repeat(column) + line));
        }),
    ].join('\n');
}

/** @param {string} text @param {number} [most] */
function wrapped(text, most = width) {
    const lines = [''];
    for (const word of text.split(' ')) {
        const last = lines[lines.length - 1];
        if (last !== '' && last.length + 1 + word.length > most) lines.push(word);
        else lines[lines.length - 1] = last === '' ? word : `${last} ${word}`;
    }
    return lines;
}
