/**
 * Tells the mount that something was made, removed, replaced or written at these paths, or beneath them, otherwise than
 * through the mount: what it and the kernel remember of them is dropped, within some milliseconds. With that a mount may
 * remember for long (`-o entry_timeout=3600,attr_timeout=3600`). Returns at once and throws nothing; what it cannot do
 * it says on standard error, once. Needs node's event loop: `serve(fileSystem, {loop: 'events'})`.
 * @param {string | Iterable<string>} paths of the served tree, as `getattr` is given them; they need not exist any more
 * @returns {void}
 */
export function changed(paths: string | Iterable<string>): void;
/**
 * Has a function called with each path that is told, before the mount is told.
 * @param {(path: string) => void} take
 */
export function heedChanges(take: (path: string) => void): {
    end: () => undefined;
};
/** Whether the helper uses `changed`, as far as is known. */
export function usesChanged(): boolean;
/**
 * What `serve` waits with from now on.
 * @param {'blocking' | 'events'} loop
 */
export function noteLoop(loop: 'blocking' | 'events'): void;
/** For the end of `serve`. */
export function endNotices(): void;
