/**
 * @file frame.h
 * What each of the two processes sets up around its work, and takes down again in the reverse order: the library's API
 * context with its root debug context, the debug contexts of components below it, and the session store. Each is an
 * object, so that it also goes when the conversation breaks off with an exception.
 *
 * @code
 * frame root("processor", "processor");                  // traces into processor-nyx/processor.trace
 * component back_end(root, "me", NYX_COMPONENT_ME);      // traces into processor-nyx/me.trace
 * session_store sessions(root.api());
 * @endcode
 *
 * There is one frame in a process at a time: agent name and logging context are the process's.
 */
#ifndef REQUEST_PATH_FRAME_H
#define REQUEST_PATH_FRAME_H

#include <nyx_api.h>

#include <cstdint>
#include <optional>

namespace request_path {

/** The API context, with its root debug context of component NYX. */
class frame {
  public:
    /**
     * When the trace file cannot be made, says so on the standard error and goes on without it: nobody should have to
     * do without their network because a trace directory is full.
     * @param role        name of the process in log lines
     * @param trace_name  name of the process in trace files. Two processes that share it share their trace files as
     *                    well: nothing is lost, but lines of both carry the same running numbers.
     */
    frame(const char *role, const char *trace_name);
    frame(const frame &) = delete;
    frame &operator=(const frame &) = delete;
    ~frame();

    nyx_api_ctx &api() { return api_; }

    /** @return whether there are a trace file and all flags of the debug log */
    bool is_complete() const { return is_complete_; }

  private:
    nyx_api_ctx api_{};
    bool is_complete_;
};

/** A component's debug context below the root. Below one that is not complete there is none: the root stands in. */
class component {
  public:
    component(frame &root, const char *name, uint32_t number);
    component(const component &) = delete;
    component &operator=(const component &) = delete;
    ~component();

  private:
    nyx_debug_ctx_t ctx_{};
    bool is_set_up_;
};

/** The session store of an API context. */
class session_store {
  public:
    /**
     * Throws std::runtime_error.
     * @param seed  when given, the ids are the same in every run with it; otherwise the time decides on them
     */
    explicit session_store(nyx_api_ctx &api, std::optional<uint32_t> seed = std::nullopt);
    session_store(const session_store &) = delete;
    session_store &operator=(const session_store &) = delete;
    ~session_store();

  private:
    nyx_api_ctx &api_;
};

}  // namespace request_path

#endif
