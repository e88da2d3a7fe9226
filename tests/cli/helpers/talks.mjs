// Talks on standard error, before and after the mount is ready.
import { answer, serve } from './answering.mjs';
console.error('talks.mjs: starting');
serve({
    readdir(request) {
        console.error('talks.mjs: listing');
        answer(request, { result: [] });
    },
});
