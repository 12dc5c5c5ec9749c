// Fuzz targets: reading fields off the front of the fuzzer's byte string. Every read succeeds:
// past the end, the missing bytes read as zero, so any input is a valid sequence of fields.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

struct fuzz_input {
    const uint8_t *data;
    size_t size;
};

inline size_t fuzz_left(const fuzz_input &in) { return in.size; }

inline uint8_t fuzz_u8(fuzz_input &in) {
    if (in.size == 0) return 0;
    uint8_t v = in.data[0];
    in.data++, in.size--;
    return v;
}

inline uint16_t fuzz_u16(fuzz_input &in) {
    uint16_t lo = fuzz_u8(in);
    return (uint16_t)(lo | fuzz_u8(in) << 8);
}

inline uint32_t fuzz_u32(fuzz_input &in) {
    uint32_t lo = fuzz_u16(in);
    return lo | (uint32_t)fuzz_u16(in) << 16;
}

inline double fuzz_f64(fuzz_input &in) {
    uint64_t bits = fuzz_u32(in);
    bits |= (uint64_t)fuzz_u32(in) << 32;
    double v;
    memcpy(&v, &bits, sizeof v);
    return v;
}

// Up to max_length bytes, the length read first as one byte.
inline std::string fuzz_string(fuzz_input &in, size_t max_length) {
    size_t n = fuzz_u8(in) % (max_length + 1);
    if (n > in.size) n = in.size;
    std::string s((const char *)in.data, n);
    in.data += n, in.size -= n;
    return s;
}

// The rest of the input.
inline std::string fuzz_rest(fuzz_input &in) {
    std::string s((const char *)in.data, in.size);
    in.data += in.size, in.size = 0;
    return s;
}

// A failed check says which and why. Under the fuzzer it aborts, which the fuzzer records as a
// crash with its input; when the unit suite replays inputs (FUZZ_REPLAY) it throws instead, so
// that the test can name the input and go on with the next.
#ifdef FUZZ_REPLAY
#include <stdexcept>
[[noreturn]] inline void fuzz_check_failed(const char *message) { throw std::runtime_error(message); }
#else
[[noreturn]] inline void fuzz_check_failed(const char *message) {
    fprintf(stderr, "%s\n", message);
    abort();
}
#endif

#define FUZZ_CHECK(condition, ...)                                                                  \
    do {                                                                                            \
        if (!(condition)) {                                                                         \
            char fuzz_message[1024];                                                                \
            int fuzz_at = snprintf(fuzz_message, sizeof fuzz_message, "%s:%d: check failed: %s\n  ", \
                                   __FILE__, __LINE__, #condition);                                 \
            if (fuzz_at > 0 && (size_t)fuzz_at < sizeof fuzz_message)                               \
                snprintf(fuzz_message + fuzz_at, sizeof fuzz_message - fuzz_at, __VA_ARGS__);       \
            fuzz_check_failed(fuzz_message);                                                        \
        }                                                                                           \
    } while (0)
