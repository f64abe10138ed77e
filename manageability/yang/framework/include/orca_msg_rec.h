/**
 * @file orca_msg_rec.h
 * The library's entry in the platform's message catalogue: one informational message of the "YANG" component in the
 * "TEVO" group, whose whole text is one string argument. The platform's message layer reads it through the getter;
 * nothing in the library does.
 *
 * The record is constant from the loading of the library to its unloading, in memory that is read-only after
 * relocation. Both symbols can be used from any thread at any time, also before any other call of the library.
 */
#ifndef ORCA_MSG_REC_H
#define ORCA_MSG_REC_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** A message-catalogue record. Its 72 bytes are read from outside the library: offsets and values never change. */
typedef struct orca_msg_rec {
    const void *reserved_0; /**< offset 0; null */
    const char *format;     /**< offset 8; "%s" */
    const void *reserved_1; /**< offset 16; null */
    const char *component;  /**< offset 24; "YANG" */
    const char *group;      /**< offset 32; "TEVO" */
    const char *mnemonic;   /**< offset 40; "INFO" */
    uint16_t reserved_2;    /**< offset 48; 0 */
    uint16_t severity;      /**< offset 50; 6, syslog's Informational */
    uint32_t reserved_3;    /**< offset 52; 0 */
    uint64_t reserved_4;    /**< offset 56; 0 */
    uint16_t record_kind;   /**< offset 64; 2 */
    uint16_t record_code;   /**< offset 66; 5605 */
    uint32_t reserved_5;    /**< offset 68; 0 */
} orca_msg_rec;

/** The record. */
extern const orca_msg_rec orca_msg_rec_yang_info;

/** @return the address of orca_msg_rec_yang_info, never null; no side effect */
const orca_msg_rec *orca_msg_rec_yang_info_getfn(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
