/** Lets node compile later than it would by itself. Takes effect for the whole process. */
export function compileLate(): void;
