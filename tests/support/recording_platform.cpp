#include "recording_platform.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <ostream>
#include <utility>

#include "rcode/rcode.h"
#include "safestr/safestr.h"
#include "skein/skein.h"
#include "umbra/debug_trace.h"
#include "umbra/hash.h"
#include "umbra/hashmap.h"
#include "umbra/named_alloc.h"
#include "umbra/wavl.h"

namespace nyx_test {

void PrintTo(const value &printed, std::ostream *out) {
    if (printed.text) {
        *out << '"' << *printed.text << '"';
    } else if (printed.bits < 100000) {
        *out << printed.bits;
    } else {
        *out << "0x" << std::hex << printed.bits << std::dec;
    }
}

void PrintTo(const call &printed, std::ostream *out) {
    *out << printed.function << '(';
    const char *separator = "";
    for (const value &argument : printed.arguments) {
        *out << std::exchange(separator, ", ");
        PrintTo(argument, out);
    }
    *out << ')';
}

recording_platform &recorder() {
    static recording_platform platform;
    return platform;
}

void recording_platform::reset() {
    forget();
    for (const auto &[block, asked] : live_) {
        std::free(block);
    }
    live_.clear();
    live_maps_.clear();
    returned_.clear();
    failures_.clear();
    actions_.clear();
    flags_ = 0;
    trace_files_ = 0;
    complaints_.clear();
}

void recording_platform::forget() {
    calls_.clear();
    log_lines_.clear();
    trace_lines_.clear();
    allocations_.clear();
}

std::vector<call> recording_platform::calls(std::string_view function) const {
    std::vector<call> found;
    std::copy_if(calls_.begin(), calls_.end(), std::back_inserter(found),
                 [function](const call &each) { return each.function == function; });
    return found;
}

namespace {

// One member of each element.
template <class Element>
std::vector<std::string> texts(const std::vector<Element> &elements, std::string Element::*text) {
    std::vector<std::string> all(elements.size());
    std::transform(elements.begin(), elements.end(), all.begin(), [text](const Element &each) { return each.*text; });
    return all;
}

}  // namespace

std::vector<std::string> recording_platform::functions() const {
    return texts(calls_, &call::function);
}

std::vector<std::string> recording_platform::log_texts() const {
    return texts(log_lines_, &log_line::text);
}

std::vector<std::string> recording_platform::trace_texts() const {
    return texts(trace_lines_, &trace_line::text);
}

std::vector<std::string> recording_platform::allocation_texts() const {
    return texts(allocations_, &allocation::description);
}

std::vector<std::string> recording_platform::live_blocks() const {
    std::vector<std::string> descriptions(live_maps_.size(), "hash map");
    for (const auto &[block, asked] : live_) {
        descriptions.push_back(asked.description);
    }
    std::sort(descriptions.begin(), descriptions.end());
    return descriptions;
}

std::optional<std::uint64_t> recording_platform::size_of(const void *block) const {
    const auto found = live_.find(const_cast<void *>(block));
    return found == live_.end() ? std::nullopt : std::optional(found->second.size);
}

void recording_platform::arm(const failure &armed) {
    if (!armed.function.empty() && !known_functions_.contains(armed.function)) {
        complain("there is no function " + armed.function + " that could fail");
        return;
    }
    failures_.push_back(armed);
}

void recording_platform::fail(const std::string &function, std::uint64_t nth, std::int64_t result) {
    arm({function, nth, false, result});
}

void recording_platform::fail_from(const std::string &function, std::uint64_t nth, std::int64_t result) {
    arm({function, nth, true, result});
}

void recording_platform::fail_allocation(std::uint64_t nth) {
    arm({"", nth, false, 0});
}

void recording_platform::fail_allocations_from(std::uint64_t nth) {
    arm({"", nth, true, 0});
}

std::optional<std::int64_t> recording_platform::failure_of(const std::string &function) {
    const bool allocates =
        function == "umbra_named_malloc_" || function == "umbra_named_calloc_" || function == "umbra_named_realloc";
    std::optional<std::int64_t> result;
    for (failure &each : failures_) {
        if (each.function.empty() ? !allocates : each.function != function) {
            continue;
        }
        ++each.seen;
        if (each.seen == each.nth || (each.onwards && each.seen > each.nth)) {
            each.happened = true;
            result = each.result;
        }
    }
    return result;
}

std::string recording_platform::complaints() const {
    std::string all = complaints_;
    for (const failure &each : failures_) {
        if (!each.happened) {
            all += "call " + std::to_string(each.nth) + " of " +
                   (each.function.empty() ? "any allocation" : each.function) + " was to fail and never came\n";
        }
    }
    return all;
}

void recording_platform::when_called(const std::string &function, const std::function<void()> &action) {
    if (!known_functions_.contains(function)) {
        complain("there is no function " + function + " that could be called");
    }
    actions_[function] = action;
}

void recording_platform::act(const std::string &function) {
    const auto found = actions_.find(function);
    if (found != actions_.end()) {
        const std::function<void()> action = found->second;
        action();
    }
}

void recording_platform::note_allocation(const call &asking) {
    const std::vector<value> &arguments = asking.arguments;
    if (asking.function == "umbra_named_malloc_") {
        allocations_.push_back({arguments[1].text.value_or(""), arguments[0].bits});
    } else if (asking.function == "umbra_named_calloc_") {
        allocations_.push_back({arguments[2].text.value_or(""), arguments[0].bits * arguments[1].bits});
    } else if (asking.function == "umbra_named_realloc") {
        const auto found = live_.find(reinterpret_cast<void *>(arguments[0].bits));
        allocations_.push_back({found == live_.end() ? "" : found->second.description, arguments[1].bits});
    }
}

void *recording_platform::take(std::uint64_t size, const std::string &description) {
    void *block = std::malloc(std::max<std::uint64_t>(size, 1));
    if (block == nullptr) {
        return nullptr;
    }
    std::memset(block, fresh_byte, size);
    live_[block] = {description, size};
    returned_.erase(block);
    return block;
}

void recording_platform::give(void *block) {
    if (block == nullptr) {
        return;
    }
    if (live_.erase(block) == 0) {
        complain(returned_.contains(block) ? "a block was freed twice" : "a foreign block was freed");
        return;
    }
    returned_.insert(block);
    std::free(block);
}

// Always moves, so that whoever keeps the old address is found out.
void *recording_platform::change(void *block, std::uint64_t size) {
    if (block == nullptr) {
        return take(size, "");
    }
    const auto found = live_.find(block);
    if (found == live_.end()) {
        complain(returned_.contains(block) ? "a freed block was to change its size"
                                           : "a foreign block was to change its size");
        return nullptr;
    }
    const allocation asked = found->second;
    void *moved = take(size, asked.description);
    if (moved != nullptr) {
        std::memcpy(moved, block, std::min(size, asked.size));
        give(block);
    }
    return moved;
}

// What the functions below share.
struct platform_internals {
    // Set while a bundled library is at work: what is called then is called by it, not by the library under test.
    static inline bool bundled_at_work = false;

