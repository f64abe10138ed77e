// The string helpers beside plain C++ strings.
//
// What is asserted: results, texts, messages and handler calls are those of a reference that is written down from the
// headers; nothing is read or written beyond what a bound or a terminator allows (all texts stand in heap blocks of
// exactly their size); an allocation that fails gives what the header says; no block is left.
//
// Input: a byte that chooses the helper, a byte that tells which allocation fails (0: none), the helper's arguments.
#include <algorithm>
#include <cctype>
#include <climits>
#include <map>
#include <optional>

#include "fuzz_target.h"
#include "nyx_api.h"
#include "nyx_api_common.h"
#include "platform_stand_in.h"
#include "umbra/named_alloc.h"

namespace nyx_fuzz {
namespace {

constexpr const char *description = "text of a fuzz target";
constexpr rsize_t above_max = uint64_t{INT64_MAX} + 1;
constexpr uint8_t null_argument = 0xFF;

// -- Texts in named blocks -----------------------------------------------------------------------------------------

// Takes a text over and gives its block back.
std::optional<std::string> taken(char *text) {
    if (text == nullptr) {
        return std::nullopt;
    }
    std::string out = text;
    umbra_named_free(text);
    return out;
}

void require_copy(char *made, const std::string &expected) {
    const bool failed = memory().has_failed();
    REQUIRE(memory().live_blocks() == (failed ? 0 : 1), "the library does not call the stand-in");
    const std::optional<std::string> copy = taken(made);
    REQUIRE(copy.has_value() != failed, expected);
    REQUIRE(failed || *copy == expected, *copy + " / " + expected);
}

void copy_text(input &in, uint64_t failing) {
    exact_text source(in.text());
    const std::string expected = source.get();
    const bool short_of_memory = in.byte() % 2 != 0;
    nyx_util_set_mem_state(short_of_memory ? 1 : 0);
    memory().fail_at(failing);
    require_copy(nyx_strdup2(source.get(), description), expected);
    if (short_of_memory) {
        REQUIRE(nyx_strdup(source.get(), description) == nullptr, expected);
    } else {
        memory().fail_at(failing);
        require_copy(nyx_strdup(source.get(), description), expected);
    }
    nyx_util_set_mem_state(0);
    REQUIRE(nyx_strdup(nullptr, description) == nullptr && nyx_strdup2(source.get(), nullptr) == nullptr, expected);
}

void join_texts(input &in, uint64_t failing) {
    exact_text a(in.text());
    exact_text b(in.text());
    const std::string expected = std::string(a.get()) + b.get();
    char *out = a.get();
    memory().fail_at(failing);
    const rcode rc = nyx_strdup_concat(a.get(), b.get(), description, &out);
    const bool failed = memory().has_failed();
    REQUIRE(rc == (failed ? NYX_RC_NO_MEMORY : 0), std::to_string(rc));
    const std::optional<std::string> joined = taken(out);
    REQUIRE(joined.has_value() != failed && (failed || *joined == expected), expected);
    out = a.get();
    REQUIRE(nyx_strdup_concat(a.get(), nullptr, description, &out) == 0 && out == nullptr, expected);
    REQUIRE(nyx_strdup_concat(a.get(), b.get(), description, nullptr) == NYX_RC_INVALID_ARGUMENT, expected);
}

// -- Replacement ---------------------------------------------------------------------------------------------------

struct replacement {
    std::string find;
    std::string replace;
};

// Where each text is found, by pair, as the header tells: the first of each pair, and nine further ones in all.
std::vector<std::vector<std::size_t>> occurrences(const std::string &text, const std::vector<replacement> &pairs) {
    std::vector<std::vector<std::size_t>> found(pairs.size());
    unsigned further = 0;
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const std::string &find = pairs[i].find;
        for (std::size_t at = text.find(find); at != std::string::npos; at = text.find(find, at + find.size())) {
            if (!found[i].empty() && ++further > 9) {
                break;
            }
            found[i].push_back(at);
        }
    }
    return found;
}

std::string replaced(const std::string &text, const std::vector<replacement> &pairs) {
    const std::vector<std::vector<std::size_t>> found = occurrences(text, pairs);
    std::map<std::size_t, const replacement *> winners;  // by position: the longest of those that start there
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        for (const std::size_t at : found[i]) {
            const replacement *&winner = winners[at];
            if (winner == nullptr || winner->find.size() < pairs[i].find.size()) {
                winner = &pairs[i];
            }
        }
    }
    std::string out;
    std::size_t done = 0;
    for (const auto &[at, pair] : winners) {
        if (at >= done) {
            out += text.substr(done, at - done) + pair->replace;
            done = at + pair->find.size();
        }
    }
    return out + text.substr(done);
}

