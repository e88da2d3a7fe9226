// The part of node's interface that the kit uses, so that its types can be checked without installing anything.
// Programs that use the kit have the whole of it from @types/node.

declare class Buffer extends Uint8Array {
    static alloc(size: number): Buffer;
    static allocUnsafe(size: number): Buffer;
    static allocUnsafeSlow(size: number): Buffer;
    static from(values: any, map?: any, self?: any): Buffer;
    static from(text: string, encoding?: string): Buffer;
    static from(memory: ArrayBufferLike, offset?: number, length?: number): Buffer;
    static concat(parts: Uint8Array[]): Buffer;
    static isBuffer(value: unknown): value is Buffer;
    static byteLength(text: string): number;
    toString(encoding?: string, start?: number, end?: number): string;
    copy(target: Uint8Array, at?: number, start?: number, end?: number): number;
    equals(other: Uint8Array): boolean;
    readUInt32LE(at: number): number;
    indexOf(value: number | Uint8Array, start?: number): number;
    subarray(start?: number, end?: number): Buffer;
    latin1Slice(start?: number, end?: number): string;
    utf8Slice(start?: number, end?: number): string;
    base64Slice(start?: number, end?: number): string;
    latin1Write(text: string, at?: number): number;
    utf8Write(text: string, at?: number): number;
    base64Write(text: string, at?: number): number;
}

declare namespace NodeJS {
    interface ErrnoException extends Error {
        code?: string;
    }
    type Signals = 'SIGTERM' | 'SIGINT' | 'SIGHUP' | 'SIGQUIT' | 'SIGUSR1' | 'SIGUSR2' | 'SIGCONT';
    type ProcessEnv = Record<string, string | undefined>;
}

declare const process: {
    argv: string[];
    env: NodeJS.ProcessEnv;
    stdout: { write(text: string): boolean };
    stderr: { write(text: string): boolean };
    exit(status?: number): never;
    getActiveResourcesInfo(): string[];
    on(event: 'uncaughtException' | 'beforeExit', listener: (error: unknown) => void): void;
    on(event: NodeJS.Signals, listener: () => void): void;
    off(event: 'uncaughtException' | 'beforeExit', listener: (error: unknown) => void): void;
    removeAllListeners(event: string): void;
    pid: number;
    kill(process: number, signal: NodeJS.Signals): void;
    dlopen(module: object, file: string): void;
};

interface ImportMeta {
    url: string;
}

declare class AbortSignal {
    readonly aborted: boolean;
}
declare class AbortController {
    readonly signal: AbortSignal;
    abort(reason?: unknown): void;
}

declare const console: { error(...values: unknown[]): void };
declare const performance: { now(): number };
declare function setImmediate(action: (value: any) => void): unknown;
interface NodeTimer {
    unref(): this;
    refresh(): this;
}
declare function setTimeout(action: (value?: any) => void, milliseconds: number, value?: any): NodeTimer;
declare function clearTimeout(timer: NodeTimer | undefined): void;
type BufferEncoding = 'ascii' | 'utf8' | 'utf-8' | 'utf16le' | 'base64' | 'base64url' | 'latin1' | 'binary' | 'hex';

declare interface ErrorConstructor {
    stackTraceLimit: number;
}

declare class URL {
    constructor(url: string, base?: string);
}
interface ImportMeta {
    url: string;
}

declare namespace WebAssembly {
    class Module {
        constructor(bytes: Uint8Array);
    }
    class Memory {
        constructor(size: { initial: number; maximum: number });
        readonly buffer: ArrayBuffer;
    }
    class Instance {
        constructor(module: Module, imports: Record<string, Record<string, unknown>>);
        readonly exports: Record<string, unknown>;
    }
}

declare module 'node:buffer' {
    export const constants: { MAX_LENGTH: number };
}

declare module 'node:v8' {
    const v8: { setFlagsFromString(flags: string): void };
    export default v8;
}

declare module 'node:crypto' {
    export function randomUUID(): string;
}

declare module 'node:util' {
    export function inspect(value: unknown, options?: object): string;
}

declare module 'node:os' {
    const os: { constants: { errno: Record<string, number> }; tmpdir(): string };
    export default os;
}

declare module 'node:path' {
    const path: {
        join(...parts: string[]): string;
        resolve(...parts: string[]): string;
        dirname(path: string): string;
        basename(path: string): string;
    };
    export default path;
}

declare module 'node:url' {
    export function fileURLToPath(url: string | URL): string;
}

