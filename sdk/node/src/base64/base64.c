// Base64 for WebAssembly with 128-bit vectors. build.mjs makes base64Module.mjs of it.
//
// Requests may have every slash of their base64 text escaped. Decoding such a text with what node offers takes a second
// pass over strings that costs more than the rest of the exchange; here it is part of the one pass.
#include <wasm_simd128.h>

typedef unsigned char byte;
typedef unsigned int size;

static const char characters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Keeps a constant in a register: the engine would otherwise make it anew wherever it is used.
static inline __attribute__((always_inline)) v128_t held(v128_t value) {
    __asm__("" : "+r"(value));
    return value;
}

// Writes the padded base64 text of the source and returns its length. May write 16 bytes past a multiple of 16.
__attribute__((export_name("encode"))) size encode(const byte* source, size count, byte* target) {
    byte* const start = target;
    const v128_t spread = held(wasm_i8x16_const(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
    const v128_t upperBits = held(wasm_i32x4_splat(0x0fc0fc00));
    const v128_t lowerBits = held(wasm_i32x4_splat(0x003f03f0));
    const v128_t evenLanes = held(wasm_i32x4_splat(0x0000ffff));
    const v128_t lowerShift = held(wasm_i32x4_splat(0x01000010));
    const v128_t offsets =
        held(wasm_i8x16_const('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                              '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0));
    const v128_t lastLower = held(wasm_i8x16_splat(51));
    const v128_t firstLower = held(wasm_i8x16_splat(26));
    const v128_t upperOffset = held(wasm_i8x16_splat(13));
    for (; count >= 16; count -= 12, source += 12, target += 16) { // 12 bytes are used of the 16 that are loaded
        v128_t in = wasm_i8x16_swizzle(wasm_v128_load(source), spread);
        v128_t upper = wasm_v128_and(in, upperBits);
        v128_t shifted = wasm_v128_bitselect(wasm_u16x8_shr(upper, 10), wasm_u16x8_shr(upper, 6), evenLanes);
        v128_t values = wasm_v128_or(shifted, wasm_i16x8_mul(wasm_v128_and(in, lowerBits), lowerShift));
        v128_t kind = wasm_u8x16_sub_sat(values, lastLower); // 0 letters, 1-10 digits, 11 plus, 12 slash
        kind = wasm_v128_or(kind, wasm_v128_and(wasm_i8x16_gt(firstLower, values), upperOffset));
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

// Decodes a text in which slashes may be preceded by a backslash. The target may be the source, or before it; it needs
// 16 bytes more than the data. Returns the number of bytes, -1 when the text is not base64. With `last` the text must
// end with a whole, perhaps padded group; without it, `consumedByDecode` tells how much of it was used.
__attribute__((export_name("decode"))) int decode(const byte* source, size count, byte* target, int last) {
    // Sixteen lanes below k are ones in the vector that begins 16 - k bytes into these.
    static const byte lanesBelow[32] = {255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255};
    const v128_t badForLow = held(wasm_i8x16_const(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13,
                                                   0x1a, 0x1b, 0x1b, 0x1b, 0x1a));
    const v128_t badForHigh = held(wasm_i8x16_const(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10,
                                                    0x10, 0x10, 0x10, 0x10, 0x10));
    const v128_t offsets = held(wasm_i8x16_const(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0));
    const v128_t packed = held(wasm_i8x16_const(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
    const v128_t lowNibble = held(wasm_i8x16_splat(15));
    const v128_t slash = held(wasm_i8x16_splat('/'));
    const v128_t backslash = held(wasm_i8x16_splat('\\'));
    const v128_t lowBytes = held(wasm_i16x8_splat(0x00ff));
    const v128_t pairWeights = held(wasm_i32x4_splat(0x00011000));
    const byte* read = source;
    const byte* const end = source + count;
    byte* write = target;
    while (end - read >= 36) { // 16 characters, each perhaps escaped, and the last group stays for the tail
        v128_t in = wasm_v128_load(read);
        size escapes = 0;
        v128_t high = wasm_u8x16_shr(in, 4);
        while (wasm_v128_any_true(wasm_v128_and(wasm_i8x16_swizzle(badForLow, wasm_v128_and(in, lowNibble)),
                                                wasm_i8x16_swizzle(badForHigh, high)))) {
            size where = wasm_i8x16_bitmask(wasm_i8x16_eq(in, backslash));
            if (where == 0)
                return -1;
            size lane = (size)__builtin_ctz(where);
            escapes++;
            if (read[lane + escapes] != '/')
                return -1;
            in = wasm_v128_bitselect(in, wasm_v128_load(read + escapes), wasm_v128_load(lanesBelow + 16 - lane));
            high = wasm_u8x16_shr(in, 4);
        }
        v128_t values = wasm_i8x16_add(in, wasm_i8x16_swizzle(offsets, wasm_i8x16_add(high, wasm_i8x16_eq(in, slash))));
        v128_t pairs = wasm_v128_or(wasm_i16x8_shl(wasm_v128_and(values, lowBytes), 6), wasm_u16x8_shr(values, 8));
        wasm_v128_store(write, wasm_i8x16_swizzle(wasm_i32x4_dot_i16x8(pairs, pairWeights), packed));
        read += 16 + escapes;
        write += 12;
    }
    return decodeTail(read, end, write, source, target, last);
}