// Which of two pairs wins that look for the same text is open: such inputs are not compared.
bool is_settled(const std::vector<replacement> &pairs) {
    std::set<std::string> seen;
    return std::all_of(pairs.begin(), pairs.end(),
                       [&](const replacement &each) { return seen.insert(each.find).second; });
}

void refuse_null_texts(const char *text) {
    const str_replacement broken[] = {{"a", nullptr}, {nullptr, "a"}};
    REQUIRE(str_replace_multi(nullptr, broken, 1, description) == nullptr, "text");
    REQUIRE(str_replace_multi(text, nullptr, 1, description) == nullptr, "pairs");
    REQUIRE(str_replace_multi(text, broken, 1, nullptr) == nullptr, "description");
    REQUIRE(str_replace_multi(text, broken, 1, description) == nullptr, "replace");
    REQUIRE(str_replace_multi(text, broken + 1, 1, description) == nullptr, "find");
}

void replace_texts(input &in, uint64_t failing) {
    const uint8_t form = in.byte();
    const std::string text = in.text();
    std::vector<replacement> pairs(form % 8);
    for (replacement &each : pairs) {
        each.find = in.text();
        each.replace = in.text();
    }
    if ((form & 0xF8U) == 0xF8U) {  // more than there is room for on the stack
        for (unsigned i = 0; i < 200; ++i) {
            std::string find(1, '\x01');
            find += std::to_string(i) + text.substr(0, i % 4);
            pairs.push_back({find, "#"});
        }
    }
    std::vector<exact_text> texts;
    std::vector<str_replacement> raw;
    for (const replacement &each : pairs) {
        texts.emplace_back(each.find);
        texts.emplace_back(each.replace);
        raw.push_back({(texts.end() - 2)->get(), texts.back().get()});
    }
    exact_text source(text);
    refuse_null_texts(source.get());
    memory().fail_at(failing);
    char *const made = str_replace_multi(source.get(), raw.data(), static_cast<uint32_t>(raw.size()), description);
    const bool failed = memory().has_failed();
    const std::optional<std::string> result = taken(made);
    const bool looks_for_nothing =
        std::any_of(pairs.begin(), pairs.end(), [](const replacement &each) { return each.find.empty(); });
    REQUIRE(result.has_value() == (!failed && !looks_for_nothing), text);
    REQUIRE(!result || !is_settled(pairs) || *result == replaced(text, pairs), text + " -> " + *result);
}

void order_pairs(input &in, uint64_t /*failing*/) {
    str_pair a = {nullptr, in.number(8), in.number(1), static_cast<int32_t>(in.number(4))};
    str_pair b = {nullptr, in.number(8), in.number(1), static_cast<int32_t>(in.number(4))};
    const auto rank = [](const str_pair &each) { return std::pair(each.position, ~each.find_length); };
    const int expected = rank(a) < rank(b) ? -1 : rank(b) < rank(a) ? 1 : 0;
    REQUIRE(str_pair_helper_compare(&a, &b) == expected, std::to_string(expected));
    REQUIRE(str_pair_helper_compare(&b, &a) == -expected, std::to_string(expected));
}

