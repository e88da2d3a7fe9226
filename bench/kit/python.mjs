// How much slower the kit's loop for Python is than the best loop written by hand in it: node bench/kit/python.mjs [ROUNDS]
//
// As run.mjs: a bare loop, the kit's doing the same work, and `local` of the kit. Ratios are to the bare loop.
import path from 'node:path';
import { here, runDriver } from './built.mjs';

const rounds = process.argv[2] ?? '100';
const helpers = ['bare.py', 'kit.py', '../../sdk/python/helpers/local'];
runDriver('exchange.cpp', (folder) => [folder, rounds, ...helpers.map((name) => path.join(here, name))]);
