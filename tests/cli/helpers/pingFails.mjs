// Answers the ping with an error.
import { answer, serve } from './answering.mjs';
console.error('pingFails.mjs: no database');
serve({ ping: (request) => answer(request, { ok: false, error: { message: 'no database', code: 'EACCES' } }) });