// -- In place ------------------------------------------------------------------------------------------------------

void replace_character(input &in, uint64_t /*failing*/) {
    const char from = static_cast<char>(in.byte());
    const char to = static_cast<char>(in.byte());
    const std::string text = in.text();
    exact_text changed(text);
    REQUIRE(chr_replace(changed.get(), from, to) == 0, text);
    std::string expected = text;
    if (from != '\0') {
        std::replace(expected.begin(), expected.end(), from, to);
    }
    expected += '\0';
    REQUIRE(changed.block() == expected, text);
}

bool is_space(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

std::string without_front(std::string text) {
    text.erase(text.begin(), std::find_if_not(text.begin(), text.end(), is_space));
    return text;
}

std::string without_back(std::string text) {
    text.erase(std::find_if_not(text.rbegin(), text.rend(), is_space).base(), text.end());
    return text;
}

void trim(input &in, uint64_t /*failing*/) {
    const std::string text = in.text();
    exact_text left(text);
    exact_text right(text);
    exact_text both(text);
    REQUIRE(str_ltrim(left.get()) == 0 && without_front(text) == left.get(), text);
    REQUIRE(str_rtrim(right.get()) == right.get() && without_back(text) == right.get(), text);
    REQUIRE(str_trim(both.get()) == 0 && without_back(without_front(text)) == both.get(), text);
}

void change_case(input &in, uint64_t /*failing*/) {
    const std::string text = in.text();
    std::string lower = text;
    std::string upper = text;
    for (char &each : lower) {
        each = static_cast<char>(std::tolower(static_cast<unsigned char>(each)));
    }
    for (char &each : upper) {
        each = static_cast<char>(std::toupper(static_cast<unsigned char>(each)));
    }
    exact_text changed(text);
    REQUIRE(str_to_lower(changed.get()) == changed.get() && lower == changed.get(), text);
    exact_text changed_up(text);
    REQUIRE(str_to_upper(changed_up.get()) == changed_up.get() && upper == changed_up.get(), text);
}

// -- Tokens, counts, keys ------------------------------------------------------------------------------------------

std::vector<std::string> tokens_of(const std::string &text, const std::string &delimiters) {
    std::vector<std::string> out;
    for (std::size_t at = text.find_first_not_of(delimiters); at != std::string::npos;) {
        const std::size_t end = std::min(text.find_first_of(delimiters, at), text.size());
        out.push_back(text.substr(at, end - at));
        at = text.find_first_not_of(delimiters, end);
    }
    return out;
}

void take_token(input &in, uint64_t failing) {
    const uint8_t index = in.byte();
    const std::string delimiters = in.text();
    const std::string text = in.text();
    exact_text source(text);
    exact_text set(delimiters);
    char *out = source.get();
    memory().fail_at(failing);
    nyx_tokenize_and_get_token(source.get(), set.get(), index, &out);
    const bool failed = memory().has_failed();
    const std::optional<std::string> token = taken(out);
    const std::vector<std::string> tokens = tokens_of(text, delimiters);
    REQUIRE(token.has_value() == (!failed && index < tokens.size()), text);
    REQUIRE(!token || *token == tokens[index], text);
    REQUIRE(text == source.get(), text);
}

void split(input &in, uint64_t failing) {
    const std::string delimiters = in.text();
    const std::string text = in.text();
    exact_text source(text);
    exact_text set(delimiters);
    uint32_t count = 77;
    memory().fail_at(failing);
    char **const tokens = str_arr_tokenize(source.get(), set.get(), &count);
    const bool failed = memory().has_failed();
    REQUIRE((tokens == nullptr) == failed, text);
    if (tokens == nullptr) {
        return;
    }
    const std::vector<std::string> expected = tokens_of(text, delimiters);
    REQUIRE(count == expected.size(), std::to_string(count));
    for (std::size_t i = 0; i < std::max<std::size_t>((std::size_t{count} + 4) / 5 * 5, 5); ++i) {
        REQUIRE((tokens[i] == nullptr) == (i >= count), std::to_string(i));
        REQUIRE(i >= count || expected[i] == tokens[i], expected[i]);
    }
    umbra_named_free(tokens);
}

void count_characters(input &in, uint64_t /*failing*/) {
    const char wanted = static_cast<char>(in.byte());
    const std::string text = in.text();
    exact_text source(text);
    REQUIRE(nyx_count_char_occurences(source.get(), wanted) == std::count(text.begin(), text.end(), wanted), text);
}

// The number that a hash promises to be in every release, one byte at a time.
uint32_t expected_hash(std::string_view text) {
    __extension__ using wide = unsigned __int128;
    const auto number_at = [&](std::size_t at, std::size_t bytes) {
        uint64_t number = 0;
        for (std::size_t i = bytes; i != 0; --i) {
            number = number << 8U | static_cast<uint8_t>(text[at + i - 1]);
        }
        return number;
    };
    const auto fold = [](uint64_t a, uint64_t b) {
        const wide product = static_cast<wide>(a) * b;
        return a ^ b ^ static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64U);
    };
    const std::size_t size = text.size();
    const std::size_t whole = size > 16 ? (size - 1) / 16 * 16 : 0;
    uint64_t state = 0x243F6A8885A308D3 * (size + 1);
    for (std::size_t at = 0; at < whole; at += 16) {
        state = fold(number_at(at, 8) ^ 0x13198A2E03707345, number_at(at + 8, 8) ^ state);
    }
    uint64_t first = 0;
    uint64_t second = 0;
    if (size >= 4) {
        const std::size_t bytes = size < 8 ? 4 : 8;
        first = number_at(size > 16 ? size - 16 : 0, bytes);
        second = number_at(size - bytes, bytes);
    } else if (size != 0) {
        first = number_at(0, 1) << 16U | number_at(size / 2, 1) << 8U | number_at(size - 1, 1);
    }
    const uint64_t mixed = fold(fold(first ^ 0xA4093822299F31D1, second ^ state), 0x13198A2E03707345);
    return static_cast<uint32_t>(mixed ^ mixed >> 32U);
}

