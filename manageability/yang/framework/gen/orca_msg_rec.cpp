#include "orca_msg_rec.h"

#include <cstddef>

static_assert(sizeof(orca_msg_rec) == 72);
static_assert(offsetof(orca_msg_rec, format) == 8);
static_assert(offsetof(orca_msg_rec, component) == 24);
static_assert(offsetof(orca_msg_rec, severity) == 50);
static_assert(offsetof(orca_msg_rec, record_kind) == 64);

const orca_msg_rec orca_msg_rec_yang_info = {
    .reserved_0 = nullptr,
    .format = "%s",
    .reserved_1 = nullptr,
    .component = "YANG",
    .group = "TEVO",
    .mnemonic = "INFO",
    .reserved_2 = 0,
    .severity = 6,
    .reserved_3 = 0,
    .reserved_4 = 0,
    .record_kind = 2,
    .record_code = 5605,
    .reserved_5 = 0,
};

const orca_msg_rec *orca_msg_rec_yang_info_getfn() {
    return &orca_msg_rec_yang_info;
}
