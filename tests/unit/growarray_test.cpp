// The growable array: capacities as it grows and shrinks with growth setting 60, removal by
// moving the last record, the alias pointer, and the no-op and clear cases.
#include "Morvane/growarray.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

namespace {

struct record {
    int id;
    double value;
};

record make(int id) { return record{id, id * 0.5}; }

const record *records(const growarray &a) { return (const record *)a.data; }

// An array of the given minimum capacity holding records 0 .. n-1.
growarray filled(unsigned min_capacity, int n)
{
    growarray a;
    growarray_init(&a, sizeof(record), min_capacity);
    for (int k = 0; k < n; k++) {
        record r = make(k);
        growarray_append(&a, &r);
    }
    return a;
}

// Capacity after each append from an empty array of capacity 1: a full block grows to
// trunc((count + 1) / 0.8), e.g. 4 / 0.8 = 5, 6 / 0.8 = 7.5 -> 7, 11 / 0.8 = 13.75 -> 13.
TEST(growarray, append_grows_a_full_block_by_a_quarter)
{
    const unsigned expected[] = {
        1, 2, 3, 5, 5, 7, 7, 10, 10, 10, 13, 13, 13, 17, 17, 17, 17, 22, 22, 22,
        22, 22, 28, 28, 28, 28, 28, 28, 36, 36, 36, 36, 36, 36, 36, 36, 46, 46, 46, 46};
    growarray a;
    growarray_init(&a, sizeof(record), 1);
    for (unsigned k = 0; k < sizeof expected / sizeof expected[0]; k++) {
        record r = make((int)k);
        record *slot = (record *)growarray_append(&a, &r);
        ASSERT_EQ(a.count, k + 1);
        EXPECT_EQ(a.capacity, expected[k]) << "after append number " << k + 1;
        EXPECT_EQ(slot, records(a) + k) << "append returns the new record";
    }
    for (unsigned k = 0; k < a.count; k++) {
        EXPECT_EQ(records(a)[k].id, (int)k) << "record " << k << " kept through growth";
        EXPECT_EQ(records(a)[k].value, k * 0.5);
    }
    growarray_free(&a);
}

// From 10 records in a block of 10, removing the last one each time: the block shrinks only
// when use falls below 60 % (6 of 10 is not below), to trunc(count / 0.8).
TEST(growarray, remove_shrinks_below_sixty_per_cent_use)
{
    struct step {
        unsigned count_after, capacity_after;
    };
    const step steps[] = {{9, 10}, {8, 10}, {7, 10}, {6, 10}, {5, 6},
                          {4, 6},  {3, 3},  {2, 3},  {1, 1},  {0, 1}};
    growarray a = filled(1, 10);
    ASSERT_EQ(a.capacity, 10u);
    for (const step &s : steps) {
        growarray_remove(&a, a.count - 1);
        EXPECT_EQ(a.count, s.count_after);
        EXPECT_EQ(a.capacity, s.capacity_after) << "at count " << s.count_after;
    }
    for (unsigned k = 0; k < a.count; k++) EXPECT_EQ(records(a)[k].id, (int)k);
    growarray_free(&a);
}

TEST(growarray, shrinking_stops_at_the_minimum_capacity)
{
    growarray a = filled(4, 20);
    while (a.count > 0) {
        growarray_remove(&a, 0);
        ASSERT_GE(a.capacity, 4u) << "at count " << a.count;
        ASSERT_GE(a.capacity, a.count);
    }
    EXPECT_EQ(a.capacity, 4u);
    growarray_free(&a);
}

TEST(growarray, remove_moves_the_last_record_into_the_gap)
{
    struct removal {
        unsigned index;
        int order_after[5];
        unsigned count_after;
    };
    const removal removals[] = {
        {1, {0, 4, 2, 3}, 4},   // the last record fills slot 1
        {3, {0, 4, 2}, 3},      // removing the last record moves nothing
        {0, {2, 4}, 2},
    };
    growarray a = filled(8, 5);
    for (const removal &r : removals) {
        growarray_remove(&a, r.index);
        ASSERT_EQ(a.count, r.count_after);
        for (unsigned k = 0; k < a.count; k++)
            EXPECT_EQ(records(a)[k].id, r.order_after[k]) << "slot " << k << " after removing " << r.index;
    }
    growarray_free(&a);
}

TEST(growarray, removal_from_empty_or_past_the_end_does_nothing)
{
    for (int n : {0, 3}) {
        growarray a = filled(1, n);
        unsigned capacity = a.capacity;
        void *data = a.data;
        for (unsigned index : {(unsigned)n, 1000u}) growarray_remove(&a, index);
        EXPECT_EQ(a.count, (unsigned)n);
        EXPECT_EQ(a.capacity, capacity);
        EXPECT_EQ(a.data, data);
        for (int k = 0; k < n; k++) EXPECT_EQ(records(a)[k].id, k);
        growarray_free(&a);
    }
}

TEST(growarray, alias_follows_every_reallocation)
{
    growarray a;
    growarray_init(&a, sizeof(record), 1);
    record *view = (record *)a.data;
    a.alias = (void **)&view;
    // Small blocks allocated between appends keep the allocator from growing in place.
    std::vector<void *> blockers;
    int moves = 0;
    void *last = a.data;
    for (int k = 0; k < 50; k++) {
        record r = make(k);
        growarray_append(&a, &r);
        blockers.push_back(malloc(24));
        if (a.data != last) moves++;
        last = a.data;
        ASSERT_EQ((void *)view, a.data) << "after append " << k;
    }
    EXPECT_GT(moves, 0) << "the storage moved at least once";
    while (a.count > 0) {
        growarray_remove(&a, a.count / 2);
        ASSERT_EQ((void *)view, a.data) << "after removal down to " << a.count;
    }
    growarray_clear(&a);
    EXPECT_EQ((void *)view, a.data) << "after clear";
    growarray_free(&a);
    for (void *b : blockers) free(b);
}

TEST(growarray, clear_returns_to_the_minimum_capacity_and_stays_usable)
{
    growarray a = filled(3, 40);
    ASSERT_GT(a.capacity, 3u);
    growarray_clear(&a);
    EXPECT_EQ(a.count, 0u);
    EXPECT_EQ(a.capacity, 3u);
    EXPECT_NE(a.data, nullptr);
    record r = make(7);
    growarray_append(&a, &r);
    EXPECT_EQ(a.count, 1u);
    EXPECT_EQ(records(a)[0].id, 7);
    growarray_free(&a);
}

} // namespace
