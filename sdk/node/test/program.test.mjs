// The launcher of helpers in other languages.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { betweenPipes, Driver, helperCommand, temporaryFolder } from './driver.mjs';

// Tells of itself, then copies its input until it ends.
const echo = 'echo "$$ $PPID $KEMVI_LAUNCHER $1 $2"; exec cat';

/**
 * The launcher with a configuration in a folder of its own.
 * @param {import('node:test').TestContext} t
 * @param {unknown} command
 * @param {Record<string, string>} [environment]
 */
function launcher(t, command, environment = {}) {
    const source = temporaryFolder(t);
    fs.writeFileSync(path.join(source, 'mount-config.json'), JSON.stringify({ helperCommand: command }));
    const settings = { KEMVI_SOURCE: source, KEMVI_BECOME: '', NODE_OPTIONS: '', ...environment };
    return new Driver(t, helperCommand('program'), settings);
}

// A stand-in for what later versions of node have: it says what it was given, and ends as a program that took over would.
const standIn = `
process.execve = (file, args, environment) => {
    require('fs').writeSync(1, JSON.stringify({ file, args, home: environment.HOME }) + '\\n');
    process.exit(7);
};`;

test('a program gets the streams, its arguments as they are, and the number of the process it is to end with', async (t) => {
    const helper = launcher(t, ['sh', '-c', echo, 'sh', 'a b', '$(c) "d"']);
    const [own, parent, told, ...rest] = (await helper.line()).split(' ');
    assert.equal(Number(parent), helper.child.pid);
    assert.equal(told, parent);
    assert.notEqual(own, parent);
    assert.equal(rest.join(' '), 'a b $(c) "d"');
    helper.send('line one\n');
    assert.equal(await helper.line(), 'line one');
    assert.equal(await helper.end(), 0);
});

test('a host may tell the command, which is not passed on', async (t) => {
    const told = JSON.stringify(['sh', '-c', 'echo "told ${KEMVI_COMMAND-no command}"']);
    const helper = launcher(t, ['no such program'], { KEMVI_COMMAND: told });
    assert.equal(await helper.line(), 'told no command');
    const wrong = launcher(t, ['sh'], { KEMVI_COMMAND: '["sh", 7]' });
    assert.equal(await wrong.exit, 1);
    assert.match(wrong.stderr, /^kemvi-helper: KEMVI_COMMAND must be an array of strings: .*\n$/);
});

test('a helper becomes the program where node can', async (t) => {
    const script = path.join(temporaryFolder(t), 'execve.cjs');
    fs.writeFileSync(script, standIn);
    const helper = launcher(t, ['sh', '-c', 'x'], { NODE_OPTIONS: `--require ${script}`, HOME: '/home of mine' });
    const { file, args, home } = JSON.parse(await helper.line());
    assert.match(file, /^\/.*\/sh$/);
    assert.deepEqual(args, [file, '-c', 'x']);
    assert.equal(home, '/home of mine');
    assert.equal(await helper.exit, 7);
});

const become = process.env.KEMVI_TEST_BECOME;
test('a helper becomes the program with what the kemvi command brings', { skip: !become }, async (t) => {
    const helper = launcher(t, ['sh', '-c', echo, 'sh', 'a\nb', ''], { KEMVI_BECOME: become });
    assert.match(await helper.line(), new RegExp(`^${helper.child.pid} ${process.pid}  a$`));
    assert.equal(await helper.line(), 'b ');
    helper.send('line one\n');
    assert.equal(await helper.line(), 'line one');
    const environment = fs.readFileSync(`/proc/${helper.child.pid}/environ`, 'utf8');
    assert.doesNotMatch(environment, /KEMVI_BECOME_/);
    const status = fs.readFileSync(`/proc/${helper.child.pid}/status`, 'utf8');
    assert.match(status, /^SigIgn:\t0000000000000000$/m);
    assert.equal(await helper.end(), 0);
});

test('the exit status is passed on', async (t) => {
    assert.equal(await launcher(t, ['sh', '-c', 'exit 42']).exit, 42);
    assert.equal(await launcher(t, ['sh', '-c', 'kill -KILL $$']).exit, 'SIGKILL');
    assert.equal(await launcher(t, ['sh', '-c', 'kill -TERM $$']).exit, 'SIGTERM');
});

test('signals are passed on', async (t) => {
    for (const signal of ['SIGTERM', 'SIGINT', 'SIGHUP', 'SIGUSR1']) {
        const caught = `trap 'echo caught; exit 3' ${signal.slice(3)}; echo ready; while :; do sleep 0.1; done`;
        const helper = launcher(t, ['sh', '-c', caught]);
        assert.equal(await helper.line(), 'ready');
        helper.child.kill(signal);
        assert.equal(await helper.line(), 'caught', signal);
        assert.equal(await helper.exit, 3);
    }
});

test('a stream that the program closes is closed for its other side too', async (t) => {
    const helper = launcher(t, ['sh', '-c', 'echo open; exec >&-; cat >/dev/null']);
    assert.equal(await helper.line(), 'open');
    await assert.rejects(helper.line(), /closed its output/);
    assert.equal(await helper.end(), 0);
});

test('much goes through pipes without a copy of it in between', async (t) => {
    const source = temporaryFolder(t);
    fs.writeFileSync(path.join(source, 'mount-config.json'), JSON.stringify({ helperCommand: ['cat'] }));
    const helper = new Driver(t, betweenPipes(helperCommand('program')), { KEMVI_SOURCE: source, KEMVI_BECOME: '' });
    const line = 'x'.repeat(3 << 20);
    helper.send(line + '\n');
    assert.equal(await helper.line(), line);
    await helper.end();
    assert.match(helper.stderr, /exit status 0/);
});

test('what is wrong with the command is said in one line', async (t) => {
    for (const command of [undefined, 'sh', [], [''], ['sh', 5], ['sh\0']]) {
        const helper = launcher(t, command);
        assert.equal(await helper.exit, 1);
        assert.match(helper.stderr, /^kemvi-helper: \/.*mount-config.json: helperCommand must be an array .*\n$/);
    }
    for (const command of [['/no/such program'], ['no such program'], ['/dev/null'], ['/tmp']]) {
        const helper = launcher(t, command);
        assert.equal(await helper.exit, 1);
        assert.match(helper.stderr, /^kemvi-helper: .*\n$/, command[0]);
    }
    const [node, script] = helperCommand('program');
    const untold = spawnSync(node, [script], { env: { ...process.env, KEMVI_SOURCE: '' }, encoding: 'utf8' });
    assert.match(untold.stderr, /^kemvi-helper: KEMVI_SOURCE is not set; .*\n$/);
});
