// Morvane growable array: a block of fixed-size records that grows by a quarter when full
// and shrinks when little used. Removal moves the last record into the gap (order is not kept).
#pragma once

struct growarray {
    void *data;
    void **alias;           // optional: set to data whenever the storage moves
    unsigned count;
    unsigned capacity;
    unsigned min_capacity;
    unsigned element_size;
    float growth;           // 60: grow to (count + 1) / 0.8, shrink below 60 % use
};

// Allocates min_capacity records (at least 1); count 0, no alias, growth 60.
void growarray_init(growarray *a, unsigned element_size, unsigned min_capacity);

// Copies one record to the end, growing the block first when it is full. Returns the new record.
void *growarray_append(growarray *a, const void *record);

// Copies the last record over record index and shrinks the block when it falls below the
// growth setting's use. An index at or past the end does nothing.
void growarray_remove(growarray *a, unsigned index);

// Releases the storage and starts again with a block of the minimum capacity and count 0.
void growarray_clear(growarray *a);

// Releases the storage; the array must be initialised again before use.
void growarray_free(growarray *a);
