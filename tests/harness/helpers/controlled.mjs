// The helper of the mount tests: the real one behind a recorder and a set of rules that the test changes while it runs.
//
// KEMVI_TEST_CONTROL names a folder: requests.jsonl (written here: every request, the bytes of a write as "size"),
// rules.json (read here before every request), blocked.json (written here while a request sleeps).
// KEMVI_TEST_INNER names the script of the real helper.
import fs from 'node:fs';
import path from 'node:path';
import { setTimeout as pause } from 'node:timers/promises';
import { Inner } from './inner.mjs';
import { lines } from './lines.mjs';

const folder = process.env.KEMVI_TEST_CONTROL;
const root = process.env.KEMVI_REPO_ROOT;
const inner = new Inner(process.env.KEMVI_TEST_INNER);
const log = fs.openSync(path.join(folder, 'requests.jsonl'), 'a');

const openedAt = new Map(); // handle -> path
const counts = new Map(); // number of a rule -> requests that it fitted

const rules = () => JSON.parse(fs.readFileSync(path.join(folder, 'rules.json'), 'utf8'));
const reach = (served) => path.join(root, served);

function record(request) {
  const { dataBase64, ...told } = request;
  if (dataBase64 !== undefined) told.size = Buffer.byteLength(dataBase64, 'base64');
  fs.writeSync(log, `${JSON.stringify(told)}\n`);
}

function fits(rule, request) {
  const where = request.path ?? request.oldPath;
  return (rule.op === null || rule.op === request.op) && (rule.path === null || rule.path === where);
}

async function sleepWhile(rule, request) {
  const note = path.join(folder, 'blocked.json');
  fs.writeFileSync(`${note}.new`, JSON.stringify(request.op === 'write' ? { ...request, dataBase64: '' } : request));
  fs.renameSync(`${note}.new`, note);
  while (rules().some((other) => other.number === rule.number)) await pause(2);
  fs.rmSync(note, { force: true });
}

const failure = (request, code, message) => ({ id: request.id, ok: false, error: { code, message } });
const listed = (request, name, size = 0) => ({
  path: path.posix.join(request.path, name), name, isDirectory: false, size, modifiedAt: '2024-01-01T00:00:00.000Z',
});

