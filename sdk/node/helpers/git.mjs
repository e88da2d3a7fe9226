// Serves the repository in KEMVI_REPO_ROOT, read-only: branches, tags and commits as folders.
import { compileLate } from '../src/compilation.mjs';
import { serve } from '../src/serve.mjs';
import { GitFileSystem } from '../src/filesystems/git.mjs';

compileLate();

const root = process.env.KEMVI_REPO_ROOT;
try {
    if (!root) throw new Error('it is not set');
    await serve(new GitFileSystem(root));
} catch (error) {
    console.error(`kemvi-helper: cannot serve the repository in KEMVI_REPO_ROOT (${root ?? ''}): ${error.message}`);
    process.exitCode = 1;
}
