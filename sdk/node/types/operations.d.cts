/** @type {Record<string, Operation>} */
export const operations: Record<string, Operation>;
export type Request = import('./requestLines.cjs').Request;
export type Session = import('./session.cjs').Session;
export type Operation = {
    /**
     * asks the file system; may return a promise
     */
    call: (session: Session, request: Request) => any;
    /**
     * writes the answer; when left out, the
     * answer is success alone
     */
    answer?: ((session: Session, request: Request, result: any) => void) | undefined;
};
