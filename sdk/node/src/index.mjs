// The package `kemvi-helper`.
export { serve } from './serve.mjs';
export { changed } from './changed.mjs';
export { cached } from './cached.mjs';
export { limited } from './limited.mjs';
export { PosixError } from './errors.mjs';
export { LocalFileSystem } from './filesystems/local.mjs';
export { MemoryFileSystem } from './filesystems/memory.mjs';
export { GitFileSystem } from './filesystems/git.mjs';

/** @typedef {import('./fileSystem.mjs').Stat} Stat */
/** @typedef {import('./fileSystem.mjs').Entry} Entry */
/** @typedef {import('./fileSystem.mjs').OpenFlags} OpenFlags */
/**
 * @template [File=any]
 * @typedef {import('./fileSystem.mjs').FileSystem<File>} FileSystem
 */
/** @typedef {import('./cached.mjs').CacheOptions} CacheOptions */
/** @typedef {import('./limited.mjs').LimitOptions} LimitOptions */
/** @typedef {import('./limited.mjs').AbortableFileSystem} AbortableFileSystem */
/** @typedef {import('./serve.mjs').ServeOptions} ServeOptions */
/** @typedef {import('./errors.mjs').PosixCode} PosixCode */
