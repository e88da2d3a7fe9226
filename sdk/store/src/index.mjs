// The package `kemvi-helper-store`.
export { openEngine } from './engine/engine.mjs';
export { openStore } from './openStore.mjs';
export { readSettings, SettingError } from './settings.mjs';
export { StoreFileSystem } from './storeFileSystem.mjs';
export { migrate } from './schema/migrate.mjs';
export { ensureTree, findTree } from './schema/trees.mjs';
