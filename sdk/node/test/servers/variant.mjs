// Small servers, chosen by the first argument.
import fsp from 'node:fs/promises';
import { serve } from 'kemvi-helper';

const tree = {
    getattr: (path) => (path === '/' ? { isDirectory: true } : { size: 1 }),
    readdir: () => [{ name: 'f', size: 1 }],
    read: () => Buffer.from('x'),
};

/** Says after a moment that the process is still there, without keeping it. */
function never() {
    setTimeout(() => console.error('still here'), 100).unref();
    return new Promise(() => {});
}

const variants = {
    readOnly: () => serve(tree),
    writable: () => serve({ ...tree, write: () => {} }),
    incomplete: () => serve({ getattr: tree.getattr, readdir: tree.readdir }),
    notAFunction: () => serve({ ...tree, mkdir: 5 }),
    noObject: () => serve(undefined),
    wrongLoop: () => serve(tree, { loop: 'fast' }),
    misnamed: () => serve({ ...tree, unLink: () => {} }),
    misnamedRequired: () => serve({ getattr: tree.getattr, read: tree.read, readDir: tree.readdir }),
    forgetsAwait: () =>
        serve({
            ...tree,
            write: () => {},
            mkdir: () => void fsp.writeFile(process.argv[3], '').then(() => console.error('made it')),
        }),
    askedForEvents: () => serve(tree, { loop: 'events', debug: true }),
    timer() {
        setInterval(() => {}, 60_000);
        return serve(tree, { debug: true });
    },
    timerAfterwards() {
        const served = serve(tree, { debug: true });
        setInterval(() => {}, 60_000);
        return served;
    },
    printsFirst() {
        console.log('before serve');
        console.error('to standard error');
        return serve(tree, { debug: true });
    },
    strayFailure: () =>
        serve({
            ...tree,
            getattr: (path) =>
                path === '/never' ? new Promise(() => setTimeout(() => JSON.parse('{'), 0)) : tree.getattr(path),
        }),
    strayRejection: () =>
        serve({
            ...tree,
            getattr(path) {
                if (path === '/never') setTimeout(() => Promise.reject(new Error('left alone')), 0);
                return path === '/never' ? new Promise(() => {}) : tree.getattr(path);
            },
        }),
    neverSettles: () => serve({ ...tree, getattr: (path) => (path === '/never' ? never() : tree.getattr(path)) }),
    neverSettlesAsync: () =>
        serve({ ...tree, getattr: async (path) => (path === '/never' ? never() : tree.getattr(path)) }),
    settlesLate: () =>
        serve({ ...tree, getattr: (path) => new Promise((resolve) => setTimeout(resolve, 300, tree.getattr(path))) }),
    neverReleases: () => serve({ ...tree, release: () => new Promise(() => {}) }),
};

await variants[process.argv[2]]();
