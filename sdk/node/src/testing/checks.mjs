// The rules that a file system must keep, by the words in which `kemvi check` lists them, and in its order.

/** @type {Record<string, string>} */
export const checks = {
    starts: 'the helper starts and answers a ping',
    inTime: 'every request is answered, in time',
    isResponse: 'every answer is one line with one JSON object of the protocol',
    echoesID: "every answer carries its request's id",
    onlyAnswers: 'nothing but answers is written to standard output',
    errorsSpeak: 'every error has a message and a POSIX code',

    missingNames: 'a missing name is answered with ENOENT',
    unknownOperations: 'an unknown operation is answered with an error',
    keyOrder: 'the keys of a request may come in any order',
    longLines: 'request lines of 1 MiB and 16 MiB are answered',

    listings: 'folders are listed',
    statfs: 'statfs is answered with an object of numbers',
    paths: "the path of an entry is its folder's path, a slash, and its name",
    names: 'names are such as a kernel takes',
    duplicates: 'no name stands twice in a listing',
    types: 'every member has its type',
    times: 'times have the form 2024-05-01T12:34:56.789Z',
    sizes: 'sizes are whole numbers, 0 or more, or -1',
    agreement: 'listing and getattr agree',
    speed: 'listings are fast enough for folders of 10,000 entries',

    opening: 'files open and give a whole number as handle',
    distinct: 'two opens give two handles',
    data: 'read answers with dataBase64',
    amount: 'a read gives no more than was asked for',
    wholeSize: 'a file has as many bytes as its size says',
    pastTheEnd: 'reading past the end gives no bytes',
    offsets: 'reads at odd offsets equal the whole',
    released: 'a handle that was given back is of no more use',

    folders: 'folders are made, and made once only',
    writing: 'what was written is read back',
    creating: 'create keeps an existing file, and truncate empties it',
    renaming: 'rename replaces a file and moves its contents',
    fullFolders: 'unlink of a folder that is not empty is refused',
    removing: 'unlink removes files and empty folders',
    settingTimes: 'utimes sets the time to the millisecond',
    modes: 'chmod is accepted',
    oddNames: 'names with spaces, quotes, backslashes, line breaks and UTF-8 are kept',
    longWrites: 'writes of 1 MiB and 12 MiB in one line are kept',
    manyEntries: 'a folder of 10,000 entries is listed whole, in a second',
    cleanedUp: 'what was made is removed again',

    ends: 'the helper ends within 5 s after its input ended',
};

/**
 * Those that no file system can break, because the kit writes the answers: it refuses a value that would (and then
 * another rule is broken, with a message that names the value).
 */
export const keptByTheKit = [
    'starts', 'isResponse', 'echoesID', 'onlyAnswers', 'unknownOperations', 'keyOrder', 'paths', 'types', 'times',
    'sizes', 'distinct', 'amount',
];

export const readingChecks = [
    'opening', 'distinct', 'data', 'amount', 'wholeSize', 'pastTheEnd', 'offsets', 'released',
];

export const writingChecks = [
    'folders', 'writing', 'creating', 'renaming', 'fullFolders', 'removing', 'settingTimes', 'modes', 'oddNames',
    'longWrites', 'manyEntries', 'cleanedUp',
];
