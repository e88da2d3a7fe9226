// `kemvi-helper/testing`: a file system without a mount, for the tests of its author.
export { mountless, Mountless, OpenedFile } from './mountless.mjs';
export { CheckError } from './findings.mjs';

/** @typedef {import('./mountless.mjs').MountlessOptions} MountlessOptions */
/** @typedef {import('./mountless.mjs').CheckOptions} CheckOptions */
/** @typedef {import('./mountless.mjs').KnownEntry} KnownEntry */
/** @typedef {import('./findings.mjs').Finding} Finding */
/** @typedef {import('./findings.mjs').CheckResult} CheckResult */