declare module 'node:net' {
    export class Socket {
        constructor(options: { fd: number; readable: boolean; writable: boolean });
        read(size: number): unknown;
        write(text: string): boolean;
        setEncoding(encoding: string): void;
        on(event: 'data', listener: (text: string) => void): void;
        on(event: 'error', listener: (error: Error) => void): void;
        on(event: 'close', listener: () => void): void;
        unref(): void;
        destroy(): void;
        [Symbol.asyncIterator](): AsyncIterator<Buffer>;
    }
    namespace net {
        type Socket = import('node:net').Socket;
    }
    const net: { Socket: typeof Socket; createConnection(options: { path: string }): Socket };
    export default net;
}

declare module 'node:zlib' {
    const zlib: object;
    export default zlib;
}

declare module 'node:child_process' {
    interface Ended<Output> {
        status: number | null;
        error?: Error;
        stdout: Output;
        stderr: Output;
    }
    export function spawnSync(program: string, parts: string[], options: { encoding: 'utf8'; [option: string]: unknown }): Ended<string>;
    export function spawnSync(program: string, parts: string[], options?: object): Ended<Buffer>;
    interface Stream {
        on(event: string, listener: (value: any) => void): void;
        write(text: string): void;
        end(): void;
    }
    export interface ChildProcess {
        stdin: Stream;
        stdout: Stream;
        kill(signal: NodeJS.Signals): void;
        on(event: 'exit', listener: (status: number | null, signal: NodeJS.Signals | null) => void): void;
        on(event: string, listener: (value: any) => void): void;
    }
    export function spawn(command: string, options: string[], settings: object): ChildProcess;
    export function execFileSync(command: string, options: string[], settings?: object): string;
    export function execFile(
        command: string,
        options: string[],
        settings: object,
        done: (error: Error | null, output: string, complaint: string) => void,
    ): void;
}

declare module 'node:fs' {
    namespace fs {
        interface Stats {
            mode: number;
            ino: number;
            dev: number;
            size: number;
            atimeMs: number;
            mtimeMs: number;
            isDirectory(): boolean;
            isFile(): boolean;
            isSymbolicLink(): boolean;
        }
        interface BigIntStats {
            ino: bigint;
            dev: bigint;
            isDirectory(): boolean;
            isFile(): boolean;
            isSymbolicLink(): boolean;
        }
    }
    const fs: {
        constants: Record<
            | 'O_RDONLY' | 'O_WRONLY' | 'O_RDWR' | 'O_CREAT' | 'O_EXCL' | 'O_NOFOLLOW' | 'O_NONBLOCK'
            | 'X_OK' | 'S_IFMT' | 'S_IFDIR' | 'S_IFREG' | 'S_IFLNK',
            number
        >;
        accessSync(path: string, mode: number): void;
        realpathSync: { native(path: string): string };
        openSync(path: string, flags: string | number, mode?: number): number;
        closeSync(descriptor: number): void;
        readSync(descriptor: number, bytes: Buffer, at: number, length: number, position: number | null): number;
        writeSync(descriptor: number, text: string): number;
        writeSync(descriptor: number, bytes: Buffer, at: number, length: number, position?: number): number;
        fdatasyncSync(descriptor: number): void;
        ftruncateSync(descriptor: number, length: number): void;
        statSync(path: string): fs.Stats;
        fstatSync(descriptor: number): fs.Stats;
        fstatSync(descriptor: number, options: { bigint: true }): fs.BigIntStats;
        lstatSync(path: string): fs.Stats;
        lstatSync(path: string, options: { throwIfNoEntry: boolean; bigint?: false }): fs.Stats | undefined;
        lstatSync(path: string, options: { bigint: true; throwIfNoEntry?: boolean }): fs.BigIntStats | undefined;
        readlinkSync(path: string): string;
        readdirSync(path: string): string[];
        readdirSync(path: string, options: { encoding: 'buffer' }): Buffer[];
        mkdirSync(path: string, options?: { recursive: boolean }): string | undefined;
        rmdirSync(path: string): void;
        unlinkSync(path: string): void;
        renameSync(oldPath: string, newPath: string): void;
        chmodSync(path: string, mode: number): void;
        fchmodSync(descriptor: number, mode: number): void;
        utimesSync(path: string, accessed: string, modified: string): void;
        statfsSync(path: string): Record<'bsize' | 'blocks' | 'bfree' | 'files' | 'ffree', number>;
        readFileSync(path: string): Buffer;
        readFileSync(path: string, encoding: 'utf8'): string;
        writeFileSync(path: string, text: string): void;
        mkdtempSync(prefix: string): string;
        rmSync(path: string, options: { recursive: boolean; force?: boolean }): void;
        createReadStream(
            path: string,
            options: { fd: number },
        ): { read(size: number): unknown; [Symbol.asyncIterator](): AsyncIterator<Buffer> };
    };
    export default fs;
}
