// Notices that the members of folders are used in the order in which they are listed, and says which come next.

/**
 * A folder's members, as they were listed, and how far they have been used.
 * @template Member
 */
export class Listing {
    /** @param {Member[]} members @param {(member: Member) => string} nameOf */
    constructor(members, nameOf) {
        this.members = members;
        /** @type {Map<string, number>} */
        this.positions = new Map(members.map((member, position) => [nameOf(member), position]));
        /** @type {Map<Walk<Member>, number>} the position used last in each walk */
        this.reached = new Map();
    }
}

/** @template Member */
export class Walk {
    /**
     * @param {number} most members that are told ahead
     * @param {(member: Member) => boolean} concerns
     */
    constructor(most, concerns) {
        this.most_ = most;
        this.concerns_ = concerns;
        this.streak_ = 0;
    }

    /**
     * A member is used. What comes next is told as soon as two were used in order, more and more of them.
     * @param {Listing<Member>} listing
     * @param {string} name
     * @returns {Member[]} those that will be used next, if it goes on like that
     */
    use(listing, name) {
        const position = listing.positions.get(name);
        if (position === undefined) return [];
        const last = listing.reached.get(this);
        if (last === position) return [];
        const follows = last === undefined ? this.isFirst_(listing, position) : position > last && position - last <= 16;
        listing.reached.set(this, position);
        this.streak_ = follows ? this.streak_ + 1 : 0;
        if (this.streak_ < 2) return [];
        return this.next_(listing, position, Math.min(this.most_, 4 ** (this.streak_ - 1)));
    }

    /** @param {Listing<Member>} listing @param {number} position */
    isFirst_(listing, position) {
        return position <= 16 && !listing.members.slice(0, position).some(this.concerns_);
    }

    /** @param {Listing<Member>} listing @param {number} position @param {number} count */
    next_(listing, position, count) {
        const members = listing.members.slice(position + 1, position + 1 + 4 * count);
        return members.filter(this.concerns_).slice(0, count);
    }
}
