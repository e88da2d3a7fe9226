// Paths within a tree, also as people write them.
import { UsageError } from './failures.mjs';

/** @param {string | undefined} text */
export function treePath(text = '/') {
    const parts = text.split('/').filter((part) => part !== '');
    if (text.startsWith('/') && !parts.some((part) => part === '.' || part === '..')) return `/${parts.join('/')}`;
    throw new UsageError(`PATH: "${text}" must be a path within the tree that begins with a slash, such as /projects/one`);
}

/** @param {string} folder @param {string} name */
export function beneath(folder, name) {
    return folder === '/' ? `/${name}` : `${folder}/${name}`;
}