void use_as_keys(input &in, uint64_t /*failing*/) {
    const std::string a = in.text();
    const std::string b = in.text();
    exact_text first(a);
    exact_text second(b);
    REQUIRE(nyx_string_hash_calc(first.get()) == expected_hash(a), a);
    REQUIRE(nyx_string_hash_cmp(first.get(), second.get()) == (a == b ? 1 : 0), a + " / " + b);
    REQUIRE(nyx_string_hash_cmp(first.get(), nullptr) == 0 && nyx_string_hash_calc(nullptr) == 0, a);
}

void copy_for_chaining(input &in, uint64_t /*failing*/) {
    const std::string text = in.text();
    exact_text source(text);
    exact_text room(std::string(text.size(), '?'));
    REQUIRE(nyx_stpcpy(room.get(), source.get()) == room.get() + text.size(), text);
    REQUIRE(room.block() == source.block(), text);
    REQUIRE(nyx_stpcpy(room.get(), nullptr) == room.get() && nyx_stpcpy(nullptr, source.get()) == nullptr, text);
}

// -- Bounded operations --------------------------------------------------------------------------------------------

enum class operation : uint8_t { copy, copy_some, append, append_some, compare, count };

// What an operation is given, and what it is expected to make of it.
struct bounded_call {
    operation what = operation::copy;
    std::string dest;  // its block: as many characters as there are, terminated or not
    rsize_t dmax = 0;
    std::string src;
    rsize_t slen = 0;
    bool dest_given = true;
    bool src_given = true;
};

struct outcome {
    errno_t result = 0;
    std::string dest;         // what the block holds afterwards
    std::string message;      // logged; empty: nothing is
    int indicator = INT_MIN;  // of a comparison; INT_MIN: untouched
};

