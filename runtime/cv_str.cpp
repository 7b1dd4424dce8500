/* Strings, numbers, error texts and base64. */
#include "cv_str.h"

#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "cv_error.h"
#include "cv_log.h"
#include "cv_str_internal.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define CV_BASE64_X86 1
#else
#define CV_BASE64_X86 0
#endif

namespace {

const char* strOrNull(const char* s) {
    return s ? s : "(null)";
}

/* ---- error texts ---- */

struct ErrText {
    int code;
    const char* text;
};

const ErrText kErrTexts[] = {
    {CV_ERR_INVALID_DOC_ROOT, "Invalid doc root path"},
    {CV_ERR_TOKEN_MISMATCH, "Invalid command or token separator mismatch"},
    {CV_ERR_BASENAME_NOT_FOUND, "Base file/directory name not found in path"},
    {CV_ERR_PATH_MISMATCH, "File/directory path mismatch"},
    {CV_ERR_ILLEGAL_UTF, "Illegal UTF string"},
    {CV_ERR_BUFFER_SPACE, "Insufficient buffer space"},
    {CV_ERR_END, "End or directory reached"},
    {CV_ERR_LIBRARY, "Library open/close failed"},
    {CV_ERR_MODULE_LOAD, "Library module loading failed"},
    {CV_ERR_UUID, "Could not create UUID string"},
    {CV_ERR_XML_CONFIG, "Could not parse xml file for configs"},
    {CV_ERR_LOCALE, "Could not read locale info"},
    {CV_ERR_MD5, "Could not compute md5sum"},
    {CV_ERR_SHA, "Could not compute SHA hash"},
    {CV_ERR_LOG_MESSAGE, "Could not log message"},
    {CV_ERR_USER_NAME, "Invalid user name"},
    {CV_ERR_UAC_PARSE, "Parse error inside UAC"},
    {CV_ERR_NO_XFER, "No transmitting xfer found"},
    {CV_ERR_UNIMPLEMENTED, "Unimplemented function"},
    {CV_ERR_INTERNAL, "Internal error"},
    {CV_ERR_REACHED_END, "Reached end"},
    {CV_ERR_STORAGE, "Storage inaccessible"},
    {CV_ERR_BAD_PATHNAME, "Bad pathname"},
    {CV_ERR_INSECURE, "Connection insecure"},
    {CV_ERR_FILE_NOT_VALID, "File not valid"},
};

/* strerror_r comes in two shapes: the XSI one returns an int and fills buf,
 * the GNU one returns the text (which may or may not be buf). */
[[maybe_unused]] const char* strerrorResult(int rc, const char* buf) {
    return rc == 0 ? buf : nullptr;
}
[[maybe_unused]] const char* strerrorResult(const char* text, const char*) {
    return text;
}

/* ---- base64 ---- */

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/* Two output characters for every 12-bit value: one lookup per half of a
 * 3-byte group. */
struct PairTable {
    char pair[4096][2];
};

constexpr PairTable makePairTable() {
    PairTable t{};
    for (int i = 0; i < 4096; ++i) {
        t.pair[i][0] = kAlphabet[i >> 6];
        t.pair[i][1] = kAlphabet[i & 63];
    }
    return t;
}

constexpr PairTable kPairs = makePairTable();

/* Encodes len bytes into 4 * ceil(len / 3) characters plus a NUL. */
void encodeScalar(const uint8_t* in, size_t len, char* out) {
    size_t i = 0;
    for (; i + 12 <= len; i += 12, out += 16) {
        for (int g = 0; g < 4; ++g) {
            const uint8_t* s = in + i + 3 * g;
            uint32_t v = (uint32_t(s[0]) << 16) | (uint32_t(s[1]) << 8) | s[2];
            memcpy(out + 4 * g, kPairs.pair[v >> 12], 2);
            memcpy(out + 4 * g + 2, kPairs.pair[v & 0xfff], 2);
        }
    }
    for (; i + 3 <= len; i += 3, out += 4) {
        uint32_t v = (uint32_t(in[i]) << 16) | (uint32_t(in[i + 1]) << 8) | in[i + 2];
        memcpy(out, kPairs.pair[v >> 12], 2);
        memcpy(out + 2, kPairs.pair[v & 0xfff], 2);
    }
    size_t rest = len - i;
    if (rest == 1) {
        uint32_t v = uint32_t(in[i]) << 16;
        memcpy(out, kPairs.pair[v >> 12], 2);
        out[2] = '=';
        out[3] = '=';
        out += 4;
    } else if (rest == 2) {
        uint32_t v = (uint32_t(in[i]) << 16) | (uint32_t(in[i + 1]) << 8);
        memcpy(out, kPairs.pair[v >> 12], 2);
        out[2] = kAlphabet[(v >> 6) & 63];
        out[3] = '=';
        out += 4;
    }
    *out = '\0';
}

#if CV_BASE64_X86
/* The vector encoders work on 32-bit lanes, each holding one 3-byte group
 * (a, b, c) shuffled into the byte order b, a, c, b. Two multiplies move
 * the four 6-bit fields into the four bytes of the lane, and one table
 * lookup per byte turns the field into its character:
 *   0..25 -> 'A'+i, 26..51 -> 'a'+i-26, 52..61 -> '0'+i-52, 62 '+', 63 '/'.
 * The lookup picks an offset to add: a saturating subtract sorts 52..63
 * into 1..12, a compare marks 0..25 as 13, and 26..51 stay 0. */

__attribute__((target("ssse3"))) inline __m128i sextets128(__m128i in) {
    in = _mm_shuffle_epi8(in, _mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
    // mulhi puts a>>2 in byte 0 and the middle field of b, c in byte 2;
    // mullo puts the low field of a, b in byte 1 and c & 63 in byte 3.
    __m128i t0 = _mm_and_si128(in, _mm_set1_epi32(0x0fc0fc00));
    __m128i t1 = _mm_mulhi_epu16(t0, _mm_set1_epi32(0x04000040));
    __m128i t2 = _mm_and_si128(in, _mm_set1_epi32(0x003f03f0));
    __m128i t3 = _mm_mullo_epi16(t2, _mm_set1_epi32(0x01000010));
    return _mm_or_si128(t1, t3);
}

__attribute__((target("ssse3"))) inline __m128i toAscii128(__m128i idx) {
    const __m128i offsets =
        _mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                      '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
    __m128i sel = _mm_subs_epu8(idx, _mm_set1_epi8(51));
    __m128i upper = _mm_cmpgt_epi8(_mm_set1_epi8(26), idx);
    sel = _mm_or_si128(sel, _mm_and_si128(upper, _mm_set1_epi8(13)));
    return _mm_add_epi8(_mm_shuffle_epi8(offsets, sel), idx);
}

__attribute__((target("ssse3"))) void encodeSsse3(const uint8_t* in, size_t len, char* out) {
    // Each step reads 16 bytes and uses 12: stop while 16 remain readable.
    size_t i = 0;
    for (; i + 16 <= len; i += 12, out += 16) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), toAscii128(sextets128(v)));
    }
    encodeScalar(in + i, len - i, out);
}

