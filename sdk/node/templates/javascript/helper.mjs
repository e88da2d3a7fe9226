// The helper: the program that a mount starts.
import { serve } from 'kemvi-helper';
import { fileSystem } from './fileSystem.mjs';

serve(fileSystem);
