// What is small: it lies in the database wherever other contents lie, and comes along with an open.

/**
 * Bytes of a file. Up to half of a chunk the database alone takes a third of the time in which an object is made and named
 * there, so that time sets no limit; what sets it is that the database is to stay small where contents lie elsewhere.
 */
export const smallFile = 16 << 10;
