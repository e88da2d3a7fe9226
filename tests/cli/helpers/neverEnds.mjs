// Serves well, but stays when its input ends.
import { forever, serve } from './answering.mjs';
process.on('SIGTERM', () => {});
serve();
forever();
