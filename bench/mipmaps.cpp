// Speed of the software mipmap averaging on the largest font texture, 2048 x 64 RGBA:
// one halving of level 0, and the whole chain down to 1 x 1. Bytes are source bytes read.
#include "Morvane/gfx_opengl.h"

#include <benchmark/benchmark.h>

#include <vector>

static std::vector<unsigned char> image(int w, int h, int c)
{
    std::vector<unsigned char> v((size_t)((w * c + 3) & ~3) * h);
    unsigned s = 12345;
    for (auto &b : v) b = (unsigned char)((s = s * 1103515245u + 12345u) >> 16);
    return v;
}

static void halve_level_0(benchmark::State &state)
{
    const int w = 2048, h = 64, c = (int)state.range(0);
    std::vector<unsigned char> src = image(w, h, c), dst(src.size() / 4 + 16);
    for (auto _ : state) {
        mipmap_halve(src.data(), w, h, c, dst.data());
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * (int64_t)src.size());
}
BENCHMARK(halve_level_0)->Arg(4)->Arg(3)->Arg(2)->Arg(1);

static void whole_chain(benchmark::State &state)
{
    const int c = 4;
    std::vector<unsigned char> src = image(2048, 64, c), buffer(src.size());
    int64_t bytes = 0;
    for (auto _ : state) {
        const unsigned char *from = src.data();
        int w = 2048, h = 64;
        unsigned char *to = buffer.data();
        while (w > 1 || h > 1) {
            mipmap_halve(from, w, h, c, to);
            bytes += (int64_t)((w * c + 3) & ~3) * h;
            w = w / 2 > 1 ? w / 2 : 1;
            h = h / 2 > 1 ? h / 2 : 1;
            from = to;
            to += (size_t)((w * c + 3) & ~3) * h;
        }
        benchmark::DoNotOptimize(buffer.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(bytes);
}
BENCHMARK(whole_chain);