__attribute__((target("avx2"))) inline __m256i sextets256(__m256i in) {
    in = _mm256_shuffle_epi8(in, _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10,  //
                                                  1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
    __m256i t0 = _mm256_and_si256(in, _mm256_set1_epi32(0x0fc0fc00));
    __m256i t1 = _mm256_mulhi_epu16(t0, _mm256_set1_epi32(0x04000040));
    __m256i t2 = _mm256_and_si256(in, _mm256_set1_epi32(0x003f03f0));
    __m256i t3 = _mm256_mullo_epi16(t2, _mm256_set1_epi32(0x01000010));
    return _mm256_or_si256(t1, t3);
}

__attribute__((target("avx2"))) inline __m256i toAscii256(__m256i idx) {
    const __m256i offsets =
        _mm256_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                         '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0,  //
                         'a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                         '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
    __m256i sel = _mm256_subs_epu8(idx, _mm256_set1_epi8(51));
    __m256i upper = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), idx);
    sel = _mm256_or_si256(sel, _mm256_and_si256(upper, _mm256_set1_epi8(13)));
    return _mm256_add_epi8(_mm256_shuffle_epi8(offsets, sel), idx);
}

/* Bytes i .. i+11 in the low lane, i+12 .. i+23 in the high lane. */
__attribute__((target("avx2"))) inline __m256i load24(const uint8_t* p) {
    __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 12));
    return _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1);
}

__attribute__((target("avx2"))) void encodeAvx2(const uint8_t* in, size_t len, char* out) {
    // Each step reads bytes i .. i+27 and uses 24 of them: stop while 28
    // remain readable. Two steps per turn keep both multipliers busy.
    size_t i = 0;
    for (; i + 52 <= len; i += 48, out += 64) {
        __m256i a = toAscii256(sextets256(load24(in + i)));
        __m256i b = toAscii256(sextets256(load24(in + i + 24)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), a);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 32), b);
    }
    for (; i + 28 <= len; i += 24, out += 32)
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), toAscii256(sextets256(load24(in + i))));
    encodeSsse3(in + i, len - i, out);
}
#endif

using Encoder = void (*)(const uint8_t*, size_t, char*);

#if CV_BASE64_X86
struct CpuFeatures {
    bool ssse3;
    bool avx2;
};

/* Read once: the checks also make sure the system saves the vector
 * registers on a context switch. */
const CpuFeatures& cpuFeatures() {
    static const CpuFeatures features = [] {
        __builtin_cpu_init();
        return CpuFeatures{__builtin_cpu_supports("ssse3") != 0, __builtin_cpu_supports("avx2") != 0};
    }();
    return features;
}
#endif

Encoder encoderFor(int impl) {
    switch (impl) {
        case CV_BASE64_SCALAR:
            return encodeScalar;
#if CV_BASE64_X86
        case CV_BASE64_SSSE3:
            return cpuFeatures().ssse3 ? encodeSsse3 : nullptr;
        case CV_BASE64_AVX2:
            // The AVX2 encoder finishes its tail with SSSE3.
            return (cpuFeatures().avx2 && cpuFeatures().ssse3) ? encodeAvx2 : nullptr;
#endif
        default:
            return nullptr;
    }
}

