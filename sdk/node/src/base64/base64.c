// Base64 for WebAssembly with 128-bit vectors. build.mjs makes base64Module.mjs of it.
//
// Requests may have every slash of their base64 text escaped. Decoding such a text with what node offers takes a second
// pass over strings that costs more than the rest of the exchange; here it is part of the one pass.
#include <wasm_simd128.h>

typedef unsigned char byte;
typedef unsigned int size;

static const char characters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Takes a constant through memory, so that it stays in a register: the engine would otherwise put it together anew
// wherever it is used.
static inline __attribute__((always_inline)) v128_t held(v128_t constant) {
    const v128_t* memory = &constant;
    __asm__("" : "+r"(memory) : : "memory");
    return *memory;
}

// Writes the padded base64 text of the source and returns its length. May write 16 bytes past a multiple of 16.
__attribute__((export_name("encode"))) size encode(const byte* source, size count, byte* target) {
    byte* const start = target;
    const v128_t spread = held(wasm_i8x16_const(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
    const v128_t first = held(wasm_i32x4_splat(0x0000003f));
    const v128_t second = held(wasm_i32x4_splat(0x003f0000));
    const v128_t lowerBits = held(wasm_i32x4_splat(0x003f03f0));
    const v128_t lowerShift = held(wasm_i32x4_splat(0x01000010));
    const v128_t lastLower = held(wasm_i8x16_splat(51));
    const v128_t lastUpper = held(wasm_i8x16_splat(25));
    const v128_t offsets =
        held(wasm_i8x16_const('A', 'a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                              '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 0, 0));
    for (; count >= 16; count -= 12, source += 12, target += 16) { // 12 bytes are used of the 16 that are loaded
        v128_t in = wasm_i8x16_swizzle(wasm_v128_load(source), spread);
        v128_t upper =
            wasm_v128_or(wasm_v128_and(wasm_u32x4_shr(in, 10), first), wasm_v128_and(wasm_u32x4_shr(in, 6), second));
        v128_t values = wasm_v128_or(upper, wasm_i16x8_mul(wasm_v128_and(in, lowerBits), lowerShift));
        // 0 upper case, 1 lower case, 2-11 digits, 12 plus, 13 slash
        v128_t kind = wasm_i8x16_sub(wasm_u8x16_sub_sat(values, lastLower), wasm_i8x16_gt(values, lastUpper));
        wasm_v128_store(target, wasm_i8x16_add(values, wasm_i8x16_swizzle(offsets, kind)));
    }
    for (; count >= 3; count -= 3, source += 3, target += 4) {
        size group = (size)source[0] << 16 | (size)source[1] << 8 | source[2];
        for (int i = 0; i < 4; i++)
            target[i] = (byte)characters[group >> (18 - 6 * i) & 63];
    }
    if (count > 0) {
        size group = (size)source[0] << 16 | (count == 2 ? (size)source[1] << 8 : 0);
        target[0] = (byte)characters[group >> 18];
        target[1] = (byte)characters[group >> 12 & 63];
        target[2] = count == 2 ? (byte)characters[group >> 6 & 63] : '=';
        target[3] = '=';
        target += 4;
    }
    return (size)(target - start);
}

static int valueOf(byte character) {
    if (character >= 'A' && character <= 'Z')
        return character - 'A';
    if (character >= 'a' && character <= 'z')
        return character - 'a' + 26;
    if (character >= '0' && character <= '9')
        return character - '0' + 52;
    return character == '+' ? 62 : character == '/' ? 63 : -1;
}

static size consumed; // characters that the last decode used

__attribute__((export_name("consumedByDecode"))) size consumedByDecode(void) {
    return consumed;
}

// Decodes the last characters of a text, or what is left of a piece: up to three characters stay unused when more of
// the text follows.
static int decodeTail(const byte* read, const byte* end, byte* target, const byte* from, const byte* start, int last) {
    for (;;) {
        const byte* const group = read;
        int values[4];
        int have = 0;
        for (; have < 4 && read < end; have++) {
            byte character = *read++;
            if (character == '\\') {
                if (read == end)
                    break;
                if (*read != '/')
                    return -1;
                character = *read++;
            }
            values[have] = character == '=' ? 64 : valueOf(character);
            if (values[have] < 0)
                return -1;
        }
        if (have < 4) {
            if (last && read != group)
                return -1;
            consumed = (size)(group - from);
            return (int)(target - start);
        }
        int padding = values[3] != 64 ? 0 : values[2] != 64 ? 1 : 2;
        if (values[0] == 64 || values[1] == 64 || (values[2] == 64 && padding != 2))
            return -1;
        if (padding > 0 && (!last || read != end))
            return -1;
        *target++ = (byte)(values[0] << 2 | values[1] >> 4);
        if (padding < 2)
            *target++ = (byte)(values[1] << 4 | values[2] >> 2);
        if (padding < 1)
            *target++ = (byte)(values[2] << 6 | values[3]);
    }
}

// Text is looked at in even steps. That with backslashes first goes, a piece at a time and without them, through memory
// of its own: so nothing depends on a branch, which random data would take by surprise all the time.
enum { block = 16, step = 2 * block, pieceSize = 4096 };

extern byte __heap_base; // by the linker: what is behind it, up to the end of the page, is free
static byte* const plain = &__heap_base;

static inline void copyStep(byte* target, const byte* source) {
    const v128_t first = wasm_v128_load(source);
    const v128_t second = wasm_v128_load(source + block);
    wasm_v128_store(target, first);
    wasm_v128_store(target + block, second);
}

static int hasBackslash(const byte* read, const byte* end) {
    const v128_t backslash = held(wasm_i8x16_splat('\\'));
    v128_t found = wasm_i8x16_splat(0);
    for (; read < end; read += step) {
        found = wasm_v128_or(found, wasm_i8x16_eq(wasm_v128_load(read), backslash));
        found = wasm_v128_or(found, wasm_i8x16_eq(wasm_v128_load(read + block), backslash));
    }
    return wasm_v128_any_true(found);
}

// Copies whole steps without their backslashes. Returns the end of the copy, null when a backslash precedes anything
// but a slash.
static byte* unescape(const byte* read, const byte* end, byte* write) {
    const v128_t slash = held(wasm_i8x16_splat('/'));
    const v128_t backslash = held(wasm_i8x16_splat('\\'));
    v128_t wrong = wasm_i8x16_splat(0);
    for (; read < end; read += step) {
        const v128_t first = wasm_i8x16_eq(wasm_v128_load(read), backslash);
        const v128_t second = wasm_i8x16_eq(wasm_v128_load(read + block), backslash);
        wrong = wasm_v128_or(wrong, wasm_v128_andnot(first, wasm_i8x16_eq(wasm_v128_load(read + 1), slash)));
        wrong = wasm_v128_or(wrong, wasm_v128_andnot(second, wasm_i8x16_eq(wasm_v128_load(read + block + 1), slash)));
        const size found = wasm_i8x16_bitmask(first) | wasm_i8x16_bitmask(second) << block;
        // What follows a backslash takes its place. When there is none, that is rubbish behind the step.
        size lane = found ? (size)__builtin_ctz(found) : step;
        copyStep(write, read);
        copyStep(write + lane, read + lane + 1);
        write += step - (found != 0);
        for (size more = found & (found - 1); more != 0; more &= more - 1) {
            lane = (size)__builtin_ctz(more);
            copyStep(write + lane - step, read + lane + 1);
            write--;
        }
    }
    return wasm_v128_any_true(wrong) ? 0 : write;
}

// Decodes text in steps. Returns where the data ends, null when the text is not base64.
static byte* decodeSteps(const byte* read, const byte* end, byte* write) {
    const v128_t badForLow = held(wasm_i8x16_const(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13,
                                                   0x1a, 0x1b, 0x1b, 0x1b, 0x1a));
    const v128_t badForHigh = held(wasm_i8x16_const(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10,
                                                    0x10, 0x10, 0x10, 0x10, 0x10));
    const v128_t offsets = held(wasm_i8x16_const(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0));
    const v128_t packed = held(wasm_i8x16_const(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
    const v128_t lowNibble = held(wasm_i8x16_splat(15));
    const v128_t slash = held(wasm_i8x16_splat('/'));
    const v128_t lowBytes = held(wasm_i16x8_splat(0x00ff));
    const v128_t pairWeights = held(wasm_i32x4_splat(0x00011000));
    v128_t wrong = wasm_i8x16_splat(0);
    for (; read < end; read += step) {
#pragma clang loop unroll(full)
        for (size part = 0; part < step; part += block, write += block / 4 * 3) {
            v128_t in = wasm_v128_load(read + part);
            v128_t high = wasm_v128_and(wasm_u16x8_shr(in, 4), lowNibble);
            wrong = wasm_v128_or(wrong, wasm_v128_and(wasm_i8x16_swizzle(badForLow, wasm_v128_and(in, lowNibble)),
                                                      wasm_i8x16_swizzle(badForHigh, high)));
            v128_t entry = wasm_i8x16_add(high, wasm_i8x16_eq(in, slash));
            v128_t values = wasm_i8x16_add(in, wasm_i8x16_swizzle(offsets, entry));
            v128_t pairs = wasm_v128_or(wasm_i16x8_shl(wasm_v128_and(values, lowBytes), 6), wasm_u16x8_shr(values, 8));
            wasm_v128_store(write, wasm_i8x16_swizzle(wasm_i32x4_dot_i16x8(pairs, pairWeights), packed));
        }
    }
    return wasm_v128_any_true(wrong) ? 0 : write;
}

static const byte* beforeBackslash(const byte* read, const byte* start) {
    return read > start && read[-1] == '\\' ? read - 1 : read;
}

// Decodes a text in which slashes may be preceded by a backslash. The target may be the source, or before it; it needs
// 16 bytes more than the data. Returns the number of bytes, -1 when the text is not base64. With `last` the text must
// end with a whole, perhaps padded group; without it, `consumedByDecode` tells how much of it was used.
__attribute__((export_name("decode"))) int decode(const byte* source, size count, byte* target, int last) {
    const byte* read = source;
    const byte* const end = source + count;
    byte* write = target;
    size waiting = 0;                // characters at the start of `plain`, fewer than a step
    while (end - read >= 2 * step) { // the last group stays for the tail
        const size whole = (size)(end - read - step) & ~(size)(step - 1);
        const byte* const stop = read + (whole < pieceSize ? whole : pieceSize);
        if (waiting == 0 && !hasBackslash(read, stop)) {
            write = decodeSteps(read, stop, write);
        } else {
            byte* const plainEnd = unescape(read, stop, plain + waiting);
            if (!plainEnd)
                return -1;
            waiting = (size)(plainEnd - plain) % step;
            write = decodeSteps(plain, plainEnd - waiting, write);
            copyStep(plain, plainEnd - waiting);
        }
        if (!write)
            return -1;
        read = stop;
    }
    // Back to where they came from; no output has reached that far.
    read = beforeBackslash(read, source);
    for (; waiting > 0; waiting--)
        read = beforeBackslash(read - 1, source);
    return decodeTail(read, end, write, source, target, last);
}
