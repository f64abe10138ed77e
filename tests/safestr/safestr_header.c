// The header as a C program sees it.
#include "safestr/safestr.h"

#if RSIZE_MAX != 9223372036854775807
#error "RSIZE_MAX is not 2^63-1"
#endif

rsize_t largest_bound_seen_by_c(void);
errno_t copy_seen_by_c(char *dest, rsize_t dmax, const char *src);

rsize_t largest_bound_seen_by_c(void) {
    return RSIZE_MAX;
}

errno_t copy_seen_by_c(char *dest, rsize_t dmax, const char *src) {
    return strcpy_s(dest, dmax, src);
}
