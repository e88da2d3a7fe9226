// Objects in a bucket of a store that speaks S3.
import fs from 'node:fs';
import { Agent as HttpAgent } from 'node:http';
import { Agent as HttpsAgent } from 'node:https';
import {
    DeleteObjectsCommand, GetObjectCommand, HeadBucketCommand, ListObjectsV2Command, PutObjectCommand, S3Client,
} from '@aws-sdk/client-s3';
import { PosixError } from 'kemvi-helper';
import { isOfCertificate } from '../engine/encryption.mjs';
import { MissingObject } from './objects.mjs';
import { retrying } from './retrying.mjs';

/** @typedef {import('./objects.mjs').Listed} Listed */
/** @typedef {import('./objects.mjs').Objects} Objects */

const longestAttempt = 15_000; // milliseconds: a request that was lost on the way is sent once more
const mostConnections = 32;
const mostRemoved = 1000; // in one request; what S3 allows

/** @implements {Objects} */
export class S3Objects {
    /**
     * Endpoint, region and keys are those of the SDK's own environment and files.
     * @param {{bucket: string, prefix: string}} place `prefix` without slashes at its ends; may be empty
     * @param {string} key of the tree
     * @param {{reconnect: number}} options `reconnect`: seconds for which a store that fails is tried again
     */
    constructor({ bucket, prefix }, key, { reconnect }) {
        this.bucket_ = bucket;
        this.folder_ = `${prefix === '' ? '' : prefix + '/'}${key}/`;
        this.limits_ = { total: reconnect * 1000, each: longestAttempt, isTransient };
        this.client_ = newClient();
    }

    /** @param {string} name @param {Uint8Array} bytes */
    async put(name, bytes) {
        const Key = this.folder_ + name;
        await this.ask_((abortSignal) =>
            this.client_.send(
                new PutObjectCommand({ Bucket: this.bucket_, Key, Body: bytes, ContentLength: bytes.length }),
                { abortSignal },
            ),
        );
    }

    /** @param {string} name @returns {Promise<Buffer>} */
    async get(name) {
        const Key = this.folder_ + name;
        try {
            return await this.ask_(async (abortSignal) => {
                const answer = await this.client_.send(new GetObjectCommand({ Bucket: this.bucket_, Key }), { abortSignal });
                return wholeBody(answer, abortSignal);
            });
        } catch (error) {
            if (/** @type {any} */ (error).cause?.name === 'NoSuchKey') throw new MissingObject(name);
            throw error;
        }
    }

    /** @param {string[]} names */
    async remove(names) {
        for (let at = 0; at < names.length; at += mostRemoved) {
            const Objects = names.slice(at, at + mostRemoved).map((name) => ({ Key: this.folder_ + name }));
            const answer = await this.ask_((abortSignal) =>
                this.client_.send(
                    new DeleteObjectsCommand({ Bucket: this.bucket_, Delete: { Objects, Quiet: true } }), { abortSignal },
                ),
            );
            const refused = answer.Errors?.find(({ Code }) => Code !== 'NoSuchKey');
            if (refused) throw this.told_(new Error(`${refused.Key} is not removed: ${refused.Code}`));
        }
    }

    /** @param {string} [after] */
    async list(after) {
        const answer = await this.ask_((abortSignal) =>
            this.client_.send(
                new ListObjectsV2Command({ Bucket: this.bucket_, Prefix: this.folder_, ContinuationToken: after }),
                { abortSignal },
            ),
        );
        const now = serverTime(answer);
        const objects = (answer.Contents ?? []).map(({ Key = '', Size = 0, LastModified }) => ({
            name: Key.slice(this.folder_.length),
            size: Size,
            age: LastModified ? now - LastModified.getTime() : 0,
        }));
        return { objects, next: answer.IsTruncated ? answer.NextContinuationToken : undefined };
    }

    /** Fails with a word about the bucket, the endpoint or the keys where they are not right. */
    async check() {
        await this.ask_((abortSignal) => this.client_.send(new HeadBucketCommand({ Bucket: this.bucket_ }), { abortSignal }));
    }

    end() {
        this.client_.destroy();
    }

    /**
     * @template T
     * @param {(signal: AbortSignal) => Promise<T>} attempt
     * @returns {Promise<T>}
     */
    async ask_(attempt) {
        try {
            return await retrying(attempt, this.limits_);
        } catch (error) {
            throw this.told_(error);
        }
    }

    /** @param {any} error */
    told_(error) {
        const status = error.$metadata?.httpStatusCode;
        const what = [error.name, status && `status ${status}`, error.message].filter(Boolean).join(', ');
        const told = new PosixError('EIO', `bucket ${this.bucket_}: ${what}${remedy(error, status)}`);
        return Object.assign(told, { cause: error });
    }
}

