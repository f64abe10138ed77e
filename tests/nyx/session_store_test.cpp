// The store of sessions: ids, order of calls, and what is released when.
#include "nyx_session_store.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "frame_fixture.h"
#include "nyx_api.h"
#include "umbra/named_alloc.h"
#include "umbra/wavl.h"

namespace {

// What the program's own time(), srand48(), lrand48() and nanosleep() do: the library calls them in place of the C
// library's.
struct fake_c_library {
    std::optional<std::time_t> now;  // what time() tells; none: the real time
    std::deque<long> draws;          // what lrand48() returns before it draws
    std::vector<long> seeds;         // what srand48() was given
    std::size_t draw_count = 0;
    std::size_t pauses = 0;  // calls of nanosleep(), which does not sleep
};

fake_c_library &c_library() {
    static fake_c_library library;
    return library;
}

template <class Function>
Function *original(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" std::time_t time(std::time_t *timer) noexcept {
    timespec real{};
    clock_gettime(CLOCK_REALTIME, &real);
    const std::time_t now = c_library().now.value_or(real.tv_sec);
    if (timer != nullptr) {
        *timer = now;
    }
    return now;
}

extern "C" void srand48(long seedval) noexcept {
    c_library().seeds.push_back(seedval);
    original<void(long)>("srand48")(seedval);
}

extern "C" long lrand48() noexcept {
    ++c_library().draw_count;
    if (!c_library().draws.empty()) {
        const long drawn = c_library().draws.front();
        c_library().draws.pop_front();
        return drawn;
    }
    return original<long()>("lrand48")();
}

extern "C" int nanosleep(const timespec * /*requested_time*/, timespec * /*remaining*/) {
    ++c_library().pauses;
    return 0;
}

namespace {

using nyx_test::assertion_regex;
using nyx_test::bytes_of;
using nyx_test::call;
using nyx_test::called;
using nyx_test::calls_of;
using nyx_test::debug_flag;
using nyx_test::error_flag;
using nyx_test::expect_logged;
using nyx_test::expect_traced;
using nyx_test::next_trace_index;
using nyx_test::null_regex;
using nyx_test::recorder;
using nyx_test::site;
using nyx_test::text_of_pointer;
using nyx_test::trace_flag;
using nyx_test::trace_handle;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

// The two generators, told anew: the 48-bit linear one of the C library and the 128-bit shift register.
class linear_48 {
  public:
    explicit linear_48(std::uint32_t seed) : state_((std::uint64_t{seed} << 16) | 0x330E) {}
    std::uint32_t next() {
        state_ = (state_ * 0x5DEECE66D + 0xB) % (std::uint64_t{1} << 48);
        return static_cast<std::uint32_t>(state_ >> 17);
    }

  private:
    std::uint64_t state_;
};

class shift_128 {
  public:
    explicit shift_128(const std::uint32_t (&state)[4]) : words_{state[0], state[1], state[2], state[3]} {}
    std::uint32_t next() {
        const std::uint32_t t = words_[0] ^ (words_[0] * 2048U);
        const std::uint32_t last = words_[3];
        words_ = {words_[1], words_[2], last, last ^ (last / 524288U) ^ t ^ (t / 256U)};
        return words_[3];
    }

  private:
    std::array<std::uint32_t, 4> words_;
};

// The session that a node of the store holds, behind its links.
const nyx_session_ctx *held_by(const umbra_wavl_node *node) {
    const nyx_session_ctx *session = nullptr;
    std::memcpy(&session, reinterpret_cast<const std::byte *>(node) + sizeof *node, sizeof(void *));
    return session;
}

// The node that was inserted or deleted.
const umbra_wavl_node *node_of(const call &change) {
    return reinterpret_cast<const umbra_wavl_node *>(change.arguments.at(1).bits);
}

class SessionStore : public nyx_test::frame_test {
  protected:
    void SetUp() override {
        frame_test::SetUp();
        c_library() = {};
        init_root();
        ASSERT_EQ(nyx_session_store_init(&api_), 0);
        recorder().forget();
        c_library().draw_count = 0;
    }

    void TearDown() override {
        recorder().fail_nothing();
        EXPECT_EQ(nyx_session_store_cleanup(&api_), 0);
        EXPECT_THAT(c_library().draws, IsEmpty());
        frame_test::TearDown();
    }

    // The next candidates will be these.
    static void draw(nyx_api_ctx &api, const std::vector<std::uint32_t> &candidates) {
        shift_128 generator(api.session_id_state);
        for (const std::uint32_t candidate : candidates) {
            c_library().draws.push_back(static_cast<long>(candidate ^ generator.next()));
        }
    }
    void draw(const std::vector<std::uint32_t> &candidates) { draw(api_, candidates); }

    nyx_session_ctx *create(std::uint32_t id) {
        draw({id});
        nyx_session_ctx *const session = nyx_session_create(&api_);
        EXPECT_NE(session, nullptr);
        EXPECT_EQ(session == nullptr ? 0 : session->session_id, id);
        return session;
    }

    [[nodiscard]] site line(const char *type, const std::string &function, const std::string &format,
                            const std::string &text) const {
        return {type, function, "ctx=%p," + format, "ctx=" + text_of_pointer(&api_) + "," + text};
    }
    [[nodiscard]] site line(const char *type, const std::string &function, const std::string &text) const {
        return line(type, function, text, text);
    }

