// The shipped helper, which does not end with its input.
import { pathToFileURL } from 'node:url';

const kit = pathToFileURL(`${process.env.KEMVI_TEST_KIT}/`);
const { serve } = await import(new URL('src/serve.mjs', kit));
const { LocalFileSystem } = await import(new URL('src/filesystems/local.mjs', kit));

setInterval(() => {}, 1000);
await serve(new LocalFileSystem(process.env.KEMVI_REPO_ROOT));
