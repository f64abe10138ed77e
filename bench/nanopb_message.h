/* Messages in nanopb's generated structures. They are filled in C, because a member of theirs is a keyword of C++. */
#ifndef NYX_BENCH_NANOPB_MESSAGE_H
#define NYX_BENCH_NANOPB_MESSAGE_H

#include <stddef.h>
#include <stdint.h>

#include "quill_nyx.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct nanopb_message nanopb_message;

/* Deep copies of the members that the samples use. */
nanopb_message *nanopb_from_request(const quill_nyx_request *request);
nanopb_message *nanopb_from_response(const quill_nyx_response *response);
nanopb_message *nanopb_from_request_result(const quill_nyx_request_result *result);
nanopb_message *nanopb_from_datatree(const quill_nyx_datatree *node);

/* 0 on failure. */
size_t nanopb_size(const nanopb_message *message);
size_t nanopb_encode(const nanopb_message *message, uint8_t *buffer, size_t capacity);

#ifdef __cplusplus
}
#endif

#endif
