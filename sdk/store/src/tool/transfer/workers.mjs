// Several at work on one list, each with contents of its own: what is open in one is used by one at a time.
import { Contents } from '../../contents/contents.mjs';

/** @typedef {{number: number, contents: Contents, buffer: Buffer}} Worker */

export const workerCount = 8;
const blockLength = 1 << 20;
const zeros = Buffer.alloc(blockLength);

/**
 * @template T
 * @param {import('../openTree.mjs').OpenTree} open
 * @param {AsyncGenerator<T>} tasks
 * @param {(worker: Worker, task: T) => Promise<void>} work
 * @throws the first failure, when all have ended what they had begun
 */
export async function workThrough(open, tasks, work) {
    /** @type {any} */
    let failure;
    const one = async (/** @type {number} */ number) => {
        const { engine, tree } = open;
        // The objects are shared, and closed with the tree.
        const objects = open.objects && Object.assign(Object.create(open.objects), { end: () => {} });
        const contents = new Contents({ engine, tree, objects }, { memory: 16 << 20, writing: 8 << 20 });
        const worker = { number, contents, buffer: Buffer.alloc(blockLength) };
        try {
            for (;;) {
                const { value, done } = await tasks.next();
                if (done || failure) return;
                await work(worker, value);
            }
        } catch (error) {
            failure ??= error;
        } finally {
            await contents.end();
        }
    };
    await Promise.all(Array.from({ length: workerCount }, (_, number) => one(number)));
    if (failure) throw failure;
}

/**
 * What is zeros alone need not be kept: it becomes a hole.
 * @param {Buffer} bytes at most as many as a worker's buffer has
 */
export function isZeros(bytes) {
    return bytes.equals(zeros.subarray(0, bytes.length));
}