    // The lines that the function has written, in both forms, the first under the given number.
    static void expect_lines(const std::vector<site> &sites, std::uint32_t index) {
        ASSERT_THAT(recorder().log_lines(), SizeIs(sites.size()));
        ASSERT_THAT(recorder().trace_lines(), SizeIs(sites.size()));
        for (std::size_t i = 0; i < sites.size(); ++i) {
            const std::uint64_t flag =
                sites[i].type == "ERR" ? error_flag : (sites[i].type == "DBG" ? debug_flag : trace_flag);
            expect_logged(recorder().log_lines()[i], sites[i], flag);
            expect_traced(recorder().trace_lines()[i], sites[i], index + static_cast<std::uint32_t>(i),
                          trace_handle(1));
        }
    }

    void log_everything() { root().level = QUILL_NYX_LOGGING_LEVEL_TRACE; }

    static std::vector<std::string> functions_but_logs() {
        std::vector<std::string> functions;
        for (const std::string &function : recorder().functions()) {
            if (function != "_umbra_dt_log_filter_adv" && function != "_skein_str") {
                functions.push_back(function);
            }
        }
        return functions;
    }

    static std::vector<std::string> last_functions(std::size_t count) {
        std::vector<std::string> functions = recorder().functions();
        functions.erase(functions.begin(), functions.end() - static_cast<std::ptrdiff_t>(count));
        return functions;
    }

    static void *block(const char *description) { return umbra_named_malloc_(1, description); }

