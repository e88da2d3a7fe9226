export class Scratch {
    /**
     * @param {import('./conversation.mjs').Conversation} talk
     * @param {string} path of a name that nobody has
     */
    constructor(talk: import('./conversation.mjs').Conversation, path: string);
    talk_: import("./conversation.mjs").Conversation;
    path: string;
    /** @type {Map<string, 'file' | 'folder'>} in the order of making */
    made_: Map<string, 'file' | 'folder'>;
    /** @type {string | undefined} why something stayed */
    problem_: string | undefined;
    /**
     * Takes a path into the record before it is made.
     * @param {string} path
     * @param {'file' | 'folder'} kind
     * @returns {Promise<'ours' | 'taken' | 'unknown'>} whether what will be there is ours
     */
    claim(path: string, kind: 'file' | 'folder'): Promise<'ours' | 'taken' | 'unknown'>;
    /**
     * The path turned out to be somebody else's.
     * @param {string} path
     */
    forget(path: string): void;
    /**
     * Removes what is in the record, last made first, and no folder in which there is anything else.
     * @returns {Promise<string | undefined>} why something stayed
     */
    remove(): Promise<string | undefined>;
    /** @param {string} path @param {'file' | 'folder'} kind */
    removeOne_(path: string, kind: 'file' | 'folder'): Promise<void>;
    /** @param {string} path */
    isEmpty_(path: string): Promise<boolean>;
    /** @param {string} why */
    stayed_(why: string): void;
}
