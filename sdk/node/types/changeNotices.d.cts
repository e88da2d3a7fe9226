export class ChangeNotices {
    /**
     * @param {string} address path of the mount's socket
     * @param {(text: string) => void} say takes lines for people
     */
    constructor(address: string, say: (text: string) => void);
    address_: string;
    say_: (text: string) => void;
    /** @type {Set<string>} */
    waiting_: Set<string>;
    /** @type {string[] | undefined} the paths of the request that is not answered yet */
    asked_: string[] | undefined;
    /** @type {Connection | undefined} */
    socket_: Connection | undefined;
    isGreeted_: boolean;
    isScheduled_: boolean;
    isEnded_: boolean;
    pause_: number;
    received_: string;
    /** @type {Set<string>} what was said already */
    said_: Set<string>;
    /** @param {string} path */
    add(path: string): void;
    /** Nothing more is told. */
    end(): void;
    /** @param {string} text */
    sayOnce(text: string): void;
    proceed_(): void;
    connect_(): void;
    /** @param {Connection} socket */
    ask_(socket: Connection): void;
    /**
     * @param {Connection} socket
     * @param {string} text
     */
    take_(socket: Connection, text: string): void;
    /** @param {{ok?: boolean, error?: {message?: string, code?: string}}} said */
    heard_(said: {
        ok?: boolean;
        error?: {
            message?: string;
            code?: string;
        };
    }): void;
    lost_(): void;
}
/**
 * to the mount
 */
export type Connection = {
    write: (text: string) => boolean;
    destroy: () => void;
};
