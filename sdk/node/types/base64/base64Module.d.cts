export const base64Module: string;
