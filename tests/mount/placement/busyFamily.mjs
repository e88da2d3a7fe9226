// The shipped helper with a family: asked for "/spawn", it starts a process that lives on for a while and a worker
// thread, and notes the process's number in the served folder.
import { spawn } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { pathToFileURL } from 'node:url';
import { Worker } from 'node:worker_threads';

const kit = pathToFileURL(`${process.env.KEMVI_TEST_KIT}/`);
const { serve } = await import(new URL('src/serve.mjs', kit));
const { LocalFileSystem } = await import(new URL('src/filesystems/local.mjs', kit));

const root = process.env.KEMVI_REPO_ROOT;

class FileSystem extends LocalFileSystem {
  getattr(asked) {
    if (asked === '/spawn') {
      const child = spawn('sleep', ['30'], { stdio: 'ignore', detached: true });
      new Worker('setTimeout(() => {}, 30000)', { eval: true }).unref();
      fs.appendFileSync(path.join(root, 'started'), `${child.pid}\n`);
    }
    return super.getattr(asked);
  }
}

await serve(new FileSystem(root));