bool takes_slen(operation what) {
    return what == operation::copy_some || what == operation::append_some;
}

// What the bounded functions themselves make of arguments that are neither null nor 0 nor too large.
outcome bounded(const bounded_call &call, rsize_t slen) {
    outcome out;
    out.dest = call.dest;
    if (call.what == operation::compare) {
        const std::string_view a = std::string_view(call.dest.c_str()).substr(0, call.dmax);
        const std::string_view b = std::string_view(call.src).substr(0, call.dmax);
        out.indicator = a.compare(b);
        return out;
    }
    const bool appends = call.what == operation::append || call.what == operation::append_some;
    const std::size_t start = appends ? std::min(call.dest.find('\0'), call.dest.size()) : 0;
    const std::size_t length = std::min<std::size_t>(call.src.size(), slen);
    if (appends && start >= call.dmax) {
        out.result = SAFE_STR_UNTERMINATED;
    } else if (appends && slen == 0) {
        return out;
    } else if (start + length >= call.dmax) {
        out.result = SAFE_STR_NO_SPACE;
    }
    if (out.result != 0) {
        out.dest[0] = '\0';
        return out;
    }
    std::copy_n(call.src.begin(), length, out.dest.begin() + static_cast<std::ptrdiff_t>(start));
    out.dest[start + length] = '\0';
    return out;
}

outcome refused(const bounded_call &call, errno_t code, const char *message) {
    return {code, call.dest, message, INT_MIN};
}

// What a logging wrapper makes of them, in the order of the header's table.
outcome logged(const bounded_call &call) {
    const bool counts_slen = call.what == operation::copy_some;
    if (!call.dest_given || !call.src_given) {
        return refused(call, SAFE_STR_NULL_POINTER,
                       call.what == operation::copy      ? "src/dest is null"
                       : call.what == operation::compare ? "src/dest/indicator is null. "
                                                         : "src/dest is null. ");
    }
    if (call.dmax == 0 || (counts_slen && call.slen == 0)) {
        return refused(call, SAFE_STR_ZERO_LENGTH, counts_slen ? "dmax/slen is 0. " : "dmax is 0. ");
    }
    if (call.dmax >= above_max || (counts_slen && call.slen >= above_max)) {
        return refused(call, SAFE_STR_ABOVE_MAX, "dmax exceeds max. ");
    }
    const bool checks_space = call.what != operation::compare && (!counts_slen || call.slen >= call.dmax);
    if (checks_space && call.src.size() >= call.dmax) {
        return refused(call, SAFE_STR_NO_SPACE, "not enough space for src. ");
    }
    if (call.what == operation::append_some && call.slen >= above_max) {
        outcome out = refused(call, SAFE_STR_ABOVE_MAX, "");
        out.dest[0] = '\0';
        return out;
    }
    return bounded(call, takes_slen(call.what) ? call.slen : RSIZE_MAX);
}

// What a quiet wrapper makes of them: the same without a log, and without the checks that are the logging ones' own.
outcome quiet(const bounded_call &call) {
    if (takes_slen(call.what) && call.slen == 0) {
        return {0, call.dest, "", INT_MIN};
    }
    outcome out;
    const bool dest_is_usable = call.dest_given && call.dmax != 0 && call.dmax < above_max;
    if (!call.dest_given || !call.src_given || !dest_is_usable || (takes_slen(call.what) && call.slen >= above_max)) {
        out = refused(call, NYX_RC_INVALID_ARGUMENT, "");
        if (dest_is_usable && call.what != operation::compare) {
            out.dest[0] = '\0';
        }
        out.indicator = 1;
        return out;
    }
    out = bounded(call, takes_slen(call.what) ? call.slen : RSIZE_MAX);
    out.result = out.result == 0 ? 0 : NYX_RC_INVALID_ARGUMENT;
    return out;
}

