// Refuses every lookup for want of room, and names what it was asked for.
import { answer, serve } from './answering.mjs';
serve({
    getattr(request) {
        answer(request, { ok: false, error: { code: 'ENOSPC', message: `no room for ${request.path}` } });
    },
});
