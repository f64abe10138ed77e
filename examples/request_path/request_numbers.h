/**
 * @file request_numbers.h
 * The meanings that this program gives to request members that the records leave open.
 *
 * | member                   | meaning                                                                    |
 * |--------------------------|----------------------------------------------------------------------------|
 * | filter.uint32_1          | filter_kind                                                                |
 * | edit_config.uint32_2     | default_operation (edit.h)                                                 |
 * | edit_config.uint32_3     | test_option                                                                |
 * | edit_config.uint32_4     | error_option                                                               |
 * | copy_config.string_2, _4 | the URL that stands for the target, for the source                         |
 * | commit.uint32_1          | the commit is a confirmed one                                              |
 * | commit.uint32_2          | seconds until a confirmed commit is undone                                 |
 * | commit.string_3, _4      | persist, persist-id                                                        |
 * | stop_session.uint32_1    | the session to kill; absent: the one that sends the request closes         |
 * | request_result.uint32_2  | the id of the session that start-session opened                            |
 *
 * The numbers follow the order in which NETCONF lists the values.
 */
#ifndef REQUEST_PATH_REQUEST_NUMBERS_H
#define REQUEST_PATH_REQUEST_NUMBERS_H

#include <cstdint>

namespace request_path {

enum filter_kind : uint32_t { filter_subtree = 0, filter_xpath = 1 };

enum test_option : uint32_t { test_then_set = 0, test_set = 1, test_only = 2 };

/** An edit that does not continue is undone as a whole, also with error_stop: that promises no more. */
enum error_option : uint32_t { error_stop = 0, error_continue = 1, error_rollback = 2 };

/** Numbers of the process's memory state. The library tells 0 from the others, this program where pressure is from. */
enum memory_pressure : uint32_t { no_pressure = 0, pressure_that_was_ordered = 1, pressure_of_request = 2 };

}  // namespace request_path

#endif
