// Says on standard error what no terminal should obey, and only the start of a line before it hangs.
import { answer, serve } from './answering.mjs';
serve({
    readdir(request) {
        console.error('odd \x1b[31mred\x1b[0m');
        process.stderr.write('half a line');
        answer(request, { result: [] });
    },
});
