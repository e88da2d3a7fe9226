// Trying again what may succeed the next time.

const firstPause = 50; // milliseconds
const longestPause = 2000;
const shortestAttempt = 1000;

/**
 * Tries until it succeeds, fails for good, or the time is over; never fewer than two times, for which the time is parted: what
 * is not answered at all ends with the time too.
 * @template T
 * @param {(signal: AbortSignal) => Promise<T>} attempt
 * @param {object} limits
 * @param {number} limits.total milliseconds for all attempts
 * @param {number} limits.each milliseconds for one attempt
 * @param {(error: any) => boolean} limits.isTransient
 * @returns {Promise<T>}
 */
export async function retrying(attempt, { total, each, isTransient }) {
    const begun = performance.now();
    for (let count = 1, pause = firstPause; ; count++, pause = Math.min(longestPause, pause * 2)) {
        const left = () => total - (performance.now() - begun);
        try {
            const part = count === 1 ? left() / 2 : left();
            return await withLimit(attempt, Math.min(each, Math.max(part, shortestAttempt)));
        } catch (error) {
            if (!isTransient(error) || (left() <= 0 && count > 1)) throw error;
            // Not all at the same moment, where many failed at the same moment.
            await new Promise((resolve) => setTimeout(resolve, Math.min(Math.max(left(), 0), pause * (0.5 + Math.random()))));
        }
    }
}

/**
 * @template T
 * @param {(signal: AbortSignal) => Promise<T>} attempt
 * @param {number} limit
 * @returns {Promise<T>}
 */
async function withLimit(attempt, limit) {
    const controller = new AbortController();
    const timer = setTimeout(() => controller.abort(), limit);
    try {
        return await attempt(controller.signal);
    } catch (error) {
        if (!controller.signal.aborted) throw error;
        throw Object.assign(new Error(`no answer within ${limit / 1000} s`), { name: 'TimeoutError' });
    } finally {
        clearTimeout(timer);
    }
}
