// Fuzz targets: fields read off the front of the fuzzer's byte string. Every read succeeds:
// past the end, the missing bytes read as zero, so any input is a valid sequence of fields.
#pragma once

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

struct fuzz_input { const uint8_t *data; size_t size; };

// The next n bytes, or all that are left.
inline std::string fuzz_bytes(fuzz_input &in, size_t n) {
    std::string s((const char *)in.data, std::min(n, in.size));
    in.data += s.size(), in.size -= s.size();
    return s;
}

// A little-endian field of sizeof(T) bytes (fuzzing runs on little-endian machines).
template <class T> T fuzz_get(fuzz_input &in) {
    std::string bytes = fuzz_bytes(in, sizeof(T));
    T v{};
    memcpy(&v, bytes.data(), bytes.size());
    return v;
}

// Up to max_length bytes, the length read first as one byte.
inline std::string fuzz_string(fuzz_input &in, size_t max_length) {
    return fuzz_bytes(in, fuzz_get<uint8_t>(in) % (max_length + 1));
}

inline std::string fuzz_rest(fuzz_input &in) { return fuzz_bytes(in, in.size); }

// A whole file's bytes; none when it cannot be read.
inline std::string fuzz_read_file(const char *path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Equal, or both NaN.
inline bool fuzz_same(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }

// A new scratch file or directory "$TMPDIR/<name>_XXXXXX" (TMPDIR defaulting to /tmp), removed
// at exit (a directory must be empty by then). One a program.
inline const char *fuzz_scratch(const char *name, bool directory) {
    static char path[256];
    const char *tmp = getenv("TMPDIR");
    snprintf(path, sizeof path, "%s/%s_XXXXXX", tmp && *tmp ? tmp : "/tmp", name);
    int fd = directory ? (mkdtemp(path) ? 0 : -1) : mkstemp(path);
    if (fd < 0) abort();
    if (!directory) close(fd);
    atexit([] { remove(path); });
    return path;
}

// A failed check throws what failed and why: the replay in the unit suite names the input and
// goes on with the next; under the fuzzer the uncaught exception aborts, which the fuzzer
// records as a crash with its input.
[[noreturn, gnu::format(printf, 4, 5)]] inline void fuzz_fail(const char *file, int line, const char *condition,
                                                              const char *format, ...) {
    char message[1024];
    int at = snprintf(message, sizeof message, "%s:%d: %s\n  ", file, line, condition);
    va_list args;
    va_start(args, format);
    if (at > 0 && at < 1000) vsnprintf(message + at, sizeof message - at, format, args);
    va_end(args);
    throw std::runtime_error(message);
}
#define FUZZ_CHECK(condition, ...) ((condition) ? (void)0 : fuzz_fail(__FILE__, __LINE__, #condition, __VA_ARGS__))
