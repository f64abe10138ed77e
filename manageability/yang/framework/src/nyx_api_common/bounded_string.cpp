// Bounded string operations: with logged checks before them, and as quiet rcodes.
#include "nyx_api.h"
#include "nyx_api_common.h"
#include "nyx_log.h"

namespace {

enum class null_message { src_dest_unpunctuated, src_dest, src_dest_indicator };
enum class zero_message { dmax, dmax_slen };
enum class space { checked, unchecked };

// What the checks of the logging functions differ in.
struct wrapper {
    const char *name;
    null_message null;
    zero_message zero;
    space room;
};

// Each wrapper has log sites, and filter words, of its own: they are told apart by its address.
constexpr wrapper copying = {"nyx_strcpy_s", null_message::src_dest_unpunctuated, zero_message::dmax, space::checked};
constexpr wrapper copying_some = {"nyx_strncpy_s", null_message::src_dest, zero_message::dmax_slen, space::checked};
constexpr wrapper appending = {"nyx_strcat_s", null_message::src_dest, zero_message::dmax, space::checked};
constexpr wrapper appending_some = {"nyx_strncat_s", null_message::src_dest, zero_message::dmax, space::checked};
constexpr wrapper comparing = {"nyx_strcmp_s", null_message::src_dest_indicator, zero_message::dmax, space::unchecked};

// The slen of those whose slen is none, or is not looked at: no check fails because of it.
constexpr rsize_t whole = RSIZE_MAX;

template <const wrapper &Wrapper>
void log_null(const char *caller) {
    if constexpr (Wrapper.null == null_message::src_dest_unpunctuated) {
        NYX_LOG(TRC, Wrapper.name, nyx_ctx_log, "%s: src/dest is null", caller);
    } else if constexpr (Wrapper.null == null_message::src_dest) {
        NYX_LOG(TRC, Wrapper.name, nyx_ctx_log, "%s: src/dest is null. ", caller);
    } else {
        NYX_LOG(TRC, Wrapper.name, nyx_ctx_log, "%s: src/dest/indicator is null. ", caller);
    }
}

template <const wrapper &Wrapper>
void log_zero(const char *caller) {
    if constexpr (Wrapper.zero == zero_message::dmax) {
        NYX_LOG(TRC, Wrapper.name, nyx_ctx_log, "%s: dmax is 0. ", caller);
    } else {
        NYX_LOG(TRC, Wrapper.name, nyx_ctx_log, "%s: dmax/slen is 0. ", caller);
    }
}

// 0, or the number of the first check that failed, which is logged. The log context is looked at only then.
template <const wrapper &Wrapper>
errno_t check(const char *caller, bool all_given, rsize_t dmax, const char *src, rsize_t slen) {
    if (!all_given) {
        log_null<Wrapper>(caller);
        return SAFE_STR_NULL_POINTER;
    }
    if (dmax == 0 || slen == 0) {
        log_zero<Wrapper>(caller);
        return SAFE_STR_ZERO_LENGTH;
    }
    if (dmax > RSIZE_MAX || slen > RSIZE_MAX) {
        NYX_LOG(TRC, Wrapper.name, nyx_ctx_log, "%s: dmax exceeds max. ", caller);
        return SAFE_STR_ABOVE_MAX;
    }
    if (Wrapper.room == space::checked && slen >= dmax && strnlen_s(src, dmax) >= dmax) {
        NYX_LOG(TRC, Wrapper.name, nyx_ctx_log, "%s: not enough space for src. ", caller);
        return SAFE_STR_NO_SPACE;
    }
    return 0;
}

rcode rcode_of(errno_t result) {
    return result == 0 ? 0 : NYX_RC_INVALID_ARGUMENT;
}

}  // namespace

errno_t nyx_strcpy_s(const char *caller, char *dest, rsize_t dmax, const char *src) {
    const errno_t failed = check<copying>(caller, dest != nullptr && src != nullptr, dmax, src, whole);
    return failed != 0 ? failed : strcpy_s(dest, dmax, src);
}

errno_t nyx_strncpy_s(const char *caller, char *dest, rsize_t dmax, const char *src, rsize_t slen) {
    const errno_t failed = check<copying_some>(caller, dest != nullptr && src != nullptr, dmax, src, slen);
    return failed != 0 ? failed : strncpy_s(dest, dmax, src, slen);
}

errno_t nyx_strcat_s(const char *caller, char *dest, rsize_t dmax, const char *src) {
    const errno_t failed = check<appending>(caller, dest != nullptr && src != nullptr, dmax, src, whole);
    return failed != 0 ? failed : strcat_s(dest, dmax, src);
}

errno_t nyx_strncat_s(const char *caller, char *dest, rsize_t dmax, const char *src, rsize_t slen) {
    const errno_t failed = check<appending_some>(caller, dest != nullptr && src != nullptr, dmax, src, whole);
    return failed != 0 ? failed : strncat_s(dest, dmax, src, slen);
}

errno_t nyx_strcmp_s(const char *caller, const char *dest, rsize_t dmax, const char *src, int *indicator) {
    const bool all_given = dest != nullptr && src != nullptr && indicator != nullptr;
    const errno_t failed = check<comparing>(caller, all_given, dmax, src, whole);
    return failed != 0 ? failed : strcmp_s(dest, dmax, src, indicator);
}

rcode nyx_safe_strncpy(char *dest, rsize_t dmax, const char *src, rsize_t slen) {
    return slen == 0 ? 0 : rcode_of(strncpy_s(dest, dmax, src, slen));
}

rcode nyx_safe_strncat(char *dest, rsize_t dmax, const char *src, rsize_t slen) {
    return slen == 0 ? 0 : rcode_of(strncat_s(dest, dmax, src, slen));
}

rcode nyx_safe_strcmp(const char *dest, rsize_t dmax, const char *src, int *indicator) {
    const rcode rc = rcode_of(strcmp_s(dest, dmax, src, indicator));
    // Whoever looks at the indicator alone must not take a comparison that failed for equality.
    if (rc != 0 && indicator != nullptr && *indicator == 0) {
        *indicator = 1;
    }
    return rc;
}