// Each action gets the rule, the request and a function that hands a request on; it returns the answer.
const actions = {
  async block(rule, request, next) {
    await sleepWhile(rule, request);
    return next(request);
  },
  async blockAfter(rule, request, next) {
    const answer = await next(request);
    await sleepWhile(rule, request);
    return answer;
  },
  async delay(rule, request, next) {
    await pause(rule.milliseconds);
    return next(request);
  },
  fail: (rule, request) => failure(request, rule.code, rule.message),
  // A file of which every handle is in trouble, the others' are not.
  failOpenedAt: (rule, request, next) =>
    openedAt.get(request.handle) === rule.opened ? failure(request, rule.code, rule.message) : next(request),
  failCopies: (rule, request, next) =>
    (request.path ?? openedAt.get(request.handle) ?? '').includes('-head-of-')
      ? failure(request, rule.code, rule.message) : next(request),
  failNameless: (rule, request) => ({ id: request.id, ok: false, error: { message: rule.message } }),
  // Does the work and reports that it failed, as a helper does that notices a full disk too late.
  async failAfter(rule, request, next) {
    await next(request);
    return failure(request, rule.code, rule.message);
  },
  failReadsFrom: (rule, request, next) =>
    request.offset >= rule.offset ? failure(request, rule.code, rule.message) : next(request),
  // A disk with no room behind an offset.
  failWritesFrom: (rule, request, next) =>
    request.offset >= rule.offset ? failure(request, rule.code, rule.message) : next(request),
  shortReads: (rule, request, next) => next({ ...request, length: Math.min(request.length, rule.most) }),
  longReads: (rule, request, next) => next({ ...request, length: request.length + rule.extra }),
  // A rename never replaces: a helper over a store that lacks the call.
  renameRefusesExisting: (rule, request, next) =>
    fs.existsSync(reach(request.newPath))
      ? failure(request, rule.code ?? 'EEXIST', 'there is something of that name') : next(request),
  // A store that knows no upper case: it finds every name, and tells the one that it keeps.
  ignoresCase(rule, request, next) {
    const folded = { ...request };
    for (const key of ['path', 'oldPath', 'newPath']) if (folded[key]) folded[key] = folded[key].toLowerCase();
    return next(folded);
  },
  recursiveUnlink(rule, request) {
    fs.rmSync(reach(request.path), { recursive: true });
    return { id: request.id, ok: true };
  },
  async oddNames(rule, request, next) {
    const answer = await next(request);
    answer.result.push(...rule.names.map((name) => listed(request, name)));
    return answer;
  },
  // Says that it does not know how much there is to read.
  async hidesSize(rule, request, next) {
    const answer = await next(request);
    for (const told of [answer.result ?? []].flat()) if (told.path === rule.of) told.size = -1;
    return answer;
  },
  // Tells other paths than those of folder and name, as a helper does that has links of its own.
  async reportsPaths(rule, request, next) {
    const answer = await next(request);
    for (const told of [answer.result ?? []].flat()) if (rule.paths[told.path]) told.path = rule.paths[told.path];
    return answer;
  },
  // Not process.exit, which would wait for the read of standard input that is under way.
  die: () => process.kill(process.pid, 'SIGKILL'),
  // The same, but not that of the next helper.
  dieOnce(rule, request, next) {
    const mark = path.join(folder, `died-${rule.number}`);
    if (fs.existsSync(mark)) return next(request);
    fs.writeFileSync(mark, '');
    return process.kill(process.pid, 'SIGKILL');
  },
  // Does not answer, but the next helper does.
  async hangOnce(rule, request, next) {
    const mark = path.join(folder, `hung-${rule.number}`);
    if (fs.existsSync(mark)) return next(request);
    fs.writeFileSync(mark, '');
    for (;;) await pause(1000);
  },
  // Lives on, but neither answers nor reads any more.
  async closeOutput() {
    fs.closeSync(1);
    for (;;) await pause(1000);
  },
  // The host and the helper die together, before such a request for the `nth` time.
  killAllAt(rule, request, next) {
    const count = (counts.get(rule.number) ?? 0) + 1;
    counts.set(rule.number, count);
    if (count < rule.nth) return next(request);
    process.kill(process.ppid, 'SIGKILL');
    process.kill(inner.child.pid, 'SIGKILL');
    return process.kill(process.pid, 'SIGKILL');
  },
  // One line too many: from here on every answer is that of the request before.
  extraLine(rule, request, next) {
    fs.writeSync(1, `${JSON.stringify({ id: '0', ok: true })}\n`);
    return next(request);
  },
  // The same, but not by the next helper.
  extraLineOnce(rule, request, next) {
    const mark = path.join(folder, `extra-${rule.number}`);
    if (!fs.existsSync(mark)) {
      fs.writeFileSync(mark, '');
      fs.writeSync(1, `${JSON.stringify({ id: '0', ok: true })}\n`);
    }
    return next(request);
  },
  garbage(rule) {
    fs.writeSync(1, `${rule.text ?? 'this is not JSON'}\n`);
    return undefined;
  },
};

async function exchanged(line, request) {
  const answer = await inner.exchange(line);
  if (request.op === 'open') {
    const { ok, result } = JSON.parse(answer);
    if (ok) openedAt.set(result.handle, request.path);
  }
  return answer;
}

async function askInner(request) {
  return JSON.parse(await exchanged(Buffer.from(JSON.stringify(request)), request));
}

async function answerTo(line, request) {
  const active = rules().filter((rule) => fits(rule, request) && actions[rule.action]);
  if (active.length === 0) return exchanged(line, request);
  const run = (index, asked) =>
    index === active.length ? askInner(asked) : actions[active[index].action](active[index], asked, (r) => run(index + 1, r));
  const answer = await run(0, request);
  return answer === undefined ? undefined : Buffer.from(JSON.stringify(answer));
}

// Nobody reads the answer when the host was killed meanwhile.
process.on('uncaughtException', (error) => {
  if (error.code !== 'EPIPE') console.error(error);
  process.kill(process.pid, 'SIGKILL');
});

function send(answer) {
  if (rules().some((rule) => rule.action === 'bytewise')) {
    for (const byte of answer) fs.writeSync(1, Buffer.of(byte));
    fs.writeSync(1, '\n');
    return;
  }
  const whole = Buffer.concat([answer, Buffer.of(10)]);
  for (let at = 0; at < whole.length;) at += fs.writeSync(1, whole, at);
}

for await (const line of lines(fs.createReadStream(null, { fd: 0, autoClose: false }))) {
  const request = JSON.parse(line);
  record(request);
  const answer = await answerTo(line, request);
  if (answer !== undefined) send(answer);
}
if (rules().some((rule) => rule.action === 'neverExits')) {
  fs.writeFileSync(path.join(folder, 'endOfInput'), '');
  await new Promise((resolve) => setInterval(() => rules().some((rule) => rule.action === 'neverExits') || resolve(), 5));
}
await inner.end();
process.exit(0);
