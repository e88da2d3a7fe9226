/**
 * Serves a file system over standard input and output until the input ends; then gives back what is open. What the
 * program prints meanwhile goes to standard error.
 * @param {import('./fileSystem.cjs').FileSystem} fileSystem
 * @param {ServeOptions} [options]
 * @returns {Promise<void>} done when the input has ended. The process then ends by itself; if something still keeps it
 *     two seconds later, it is ended, because an unmount waits for it.
 * @throws {TypeError} when the file system or an option is not what it must be
 */
export function serve(fileSystem: import('./fileSystem.cjs').FileSystem, options?: ServeOptions | undefined): Promise<void>;
export type ServeOptions = {
    /**
     * how to wait for requests. When left out: blocking for a file system of plain
     * functions in a process where nothing else is going on, otherwise node's event loop.
     */
    loop?: "blocking" | "events" | undefined;
    /**
     * say on standard error which loop is used and why; also set by KEMVI_HELPER_DEBUG=1
     */
    debug?: boolean | undefined;
};
