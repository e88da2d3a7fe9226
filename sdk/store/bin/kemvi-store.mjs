#!/usr/bin/env node
// The tool for the trees of a store.
import { main } from '../src/tool/main.mjs';

process.exitCode = await main(process.argv.slice(2));