    // Sets bundled_at_work for as long as it lives.
    class at_work {
      public:
        explicit at_work(bool bundled) : before_(std::exchange(bundled_at_work, bundled)) {}
        at_work(const at_work &) = delete;
        at_work &operator=(const at_work &) = delete;
        ~at_work() { bundled_at_work = before_; }

      private:
        bool before_;
    };

    // The function of the same name that a bundled library has.
    template <class Result, class... Parameters>
    struct bundled_function {
        const char *name;

        Result operator()(Parameters... arguments) const {
            void *const found = dlsym(RTLD_NEXT, name);
            if (found == nullptr) {
                std::fprintf(stderr, "no bundled library has %s\n", name);
                std::abort();
            }
            const at_work scope(true);
            return reinterpret_cast<Result (*)(Parameters...)>(found)(arguments...);
        }
    };

    template <class Result, class... Parameters>
    static bundled_function<Result, Parameters...> bundled(const char *name, Result (* /*same*/)(Parameters...)) {
        return {name};
    }

    // What is done with const char * arguments: those of the bounded functions need not be terminated.
    enum class texts { copied, left_alone };

    template <texts Texts, class T>
    static value recorded(T argument) {
        constexpr bool unread = Texts == texts::left_alone || std::is_same_v<T, char *>;
        if constexpr (std::is_pointer_v<T> && unread) {
            return {reinterpret_cast<std::uintptr_t>(argument), std::nullopt};
        } else {
            return value_of(argument);
        }
    }

