import { serve } from 'kemvi-helper';
import { oddFileSystem } from './oddFileSystem.mjs';

const functions = Object.entries(oddFileSystem);
await serve(
    Object.fromEntries(functions.map(([name, plain]) => [name, async (...values) => {
        await new Promise((resolve) => setImmediate(resolve));
        return plain(...values);
    }])),
);
console.error('after serve');
