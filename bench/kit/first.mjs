// What the first requests of a helper cost: node bench/kit/first.mjs [ROUNDS [HELPER.mjs ...]]
import path from 'node:path';
import { here, runDriver } from './built.mjs';

const [rounds = '15', ...named] = process.argv.slice(2);
const helpers = named.length > 0 ? named : [path.join(here, '../../sdk/node/helpers/local.mjs')];
runDriver('first.cpp', (folder) => [folder, rounds, ...helpers]);