/** Roots for the store's certificate, where the environment names them, as the maker's other tools have it. */
function roots() {
    const file = process.env.AWS_CA_BUNDLE;
    if (!file) return undefined;
    try {
        return fs.readFileSync(file);
    } catch (error) {
        throw new Error(`AWS_CA_BUNDLE: ${/** @type {Error} */ (error).message}`);
    }
}

function newClient() {
    const options = { keepAlive: true, maxSockets: mostConnections };
    const { AWS_ENDPOINT_URL_S3, AWS_ENDPOINT_URL, AWS_REGION, AWS_PROFILE } = process.env;
    const hasAddress = Boolean(AWS_ENDPOINT_URL_S3 ?? AWS_ENDPOINT_URL);
    const client = new S3Client({
        // Stores at an address of one's own seldom have a name for each bucket, or regions; requests are signed for one.
        forcePathStyle: hasAddress,
        ...(hasAddress && !AWS_REGION && !AWS_PROFILE && { region: 'us-east-1' }),
        maxAttempts: 1, // tried again here, for as long as the mount was told to wait
        requestChecksumCalculation: 'WHEN_REQUIRED', // the others are newer than many stores
        responseChecksumValidation: 'WHEN_REQUIRED',
        requestHandler: { httpAgent: new HttpAgent(options), httpsAgent: new HttpsAgent({ ...options, ca: roots() }) },
    });
    // The clock of the store, for the age of what lies there.
    client.middlewareStack.add(
        (next) => async (args) => {
            const result = await next(args);
            const { headers } = /** @type {{headers?: Record<string, string>}} */ (result.response);
            Object.assign(result.output?.$metadata ?? {}, { date: headers?.date });
            return result;
        },
        { step: 'deserialize', priority: 'high', name: 'keepDate' },
    );
    return client;
}

/**
 * Into memory of its own size, without the pieces in between.
 * @param {any} answer
 * @param {AbortSignal} signal
 * @returns {Promise<Buffer>}
 */
function wholeBody({ Body, ContentLength }, signal) {
    return new Promise((resolve, reject) => {
        const bytes = Buffer.allocUnsafeSlow(ContentLength);
        let count = 0;
        const giveUp = () => Body.destroy(new Error('aborted'));
        signal.addEventListener('abort', giveUp, { once: true });
        Body.on('data', (/** @type {Buffer} */ piece) => {
            if (count + piece.length <= bytes.length) bytes.set(piece, count);
            count += piece.length;
        });
        Body.on('error', reject);
        Body.on('close', () => reject(cutShort(count, bytes.length)));
        Body.on('end', () => {
            signal.removeEventListener('abort', giveUp);
            if (count === bytes.length) resolve(bytes);
            else reject(cutShort(count, bytes.length));
        });
    });
}

/** @param {number} count @param {number} wanted */
function cutShort(count, wanted) {
    return Object.assign(new Error(`${count} of ${wanted} bytes came`), { code: 'ECONNRESET' });
}

/** @param {any} answer */
function serverTime(answer) {
    const told = Date.parse(answer.$metadata.date);
    return Number.isNaN(told) ? Date.now() : told + 999; // told in whole seconds
}

const transientNames = new Set([
    'TimeoutError', 'AbortError', 'SlowDown', 'RequestTimeout', 'RequestTimeoutException', 'InternalError', 'ServiceUnavailable',
    'ThrottlingException', 'Throttling', 'OperationAborted',
]);

/** @param {any} error */
function isTransient(error) {
    const status = error.$metadata?.httpStatusCode;
    if (status >= 500 || status === 408 || status === 429 || transientNames.has(error.name)) return true;
    // Of the network and not of the store: the connection was refused, cut, or the name is not known just now.
    return typeof error.code === 'string' && /^(E[A-Z]+|EAI_AGAIN)$/.test(error.code);
}

/** @param {any} error @param {number | undefined} status */
function remedy({ name, code }, status) {
    if (isOfCertificate(code)) return '; put AWS_CA_BUNDLE=FILE into mount-secrets.env, with the root of its certificate in the file';
    if (name === 'NoSuchBucket' || status === 404) return '; make the bucket, or name another one';
    if (name === 'CredentialsProviderError') {
        return '; put AWS_ACCESS_KEY_ID=... and AWS_SECRET_ACCESS_KEY=... into mount-secrets.env beside mount-config.json';
    }
    if (status === 403) return '; look at the keys and at what they permit';
    return '';
}
