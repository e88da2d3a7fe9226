// The shipped local file system, waited for in node's event loop.
import { serve } from '../../../sdk/node/src/serve.mjs';
import { LocalFileSystem } from '../../../sdk/node/src/filesystems/local.mjs';

await serve(new LocalFileSystem(process.env.KEMVI_REPO_ROOT), { loop: 'events' });
