export { CheckError } from "./findings.mjs";
export type MountlessOptions = import('./mountless.mjs').MountlessOptions;
export type CheckOptions = import('./mountless.mjs').CheckOptions;
export type KnownEntry = import('./mountless.mjs').KnownEntry;
export type Finding = import('./findings.mjs').Finding;
export type CheckResult = import('./findings.mjs').CheckResult;
export { mountless, Mountless, OpenedFile } from "./mountless.mjs";