void require_outcome(const outcome &expected, errno_t result, const exact_text &dest, int indicator, bool compares) {
    REQUIRE(result == expected.result, std::to_string(result) + " / " + std::to_string(expected.result));
    REQUIRE(dest.block() == expected.dest, std::string(dest.block()) + " / " + expected.dest);
    const auto sign = [](int number) { return number == INT_MIN ? 9 : (number > 0) - (number < 0); };
    REQUIRE(!compares || sign(indicator) == sign(expected.indicator), std::to_string(indicator));
}

void require_log(const outcome &expected) {
    std::vector<std::string> &entries = trace_entries();
    REQUIRE(entries.size() == (expected.message.empty() ? 0 : 1), std::to_string(entries.size()));
    REQUIRE(entries.empty() || entries.front().ends_with(",fuzz: " + expected.message), entries.front());
    entries.clear();
}

bounded_call read_call(input &in) {
    bounded_call call;
    call.what = static_cast<operation>(in.byte() % static_cast<uint8_t>(operation::count));
    const uint8_t form = in.byte();
    const uint8_t room = in.byte();
    call.slen = (form & 8U) != 0 ? above_max + in.byte() : in.byte();
    call.slen = (form & 32U) != 0 ? RSIZE_MAX : call.slen;
    call.dest_given = (form & 1U) == 0;
    call.src_given = (form & 2U) == 0;
    call.src = in.text();
    call.dest = std::string(in.rest().substr(0, room));
    if (call.what == operation::compare || (form & 64U) != 0) {
        call.dest += '\0';
    }
    call.dest.resize(std::max<std::size_t>(room, call.dest.size()), '?');
    call.dmax = (form & 4U) != 0 ? above_max : call.dest.size();
    if (call.what == operation::compare && (form & 16U) != 0) {
        call.dmax = room;  // may be smaller or larger than the text
    }
    return call;
}

// The source's block ends behind its terminator, or, where no more is to be read, without one behind slen characters.
exact_text source_of(const bounded_call &call, bool is_logging) {
    const bool is_measured_first = is_logging && call.what == operation::append_some;
    const bool stops_at_slen = takes_slen(call.what) && !is_measured_first && call.slen != 0 && call.slen < call.dmax;
    return exact_text(call.src, stops_at_slen ? call.slen : SIZE_MAX);
}

errno_t call_logging(const bounded_call &call, char *dest, const char *src, int *indicator) {
    switch (call.what) {
        case operation::copy:
            return nyx_strcpy_s("fuzz", dest, call.dmax, src);
        case operation::copy_some:
            return nyx_strncpy_s("fuzz", dest, call.dmax, src, call.slen);
        case operation::append:
            return nyx_strcat_s("fuzz", dest, call.dmax, src);
        case operation::append_some:
            return nyx_strncat_s("fuzz", dest, call.dmax, src, call.slen);
        default:
            return nyx_strcmp_s("fuzz", dest, call.dmax, src, indicator);
    }
}

std::optional<rcode> call_quiet(const bounded_call &call, char *dest, const char *src, int *indicator) {
    switch (call.what) {
        case operation::copy_some:
            return nyx_safe_strncpy(dest, call.dmax, src, call.slen);
        case operation::append_some:
            return nyx_safe_strncat(dest, call.dmax, src, call.slen);
        case operation::compare:
            return nyx_safe_strcmp(dest, call.dmax, src, indicator);
        default:
            return std::nullopt;
    }
}