    static constexpr const char *create_name = "nyx_session_create";
    static constexpr const char *destroy_name = "nyx_session_destroy";
    static constexpr const char *session_text = "NYX session context (nyx_session_create)";
    static constexpr const char *node_text = "WAVL tree node (nyx_session_create)";
};

using SessionStoreInit = SessionStore;
using SessionCreate = SessionStore;
using SessionFind = SessionStore;
using SessionDestroy = SessionStore;
using SessionStoreCleanup = SessionStore;
using SessionIds = SessionStore;
using SessionStoreDeathTest = SessionStore;

// Initialisation

TEST_F(SessionStoreInit, SeedsWithTheTimeAndDrawsTheState) {
    nyx_api_ctx api{};
    c_library().now = 1234567890;
    c_library().seeds.clear();
    EXPECT_EQ(nyx_session_store_init(&api), 0);
    EXPECT_THAT(c_library().seeds, ElementsAre(1234567890));
    EXPECT_EQ(c_library().draw_count, 4U);
    linear_48 expected(1234567890);
    for (const std::uint32_t word : api.session_id_state) {
        EXPECT_EQ(word, expected.next());
    }
    EXPECT_EQ(nyx_session_store_cleanup(&api), 0);
}

TEST_F(SessionStoreInit, CutsDrawsTo32Bits) {
    nyx_api_ctx api{};
    c_library().draws = {0x123456789AB, -1, 3, 4};
    EXPECT_EQ(nyx_session_store_init(&api), 0);
    EXPECT_THAT(api.session_id_state, ElementsAre(0x456789AB, 0xFFFFFFFF, 3, 4));
    EXPECT_EQ(nyx_session_store_cleanup(&api), 0);
}

TEST_F(SessionStoreInit, ClearsAndInitialisesTheTree) {
    nyx_api_ctx api{};
    std::memset(&api.session_tree, 0x5A, sizeof api.session_tree);
    EXPECT_EQ(nyx_session_store_init(&api), 0);
    ASSERT_THAT(recorder().functions(), ElementsAre("memset_s", "umbra_wavl_tree_init"));
    EXPECT_EQ(recorder().calls()[0], called("memset_s", &api.session_tree, 64, 0, 64));
    const std::vector<nyx_test::value> &arguments = recorder().calls()[1].arguments;
    EXPECT_EQ(arguments.at(0), nyx_test::value_of(&api.session_tree));
    EXPECT_EQ(arguments.at(1).bits, 1U);
    EXPECT_EQ(arguments.at(2).bits, 0U);
    EXPECT_NE(arguments.at(3).bits, 0U);
    EXPECT_EQ(nyx_session_store_cleanup(&api), 0);
}

TEST_F(SessionStoreInit, ReportsMemoryThatIsNotCleared) {
    log_everything();
    const std::string before = bytes_of(api_.session_tree);
    recorder().fail("memset_s", 1, 406);
    c_library().draws = {11, 12, 13, 14};
    c_library().seeds.clear();
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_session_store_init(&api_), 406);
    EXPECT_THAT(c_library().seeds, SizeIs(1)) << "seeded before the tree is cleared";
    EXPECT_THAT(api_.session_id_state, ElementsAre(11, 12, 13, 14));
    expect_lines({line("ERR", "nyx_session_store_init", "mem init failure: %s",
                       "mem init failure: " + nyx_test::text_of_code(406))},
                 index);
    EXPECT_THAT(recorder().calls("umbra_wavl_tree_init"), IsEmpty());
    EXPECT_EQ(bytes_of(api_.session_tree), before);
}

TEST_F(SessionStoreInit, FailureIsSilentWhenNobodyListens) {
    root().trace_enabled = 0;
    recorder().fail("memset_s", 1, 406);
    EXPECT_EQ(nyx_session_store_init(&api_), 406);
    EXPECT_THAT(recorder().functions(), ElementsAre("memset_s"));
}

TEST_F(SessionStoreInit, AndCleanupLeaveTheRestOfTheContextAlone) {
    nyx_api_ctx api;
    std::memset(&api, 0x5A, sizeof api);
    const std::string before = bytes_of(api.debug);
    EXPECT_EQ(nyx_session_store_init(&api), 0);
    EXPECT_EQ(bytes_of(api.debug), before);
    const std::vector<std::uint32_t> state(std::begin(api.session_id_state), std::end(api.session_id_state));
    EXPECT_EQ(nyx_session_store_cleanup(&api), 0);
    EXPECT_EQ(bytes_of(api.debug), before);
    EXPECT_THAT(api.session_id_state, ElementsAreArray(state));
}

TEST_F(SessionStoreInit, PassesTheTreesCodeOn) {
    log_everything();
    nyx_api_ctx api{};
    recorder().fail("umbra_wavl_tree_init", 1, -1426938880);
    EXPECT_EQ(nyx_session_store_init(&api), -1426938880);
    EXPECT_THAT(recorder().log_lines(), IsEmpty());
}

// Creation

TEST_F(SessionCreate, DrawsIdsFromBothGenerators) {
    nyx_api_ctx api{};
    c_library().now = 77;
    ASSERT_EQ(nyx_session_store_init(&api), 0);
    linear_48 linear(77);
    std::uint32_t state[4];
    for (std::uint32_t &word : state) {
        word = linear.next();
    }
    shift_128 shift(state);
    for (int i = 0; i < 100; ++i) {
        const nyx_session_ctx *const session = nyx_session_create(&api);
        ASSERT_NE(session, nullptr);
        EXPECT_EQ(session->session_id, linear.next() ^ shift.next());
    }
    EXPECT_EQ(nyx_session_store_cleanup(&api), 0);
}

TEST_F(SessionCreate, AllocatesAZeroedSessionAndANode) {
    nyx_session_ctx *const session = create(17);
    EXPECT_EQ(session->session_owned_a, nullptr);
    EXPECT_EQ(session->session_owned_b, nullptr);
    EXPECT_EQ(session->user_a, nullptr);
    EXPECT_EQ(session->user_b, nullptr);
    EXPECT_EQ(session->user_c, nullptr);
    EXPECT_EQ(session->user_d, nullptr);
    ASSERT_THAT(recorder().allocations(), SizeIs(2));
    EXPECT_EQ(recorder().calls("umbra_named_calloc_"),
              calls_of(called("umbra_named_calloc_", 1, sizeof(nyx_session_ctx), session_text)));
    EXPECT_EQ(recorder().calls("umbra_named_malloc_"),
              calls_of(called("umbra_named_malloc_", sizeof(umbra_wavl_node) + sizeof(void *), node_text)));
    EXPECT_EQ(recorder().size_of(session), sizeof(nyx_session_ctx));
    EXPECT_THAT(recorder().live_blocks(), ElementsAre(session_text, node_text));
}

TEST_F(SessionCreate, CallsThePlatformInOrder) {
    nyx_session_ctx *const session = create(17);
    EXPECT_THAT(functions_but_logs(), ElementsAre("umbra_named_calloc_", "umbra_wavl_init", "umbra_wavl_search",
                                                  "umbra_named_malloc_", "umbra_wavl_init", "umbra_wavl_insert"));
    const std::vector<call> searches = recorder().calls("umbra_wavl_search");
    EXPECT_EQ(searches[0].arguments[0], nyx_test::value_of(&api_.session_tree));
    EXPECT_EQ(searches[0].arguments[2].bits, 0U);
    const std::vector<call> inits = recorder().calls("umbra_wavl_init");
    EXPECT_EQ(inits[0].arguments[0], searches[0].arguments[1]);
    EXPECT_EQ(inits[0].arguments[1].bits, 1U);
    EXPECT_EQ(inits[1].arguments[1].bits, 1U);
    const std::vector<call> inserts = recorder().calls("umbra_wavl_insert");
    EXPECT_EQ(inserts[0].arguments[0], nyx_test::value_of(&api_.session_tree));
    EXPECT_EQ(inserts[0].arguments[1], inits[1].arguments[0]);
    EXPECT_EQ(inserts[0].arguments[1].bits, recorder().calls("umbra_named_malloc_")[0].result.bits);
    EXPECT_EQ(held_by(node_of(inserts[0])), session);
}

TEST_F(SessionCreate, TellsTheAssignedId) {
    log_everything();
    const std::uint32_t index = next_trace_index();
    create(0xFFFFFFFE);
    expect_lines({line("DBG", create_name, "assigned session-id=%u", "assigned session-id=4294967294")}, index);
}

TEST_F(SessionCreate, IsSilentWhenNobodyListens) {
    root().trace_enabled = 0;
    const std::uint32_t index = next_trace_index();
    create(17);
    EXPECT_EQ(functions_but_logs(), recorder().functions());
    EXPECT_EQ(ret_nc_nyx_trace_index_incr(), index);
}

TEST_F(SessionCreate, DiscardsZeroAndIdsInUse) {
    create(5);
    create(0x80000005);
    log_everything();
    recorder().forget();
    draw({0, 5, 0x80000005, 6});
    const std::uint32_t index = next_trace_index();
    const nyx_session_ctx *const session = nyx_session_create(&api_);
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(session->session_id, 6U);
    const char *const format = "generated sesssion-id=%d is invalid, generating new";
    expect_lines({line("TRC", create_name, format, "generated sesssion-id=0 is invalid, generating new"),
                  line("TRC", create_name, format, "generated sesssion-id=5 is invalid, generating new"),
                  line("TRC", create_name, format, "generated sesssion-id=-2147483643 is invalid, generating new"),
                  line("DBG", create_name, "assigned session-id=%u", "assigned session-id=6")},
                 index);
    // No tree is asked for id 0.
    EXPECT_THAT(recorder().calls("umbra_wavl_search"), SizeIs(3));
}

TEST_F(SessionCreate, AcceptsTheFifteenthCandidate) {
    create(5);
    draw({0, 5, 0, 5, 0, 5, 0, 5, 0, 5, 0, 5, 0, 5, 1});
    const nyx_session_ctx *const session = nyx_session_create(&api_);
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(session->session_id, 1U);
}

TEST_F(SessionCreate, GivesUpAfterFifteenCandidates) {
    create(5);
    log_everything();
    recorder().forget();
    c_library().draw_count = 0;
    draw({0, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 0});
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_session_create(&api_), nullptr);
    EXPECT_EQ(c_library().draw_count, 15U);
    EXPECT_EQ(c_library().pauses, 0U) << "between candidates";
    const char *const format = "generated sesssion-id=%d is invalid, generating new";
    std::vector<site> expected(15,
                               line("TRC", create_name, format, "generated sesssion-id=5 is invalid, generating new"));
    expected.front() = line("TRC", create_name, format, "generated sesssion-id=0 is invalid, generating new");
    expected.back() = expected.front();
    expected.push_back(line("ERR", create_name, "failed to generate unused session-id"));
    expect_lines(expected, index);
    EXPECT_THAT(recorder().calls("umbra_named_malloc_"), IsEmpty());
    EXPECT_THAT(recorder().calls("umbra_named_free"), SizeIs(1));
    EXPECT_THAT(recorder().live_blocks(), ElementsAre(session_text, node_text));
}

