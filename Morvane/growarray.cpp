// Morvane growable array: append, swap-with-last removal and the grow / shrink rules.
#include "Morvane/growarray.h"

#include <cstdlib>
#include <cstring>

// The growth setting g sizes the block as count / (0.5 + 0.005 g): g = 60 gives count / 0.8.
static unsigned capacity_for(const growarray *a, unsigned count)
{
    return (unsigned)(count / (0.5 + 0.005 * a->growth));
}

static void resize(growarray *a, unsigned capacity)
{
    a->data = realloc(a->data, (size_t)capacity * a->element_size);
    a->capacity = capacity;
    if (a->alias) *a->alias = a->data;
}

void growarray_init(growarray *a, unsigned element_size, unsigned min_capacity)
{
    if (min_capacity < 1) min_capacity = 1;
    a->element_size = element_size;
    a->min_capacity = min_capacity;
    a->capacity = min_capacity;
    a->count = 0;
    a->growth = 60.0f;
    a->alias = nullptr;
    a->data = malloc((size_t)min_capacity * element_size);
}

void *growarray_append(growarray *a, const void *record)
{
    if (a->count >= a->capacity) resize(a, capacity_for(a, a->count + 1));
    char *slot = (char *)a->data + (size_t)a->count * a->element_size;
    memcpy(slot, record, a->element_size);
    a->count++;
    return slot;
}

void growarray_remove(growarray *a, unsigned index)
{
    if (index >= a->count) return;
    char *base = (char *)a->data;
    unsigned last = a->count - 1;
    if (index != last)
        memcpy(base + (size_t)index * a->element_size, base + (size_t)last * a->element_size,
               a->element_size);
    a->count = last;
    // The use ratio is taken in single precision; 0.01 g is the lowest use kept (60 %).
    if ((float)a->count / (float)a->capacity < 0.01 * a->growth && a->capacity > a->min_capacity) {
        unsigned c = capacity_for(a, a->count);
        resize(a, c > a->min_capacity ? c : a->min_capacity);
    }
}

void growarray_clear(growarray *a)
{
    free(a->data);
    a->data = malloc((size_t)a->min_capacity * a->element_size);
    a->capacity = a->min_capacity;
    a->count = 0;
    if (a->alias) *a->alias = a->data;
}

void growarray_free(growarray *a)
{
    free(a->data);
    a->data = nullptr;
    a->capacity = 0;
    a->count = 0;
    if (a->alias) *a->alias = nullptr;
}
