// The real helper, run as a child: every misbehaviour here is a change made to what it is asked or what it answers, so
// the tests meet the helper that users have.
import { spawn } from 'node:child_process';
import { lines } from './lines.mjs';

export class Inner {
  constructor(script) {
    this.child = spawn(process.execPath, [script], { stdio: ['pipe', 'pipe', 'inherit'] });
    this.answers = lines(this.child.stdout);
    this.ended = new Promise((resolve) => this.child.on('exit', resolve));
  }

  /** Sends one request line and returns the answer line, both Buffers without the line feed. */
  async exchange(line) {
    this.child.stdin.write(line);
    this.child.stdin.write('\n');
    const { value, done } = await this.answers.next();
    if (done) throw new Error('the inner helper ended');
    return value;
  }

  /** The same in objects, under the caller's id. */
  async ask(request) {
    return JSON.parse(await this.exchange(Buffer.from(JSON.stringify(request))));
  }

  async end() {
    this.child.stdin.end();
    await this.ended;
  }
}