// Whoever gets the line may ask for memory, or end the process.
TEST_F(SessionCreate, GivesEverythingBackBeforeItTellsOfTheFailure) {
    log_everything();
    root().trace_enabled = 0;
    draw(std::vector<std::uint32_t>(15, 0));
    EXPECT_EQ(nyx_session_create(&api_), nullptr);
    EXPECT_THAT(last_functions(2), ElementsAre("umbra_named_free", "_umbra_dt_log_filter_adv"));
    recorder().fail_allocation(2);
    EXPECT_EQ(nyx_session_create(&api_), nullptr);
    EXPECT_THAT(last_functions(3), ElementsAre("umbra_named_malloc_", "umbra_named_free", "_umbra_dt_log_filter_adv"));
    recorder().fail("umbra_wavl_insert");
    EXPECT_EQ(nyx_session_create(&api_), nullptr);
    EXPECT_THAT(last_functions(4),
                ElementsAre("umbra_wavl_insert", "umbra_named_free", "umbra_named_free", "_umbra_dt_log_filter_adv"));
}

TEST_F(SessionCreate, FailsWithoutMemoryForTheSession) {
    log_everything();
    recorder().fail_allocation(1);
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_session_create(&api_), nullptr);
    expect_lines({line("ERR", create_name, "NYX session context allocation failed")}, index);
    EXPECT_THAT(functions_but_logs(), ElementsAre("umbra_named_calloc_"));
    EXPECT_EQ(c_library().draw_count, 0U);
}

TEST_F(SessionCreate, FailsWithoutMemoryForTheNode) {
    log_everything();
    recorder().fail_allocation(2);
    draw({9});
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_session_create(&api_), nullptr);
    expect_lines({line("DBG", create_name, "assigned session-id=%u", "assigned session-id=9"),
                  line("ERR", create_name, "NYX session tree node allocation failed")},
                 index);
    EXPECT_EQ(recorder().calls("umbra_named_free"),
              calls_of(called("umbra_named_free",
                              reinterpret_cast<void *>(recorder().calls("umbra_named_calloc_")[0].result.bits))));
    EXPECT_THAT(recorder().calls("umbra_wavl_insert"), IsEmpty());
    EXPECT_THAT(recorder().live_blocks(), IsEmpty());
    EXPECT_EQ(nyx_session_find(&api_, 9), nullptr);
}

TEST_F(SessionCreate, FailsWhenTheTreeRefuses) {
    log_everything();
    recorder().fail("umbra_wavl_insert", 1);
    draw({9});
    const std::uint32_t index = next_trace_index();
    EXPECT_EQ(nyx_session_create(&api_), nullptr);
    expect_lines({line("DBG", create_name, "assigned session-id=%u", "assigned session-id=9"),
                  line("ERR", create_name, "NYX session tree node insertion failed")},
                 index);
    // First the session, then the node.
    EXPECT_EQ(recorder().calls("umbra_named_free"),
              calls_of(called("umbra_named_free",
                              reinterpret_cast<void *>(recorder().calls("umbra_named_calloc_")[0].result.bits)),
                       called("umbra_named_free",
                              reinterpret_cast<void *>(recorder().calls("umbra_named_malloc_")[0].result.bits))));
    EXPECT_THAT(recorder().live_blocks(), IsEmpty());
    EXPECT_EQ(nyx_session_find(&api_, 9), nullptr);
}

TEST_F(SessionCreate, SurvivesTheFailureOfEveryAllocation) {
    nyx_session_ctx *session = nullptr;
    std::uint64_t failing = 0;
    while (session == nullptr) {
        recorder().fail_nothing();
        recorder().forget();
        recorder().fail_allocation(++failing);
        session = nyx_session_create(&api_);
        if (session == nullptr) {
            EXPECT_THAT(recorder().live_blocks(), IsEmpty());
        }
        ASSERT_LT(failing, 10U);
    }
    EXPECT_EQ(failing, 3U);
    EXPECT_EQ(nyx_session_find(&api_, session->session_id), session);
}

// Ids

TEST_F(SessionIds, AreFound) {
    std::vector<nyx_session_ctx *> sessions;
    for (int i = 0; i < 200; ++i) {
        sessions.push_back(nyx_session_create(&api_));
        ASSERT_NE(sessions.back(), nullptr);
    }
    for (nyx_session_ctx *const session : sessions) {
        EXPECT_EQ(nyx_session_find(&api_, session->session_id), session);
    }
}

