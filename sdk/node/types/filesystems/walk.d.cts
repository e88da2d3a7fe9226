/**
 * A folder's members, as they were listed, and how far they have been used.
 * @template Member
 */
export class Listing<Member> {
    /** @param {Member[]} members @param {(member: Member) => string} nameOf */
    constructor(members: Member[], nameOf: (member: Member) => string);
    members: Member[];
    /** @type {Map<string, number>} */
    positions: Map<string, number>;
    /** @type {Map<Walk<Member>, number>} the position used last in each walk */
    reached: Map<Walk<Member>, number>;
}
/** @template Member */
export class Walk<Member> {
    /**
     * @param {number} most members that are told ahead
     * @param {(member: Member) => boolean} concerns
     */
    constructor(most: number, concerns: (member: Member) => boolean);
    most_: number;
    concerns_: (member: Member) => boolean;
    streak_: number;
    /**
     * A member is used. What comes next is told as soon as two were used in order, more and more of them.
     * @param {Listing<Member>} listing
     * @param {string} name
     * @returns {Member[]} those that will be used next, if it goes on like that
     */
    use(listing: Listing<Member>, name: string): Member[];
    /** @param {Listing<Member>} listing @param {number} position */
    isFirst_(listing: Listing<Member>, position: number): boolean;
    /** @param {Listing<Member>} listing @param {number} position @param {number} count */
    next_(listing: Listing<Member>, position: number, count: number): Member[];
}