void operate_within_bounds(input &in, uint64_t /*failing*/) {
    static nyx_api_ctx api = {};
    api.debug.trace_enabled = 1;
    nyx_log_set_ctx(&api);
    const bounded_call call = read_call(in);
    const bool compares = call.what == operation::compare;
    {
        exact_text dest(call.dest, call.dest.size());
        exact_text src = source_of(call, true);
        int indicator = INT_MIN;
        const outcome expected = logged(call);
        const errno_t result = call_logging(call, call.dest_given ? dest.get() : nullptr,
                                            call.src_given ? src.get() : nullptr, &indicator);
        require_outcome(expected, result, dest, indicator, compares);
        require_log(expected);
    }
    exact_text dest(call.dest, call.dest.size());
    exact_text src = source_of(call, false);
    int indicator = 0;
    const outcome expected = quiet(call);
    const std::optional<rcode> result =
        call_quiet(call, call.dest_given ? dest.get() : nullptr, call.src_given ? src.get() : nullptr, &indicator);
    if (result) {
        require_outcome(expected, *result, dest, indicator, compares);
    }
    require_log({});
}

// -- Bounded searches ----------------------------------------------------------------------------------------------

std::vector<std::pair<std::string, errno_t>> &violations() {
    static std::vector<std::pair<std::string, errno_t>> instance;
    return instance;
}

void note_violation(const char *message, void *ptr, errno_t code) {
    REQUIRE(ptr == nullptr, message);
    violations().emplace_back(message, code);
}

// The position of what was found, or the result and the message of the violation, if it is one.
struct finding {
    errno_t result = 0;
    std::optional<std::size_t> at;
    std::string message;
};

finding found(std::size_t at) {
    return {0, at, ""};
}
finding found_nothing() {
    return {SAFE_STR_NOT_FOUND, std::nullopt, ""};
}
finding violation(errno_t code, const char *message) {
    return {code, std::nullopt, message};
}

void require_finding(const finding &expected, errno_t result, const char *at, const char *start) {
    REQUIRE(result == expected.result, std::to_string(result) + " / " + std::to_string(expected.result));
    REQUIRE((at != nullptr) == expected.at.has_value(), std::to_string(result));
    REQUIRE(at == nullptr || at == start + *expected.at, std::to_string(at - start));
    const bool violates = !expected.message.empty();
    REQUIRE(violations().size() == (violates ? 1 : 0), std::to_string(violations().size()));
    REQUIRE(!violates || violations().front() == std::pair(expected.message, expected.result), expected.message);
    violations().clear();
}

// What the search of one character looks for is a character of the text or, in the search for the first, its end.
finding expected_first(const std::string &text, rsize_t dmax, char wanted) {
    const std::size_t at = (text + '\0').find(wanted);
    const bool within = at < dmax || (at == text.size() && at <= dmax);
    if (at != std::string::npos && within) {
        return found(at);
    }
    return text.size() > dmax ? violation(407, "strfirstchar_s: dest is unterminated") : found_nothing();
}

finding expected_last(const std::string &text, rsize_t dmax, char wanted) {
    const std::size_t at = text.substr(0, dmax).rfind(wanted);
    finding out = text.size() > dmax        ? violation(407, "strlastchar_s: dest is unterminated")
                  : at == std::string::npos ? found_nothing()
                                            : found(at);
    if (at != std::string::npos) {
        out.at = at;
    }
    return out;
}

finding expected_of_set(const std::string &text, rsize_t dmax, const std::string &set, rsize_t slen) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (i == dmax) {
            return violation(407, "strpbrk_s: dest is unterminated");
        }
        const std::size_t at = set.find(text[i]);
        if (at != std::string::npos && at < slen) {
            return found(i);
        }
        if (set.size() > slen) {
            return violation(407, "strpbrk_s: src is unterminated");
        }
    }
    return found_nothing();
}

finding expected_text(const std::string &text, rsize_t dmax, const std::string &wanted, rsize_t slen) {
    if (wanted.empty()) {
        return found(0);
    }
    for (std::size_t start = 0; start < text.size(); ++start) {
        if (start == dmax) {
            return violation(407, "strstr_s: dest is unterminated");
        }
        const std::string_view there = std::string_view(text).substr(start);
        std::size_t same = 0;
        while (same < std::min(there.size(), wanted.size()) && there[same] == wanted[same]) {
            ++same;
        }
        if (same > slen) {
            return violation(407, "strstr_s: src is unterminated");
        }
        if (same == wanted.size()) {
            return found(start);
        }
        if (same == there.size()) {
            return found_nothing();
        }
    }
    return found_nothing();
}

