// The tracking step's kernel, written once for any group width: the kick and drift of groups
// of particles with the loss test, then the sums of squares in their exact order. Included by
// the file of each build (tracking.cpp, tracking_avx.cpp, tracking_avx512.cpp), each compiled
// for its own processor features; nothing outside tracking uses it.
#pragma once

#include "fentra/state.h"

#include <cstdint>
#include <cstring>
#if defined(__AVX__)
#include <immintrin.h>
#endif

// Square of the 0.07 m pipe radius as the double product 0.07 * 0.07; a particle exactly on
// the pipe survives.
static const double aperture_radius_squared = 0.004900000000000001;

// The fields of one step and where particles are lost.
struct step_fields {
    double ds, K, D, S, SX, OC;
    double bend;        // ds / rho^2 of the current bend
    bool with_bend;
    bool scraper;       // the scraper is in
    double edge;        // scraper edge, m
};

// What a step leaves besides the arrays.
struct step_result {
    int count;          // live particles after the step
    double sx, sy;      // sums of x^2 and y^2 with the loss accounting
    bool lost_first;    // slot 0 lost a particle
};

// The step in groups of two, four or eight particles, one build for each processor family;
// tracking.cpp chooses at start-up. loss_slots has room for n entries.
step_result step_beam_twos(int n, const step_fields &f, int *loss_slots);       // any processor
step_result step_beam_fours_avx(int n, const step_fields &f, int *loss_slots);  // AVX
step_result step_beam_eights(int n, const step_fields &f, int *loss_slots);     // AVX-512

// Two, four or eight neighbouring particles' values handled as one. Each operation keeps the
// rounding of a lone double (the build contracts nothing into fused multiply-adds), so a
// particle stepped in a group gets the same bits as one stepped alone.
typedef double two_doubles __attribute__((vector_size(16)));
typedef double four_doubles __attribute__((vector_size(32)));
typedef double eight_doubles __attribute__((vector_size(64)));
typedef long long two_masks __attribute__((vector_size(16)));

#define KERNEL_INLINE static inline __attribute__((always_inline))

static const double two52 = 0x1p52, two53 = 0x1p53;

template <typename V> constexpr int lanes = sizeof(V) / sizeof(double);

template <typename V> KERNEL_INLINE void load_lanes(V &v, const double *a)
{
    memcpy(&v, a, sizeof v);
}

template <typename V> KERNEL_INLINE void store_lanes(double *a, const V &v)
{
    memcpy(a, &v, sizeof v);
}

KERNEL_INLINE void spread(double &v, double d) { v = d; }
template <typename V> KERNEL_INLINE void spread(V &v, double d)
{
    for (int k = 0; k < lanes<V>; k++) v[k] = d;
}

// The fields spread over the lanes of a group (F = double for one particle), with 2 SX formed
// once, as the expression 2 SX x groups it.
template <typename F> struct lane_fields {
    F ds, K, D, S, SX, OC, bend, two_SX;
};

template <typename F> KERNEL_INLINE void spread_fields(lane_fields<F> &g, const step_fields &f)
{
    spread(g.ds, f.ds);
    spread(g.K, f.K);
    spread(g.D, f.D);
    spread(g.S, f.S);
    spread(g.SX, f.SX);
    spread(g.OC, f.OC);
    spread(g.bend, f.bend);
    spread(g.two_SX, 2.0 * f.SX);
}

// The kick and drift of one particle (T = double) or of a group. The x kick uses the old y',
// the y kick the new x' (solenoid coupling); the bend's horizontal weak focusing uses the old x.
template <typename T>
KERNEL_INLINE void kick_drift(T &x, T &y, T &xp, T &yp, const T &p, const lane_fields<T> &f,
                              bool with_bend)
{
    const T &ds = f.ds, &K = f.K, &D = f.D, &S = f.S, &SX = f.SX, &OC = f.OC;
    T xpn = xp - ((K * x + D - S * yp) + SX * (x * x - y * y) +
                  OC * (x * x * x - 3.0 * x * y * y)) * ds / p;
    T ypn = yp + ((3.0 * x * x * y - y * y * y) * OC + (f.two_SX * x + K) * y - S * xpn) * ds / p;
    if (with_bend) xpn = xpn - f.bend * x / p;
    x = x + xpn * ds;
    y = y + ypn * ds;
    xp = xpn;
    yp = ypn;
}

