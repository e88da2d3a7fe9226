// What an author in TypeScript writes who compiles to `require`: checked, never run.
import { MemoryFileSystem, PosixError, serve, type FileSystem } from '../types/index.cjs';

const fileSystem: FileSystem<string> = {
    getattr: () => ({ isDirectory: true }),
    readdir: () => [],
    read(file, offset, length, buffer) {
        if (length > buffer.length) throw new PosixError('EINVAL', file);
        return Buffer.from(file).subarray(offset, offset + length);
    },
};
export const ended: Promise<void>[] = [serve(fileSystem), serve(new MemoryFileSystem())];
// @ts-expect-error a path is a text
fileSystem.getattr(3);