rsize_t read_bound(input &in) {
    const uint8_t size = in.byte();
    return size == null_argument ? RSIZE_MAX : size == null_argument - 1 ? above_max : size;
}

std::optional<finding> bound_violation(rsize_t bound, const std::string &function, const std::string &name) {
    if (bound == 0) {
        return finding{SAFE_STR_ZERO_LENGTH, std::nullopt, function + ": " + name + " is 0"};
    }
    if (bound >= above_max) {
        return finding{SAFE_STR_ABOVE_MAX, std::nullopt, function + ": " + name + " exceeds max"};
    }
    return std::nullopt;
}

void search_character(input &in, uint64_t /*failing*/) {
    violations().clear();
    set_safe_str_constraint_handler(note_violation);
    const char wanted = static_cast<char>(in.byte());
    const rsize_t dmax = read_bound(in);
    const std::string text = in.text();
    exact_text dest(text, dmax < above_max ? dmax + 1 : 1);
    const char *at = "not null";
    const errno_t first = strchar_s_tmp(dest.get(), dmax, wanted, &at);
    require_finding(bound_violation(dmax, "strfirstchar_s", "dmax").value_or(expected_first(text, dmax, wanted)), first,
                    at, dest.get());
    at = "not null";
    const errno_t last = strrchar_s_tmp(dest.get(), dmax, wanted, &at);
    require_finding(bound_violation(dmax, "strlastchar_s", "dmax").value_or(expected_last(text, dmax, wanted)), last,
                    at, dest.get());
}

void search_text(input &in, uint64_t /*failing*/) {
    violations().clear();
    set_safe_str_constraint_handler(note_violation);
    const rsize_t dmax = read_bound(in);
    const rsize_t slen = read_bound(in);
    const std::string wanted = in.text();
    const std::string text = in.text();
    exact_text src(wanted, slen < above_max ? slen + 1 : 1);
    const auto bounds_of = [&](const char *function) {
        const std::optional<finding> broken = bound_violation(dmax, function, "dmax");
        return broken ? broken : bound_violation(slen, function, "slen");
    };
    exact_text cut(text, dmax < above_max ? dmax + 1 : 1);
    const char *at = "not null";
    const errno_t of_set = strpbrk_s_tmp(cut.get(), dmax, src.get(), slen, &at);
    require_finding(bounds_of("strpbrk_s").value_or(expected_of_set(text, dmax, wanted, slen)), of_set, at, cut.get());
    exact_text dest(text);  // a comparison that has begun may go on behind dmax
    at = "not null";
    const errno_t of_text = strstr_s_tmp(dest.get(), dmax, src.get(), slen, &at);
    require_finding(bounds_of("strstr_s").value_or(expected_text(text, dmax, wanted, slen)), of_text, at, dest.get());
}

using helper = void (*)(input &, uint64_t);
constexpr helper helpers[] = {
    replace_texts,         replace_character, take_token, split,       trim,        change_case,
    count_characters,      join_texts,        copy_text,  use_as_keys, order_pairs, copy_for_chaining,
    operate_within_bounds, search_character,  search_text};

}  // namespace
}  // namespace nyx_fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    nyx_fuzz::input in(data, size);
    const nyx_fuzz::helper chosen = nyx_fuzz::helpers[in.byte() % std::size(nyx_fuzz::helpers)];
    const uint64_t failing = in.byte();
    chosen(in, failing);
    nyx_fuzz::memory().fail_at(0);
    REQUIRE(nyx_fuzz::memory().live_blocks() == 0, std::to_string(nyx_fuzz::memory().live_blocks()));
    return 0;
}