    // What a failing call leaves in its out parameters.
    static void spoil(std::uint64_t *handle) { *handle = junk_handle; }
    static void spoil(umbra_hashmap **map) { *map = reinterpret_cast<umbra_hashmap *>(junk_handle); }
    template <class T>
    static void spoil(T /*argument*/) {}

    template <class Result>
    static Result as_result(std::int64_t number) {
        if constexpr (std::is_pointer_v<Result>) {
            return reinterpret_cast<Result>(static_cast<std::uintptr_t>(number));
        } else if constexpr (!std::is_void_v<Result>) {
            return static_cast<Result>(number);
        }
    }

    template <class Result>
    static Result noted(std::size_t at, Result result) {
        std::vector<call> &calls = recorder().calls_;
        if (at < calls.size()) {  // a callback may have had the calls forgotten
            calls[at].result = {value_of(result).bits, std::nullopt};
        }
        return result;
    }

    // The rule of every function: record the call; then fail, if a test said so, or behave.
    template <texts Texts, class Result, class... Parameters, class Behaviour>
    static Result play(bundled_function<Result, Parameters...> bundled, Behaviour behaviour, Parameters... arguments) {
        if (bundled_at_work) {
            return bundled(arguments...);
        }
        recording_platform &platform = recorder();
        const std::size_t at = platform.calls_.size();
        platform.calls_.push_back({bundled.name, {recorded<Texts>(arguments)...}, {}});
        platform.note_allocation(platform.calls_.back());
        platform.act(bundled.name);
        const std::optional<std::int64_t> failure = platform.failure_of(bundled.name);
        if (failure) {
            (spoil(arguments), ...);
        }
        if constexpr (std::is_void_v<Result>) {
            if (!failure) {
                behaviour(arguments...);
            }
        } else {
            return noted(at, failure ? as_result<Result>(*failure) : behaviour(arguments...));
        }
    }

    static bool know(const char *function) {
        recorder().known_functions_.insert(function);
        return true;
    }

    static std::int32_t hand_out_flag(std::uint64_t *flag, const char * /*name*/, std::uint64_t /*parent*/,
                                      std::uint32_t /*zero_1*/, std::uint32_t /*zero_2*/) {
        *flag = flag_handle(++recorder().flags_);
        return 0;
    }

    static std::int32_t hand_out_trace_file(const char * /*name*/, std::uint32_t /*zero_1*/, std::uint32_t /*zero_2*/,
                                            std::uint32_t /*first_size*/, std::uint32_t /*second_size*/,
                                            std::uint32_t /*zero_3*/, std::uint64_t *handle) {
        *handle = trace_handle(++recorder().trace_files_);
        return 0;
    }

    // For all that can only succeed.
    static constexpr auto succeed = [](auto...) { return 0; };

    static void *allocate(std::uint64_t size, const char *description) { return recorder().take(size, description); }

    static void *allocate_zeroed(std::uint64_t count, std::uint64_t size, const char *description) {
        void *const block = recorder().take(count * size, description);
        return block == nullptr ? nullptr : std::memset(block, 0, count * size);
    }

    static void *change_size(void *block, std::uint64_t size) { return recorder().change(block, size); }

    static void release(void *block) { recorder().give(block); }

    static int create_map(umbra_hashmap **map, std::uint32_t initial_size, umbra_hash_fn hash,
                          umbra_hash_equal_fn equal, std::uint32_t flags) {
        const int rc = bundled("umbra_hashmap_create", umbra_hashmap_create)(map, initial_size, hash, equal, flags);
        if (rc == 0) {
            recorder().live_maps_.insert(*map);
        }
        return rc;
    }

