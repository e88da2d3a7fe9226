// How much slower the kit's loop is than the best loop written by hand: node bench/kit/run.mjs [ROUNDS]
//
// Builds the driver, then times four helpers side by side: the two bare loops, the kit's loop doing the same work, and
// the `local` helper that ships. Ratios are to the faster bare loop. The aim is at most 1.10 for `kit.mjs`.
import path from 'node:path';
import { here, runDriver } from './built.mjs';

const rounds = process.argv[2] ?? '100';
const helpers = ['bare.mjs', 'bareNode.mjs', 'kit.mjs', '../../sdk/node/helpers/local.mjs'];
runDriver('exchange.cpp', (folder) => [folder, rounds, ...helpers.map((name) => path.join(here, name))]);
