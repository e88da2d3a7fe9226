export { serve } from './serve.mjs';
export { PosixError } from './errors.mjs';
export { LocalFileSystem } from './filesystems/local.mjs';