    static void free_map(umbra_hashmap *map) {
        if (map != nullptr && recorder().live_maps_.erase(map) == 0) {
            recorder().complain("a hash map was freed that is none");
            return;
        }
        bundled("umbra_hashmap_free", umbra_hashmap_free)(map);
    }

    // A visit belongs to whoever iterates, not to the bundled library that calls it.
    static void iterate(umbra_hashmap *map, umbra_hashmap_visit_fn visit, void *visit_ctx) {
        struct visitor {
            umbra_hashmap_visit_fn visit;
            void *ctx;
        } given{visit, visit_ctx};
        const umbra_hashmap_visit_fn outside = [](umbra_hashmap *visited, umbra_hashmap_entry *entry, void *ctx) {
            const at_work scope(false);
            const auto *const to = static_cast<const visitor *>(ctx);
            to->visit(visited, entry, to->ctx);
        };
        bundled("umbra_hashmap_iterate", umbra_hashmap_iterate)(map, outside, &given);
    }

    static std::string formatted(const char *format, std::va_list arguments) {
        std::va_list measured;
        va_copy(measured, arguments);
        const auto length = static_cast<std::size_t>(std::vsnprintf(nullptr, 0, format, measured));
        va_end(measured);
        std::string text(length + 1, '\0');
        static_cast<void>(std::vsnprintf(text.data(), text.size(), format, arguments));
        text.pop_back();
        return text;
    }

    // As `play`, for the function whose arguments have no fixed number.
    static void play_log_line(const log_line &line) {
        call logged = called("_umbra_dt_log_filter_adv", line.flag);
        for (const std::uint64_t zero : line.zeros) {
            logged.arguments.push_back(value_of(zero));
        }
        logged.arguments.push_back(value_of(line.filter));
        logged.arguments.push_back(value_of(line.format));
        recording_platform &platform = recorder();
        platform.calls_.push_back(logged);
        platform.act(logged.function);
        if (!platform.failure_of(logged.function)) {
            platform.log_lines_.push_back(line);
        }
    }

    static std::int32_t add_trace_line(std::uint64_t handle, std::uint64_t attributes, const char *text) {
        recorder().trace_lines_.push_back({handle, attributes, text});
        return 0;
    }
};

std::string text_of_code(std::int32_t code) {
    return platform_internals::bundled("rcode_strerror", rcode_strerror)(code);
}

}  // namespace nyx_test

namespace {

using internals = nyx_test::platform_internals;
using texts = internals::texts;

}  // namespace