KERNEL_INLINE void step_one(int i, const lane_fields<double> &f, bool with_bend)
{
    kick_drift(beam_x[i], beam_y[i], beam_xp[i], beam_yp[i], beam_momentum[i], f, with_bend);
}

template <typename V> KERNEL_INLINE void step_group(int i, const lane_fields<V> &f, bool with_bend)
{
    V x, y, xp, yp, p;
    load_lanes(x, beam_x + i);
    load_lanes(y, beam_y + i);
    load_lanes(xp, beam_xp + i);
    load_lanes(yp, beam_yp + i);
    load_lanes(p, beam_momentum + i);
    kick_drift(x, y, xp, yp, p, f, with_bend);
    store_lanes(beam_x + i, x);
    store_lanes(beam_y + i, y);
    store_lanes(beam_xp + i, xp);
    store_lanes(beam_yp + i, yp);
}

KERNEL_INLINE bool lost_at(double x, double y, const step_fields &f)
{
    return x * x + y * y > aperture_radius_squared || (f.scraper && x > f.edge);
}

// Lane flags of a group: the bits of a mask where the processor's comparisons give them, else
// a mask vector.
template <typename V> struct lane_flags_of;
template <typename V> using lane_flags = typename lane_flags_of<V>::type;

KERNEL_INLINE bool any_lane(unsigned m) { return m != 0; }

#if defined(__AVX__)
KERNEL_INLINE double lane_total(const four_doubles &a)
{
    four_doubles h = a + __builtin_shufflevector(a, a, 2, 3, 0, 1);
    return h[0] + h[1];
}

template <> struct lane_flags_of<four_doubles> { typedef unsigned type; };

// Flags the particles of a group that lie beyond the pipe or the scraper edge.
KERNEL_INLINE void flag_lost(unsigned &out, const four_doubles &x, const four_doubles &y,
                             const step_fields &f)
{
    __m256d r2 = _mm256_set1_pd(aperture_radius_squared);
    out = _mm256_movemask_pd(_mm256_cmp_pd(x * x + y * y, r2, _CMP_GT_OQ));
    if (f.scraper) out |= _mm256_movemask_pd(_mm256_cmp_pd(x, _mm256_set1_pd(f.edge), _CMP_GT_OQ));
}

// Adds a flag for each lane of d that is a half.
KERNEL_INLINE void flag_halves(unsigned &h, const four_doubles &d)
{
    h |= _mm256_movemask_pd(_mm256_cmp_pd(d, _mm256_set1_pd(0.5), _CMP_EQ_OQ)) |
         _mm256_movemask_pd(_mm256_cmp_pd(d, _mm256_set1_pd(-0.5), _CMP_EQ_OQ));
}

