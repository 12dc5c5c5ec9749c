// The step's sums of squares: whatever the values, they come out bit for bit as adding the
// squares one after another in slot order, with the extra count of the previous particle on
// each loss. The kernel is compiled here for plain x86-64, the build that runs where the
// processor has no AVX.
#include "fentra/tracking_kernel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

// The sum as described: survivors in slot order, a loss at slot s > 0 adding a[s-1]^2 first.
double sequential(const std::vector<double> &a, const std::vector<int> &loss_slots)
{
    double s = 0;
    size_t j = 0;
    for (size_t k = 0; k <= a.size(); k++) {
        for (; j < loss_slots.size() && loss_slots[j] == (int)k; j++)
            if (k > 0) s += a[k - 1] * a[k - 1];
        if (k < a.size()) s += a[k] * a[k];
    }
    return s;
}

double grouped(const std::vector<double> &a, const std::vector<int> &loss_slots)
{
    return ordered_sum_of_squares<two_doubles>(a.data(), (int)a.size(), loss_slots.data(),
                                                (int)loss_slots.size());
}

void expect_same_bits(double want, double got, const char *what)
{
    if (std::isnan(want)) {
        EXPECT_TRUE(std::isnan(got)) << what;
    } else {
        EXPECT_EQ(want, got) << what;
        EXPECT_EQ(std::signbit(want), std::signbit(got)) << what;
    }
}

// Values that make the hard cases common: squares that fall exactly halfway between two units
// of the sum (small multiples of a power of two), sums that cross many binades, zeros,
// subnormals, huge values, infinities and NaNs.
std::vector<double> values(std::mt19937 &gen, int kind, int n)
{
    std::uniform_real_distribution<double> u(-1, 1);
    std::uniform_int_distribution<int> small(0, 40);
    std::vector<double> a(n);
    for (int k = 0; k < n; k++) {
        switch (kind) {
        case 0: a[k] = 0.01 * u(gen); break;                              // a beam
        case 1: a[k] = k == 0 ? 1.7 : std::ldexp((double)small(gen), -26); break; // halfway terms
        case 2: a[k] = std::ldexp(u(gen), (int)(gen() % 60) - 30); break; // wide magnitudes
        case 3: a[k] = k % 97 == 0 ? 1e-160 : 1e-3 * u(gen); break;       // subnormal squares
        case 4: a[k] = k % 211 == 0 ? 1e160 : 1e-3 * u(gen); break;       // huge squares
        case 5: a[k] = k == n / 2 ? std::numeric_limits<double>::quiet_NaN() : u(gen); break;
        case 6: a[k] = k == n / 3 ? std::numeric_limits<double>::infinity() : u(gen); break;
        default: a[k] = k < n / 2 ? 0.0 : std::ldexp(1.0, -(k % 8)); break; // zeros, then powers
        }
    }
    return a;
}

TEST(step_sums, equal_one_after_another_addition_bit_for_bit)
{
    std::mt19937 gen(7);
    const int counts[] = {0, 1, 3, 4, 5, 15, 16, 17, 33, 100, 1000, 10000};
    for (int kind = 0; kind < 8; kind++) {
        for (int n : counts) {
            for (int with_losses = 0; with_losses < 2; with_losses++) {
                std::vector<double> a = values(gen, kind, n);
                std::vector<int> slots;
                if (with_losses) {
                    // Losses at slot 0, repeated slots, scattered slots and the end.
                    for (int s = 0; s <= n; s += 1 + (int)(gen() % 40))
                        for (int r = (int)(gen() % 3); r >= 0; r--) slots.push_back(s);
                    slots.push_back(n);
                }
                std::string what = "kind " + std::to_string(kind) + " n " + std::to_string(n) +
                                   (with_losses ? " with losses" : "");
                expect_same_bits(sequential(a, slots), grouped(a, slots), what.c_str());
            }
        }
    }
}

// The halfway case itself. After a first term whose square lies in [2, 4) with an odd number
// of units 2^-51, terms (k 2^-26)^2 lie a whole number of units (even k) or exactly halfway
// between two (odd k): the sum stays odd through the first group, then each halfway term
// rounds it to even, which depends on the sum so far; rounding each term on its own would come
// out otherwise.
TEST(step_sums, halfway_terms_round_to_even_with_the_sum_so_far)
{
    const double unit = 0x1p-51;
    double first = 0;
    for (double c = 1.5; c < 1.9 && first == 0; c += 0.001)
        if (std::fmod(c * c / unit, 2.0) == 1.0) first = c;
    ASSERT_NE(first, 0) << "no first term with an odd number of units";
    std::vector<double> a = {first};
    for (int k : {2, 4, 2, 2, 6, 2, 2, 1, 3, 1, 1, 5, 3, 1, 7, 1, 1, 3, 1, 1, 1, 9, 1, 1, 3, 2, 2, 4})
        a.push_back(k * 0x1p-26);

    double each_on_its_own = first * first;
    for (size_t k = 1; k < a.size(); k++) each_on_its_own += std::nearbyint(a[k] * a[k] / unit) * unit;
    ASSERT_NE(sequential(a, {}), each_on_its_own) << "the data has no parity-dependent halfway term";
    expect_same_bits(sequential(a, {}), grouped(a, {}), "halfway terms");
    expect_same_bits(sequential(a, {0, 5, 5, 18, 29}), grouped(a, {0, 5, 5, 18, 29}), "halfway terms, losses");
}

TEST(step_sums, running_sum_keeps_its_value)
{
    const double samples[] = {0.0, 1e-300, 0x1p-900, 3.5e-6, 0.1, 1.0, 0x1p52, 1e300,
                              std::numeric_limits<double>::infinity()};
    for (double s : samples) EXPECT_EQ(sum_value(sum_at(s)), s) << s;
    EXPECT_TRUE(std::isnan(sum_value(sum_at(std::nan("")))));
}

}  // namespace