TEST_F(SessionIds, OfTwoStoresAreIndependent) {
    nyx_api_ctx other{};
    ASSERT_EQ(nyx_session_store_init(&other), 0);
    nyx_session_ctx *const here = create(9);
    draw(other, {9});
    nyx_session_ctx *const there = nyx_session_create(&other);
    ASSERT_NE(there, nullptr);
    EXPECT_EQ(there->session_id, 9U);
    EXPECT_NE(here, there);
    EXPECT_EQ(nyx_session_find(&api_, 9), here);
    EXPECT_EQ(nyx_session_find(&other, 9), there);
    nyx_session_destroy(&api_, here);
    EXPECT_EQ(nyx_session_find(&api_, 9), nullptr);
    EXPECT_EQ(nyx_session_find(&other, 9), there);
    EXPECT_EQ(nyx_session_store_cleanup(&other), 0);
}

TEST_F(SessionIds, MayComeBackAfterTheirSessionIsGone) {
    nyx_session_destroy(&api_, create(9));
    nyx_session_ctx *const again = create(9);
    EXPECT_EQ(nyx_session_find(&api_, 9), again);
}

TEST_F(SessionIds, AreOrderedAsUnsignedNumbers) {
    for (const std::uint32_t id : {0x80000000U, 0x7FFFFFFFU, 0xFFFFFFFFU, 1U, 0x80000001U}) {
        create(id);
    }
    for (const std::uint32_t id : {1U, 0x7FFFFFFFU, 0x80000000U, 0x80000001U, 0xFFFFFFFFU}) {
        EXPECT_EQ(held_by(umbra_wavl_get_first(&api_.session_tree, 0))->session_id, id);
        nyx_session_destroy(&api_, nyx_session_find(&api_, id));
    }
}

// Search