// r = q rounded to the nearest whole number, ties to even.
KERNEL_INLINE void round_lanes(four_doubles &r, const four_doubles &q)
{
    r = _mm256_round_pd(q, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
}
#endif

// Groups of two for any processor: one register of 128-bit vectors.
template <> struct lane_flags_of<two_doubles> { typedef two_masks type; };

KERNEL_INLINE bool any_lane(const two_masks &m) { return (m[0] | m[1]) != 0; }

KERNEL_INLINE double lane_total(const two_doubles &a) { return a[0] + a[1]; }

KERNEL_INLINE void flag_lost(two_masks &out, const two_doubles &x, const two_doubles &y,
                             const step_fields &f)
{
    out = x * x + y * y > aperture_radius_squared;
    if (f.scraper) out = out | (x > f.edge);
}

KERNEL_INLINE void flag_halves(two_masks &h, const two_doubles &d)
{
    h = h | (d == 0.5) | (d == -0.5);
}

// Adding and taking away 2^52 rounds a value in [0, 2^52) to the nearest whole number, ties to
// even. Larger values, infinities and NaNs give totals the headroom test refuses.
KERNEL_INLINE void round_lanes(two_doubles &r, const two_doubles &q)
{
    r = (q + two52) - two52;
}

// Built for processors with 512-bit vectors: the comparisons give their lane bits directly.
#if defined(__AVX512F__)
template <> struct lane_flags_of<eight_doubles> { typedef unsigned type; };

KERNEL_INLINE void flag_lost(unsigned &out, const eight_doubles &x, const eight_doubles &y,
                             const step_fields &f)
{
    out = _mm512_cmp_pd_mask(x * x + y * y, _mm512_set1_pd(aperture_radius_squared), _CMP_GT_OQ);
    if (f.scraper) out |= _mm512_cmp_pd_mask(x, _mm512_set1_pd(f.edge), _CMP_GT_OQ);
}

KERNEL_INLINE void flag_halves(unsigned &h, const eight_doubles &d)
{
    h |= _mm512_cmp_pd_mask(_mm512_abs_pd(d), _mm512_set1_pd(0.5), _CMP_EQ_OQ);
}

KERNEL_INLINE void round_lanes(eight_doubles &r, const eight_doubles &q)
{
    r = _mm512_mask_roundscale_pd(q, 0xff, q, _MM_FROUND_TO_NEAREST_INT | _MM_FROUND_NO_EXC);
}

KERNEL_INLINE double lane_total(const eight_doubles &a)
{
    four_doubles lo = __builtin_shufflevector(a, a, 0, 1, 2, 3);
    four_doubles hi = __builtin_shufflevector(a, a, 4, 5, 6, 7);
    return lane_total(lo + hi);
}
#endif

// Steps the particles and takes the losses in slot order; returns the new count. A lost
// particle's slot is taken by the last live particle, which is tested next; each loss appends
// its slot to loss_slots. Every particle's step depends only on its own coordinates, so each is
// stepped just before it is needed: in groups, several groups ahead of the tests so that the
// divisions of later groups run while earlier ones are tested, and the last particle alone when
// it moves into a lost slot before its turn. The arrays come out as stepping and testing one
// particle at a time would leave them.
template <typename V, bool with_bend>
KERNEL_INLINE int step_and_take_losses(int n, const step_fields &fields, int *loss_slots,
                                       int *losses, bool *lost_first)
{
    constexpr int W = lanes<V>;
    double *X = beam_x, *Y = beam_y, *XP = beam_xp, *YP = beam_yp, *P = beam_momentum;
    lane_fields<double> f;
    lane_fields<V> g;
    spread_fields(f, fields);
    spread_fields(g, fields);
    int i = 0, stepped = 0;   // particles [0, stepped) are stepped, [stepped, n) not yet
    while (i < n) {
        while (stepped - i < 8 * W && n - stepped >= W) {
            step_group<V>(stepped, g, with_bend);
            stepped += W;
        }
        if (stepped - i >= W) {
            V x, y;
            load_lanes(x, X + i);
            load_lanes(y, Y + i);
            lane_flags<V> out;
            flag_lost(out, x, y, fields);
            if (!any_lane(out)) {
                i += W;
                continue;
            }
        }
        if (stepped == i) step_one(stepped++, f, with_bend);
        if (!lost_at(X[i], Y[i], fields)) {
            i++;
            continue;
        }
        // Lost: the last live particle moves into the slot and is tested next.
        n--;
        if (n >= stepped) step_one(n, f, with_bend);
        if (stepped > n) stepped = n;
        X[i] = X[n];
        Y[i] = Y[n];
        XP[i] = XP[n];
        YP[i] = YP[n];
        P[i] = P[n];
        loss_slots[(*losses)++] = i;
        if (i == 0) *lost_first = true;
    }
    return n;
}

// A running sum of non-negative terms that comes out exactly as adding the terms one after
// another in doubles. While the sum stays within one binade [2^E, 2^(E+1)) every value it can
// take is a whole number of units 2^(E-52), and adding a term rounds it to the nearest whole
// number of units: so the terms of a run can each be rounded on their own and the whole numbers
// added in any order, exactly, unless a term lies halfway between two units (the rounding to
// even then depends on the sum so far) or the run would carry the sum out of its binade.
// Those runs, and sums near zero, infinity or NaN, are added one term at a time.
struct ordered_sum {
    double headroom;   // units left before the binade's end; -1: add one term at a time
    double unit, units_per_one;
    double plain;      // the sum, when headroom is -1
};

// A power of two from its biased exponent.
KERNEL_INLINE double power_of_two(uint64_t biased_exponent)
{
    uint64_t bits = biased_exponent << 52;
    double d;
    memcpy(&d, &bits, sizeof d);
    return d;
}

// The running sum with the value s.
KERNEL_INLINE ordered_sum sum_at(double s)
{
    ordered_sum o;
    if (s >= 0x1p-900 && s < 0x1p900) {
        uint64_t bits;
        memcpy(&bits, &s, sizeof bits);
        uint64_t e = bits >> 52;   // s lies in [2^E, 2^(E+1)) with E = e - 1023
        o.unit = power_of_two(e - 52);             // 2^(E-52)
        o.units_per_one = power_of_two(2098 - e);  // 2^(52-E)
        o.headroom = two53 - s * o.units_per_one;
        o.plain = 0;
    } else {
        o.unit = o.units_per_one = 1;
        o.headroom = -1;
        o.plain = s;
    }
    return o;
}

KERNEL_INLINE double sum_value(const ordered_sum &o)
{
    return o.headroom < 0 ? o.plain : (two53 - o.headroom) * o.unit;
}

// Adds a[k]^2 for k in [begin, end) one at a time.
KERNEL_INLINE void add_squares_one_by_one(ordered_sum &o, const double *a, int begin, int end)
{
    double s = sum_value(o);
    for (int k = begin; k < end; k++) s += a[k] * a[k];
    o = sum_at(s);
}

// Each term a^2 of a group in whole units of the sum's binade, rounded to nearest; halfway
// gets a flag for each term that lies halfway between two units.
template <typename V>
KERNEL_INLINE void whole_units(V &r, const double *a, const ordered_sum &o, lane_flags<V> &halfway)
{
    V v;
    load_lanes(v, a);
    V q = v * v * o.units_per_one;
    round_lanes(r, q);
    flag_halves(halfway, q - r);
}

// Adds the squares of one group of W values.
template <typename V> KERNEL_INLINE void add_group_of_squares(ordered_sum &o, const double *a)
{
    lane_flags<V> halfway = {};
    V r;
    whole_units(r, a, o, halfway);
    double t = lane_total(r);
    if (!any_lane(halfway) && t < o.headroom)
        o.headroom -= t;
    else
        add_squares_one_by_one(o, a, 0, lanes<V>);
}

// Adds a[k]^2 for k in [begin, end): four groups at a time while they fit in the binade,
// group by group where they do not.
template <typename V>
KERNEL_INLINE void add_run_of_squares(ordered_sum &o, const double *a, int begin, int end)
{
    constexpr int W = lanes<V>;
    int k = begin;
    while (end - k >= 4 * W) {
        lane_flags<V> halfway = {};
        V r0, r1, r2, r3;
        whole_units(r0, a + k, o, halfway);
        whole_units(r1, a + k + W, o, halfway);
        whole_units(r2, a + k + 2 * W, o, halfway);
        whole_units(r3, a + k + 3 * W, o, halfway);
        double t = lane_total((r0 + r1) + (r2 + r3));
        if (!any_lane(halfway) && t < o.headroom) {
            o.headroom -= t;
        } else {
            for (int g = 0; g < 4; g++) add_group_of_squares<V>(o, a + k + g * W);
        }
        k += 4 * W;
    }
    for (; end - k >= W; k += W) add_group_of_squares<V>(o, a + k);
    add_squares_one_by_one(o, a, k, end);
}

// The sum of a[k]^2 over the step's survivors in slot order, with each loss at slot s > 0
// adding a[s-1]^2 once more just before a[s]^2 (loss_slots lists the slots in order).
template <typename V>
KERNEL_INLINE double ordered_sum_of_squares(const double *a, int n, const int *loss_slots,
                                            int losses)
{
    ordered_sum o = sum_at(0);
    int k = 0;
    for (int j = 0; j <= losses; j++) {
        int stop = j < losses ? loss_slots[j] : n;
        add_run_of_squares<V>(o, a, k, stop);
        k = stop;
        if (j < losses && k > 0) add_squares_one_by_one(o, a, k - 1, k);
    }
    return sum_value(o);
}

// The whole step for groups of V, compiled once with the bend term and once without so that
// neither loop tests it.
template <typename V>
KERNEL_INLINE step_result step_beam_in_groups(int n, const step_fields &f, int *loss_slots)
{
    step_result r;
    int losses = 0;
    r.lost_first = false;
    if (f.with_bend)
        r.count = step_and_take_losses<V, true>(n, f, loss_slots, &losses, &r.lost_first);
    else
        r.count = step_and_take_losses<V, false>(n, f, loss_slots, &losses, &r.lost_first);
    r.sx = ordered_sum_of_squares<V>(beam_x, r.count, loss_slots, losses);
    r.sy = ordered_sum_of_squares<V>(beam_y, r.count, loss_slots, losses);
    return r;
}
