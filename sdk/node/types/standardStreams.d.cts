/**
 * The descriptors of the requests and the answers. The first call takes them; afterwards what the program writes to
 * standard output goes to standard error.
 * @returns {Streams}
 */
export function takeStandardStreams(): Streams;
/**
 * descriptors for requests and answers
 */
export type Streams = {
    input: number;
    output: number;
};
