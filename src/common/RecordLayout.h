/* Compile-time checks for records that cross a process border or lie on a card.
 *
 * Every such record has the layout of the 32-bit little-endian target on every host: fixed-width
 * members only, no pointers, `long`, `int` and `time_t` of the target are int32_t.  The checks hold
 * in C99 and in C++.
 */
#ifndef COMMON_RECORD_LAYOUT_H
#define COMMON_RECORD_LAYOUT_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#include <type_traits>
#define RECORD_LAYOUT(condition) static_assert(condition, #condition)
/* `type` has exactly `size` bytes, none of them hidden padding. */
#define RECORD_SIZE(type, size)                              \
    static_assert(sizeof(type) == (size), "size of " #type); \
    static_assert(std::has_unique_object_representations_v<type>, #type " has padding")
#else
#define RECORD_LAYOUT(condition) extern char RecordLayoutHolds[(condition) ? 1 : -1]
#define RECORD_SIZE(type, size) RECORD_LAYOUT(sizeof(type) == (size))
#endif

/* `member` of `type` lies at byte `offset`. */
#define RECORD_MEMBER(type, member, offset) RECORD_LAYOUT(offsetof(type, member) == (offset))

#endif
