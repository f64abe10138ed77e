// The header as a C program sees it.
#include "rcode/rcode.h"

const char *text_seen_by_c(rcode code);

const char *text_seen_by_c(rcode code) {
    return rcode_strerror(code);
}
