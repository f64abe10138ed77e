/**
 * @file rcode.h
 * Result codes and their texts.
 *
 * @code
 * rcode result = start_session(store);
 * if (result != 0) {
 *     fprintf(stderr, "no session: %s\n", rcode_strerror(result));
 * }
 * @endcode
 *
 * @section rcode_texts Which codes have a text
 *
 * Codes are shown as the unsigned hexadecimal of their 32 bits where they are negative.
 *
 * | code | text |
 * |---|---|
 * | 0 | Success |
 * | 0xAAF29E00 | Debug flag could not be destroyed |
 * | 0xAAF2A000 | Invalid argument |
 * | 0xAAF2A200 | Debug flag or trace file could not be set up |
 * | 0xAAF2A400 | Out of memory |
 * | 0xAAF2A600 | Invalid request: message id or session is missing or unknown |
 * | 0xAAF2A800 | The back end could not carry out the request |
 * | 0xAAF2AA00, 0xAAF2BC00 | The request holds an unacceptable value |
 * | 0xAAF2B000 | Not enough resources to carry out the request |
 * | 0xAAF2BE00 | The operation is not supported |
 * | 3 | Not found |
 * | 400 | Null pointer in place of a text or buffer |
 * | 401 | Length is zero |
 * | 403 | Length exceeds the maximum |
 * | 404 | Source and destination overlap |
 * | 406 | Not enough space in the destination |
 * | 407 | Text is not terminated within its bound |
 * | another error number of the system (EINVAL, ENOMEM ...) | the C library's own English text of it |
 * | any other | Unknown result code 0x and eight hexadecimal digits |
 *
 * 3 and the numbers from 400 on are those of the bounded string functions. 3 is also ESRCH, "no such process": what is
 * looked up here is hardly ever a process, and "Not found" is true of both.
 *
 * Every text is in English whatever the locale, shorter than 100 characters, printable ASCII without a line break, and
 * fit to be shown to an operator, as the message of a NETCONF error for instance.
 */
#ifndef RCODE_RCODE_H
#define RCODE_RCODE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/**
 * A result code: 0 is success. Failures of the framework are negative; error numbers of the system and of the bounded
 * string functions pass through as the small positive numbers that they are.
 */
typedef int32_t rcode;

/**
 * The text of a result code.
 *
 * @return the text, never null. It belongs to this library: neither change nor free it. The text of a known code stays
 * valid and the same as long as the library is loaded. The text of an unknown code is kept in memory of the calling
 * thread: the four most recent ones are valid, until their thread ends; copy it to keep it longer or to hand it to
 * another thread.
 *
 * Can be called from any thread at any time. Allocates nothing, takes no lock and leaves errno alone.
 */
const char *rcode_strerror(rcode code);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