// A function of the platform: its result, name and parameters, what is done with texts, what it does, its arguments.
#define PLATFORM_FUNCTION(result, name, parameters, texts, behaviour, ...)                      \
    namespace {                                                                                 \
    [[maybe_unused]] const bool knows_##name = internals::know(#name);                          \
    }                                                                                           \
    extern "C" result name parameters {                                                         \
        return internals::play<texts>(internals::bundled(#name, name), behaviour, __VA_ARGS__); \
    }

// One that does what the bundled one does.
#define BUNDLED_FUNCTION(result, name, parameters, texts, ...) \
    PLATFORM_FUNCTION(result, name, parameters, texts, internals::bundled(#name, name), __VA_ARGS__)

BUNDLED_FUNCTION(const char *, rcode_strerror, (rcode code), texts::copied, code)

PLATFORM_FUNCTION(void *, umbra_named_malloc_, (uint64_t size, const char *description), texts::copied,
                  internals::allocate, size, description)
PLATFORM_FUNCTION(void *, umbra_named_calloc_, (uint64_t count, uint64_t size, const char *description), texts::copied,
                  internals::allocate_zeroed, count, size, description)
PLATFORM_FUNCTION(void *, umbra_named_realloc, (void *block, uint64_t size), texts::copied, internals::change_size,
                  block, size)
PLATFORM_FUNCTION(void, umbra_named_free, (void *block), texts::copied, internals::release, block)

BUNDLED_FUNCTION(rcode, umbra_wavl_tree_init,
                 (umbra_wavl_tree * tree, uint32_t index_count, uint32_t flags, umbra_wavl_compare_fn compare),
                 texts::copied, tree, index_count, flags, compare)
BUNDLED_FUNCTION(rcode, umbra_wavl_tree_finish, (umbra_wavl_tree * tree), texts::copied, tree)
BUNDLED_FUNCTION(void, umbra_wavl_init, (umbra_wavl_node * node, uint32_t index_count), texts::copied, node,
                 index_count)
BUNDLED_FUNCTION(umbra_wavl_node *, umbra_wavl_insert, (umbra_wavl_tree * tree, umbra_wavl_node *node), texts::copied,
                 tree, node)
BUNDLED_FUNCTION(umbra_wavl_node *, umbra_wavl_delete, (umbra_wavl_tree * tree, umbra_wavl_node *node), texts::copied,
                 tree, node)
BUNDLED_FUNCTION(umbra_wavl_node *, umbra_wavl_search, (umbra_wavl_tree * tree, umbra_wavl_node *key, uint32_t index),
                 texts::copied, tree, key, index)
BUNDLED_FUNCTION(umbra_wavl_node *, umbra_wavl_get_first, (umbra_wavl_tree * tree, uint32_t index), texts::copied, tree,
                 index)
BUNDLED_FUNCTION(umbra_wavl_node *, umbra_wavl_normalize, (umbra_wavl_link * link, uint32_t index), texts::copied, link,
                 index)

PLATFORM_FUNCTION(int, umbra_hashmap_create,
                  (umbra_hashmap * *map, uint32_t initial_size, umbra_hash_fn hash, umbra_hash_equal_fn equal,
                   uint32_t flags),
                  texts::copied, internals::create_map, map, initial_size, hash, equal, flags)
BUNDLED_FUNCTION(umbra_hashmap_entry *, umbra_hashmap_get, (umbra_hashmap * map, const void *key), texts::copied, map,
                 key)
BUNDLED_FUNCTION(int, umbra_hashmap_insert, (umbra_hashmap * map, void *key, void *value), texts::copied, map, key,
                 value)
BUNDLED_FUNCTION(uint32_t, umbra_hashmap_size, (const umbra_hashmap *map), texts::copied, map)
BUNDLED_FUNCTION(void *, umbra_hashmap_key, (const umbra_hashmap_entry *entry), texts::copied, entry)
BUNDLED_FUNCTION(void *, umbra_hashmap_value, (const umbra_hashmap_entry *entry), texts::copied, entry)
BUNDLED_FUNCTION(umbra_hashmap_entry *, umbra_hashmap_first, (umbra_hashmap * map), texts::copied, map)
BUNDLED_FUNCTION(umbra_hashmap_entry *, umbra_hashmap_next, (umbra_hashmap * map, umbra_hashmap_entry *entry),
                 texts::copied, map, entry)
PLATFORM_FUNCTION(void, umbra_hashmap_iterate, (umbra_hashmap * map, umbra_hashmap_visit_fn visit, void *visit_ctx),
                  texts::copied, internals::iterate, map, visit, visit_ctx)
BUNDLED_FUNCTION(void, umbra_hashmap_remove_tuple, (umbra_hashmap * map, umbra_hashmap_entry *entry), texts::copied,
                 map, entry)
PLATFORM_FUNCTION(void, umbra_hashmap_free, (umbra_hashmap * map), texts::copied, internals::free_map, map)
BUNDLED_FUNCTION(uint32_t, umbra_hash_calculate, (const void *bytes, uint32_t length), texts::copied, bytes, length)

PLATFORM_FUNCTION(int32_t, umbra_dt_flag_init,
                  (uint64_t * flag, const char *name, uint64_t parent_flag, uint32_t zero_1, uint32_t zero_2),
                  texts::copied, internals::hand_out_flag, flag, name, parent_flag, zero_1, zero_2)
PLATFORM_FUNCTION(int32_t, umbra_dt_flag_enable, (uint64_t flag, uint32_t zero), texts::copied, internals::succeed,
                  flag, zero)
PLATFORM_FUNCTION(int32_t, umbra_dt_flag_destroy, (uint64_t flag), texts::copied, internals::succeed, flag)

PLATFORM_FUNCTION(int32_t, skein_init2,
                  (const char *name, uint32_t zero_1, uint32_t zero_2, uint32_t first_size, uint32_t second_size,
                   uint32_t zero_3, uint64_t *handle),
                  texts::copied, internals::hand_out_trace_file, name, zero_1, zero_2, first_size, second_size, zero_3,
                  handle)
PLATFORM_FUNCTION(int32_t, skein_close, (uint64_t handle), texts::copied, internals::succeed, handle)
PLATFORM_FUNCTION(int32_t, skein_delete, (const char *name), texts::copied, internals::succeed, name)
PLATFORM_FUNCTION(int32_t, _skein_str, (uint64_t handle, uint64_t attributes, const char *text), texts::copied,
                  internals::add_trace_line, handle, attributes, text)

BUNDLED_FUNCTION(errno_t, strcpy_s, (char *dest, rsize_t dmax, const char *src), texts::left_alone, dest, dmax, src)
BUNDLED_FUNCTION(errno_t, strncpy_s, (char *dest, rsize_t dmax, const char *src, rsize_t slen), texts::left_alone, dest,
                 dmax, src, slen)
BUNDLED_FUNCTION(errno_t, strcat_s, (char *dest, rsize_t dmax, const char *src), texts::left_alone, dest, dmax, src)
BUNDLED_FUNCTION(errno_t, strncat_s, (char *dest, rsize_t dmax, const char *src, rsize_t slen), texts::left_alone, dest,
                 dmax, src, slen)
BUNDLED_FUNCTION(errno_t, strcmp_s, (const char *dest, rsize_t dmax, const char *src, int *indicator),
                 texts::left_alone, dest, dmax, src, indicator)
BUNDLED_FUNCTION(rsize_t, strnlen_s, (const char *s, rsize_t smax), texts::left_alone, s, smax)
BUNDLED_FUNCTION(errno_t, memcpy_s, (void *dest, rsize_t dmax, const void *src, rsize_t n), texts::left_alone, dest,
                 dmax, src, n)
BUNDLED_FUNCTION(errno_t, memmove_s, (void *dest, rsize_t dmax, const void *src, rsize_t n), texts::left_alone, dest,
                 dmax, src, n)
BUNDLED_FUNCTION(errno_t, memset_s, (void *dest, rsize_t dmax, int value, rsize_t n), texts::left_alone, dest, dmax,
                 value, n)
BUNDLED_FUNCTION(errno_t, strfirstchar_s, (char *dest, rsize_t dmax, char c, char **first), texts::left_alone, dest,
                 dmax, c, first)
BUNDLED_FUNCTION(safe_str_constraint_handler, set_safe_str_constraint_handler, (safe_str_constraint_handler handler),
                 texts::copied, handler)
BUNDLED_FUNCTION(void, invoke_safe_str_constraint_handler, (const char *message, void *ptr, errno_t code),
                 texts::copied, message, ptr, code)

// The one function that takes any number of arguments.
[[maybe_unused]] static const bool knows_log = internals::know("_umbra_dt_log_filter_adv");

extern "C" void _umbra_dt_log_filter_adv(uint64_t flag, uint64_t zero_1, uint64_t zero_2, uint64_t zero_3,
                                         uint64_t zero_4, uint64_t zero_5, uint32_t *filter, const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    nyx_test::log_line line{flag, {zero_1, zero_2, zero_3, zero_4, zero_5}, nullptr, 0, format, format, ""};
    line.filter = filter;
    line.filter_value = *filter;
    line.text = internals::formatted(format, arguments);
    va_end(arguments);
    internals::play_log_line(line);
}
