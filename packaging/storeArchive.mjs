// Lays out what is packed for npm of the helper of many machines: node storeArchive.mjs PACKAGE FOLDER
// The sources name the kit as a folder beside them, which nobody else has: here it lies in the archive, in FOLDER/node_modules,
// where the caller has put it. The libraries are those that were tested, to the last one: the lock file goes along.
import { cpSync, existsSync, readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';

const kit = 'kemvi-helper';
const [source, folder] = process.argv.slice(2);
const read = (...path) => JSON.parse(readFileSync(join(...path), 'utf8'));
const write = (name, value) => writeFileSync(join(folder, name), `${JSON.stringify(value, null, 2)}\n`);

const bundled = read(folder, 'node_modules', kit, 'package.json');
const description = read(source, 'package.json');
for (const name of description.files)
    if (existsSync(join(source, name))) cpSync(join(source, name), join(folder, name), { recursive: true });

const { devDependencies: _, scripts: __, ...rest } = description;
const dependencies = { ...rest.dependencies, [kit]: bundled.version };
write('package.json', { ...rest, dependencies, bundleDependencies: [kit] });

const lock = read(source, 'package-lock.json');
const packages = Object.fromEntries(Object.entries(lock.packages)
    .filter(([path, each]) => path.startsWith('node_modules/') && !each.dev && path !== `node_modules/${kit}`));
write('npm-shrinkwrap.json', {
    ...lock,
    packages: {
        '': { name: rest.name, version: rest.version, dependencies, bundleDependencies: [kit], bin: rest.bin, engines: rest.engines },
        [`node_modules/${kit}`]: { version: bundled.version, inBundle: true },
        ...packages,
    },
});
