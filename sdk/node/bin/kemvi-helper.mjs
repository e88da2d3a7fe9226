#!/usr/bin/env node
// What `npx kemvi-helper` runs.
import { run } from '../src/project/command.mjs';

process.exitCode = run(process.argv.slice(2));
