import { serve } from 'kemvi-helper';
import { oddFileSystem } from './oddFileSystem.mjs';

await serve(oddFileSystem);
console.error('after serve');
