// Fuzz targets: fields read off the front of the fuzzer's byte string. Every read succeeds:
// past the end, the missing bytes read as zero, so any input is a valid sequence of fields.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

struct fuzz_input {
    const uint8_t *data;
    size_t size;
};

// The next n bytes, or all that are left.
inline std::string fuzz_bytes(fuzz_input &in, size_t n) {
    n = n < in.size ? n : in.size;
    std::string s((const char *)in.data, n);
    in.data += n, in.size -= n;
    return s;
}

// A little-endian field of sizeof(T) bytes (fuzzing runs on little-endian machines).
template <class T> T fuzz_get(fuzz_input &in) {
    std::string bytes = fuzz_bytes(in, sizeof(T));
    bytes.resize(sizeof(T));
    T v;
    memcpy(&v, bytes.data(), sizeof v);
    return v;
}

// Up to max_length bytes, the length read first as one byte.
inline std::string fuzz_string(fuzz_input &in, size_t max_length) {
    return fuzz_bytes(in, fuzz_get<uint8_t>(in) % (max_length + 1));
}

inline std::string fuzz_rest(fuzz_input &in) { return fuzz_bytes(in, in.size); }

// A failed check throws what failed and why: the replay in the unit suite names the input and
// goes on with the next; under the fuzzer the uncaught exception aborts, which the fuzzer
// records as a crash with its input.
#define FUZZ_CHECK(condition, ...)                                                                      \
    do {                                                                                                \
        if (!(condition)) {                                                                             \
            char fuzz_message[1024];                                                                    \
            int fuzz_at = snprintf(fuzz_message, sizeof fuzz_message, "%s:%d: %s\n  ", __FILE__, __LINE__, \
                                   #condition);                                                         \
            if (fuzz_at > 0 && fuzz_at < 1000) snprintf(fuzz_message + fuzz_at, 1024 - fuzz_at, __VA_ARGS__);       \
            throw std::runtime_error(fuzz_message);                                                     \
        }                                                                                               \
    } while (0)
