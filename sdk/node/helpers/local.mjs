// Serves the folder in KEMVI_REPO_ROOT.
import { compileLate } from '../src/compilation.mjs';
import { serve } from '../src/serve.mjs';
import { LocalFileSystem } from '../src/filesystems/local.mjs';

compileLate();

const root = process.env.KEMVI_REPO_ROOT;
try {
    if (!root) throw new Error('it is not set');
    await serve(new LocalFileSystem(root));
} catch (error) {
    console.error(`kemvi-helper: cannot serve the folder in KEMVI_REPO_ROOT (${root ?? ''}): ${error.message}`);
    process.exitCode = 1;
}
