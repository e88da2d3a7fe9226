/// <reference types="node" />
/**
 * A file system that asks another one for no more than `concurrency` things at a time, and gives each up with ETIMEDOUT
 * after `timeout` milliseconds. Each function gets `{ signal }` as its last argument, to end its work when it is given up;
 * one that goes on all the same is no longer waited for, and what it gives then is lost.
 * @param {AbortableFileSystem} fileSystem
 * @param {LimitOptions} [options]
 * @returns {FileSystem}
 * @throws {TypeError} when the file system or an option is not what it must be
 */
export function limited(fileSystem: AbortableFileSystem, options?: LimitOptions | undefined): FileSystem;
export type FileSystem = import('./fileSystem.mjs').FileSystem;
/**
 * the last argument of each function of a limited file system; `fetch` takes it
 */
export type Call = {
    signal: AbortSignal;
};
export type Abortable<Member> = Member extends (...args: infer Args) => infer Result ? (...args: [...Args, Call]) => Result : Member;
/**
 * A file system each function of which may take one argument more: a signal that is aborted when its time is over.
 */
export type AbortableFileSystem = {
    /**
     * what is known of a path; ENOENT when there is nothing
     */
    getattr: (args_0: string, args_1: Call) => import("./fileSystem.mjs").MaybeAsync<import("./fileSystem.mjs").Stat>;
    /**
     * the members of a folder, without "." and ".."
     */
    readdir: (args_0: string, args_1: Call) => import("./fileSystem.mjs").MaybeAsync<Iterable<import("./fileSystem.mjs").Entry>>;
    /**
     * opens a file; what it returns is handed to
     * `read`, `write`, `flush` and `release`. When left out, that is the path.
     */
    open?: ((args_0: string, args_1: import("./fileSystem.mjs").OpenFlags, args_2: Call) => any) | undefined;
    /**
     *     up to `length` bytes from `offset`, fewer only at the end of the file. Either returns them, or puts them at the
     *     start of `buffer`, which has room for `length` and belongs to the kit, and returns their count.
     */
    read: (args_0: any, args_1: number, args_2: number, args_3: Buffer, args_4: Call) => import("./fileSystem.mjs").MaybeAsync<number | Uint8Array>;
    /**
     * writes all of `data`, which is
     * only valid until the function (or its promise) is done
     */
    write?: ((args_0: any, args_1: number, args_2: Buffer, args_3: Call) => import("./fileSystem.mjs").MaybeAsync<void>) | undefined;
    /**
     * makes what was written durable
     */
    flush?: ((args_0: any, args_1: Call) => import("./fileSystem.mjs").MaybeAsync<void>) | undefined;
    /**
     * the file is no longer used; called once for each `open`
     */
    release?: ((args_0: any, args_1: Call) => import("./fileSystem.mjs").MaybeAsync<void>) | undefined;
    mkdir?: ((args_0: string, args_1: Call) => import("./fileSystem.mjs").MaybeAsync<void>) | undefined;
    /**
     * removes a file or an empty folder
     */
    unlink?: ((args_0: string, args_1: Call) => import("./fileSystem.mjs").MaybeAsync<void>) | undefined;
    /**
     * replaces what is at `newPath`
     */
    rename?: ((args_0: string, args_1: string, args_2: Call) => import("./fileSystem.mjs").MaybeAsync<void>) | undefined;
    /**
     * permission bits, 0 to 0o7777
     */
    chmod?: ((args_0: string, args_1: number, args_2: Call) => import("./fileSystem.mjs").MaybeAsync<void>) | undefined;
    utimes?: ((args_0: string, args_1: Date, args_2: Call) => import("./fileSystem.mjs").MaybeAsync<void>) | undefined;
    statfs?: ((args_0: Call) => import("./fileSystem.mjs").MaybeAsync<{
        files?: number | undefined;
        directories?: number | undefined;
        bytes?: number | undefined;
    }>) | undefined;
    /**
     * the helper is about to end; everything open has been released
     */
    end?: ((args_0: Call) => import("./fileSystem.mjs").MaybeAsync<void>) | undefined;
};
export type LimitOptions = {
    /**
     * calls that may be under way at the same time; 32 when left out. Others wait their turn.
     */
    concurrency?: number | undefined;
    /**
     * milliseconds that a call may take from its turn on; 30,000 when left out
     */
    timeout?: number | undefined;
    /**
     * the clock
     */
    timers?: Timers | undefined;
};
export type Timers = {
    setTimeout: (step: () => void, milliseconds: number) => any;
    clearTimeout: (timer: any) => void;
};