int selectedImpl() {
    static const int impl = encoderFor(CV_BASE64_AVX2)    ? CV_BASE64_AVX2
                            : encoderFor(CV_BASE64_SSSE3) ? CV_BASE64_SSSE3
                                                          : CV_BASE64_SCALAR;
    return impl;
}

int encodeBase64(Encoder enc, const void* in, size_t len, char* out, size_t size) {
    if (!in || len == 0 || !out) return EINVAL;
    size_t groups = len / 3 + (len % 3 != 0);
    if (groups > (SIZE_MAX - 1) / 4 || size <= groups * 4) return CV_ERR_BUFFER_SPACE;
    enc(static_cast<const uint8_t*>(in), len, out);
    return 0;
}

}  // namespace

extern "C" {

int cv_str_atoi(const char* s) {
    return s ? atoi(s) : 0;
}

char* cv_str_itoa(int value, char* buf) {
    if (buf) snprintf(buf, 12, "%d", value);
    return buf;
}

int cv_str_nto(char* dst, const char* src, size_t maxlen, size_t size, size_t* pos) {
    if (!dst || !src || !pos || *pos >= size) {
        cv_log("Warning: cv_str_to failure, args %p %p %lu %lu '%s'", static_cast<void*>(dst),
               static_cast<const void*>(src), static_cast<unsigned long>(size),
               static_cast<unsigned long>(pos ? *pos : 0), strOrNull(src));
        if (dst && size > 0) dst[0] = '\0';
        return EINVAL;
    }
    size_t room = size - 1 - *pos;
    size_t n = strnlen(src, maxlen);
    char* at = dst + *pos;
    if (n <= room) {
        memcpy(at, src, n);
        at[n] = '\0';
        *pos += n;
        return 0;
    }
    memcpy(at, src, room);
    at[room] = '\0';
    *pos += cv_utf8_trim_trailing_partial(at, room);
    return CV_ERR_BUFFER_SPACE;
}

int cv_str_to(char* dst, const char* src, size_t size, size_t* pos) {
    return cv_str_nto(dst, src, SIZE_MAX, size, pos);
}

int cv_str_ncpy(char* dst, const char* src, size_t size) {
    size_t pos = 0;
    return cv_str_nto(dst, src, SIZE_MAX, size, &pos);
}

int cv_str_ncat(char* dst, const char* src, size_t size) {
    if (src && src[0] == '\0') return 0;
    size_t pos = (dst && size > 0) ? strnlen(dst, size) : 0;
    if (dst && src && size > 0 && pos >= size - 1) return CV_ERR_BUFFER_SPACE;  // already full: left as it is
    return cv_str_nto(dst, src, SIZE_MAX, size, &pos);
}

size_t cv_utf8_trim_trailing_partial(char* s, size_t len) {
    if (!s || len == 0) return len;
    // Walk back over at most three continuation bytes to the lead byte of
    // the last sequence.
    size_t i = len;
    size_t cont = 0;
    while (i > 0 && cont < 3 && (static_cast<unsigned char>(s[i - 1]) & 0xC0) == 0x80) {
        --i;
        ++cont;
    }
    if (i == 0) return len;
    unsigned char lead = static_cast<unsigned char>(s[i - 1]);
    size_t need;
    if ((lead & 0xE0) == 0xC0)
        need = 2;
    else if ((lead & 0xF0) == 0xE0)
        need = 3;
    else if ((lead & 0xF8) == 0xF0)
        need = 4;
    else
        return len;  // ASCII, or not UTF-8 at all: nothing partial to remove
    if (cont + 1 >= need) return len;
    s[i - 1] = '\0';
    return i - 1;
}

int cv_platform_errstr(int code, char* buf, size_t size) {
    if (!buf || size == 0) return EINVAL;
    for (const ErrText& e : kErrTexts) {
        if (e.code == code) return cv_str_ncpy(buf, e.text, size);
    }
    char tmp[256];
    tmp[0] = '\0';
    const char* text = strerrorResult(strerror_r(code, tmp, sizeof tmp), tmp);
    if (!text || !text[0]) {
        snprintf(tmp, sizeof tmp, "Unknown error %d", code);
        text = tmp;
    }
    return cv_str_ncpy(buf, text, size);
}

int cv_str_buf_to_base64(const void* in, size_t len, char* out, size_t size) {
    static const Encoder best = encoderFor(selectedImpl());
    return encodeBase64(best, in, len, out, size);
}

int cv_base64_impl_supported(int impl) {
    return encoderFor(impl) ? 1 : 0;
}

int cv_base64_impl_selected(void) {
    return selectedImpl();
}

int cv_str_buf_to_base64_impl(int impl, const void* in, size_t len, char* out, size_t size) {
    Encoder enc = encoderFor(impl);
    if (!enc) return CV_ERR_UNIMPLEMENTED;
    return encodeBase64(enc, in, len, out, size);
}

}  // extern "C"
