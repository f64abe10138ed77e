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

// 0, or the number of the first check that failed.
errno_t check(const wrapper &of, bool all_given, rsize_t dmax, const char *src, rsize_t slen) {
    if (!all_given) {
        return SAFE_STR_NULL_POINTER;
    }
    if (dmax == 0 || slen == 0) {
        return SAFE_STR_ZERO_LENGTH;
    }
    if (dmax > RSIZE_MAX || slen > RSIZE_MAX) {
        return SAFE_STR_ABOVE_MAX;
    }
    const bool fits = of.room == space::unchecked || slen < dmax || strnlen_s(src, dmax) < dmax;
    return fits ? 0 : static_cast<errno_t>(SAFE_STR_NO_SPACE);
}

template <const wrapper &Wrapper>
errno_t refuse(const char *caller, errno_t failed) {
    const char *const shown = nyx::shown(caller);
    switch (failed) {
        case SAFE_STR_NULL_POINTER:
            log_null<Wrapper>(shown);
            break;
        case SAFE_STR_ZERO_LENGTH:
            log_zero<Wrapper>(shown);
            break;
        case SAFE_STR_ABOVE_MAX:
            NYX_LOG(TRC, Wrapper.name, nyx_ctx_log, "%s: dmax exceeds max. ", shown);
            break;
        default:
            NYX_LOG(TRC, Wrapper.name, nyx_ctx_log, "%s: not enough space for src. ", shown);
            break;
    }
    return failed;
}

rcode rcode_of(errno_t result) {
    return result == 0 ? 0 : NYX_RC_INVALID_ARGUMENT;
}

}  // namespace

errno_t nyx_strcpy_s(const char *caller, char *dest, rsize_t dmax, const char *src) {
    const errno_t failed = check(copying, dest != nullptr && src != nullptr, dmax, src, whole);
    if (failed == 0) {
        return strcpy_s(dest, dmax, src);
    }
    NYX_ASSERT_NOT_NULL(nyx_ctx_log);
    return refuse<copying>(caller, failed);
}

errno_t nyx_strncpy_s(const char *caller, char *dest, rsize_t dmax, const char *src, rsize_t slen) {
    const errno_t failed = check(copying_some, dest != nullptr && src != nullptr, dmax, src, slen);
    if (failed == 0) {
        return strncpy_s(dest, dmax, src, slen);
    }
    NYX_ASSERT_NOT_NULL(nyx_ctx_log);
    return refuse<copying_some>(caller, failed);
}

errno_t nyx_strcat_s(const char *caller, char *dest, rsize_t dmax, const char *src) {
    const errno_t failed = check(appending, dest != nullptr && src != nullptr, dmax, src, whole);
    if (failed == 0) {
        return strcat_s(dest, dmax, src);
    }
    NYX_ASSERT_NOT_NULL(nyx_ctx_log);
    return refuse<appending>(caller, failed);
}

errno_t nyx_strncat_s(const char *caller, char *dest, rsize_t dmax, const char *src, rsize_t slen) {
    const errno_t failed = check(appending_some, dest != nullptr && src != nullptr, dmax, src, whole);
    if (failed == 0) {
        return strncat_s(dest, dmax, src, slen);
    }
    NYX_ASSERT_NOT_NULL(nyx_ctx_log);
    return refuse<appending_some>(caller, failed);
}

errno_t nyx_strcmp_s(const char *caller, const char *dest, rsize_t dmax, const char *src, int *indicator) {
    const bool all_given = dest != nullptr && src != nullptr && indicator != nullptr;
    const errno_t failed = check(comparing, all_given, dmax, src, whole);
    if (failed == 0) {
        return strcmp_s(dest, dmax, src, indicator);
    }
    NYX_ASSERT_NOT_NULL(nyx_ctx_log);
    return refuse<comparing>(caller, failed);
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
