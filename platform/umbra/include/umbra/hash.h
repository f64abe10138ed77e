/**
 * @file hash.h
 * A hash of bytes, for hash maps and checks of equality in memory.
 *
 * @code
 * static uint32_t hash_of_text(const void *text) { return umbra_hash_calculate(text, (uint32_t)strlen(text)); }
 * @endcode
 *
 * It is fast on short texts, spreads well over all of its 32 bits, and gives the same number in every process, release
 * and machine: numbers may be stored and compared. It is no protection against somebody who chooses inputs so that they
 * collide.
 */
#ifndef UMBRA_HASH_H
#define UMBRA_HASH_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/**
 * Hashes @p length bytes at @p bytes, at any alignment. No byte besides these is read. Null is taken for no bytes,
 * whatever @p length is. Can be called from any thread and in a signal handler.
 *
 * @return the hash; that of no bytes is a number like any other
 */
uint32_t umbra_hash_calculate(const void *bytes, uint32_t length);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
