// The sparks' cost at a sustained luminosity of 3.5e33 (nine new sparks a frame) on a
// 1920 x 1080 screen: spawning, the quadratic force pass and the movement with removal,
// frame after frame, without drawing. The argument is the frame time in milliseconds.
#include "fentra/views/game.h"
#include "fentra/views/hud.h"
#include "fentra/views/views.h"

#include "Morvane/random.h"

#include <benchmark/benchmark.h>

namespace {

const int W = 1920, H = 1080;
const double luminosity = 3.5e33;

struct spark_run {
    growarray list;
    spark_sprite *sprites = nullptr;
    unsigned capacity = 0;
    spark_run() { growarray_init(&list, sizeof(spark), 1); }
    ~spark_run()
    {
        growarray_free(&list);
        free(sprites);
    }
    void frame(double dt)
    {
        spawn_sparks(&list, sparks_for_luminosity(luminosity));
        spark_forces((spark *)list.data, list.count, dt);
        if (list.count > capacity) {
            capacity = list.count;
            sprites = (spark_sprite *)realloc(sprites, sizeof(spark_sprite) * capacity);
        }
        benchmark::DoNotOptimize(move_sparks(&list, dt, W, H, sprites));
    }
};

// 2,000 frames from an empty screen; reports the count at the end and its mean over the
// last 500 frames, where the count has settled.
void sparks_2000_frames(benchmark::State &state)
{
    double dt = state.range(0) * 1e-3 * 10;   // the sparks' clock runs ten times faster
    double settled = 0, last = 0;
    for (auto _ : state) {
        random15_restart();
        spark_run run;
        double sum = 0;
        for (int f = 0; f < 2000; f++) {
            run.frame(dt);
            if (f >= 1500) sum += run.list.count;
        }
        settled = sum / 500;
        last = run.list.count;
    }
    state.counters["sparks_settled"] = settled;
    state.counters["sparks_at_end"] = last;
    state.counters["frames"] = benchmark::Counter(2000, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(sparks_2000_frames)->Arg(12)->Unit(benchmark::kMillisecond);

// One frame at the settled count (after 2,000 untimed frames).
void sparks_settled_frame(benchmark::State &state)
{
    double dt = state.range(0) * 1e-3 * 10;
    random15_restart();
    spark_run run;
    for (int f = 0; f < 2000; f++) run.frame(dt);
    for (auto _ : state) run.frame(dt);
    state.counters["sparks"] = run.list.count;
}
BENCHMARK(sparks_settled_frame)->Arg(12)->Arg(20)->Unit(benchmark::kMicrosecond);

} // namespace
