// Never answers, and ignores the polite signals.
import { forever } from './answering.mjs';
process.on('SIGTERM', () => {});
process.on('SIGINT', () => {});
console.error('hangs.mjs: started');
forever();