TEST_F(SessionFind, DoesNotAskTheTreeForZero) {
    create(1);
    log_everything();
    recorder().forget();
    EXPECT_EQ(nyx_session_find(&api_, 0), nullptr);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(SessionFind, FindsNothingThatIsNotThere) {
    create(5);
    log_everything();
    recorder().forget();
    EXPECT_EQ(nyx_session_find(&api_, 4), nullptr);
    EXPECT_EQ(nyx_session_find(&api_, 6), nullptr);
    EXPECT_THAT(recorder().functions(),
                ElementsAre("umbra_wavl_init", "umbra_wavl_search", "umbra_wavl_init", "umbra_wavl_search"));
}

// Release

TEST_F(SessionDestroy, OfNothingDoesNothing) {
    log_everything();
    nyx_session_destroy(&api_, nullptr);
    nyx_session_destroy(nullptr, nullptr);
    EXPECT_THAT(recorder().calls(), IsEmpty());
}

TEST_F(SessionDestroy, ReleasesNodeBuffersAndRecordInOrder) {
    nyx_session_ctx *const session = create(17);
    void *const node = reinterpret_cast<void *>(recorder().calls("umbra_named_malloc_")[0].result.bits);
    void *const a = block("a");
    void *const b = block("b");
    session->session_owned_a = a;
    session->session_owned_b = b;
    int user = 0;
    session->user_a = session->user_b = session->user_c = session->user_d = &user;
    log_everything();
    recorder().forget();
    nyx_session_destroy(&api_, session);
    EXPECT_THAT(recorder().functions(),
                ElementsAre("umbra_wavl_init", "umbra_wavl_search", "umbra_wavl_delete", "umbra_named_free",
                            "umbra_named_free", "umbra_named_free", "umbra_named_free"));
    EXPECT_EQ(recorder().calls("umbra_wavl_delete"), calls_of(called("umbra_wavl_delete", &api_.session_tree, node)));
    EXPECT_EQ(recorder().calls("umbra_named_free"),
              calls_of(called("umbra_named_free", node), called("umbra_named_free", a), called("umbra_named_free", b),
                       called("umbra_named_free", session)));
    EXPECT_EQ(nyx_session_find(&api_, 17), nullptr);
}

TEST_F(SessionDestroy, ReleasesNoBufferThatIsNotThere) {
    nyx_session_ctx *const plain = create(1);
    nyx_session_ctx *const with_a = create(2);
    nyx_session_ctx *const with_b = create(3);
    with_a->session_owned_a = block("a");
    with_b->session_owned_b = block("b");
    recorder().forget();
    nyx_session_destroy(&api_, plain);
    EXPECT_THAT(recorder().calls("umbra_named_free"), SizeIs(2));
    nyx_session_destroy(&api_, with_a);
    EXPECT_THAT(recorder().calls("umbra_named_free"), SizeIs(5));
    nyx_session_destroy(&api_, with_b);
    EXPECT_THAT(recorder().calls("umbra_named_free"), SizeIs(8));
    EXPECT_THAT(recorder().live_blocks(), IsEmpty());
}

// A session record that no store knows.
nyx_session_ctx *stray_session(std::uint32_t id) {
    auto *const session = static_cast<nyx_session_ctx *>(umbra_named_calloc_(1, sizeof(nyx_session_ctx), "stray"));
    session->session_id = id;
    return session;
}

TEST_F(SessionDestroy, OfAStrangerLeavesItsBuffersAlone) {
    create(1);
    nyx_session_ctx *const stray = stray_session(0xFFFFFFFF);
    void *const a = block("a");
    void *const b = block("b");
    stray->session_owned_a = a;
    stray->session_owned_b = b;
    log_everything();
    recorder().forget();
    const std::uint32_t index = next_trace_index();
    nyx_session_destroy(&api_, stray);
    expect_lines({line("DBG", destroy_name, "session-id=%d not found, cannot be destroyed",
                       "session-id=-1 not found, cannot be destroyed")},
                 index);
    EXPECT_EQ(recorder().calls("umbra_named_free"), calls_of(called("umbra_named_free", stray)));
    EXPECT_THAT(recorder().functions(), ElementsAre("umbra_wavl_init", "umbra_wavl_search", "_umbra_dt_log_filter_adv",
                                                    "_skein_str", "umbra_named_free"));
    EXPECT_THAT(recorder().live_blocks(), ElementsAre(session_text, node_text, "a", "b"));
    umbra_named_free(a);
    umbra_named_free(b);
}

// The id decides what leaves the tree; what is released is what was passed.
TEST_F(SessionDestroy, OfALookAlikeReleasesWhatWasPassed) {
    nyx_session_ctx *const stored = create(5);
    nyx_session_ctx *const passed = stray_session(5);
    void *const kept = block("kept");
    void *const owned = block("owned");
    stored->session_owned_a = kept;
    passed->session_owned_b = owned;
    recorder().forget();
    nyx_session_destroy(&api_, passed);
    EXPECT_EQ(nyx_session_find(&api_, 5), nullptr);
    ASSERT_THAT(recorder().calls("umbra_named_free"), SizeIs(3));
    EXPECT_EQ(recorder().calls("umbra_named_free")[1], called("umbra_named_free", owned));
    EXPECT_EQ(recorder().calls("umbra_named_free")[2], called("umbra_named_free", passed));
    EXPECT_THAT(recorder().live_blocks(), ElementsAre(session_text, "kept"));
    umbra_named_free(kept);
    umbra_named_free(stored);
}

TEST_F(SessionDestroy, OfAStrangerWithoutAnIdReleasesTheRecord) {
    log_everything();
    nyx_session_ctx *const stray = stray_session(0);
    recorder().forget();
    const std::uint32_t index = next_trace_index();
    nyx_session_destroy(&api_, stray);
    expect_lines({line("DBG", destroy_name, "session-id=%d not found, cannot be destroyed",
                       "session-id=0 not found, cannot be destroyed")},
                 index);
    EXPECT_THAT(functions_but_logs(), ElementsAre("umbra_named_free"));
}

TEST_F(SessionDestroy, KeepsANodeThatTheTreeKeeps) {
    nyx_session_ctx *const session = create(0x80000000);
    auto *const node = reinterpret_cast<umbra_wavl_node *>(recorder().calls("umbra_named_malloc_")[0].result.bits);
    void *const a = block("a");
    void *const b = block("b");
    session->session_owned_a = a;
    session->session_owned_b = b;
    log_everything();
    recorder().forget();
    recorder().fail("umbra_wavl_delete", 1);
    const std::uint32_t index = next_trace_index();
    nyx_session_destroy(&api_, session);
    expect_lines({line("TRC", destroy_name, "session-id=%d cannot be released from the session tree",
                       "session-id=-2147483648 cannot be released from the session tree")},
                 index);
    EXPECT_EQ(
        recorder().calls("umbra_named_free"),
        calls_of(called("umbra_named_free", a), called("umbra_named_free", b), called("umbra_named_free", session)));
    EXPECT_THAT(recorder().live_blocks(), ElementsAre(node_text));
    // The tree still holds the node, which points to nothing any more.
    ASSERT_NE(umbra_wavl_delete(&api_.session_tree, node), nullptr);
    umbra_named_free(node);
}

// Lines of a debug log alone, of a trace file alone, and none.

class SessionLines : public SessionStore {
  protected:
    // The number of lines that a failing creation, or a destruction, writes in each of the two ways.
    struct counts {
        std::size_t logged;
        std::size_t traced;
        bool operator==(const counts &) const = default;
    };

    template <class Operation>
    counts lines_of(std::uint32_t level, std::uint32_t trace_enabled, const Operation &run) {
        root().level = level;
        root().trace_enabled = trace_enabled;
        recorder().forget();
        const std::uint32_t index = next_trace_index();
        run();
        const counts written{recorder().log_lines().size(), recorder().trace_lines().size()};
        // A number is taken for each trace line, and for nothing else.
        EXPECT_EQ(ret_nc_nyx_trace_index_incr(), index + written.traced);
        return written;
    }

    // Each of the two ways is open or shut on its own. `run` writes one line of a type that `level` just allows, and
    // `traced` lines in all.
    template <class Operation>
    void expect_ways(std::uint32_t level, std::size_t traced, const Operation &run) {
        EXPECT_EQ(lines_of(level, 1, run), (counts{1, traced}));
        EXPECT_EQ(lines_of(level, 0, run), (counts{1, 0}));
        EXPECT_EQ(lines_of(level - 1, 1, run), (counts{0, traced}));
        EXPECT_EQ(lines_of(level - 1, 0, run), (counts{0, 0}));
    }
};

TEST_F(SessionLines, OfACreationWithoutMemoryForTheSession) {
    expect_ways(QUILL_NYX_LOGGING_LEVEL_ERROR, 1, [&] {
        recorder().fail_nothing();
        recorder().fail_allocation(1);
        EXPECT_EQ(nyx_session_create(&api_), nullptr);
    });
}

TEST_F(SessionLines, OfACreationWithoutMemoryForTheNode) {
    // That of the assigned id is traced besides.
    expect_ways(QUILL_NYX_LOGGING_LEVEL_ERROR, 2, [&] {
        recorder().fail_nothing();
        recorder().fail_allocation(2);
        EXPECT_EQ(nyx_session_create(&api_), nullptr);
    });
}

TEST_F(SessionLines, OfACreationThatTheTreeRefuses) {
    expect_ways(QUILL_NYX_LOGGING_LEVEL_ERROR, 2, [&] {
        recorder().fail_nothing();
        recorder().fail("umbra_wavl_insert");
        EXPECT_EQ(nyx_session_create(&api_), nullptr);
    });
}

TEST_F(SessionLines, OfACreationWithoutAFreeId) {
    expect_ways(QUILL_NYX_LOGGING_LEVEL_ERROR, 16, [&] {
        draw(std::vector<std::uint32_t>(15, 0));
        EXPECT_EQ(nyx_session_create(&api_), nullptr);
    });
}

TEST_F(SessionLines, OfTheDestructionOfAStranger) {
    expect_ways(QUILL_NYX_LOGGING_LEVEL_DEBUG, 1, [&] {
        auto *const stranger =
            static_cast<nyx_session_ctx *>(umbra_named_calloc_(1, sizeof(nyx_session_ctx), "stranger"));
        stranger->session_id = 7;
        nyx_session_destroy(&api_, stranger);
        EXPECT_THAT(recorder().live_blocks(), IsEmpty());
    });
}

TEST_F(SessionLines, OfANodeThatTheTreeKeeps) {
    expect_ways(QUILL_NYX_LOGGING_LEVEL_TRACE, 1, [&] {
        const std::uint32_t trace_enabled = root().trace_enabled;
        const std::uint32_t level = root().level;
        root().trace_enabled = 0;
        root().level = QUILL_NYX_LOGGING_LEVEL_NONE;
        nyx_session_ctx *const session = create(8);
        root().trace_enabled = trace_enabled;
        root().level = level;
        auto *const node =
            reinterpret_cast<umbra_wavl_node *>(recorder().calls("umbra_named_malloc_").at(0).result.bits);
        recorder().fail_nothing();
        recorder().fail("umbra_wavl_delete");
        nyx_session_destroy(&api_, session);
        EXPECT_THAT(recorder().live_blocks(), ElementsAre(node_text));
        ASSERT_NE(umbra_wavl_delete(&api_.session_tree, node), nullptr);
        umbra_named_free(node);
    });
}

// Cleanup

TEST_F(SessionStoreCleanup, ReleasesRecordsAndNodesInOrder) {
    nyx_session_ctx *const second = create(2);
    nyx_session_ctx *const first = create(1);
    const std::vector<call> nodes = recorder().calls("umbra_named_malloc_");
    void *const second_node = reinterpret_cast<void *>(nodes[0].result.bits);
    void *const first_node = reinterpret_cast<void *>(nodes[1].result.bits);
    log_everything();
    recorder().forget();
    EXPECT_EQ(nyx_session_store_cleanup(&api_), 0);
    umbra_wavl_tree *const tree = &api_.session_tree;
    EXPECT_EQ(recorder().calls(),
              calls_of(called("umbra_wavl_get_first", tree, 0), called("umbra_named_free", first),
                       called("umbra_wavl_delete", tree, first_node), called("umbra_named_free", first_node),
                       called("umbra_wavl_get_first", tree, 0), called("umbra_named_free", second),
                       called("umbra_wavl_delete", tree, second_node), called("umbra_named_free", second_node),
                       called("umbra_wavl_get_first", tree, 0), called("umbra_wavl_tree_finish", tree)));
    ASSERT_EQ(nyx_session_store_init(&api_), 0);
}

TEST_F(SessionStoreCleanup, LeavesOwnedBuffersAlone) {
    nyx_session_ctx *const session = create(1);
    void *const a = block("a");
    void *const b = block("b");
    session->session_owned_a = a;
    session->session_owned_b = b;
    EXPECT_EQ(nyx_session_store_cleanup(&api_), 0);
    EXPECT_THAT(recorder().live_blocks(), ElementsAre("a", "b"));
    umbra_named_free(a);
    umbra_named_free(b);
    ASSERT_EQ(nyx_session_store_init(&api_), 0);
}

TEST_F(SessionStoreCleanup, PassesTheTreesCodeOn) {
    nyx_api_ctx api{};
    ASSERT_EQ(nyx_session_store_init(&api), 0);
    recorder().fail("umbra_wavl_tree_finish", 1, 16);
    EXPECT_EQ(nyx_session_store_cleanup(&api), 16);
    EXPECT_EQ(nyx_session_store_cleanup(&api), 0);
}

TEST_F(SessionStoreCleanup, ReleasesNoSessionTwiceWhenANodeStaysOnce) {
    nyx_session_ctx *const session = create(1);
    recorder().forget();
    recorder().fail("umbra_wavl_delete", 1);
    EXPECT_EQ(nyx_session_store_cleanup(&api_), 0);
    EXPECT_THAT(recorder().calls("umbra_wavl_delete"), SizeIs(2));
    EXPECT_EQ(recorder().calls("umbra_named_free").at(0), called("umbra_named_free", session));
    EXPECT_THAT(recorder().calls("umbra_named_free"), SizeIs(2));
    EXPECT_THAT(recorder().live_blocks(), IsEmpty());
    ASSERT_EQ(nyx_session_store_init(&api_), 0);
}

// A tree that looks at its nodes' sessions while it gives a node up must find their addresses.
TEST_F(SessionStoreCleanup, LeavesTheNodeAsItIsWhileTheTreeGivesItUp) {
    const nyx_session_ctx *const second = create(2);
    const nyx_session_ctx *const first = create(1);
    std::vector<const nyx_session_ctx *> held;
    recorder().when_called("umbra_wavl_delete", [&] { held.push_back(held_by(node_of(recorder().calls().back()))); });
    EXPECT_EQ(nyx_session_store_cleanup(&api_), 0);
    EXPECT_THAT(held, ElementsAre(first, second));
    ASSERT_EQ(nyx_session_store_init(&api_), 0);
}

TEST_F(SessionStoreCleanup, GoesOnWhenSeveralNodesStayOnce) {
    for (const std::uint32_t id : {1U, 2U, 3U}) {
        create(id);
    }
    recorder().forget();
    recorder().fail("umbra_wavl_delete", 1);
    recorder().fail("umbra_wavl_delete", 4);
    EXPECT_EQ(nyx_session_store_cleanup(&api_), 0);
    EXPECT_THAT(recorder().calls("umbra_wavl_delete"), SizeIs(5));
    EXPECT_THAT(recorder().calls("umbra_named_free"), SizeIs(6));
    EXPECT_THAT(recorder().live_blocks(), IsEmpty());
    ASSERT_EQ(nyx_session_store_init(&api_), 0);
}

TEST_F(SessionStoreCleanup, EndsWhenTheTreeGivesNothingUp) {
    create(1);
    create(2);
    const std::vector<call> nodes = recorder().calls("umbra_named_malloc_");
    recorder().fail_all("umbra_wavl_delete");
    recorder().fail("umbra_wavl_tree_finish", 1, 16);
    EXPECT_EQ(nyx_session_store_cleanup(&api_), 16);
    EXPECT_THAT(recorder().live_blocks(), ElementsAre(session_text, node_text, node_text));
    recorder().fail_nothing();
    EXPECT_EQ(nyx_session_store_cleanup(&api_), 0);
    ASSERT_EQ(nyx_session_store_init(&api_), 0);
}

// Comparison, as the tree calls it

// A node as the store lays it out, with a session of its own.
struct compared_node {
    umbra_wavl_node node{};
    nyx_session_ctx *held = nullptr;
    nyx_session_ctx session{};

    explicit compared_node(std::uint32_t id) { session.session_id = id; }
    void hold() { held = &session; }
    umbra_wavl_link *link() {
        umbra_wavl_init(&node, 1);
        return &node.links[0];
    }
};

class SessionNodeCompare : public SessionStore {
  protected:
    void SetUp() override {
        SessionStore::SetUp();
        nyx_api_ctx api{};
        ASSERT_EQ(nyx_session_store_init(&api), 0);
        compare_ =
            reinterpret_cast<umbra_wavl_compare_fn>(recorder().calls("umbra_wavl_tree_init")[0].arguments[3].bits);
        ASSERT_EQ(nyx_session_store_cleanup(&api), 0);
        recorder().forget();
    }

    int compare(std::uint32_t a, std::uint32_t b) {
        compared_node first(a);
        compared_node second(b);
        first.hold();
        second.hold();
        return compare_(first.link(), second.link());
    }

    umbra_wavl_compare_fn compare_ = nullptr;
};

TEST_F(SessionNodeCompare, OrdersUnsignedNumbers) {
    constexpr int greater = 0;
    constexpr int less = 1;
    constexpr int equal = 2;
    EXPECT_EQ(compare(2, 1), greater);
    EXPECT_EQ(compare(1, 2), less);
    EXPECT_EQ(compare(2, 2), equal);
    EXPECT_EQ(compare(0x80000000, 0x7FFFFFFF), greater);
    EXPECT_EQ(compare(0x7FFFFFFF, 0xFFFFFFFF), less);
    EXPECT_EQ(compare(0xFFFFFFFF, 0xFFFFFFFF), equal);
    EXPECT_EQ(compare(0, 0xFFFFFFFF), less);
}

TEST_F(SessionNodeCompare, NormalizesBothLinks) {
    compared_node first(1);
    compared_node second(2);
    first.hold();
    second.hold();
    umbra_wavl_link *const a = first.link();
    umbra_wavl_link *const b = second.link();
    recorder().forget();
    EXPECT_EQ(compare_(a, b), 1);
    EXPECT_EQ(recorder().calls(), calls_of(called("umbra_wavl_normalize", a, 0), called("umbra_wavl_normalize", b, 0)));
}

TEST_F(SessionNodeCompare, TakesWhatIsMissingForEqual) {
    compared_node first(1);
    compared_node second(2);
    EXPECT_EQ(compare_(first.link(), second.link()), 2);
    first.hold();
    EXPECT_EQ(compare_(first.link(), second.link()), 2);
    EXPECT_EQ(compare_(second.link(), first.link()), 2);
    second.hold();
    EXPECT_EQ(compare_(first.link(), second.link()), 1);
    for (const std::uint64_t missing : {1U, 2U}) {
        recorder().fail("umbra_wavl_normalize", missing);
        EXPECT_EQ(compare_(first.link(), second.link()), 2);
        recorder().fail_nothing();
    }
}

// Assertions

TEST_F(SessionStoreDeathTest, ContextsAreAsserted) {
    const auto regex = [](const std::string &prototype) {
        return assertion_regex("nyx_session_store\\.cpp", prototype, null_regex("nyx_ctx"));
    };
    nyx_session_ctx session{};
    EXPECT_DEATH(nyx_session_store_init(nullptr), regex("rcode nyx_session_store_init\\(nyx_api_ctx ?\\*\\)"));
    EXPECT_DEATH(nyx_session_store_cleanup(nullptr), regex("rcode nyx_session_store_cleanup\\(nyx_api_ctx ?\\*\\)"));
    EXPECT_DEATH(nyx_session_create(nullptr), regex("nyx_session_ctx ?\\* ?nyx_session_create\\(nyx_api_ctx ?\\*\\)"));
    EXPECT_DEATH(nyx_session_find(nullptr, 1),
                 regex("nyx_session_ctx ?\\* ?nyx_session_find\\(nyx_api_ctx ?\\*, (std::)?uint32_t\\)"));
    EXPECT_DEATH(nyx_session_destroy(nullptr, &session),
                 regex("void nyx_session_destroy\\(nyx_api_ctx ?\\*, nyx_session_ctx ?\\*\\)"));
}

}  // namespace
