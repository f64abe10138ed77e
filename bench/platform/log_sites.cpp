// A log site that nobody listens to, and a trace line, beside what formats the line and beside a logging library.
#include <spdlog/sinks/ringbuffer_sink.h>
#include <spdlog/spdlog.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "nyx_log.h"
#include "pairs.h"
#include "trace_directory.h"

namespace {

nyx_api_ctx *traced_context() {
    static trace_directory directory;
    static nyx_api_ctx api;
    if (api.debug.trace_handle == 0) {
        api.debug.trace_handle = directory.open("bench-nyx/processor.trace");
        api.debug.trace_enabled = 1;
    }
    return &api;
}

nyx_api_ctx *silent_context() {
    static nyx_api_ctx api;
    return &api;
}

// Sites as they stand in the library's sources, each in a function that is not taken apart.
[[gnu::noinline]] void site(nyx_api_ctx *nyx_ctx, std::uint32_t id) {
    NYX_LOG(DBG, "nyx_session_create", nyx_ctx, "assigned session-id=%u", id);
}

[[gnu::noinline]] void site_of_request(nyx_api_ctx *nyx_ctx, const void *session, std::uint32_t op,
                                       const char *element) {
    NYX_LOG_OP(ERR, "nyx_req_result_missing_element_set", nyx_ctx, session, op, "An expected element is missing.: %s",
               element);
}

[[gnu::noinline]] void snprintf_of_request(nyx_api_ctx *nyx_ctx, const void *session, std::uint32_t op,
                                           const char *element) {
    static std::uint32_t index;
    char line[250];
    static_cast<void>(std::snprintf(
        line, sizeof line, "#%u: ERR: %s:%d ctx=%p,ses=%p,op=%u,An expected element is missing.: %s", index++,
        "nyx_req_result_missing_element_set", __LINE__, static_cast<const void *>(nyx_ctx), session, op, element));
    keep(line);
}

template <class Body>
timed_loop repeated(Body body) {
    return [body](std::size_t count) {
        return nanoseconds([&] {
            for (std::size_t i = 0; i < count; ++i) {
                body(i);
            }
        });
    };
}

const char *element() {
    return "interface";
}

spdlog::logger &ring_logger() {
    static spdlog::logger logger("ring", std::make_shared<spdlog::sinks::ringbuffer_sink_st>(6144));
    return logger;
}

spdlog::logger &silent_logger() {
    static spdlog::logger logger("off", std::make_shared<spdlog::sinks::ringbuffer_sink_st>(16));
    logger.set_level(spdlog::level::off);
    return logger;
}

}  // namespace

void add_log_sites(pairs &all) {
    constexpr std::size_t many = 1'000'000;
    constexpr std::size_t lines = 50'000;
    const void *const session = &all;
    all.push_back({"log site, level and tracing off", "spdlog, level off", many,
                   repeated([](std::size_t i) { site(silent_context(), static_cast<std::uint32_t>(i)); }),
                   repeated([](std::size_t i) { silent_logger().debug("assigned session-id={}", i); }), 0, 2});
    all.push_back({"log site of a request, both off", "spdlog, level off", many,
                   repeated([session](std::size_t) { site_of_request(silent_context(), session, 1, element()); }),
                   repeated([](std::size_t i) { silent_logger().debug("op={}", i); }), 0, 2});
    const auto traced = repeated([session](std::size_t) { site_of_request(traced_context(), session, 1, element()); });
    all.push_back({"trace line", "its snprintf alone", lines, traced,
                   repeated([session](std::size_t) { snprintf_of_request(traced_context(), session, 1, element()); }),
                   1.5});
    all.push_back({"trace line", "spdlog, ring-buffer sink", lines, traced, repeated([session](std::size_t i) {
                       ring_logger().info("#{}: ERR: {}:{} ctx={},ses={},op={},An expected element is missing.: {}", i,
                                          "nyx_req_result_missing_element_set", __LINE__,
                                          static_cast<const void *>(silent_context()), session, 1, element());
                   })});
}
