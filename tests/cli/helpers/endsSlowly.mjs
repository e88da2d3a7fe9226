// Takes four seconds to end.
import { serve, sleep } from './answering.mjs';
serve();
sleep(4000);
