// Notes that its input has ended, after a moment.
import { note, serve, sleep } from './answering.mjs';
serve();
sleep(1000);
note('input ended');
