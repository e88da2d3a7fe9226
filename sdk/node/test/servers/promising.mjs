// Functions that are not declared async and yet return promises: serve cannot know until the first one does.
import { serve } from 'kemvi-helper';
import { oddFileSystem } from './oddFileSystem.mjs';

const functions = Object.entries(oddFileSystem);
await serve(
    Object.fromEntries(functions.map(([name, plain]) => [
        name,
        (...values) => new Promise((resolve) => setTimeout(resolve, 0)).then(() => plain(...values)),
    ])),
);
console.error('after serve');
