export { CheckError } from "./findings.cjs";
export type MountlessOptions = import('./mountless.cjs').MountlessOptions;
export type CheckOptions = import('./mountless.cjs').CheckOptions;
export type KnownEntry = import('./mountless.cjs').KnownEntry;
export type Finding = import('./findings.cjs').Finding;
export type CheckResult = import('./findings.cjs').CheckResult;
export { mountless, Mountless, OpenedFile } from "./mountless.cjs";
