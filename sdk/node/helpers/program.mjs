// Runs the program that `helperCommand` of mount-config.json names, as a helper in any language.
import { becomeProgram, configuredCommand, endWith } from '../src/program.mjs';

try {
    becomeProgram(configuredCommand(process.env));
} catch (error) {
    endWith(error.message);
}
