// The bare loop with the kit's base64.
import { makeCodec } from '../../sdk/node/src/base64/codec.mjs';
import { runBareLoop } from './bareLoop.mjs';

runBareLoop(makeCodec());
