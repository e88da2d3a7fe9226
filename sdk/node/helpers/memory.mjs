// Serves an empty tree in memory, gone when it is unmounted. KEMVI_MEMORY_LIMIT: how much it may hold, in bytes or as
// 64K, 512M, 2G; 256M when it is not set.
import { compileLate } from '../src/compilation.mjs';
import { serve } from '../src/serve.mjs';
import { MemoryFileSystem } from '../src/filesystems/memory.mjs';

compileLate();

const text = process.env.KEMVI_MEMORY_LIMIT ?? '256M';
const match = /^([1-9]\d{0,9})([KMG]?)$/.exec(text);
if (match) {
    const unit = { '': 1, K: 1 << 10, M: 1 << 20, G: 1 << 30 }[match[2]];
    await serve(new MemoryFileSystem({ limit: Number(match[1]) * unit }));
} else {
    console.error(`kemvi-helper: KEMVI_MEMORY_LIMIT must be a number of bytes or like 512M, not "${text}"`);
    process.exitCode = 1;
}
