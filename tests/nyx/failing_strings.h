// Scenarios of the string helpers, the bounded string operations and the searches.
#ifndef NYX_TEST_FAILING_STRINGS_H
#define NYX_TEST_FAILING_STRINGS_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "failing_calls.h"
#include "nyx_api_common.h"
#include "umbra/hash.h"
#include "umbra/named_alloc.h"

namespace nyx_test {

inline void give_back(void *block) {
    if (block != nullptr) {
        umbra_named_free(block);
    }
}

// A function that makes a text in a block of its own. Before the call, the place for it holds another text.
class text_maker : public exercise {
  public:
    explicit text_maker(std::function<std::string(char *&)> make) : make_(std::move(make)) {}
    std::string call() override { return make_(made_); }
    std::string state() override { return shown(made_); }
    void make_ready() override {
        char *const made = std::exchange(made_, old_);
        give_back(made == old_ ? nullptr : made);
    }

  private:
    std::function<std::string(char *&)> make_;
    char old_[4] = "old";
    char *made_ = old_;
};

// A function that changes a text in place. The text has room for `room` bytes; what is behind them is nobody's.
class text_changer : public exercise {
  public:
    text_changer(const char *text, std::function<std::string(char *)> change)
        : original_(text), change_(std::move(change)) {
        text_changer::make_ready();
    }
    std::string call() override { return change_(text_.data()); }
    std::string state() override {
        const bool behind = std::any_of(text_.begin() + room, text_.end(), [](char each) { return each != filler; });
        return shown(text_.data()) + (behind ? " and what is behind it" : "");
    }
    void make_ready() override {
        text_.fill(filler);
        std::strcpy(text_.data(), original_);
    }

  private:
    static constexpr std::size_t room = 8;
    static constexpr char filler = '#';

    const char *original_;
    std::function<std::string(char *)> change_;
    std::array<char, 2 * room> text_{};
};

inline scenario makes_text(const std::string &name, const std::function<std::string(char *&)> &make,
                           const outcome &undisturbed, const std::vector<failing_call> &failing) {
    return {name, [make] { return std::make_unique<text_maker>(make); }, undisturbed, failing};
}

inline scenario changes_text(const std::string &name, const char *text,
                             const std::function<std::string(char *)> &change, const std::string &undisturbed,
                             const std::vector<failing_call> &failing = {}) {
    return {name, [=] { return std::make_unique<text_changer>(text, change); }, {undisturbed, {}}, failing};
}

// Copies

inline std::string make_with(char *&made, char *result) {
    made = result;
    return "";
}

inline scenarios copy_scenarios() {
    const auto copying = [](const char *name, char *(*function)(const char *, const char *)) {
        return makes_text(
            name, [function](char *&made) { return make_with(made, function("text", "block")); },
            {R"("text")", {"block"}}, failures().copy(R"("text")", "block", {"null", {}}));
    };
    return {
        copying("nyx_strdup", nyx_strdup),
        copying("nyx_strdup2", nyx_strdup2),
        makes_text(
            "nyx_strdup_concat",
            [](char *&made) { return shown_code(nyx_strdup_concat("one", "two", "block", &made)) + "; "; },
            {R"(0; "onetwo")", {"block"}},
            failures()
                .of("strnlen_s", {R"(0; "two")", {"block"}})
                .of("strnlen_s", {R"(0; "one")", {"block"}})
                .of("umbra_named_malloc_", {"NO_MEMORY; null", {}})
                .of("memcpy_s", {"406; null", {}})
                .of("memcpy_s", {"406; null", {}})),
        makes_text(
            "nyx_tokenize_and_get_token",
            [](char *&made) {
                nyx_tokenize_and_get_token("a,bc", ",", 1, &made);
                return "";
            },
            {R"("bc")", {"NYX MAP"}},
            failures()
                .of("strnlen_s", {"null", {}})  // an empty text has no tokens
                .of("umbra_named_malloc_", {"null", {}})
                .of("memcpy_s", {"null", {"NYX MAP"}}, {"NYX MAP"})
                .copy(R"("bc")", "NYX MAP", {"null", {}})),
    };
}

// Replacement and tokens

// Of the pairs, the first alone finds something.
inline scenario replaces(const std::string &name, std::uint32_t count, const std::vector<failing_call> &failing) {
    const auto make = [count](char *&made) {
        std::vector<str_replacement> pairs(count, str_replacement{"?", "!"});
        pairs[0] = {"b", "XY"};
        return make_with(made, str_replace_multi("abc", pairs.data(), count, "block"));
    };
    return makes_text(name, make, {R"("aXYc")", {"block"}}, failing);
}

// The lengths of the text and of the first pair. What has no length is found ten times in one place, the most that is
// looked for, and what replaces nothing is nothing.
inline failures &measuring_replacement(failures &failing) {
    return failing.of("strnlen_s", {"null", {}})
        .of("strnlen_s", {R"("aXYXYXYXYXYXYXYXYXYXYbc")", {"block"}})
        .of("strnlen_s", {R"("ac")", {"block"}});
}

inline scenario replaces_with_one_pair() {
    failures failing;
    return replaces("str_replace_multi", 1, measuring_replacement(failing).of("umbra_named_malloc_", {"null", {}}));
}

// More pairs than there is room for without a working block.
inline scenario replaces_with_work_block() {
    constexpr std::uint32_t pairs = 201;
    failures failing;
    measuring_replacement(failing).of("umbra_named_malloc_", {"null", {}});
    for (std::uint32_t pair = 1; pair < pairs; ++pair) {
        failing.harmless("strnlen_s").harmless("strnlen_s");
    }
    return replaces("str_replace_multi/many_pairs", pairs, failing.of("umbra_named_malloc_", {"null", {}}));
}

class tokenizer : public exercise {
  public:
    std::string call() override {
        tokens_ = str_arr_tokenize(text_.data(), ",", &count_);
        return (tokens_ == nullptr ? "null, " : "") + std::to_string(count_) + " tokens";
    }
    std::string state() override {
        std::string all;
        for (std::uint32_t i = 0; tokens_ != nullptr && i < count_; ++i) {
            all += std::string(" ") + tokens_[i];
        }
        std::string text(text_.data(), text_.size() - 1);
        std::replace(text.begin(), text.end(), '\0', '|');
        return all + " of " + text;
    }
    void make_ready() override {
        give_back(std::exchange(tokens_, nullptr));
        text_ = original;
        count_ = before;
    }

  private:
    static constexpr std::uint32_t before = 77;
    static constexpr std::array<char, 12> original = {"a,b,c,d,e,f"};
    std::array<char, 12> text_ = original;
    char **tokens_ = nullptr;
    std::uint32_t count_ = before;
};

inline scenarios token_scenarios() {
    return {
        replaces_with_one_pair(),
        replaces_with_work_block(),
        makes_text(
            "str_replace_multi/no_pairs",
            [](char *&made) { return make_with(made, str_replace_multi("text", nullptr, 0, "block")); },
            {R"("text")", {"block"}}, failures().copy(R"("text")", "block", {"null", {}})),
        {"str_arr_tokenize",
         [] { return std::make_unique<tokenizer>(); },
         {"6 tokens a b c d e f of a|b|c|d|e|f", {"String tokens array"}},
         // The text is split as far as the token for which there is no room.
         failures()
             .of("umbra_named_calloc_", {"null, 0 tokens of a,b,c,d,e,f", {}})
             .of("umbra_named_realloc", {"null, 6 tokens of a|b|c|d|e|f", {}})},
        plain(
            "nyx_count_char_occurences", [] { return std::to_string(nyx_count_char_occurences("a-b-c", '-')); }, "2",
            failures().of("strnlen_s", {"0", {}})),
        plain(
            "str_pair_helper_compare",
            [] {
                const str_pair pairs[] = {{nullptr, 1, 1, 1}, {nullptr, 1, 1, 2}};
                return std::to_string(str_pair_helper_compare(&pairs[0], &pairs[1]));
            },
            "-1"),
    };
}

// Changes in place

inline scenarios edit_scenarios() {
    const auto shown_result = [](int (*function)(char *)) {
        return [function](char *text) { return std::to_string(function(text)) + "; "; };
    };
    const auto shown_text = [](char *(*function)(char *)) {
        return [function](char *text) { return std::string(function(text) == text ? "" : "elsewhere "); };
    };
    return {
        changes_text(
            "chr_replace", "a-b-c", [](char *text) { return std::to_string(chr_replace(text, '-', '+')) + "; "; },
            R"(0; "a+b+c")",
            failures()
                .of("strfirstchar_s", {R"(406; "a-b-c")", {}})
                .of("strfirstchar_s", {R"(406; "a+b-c")", {}})
                .of("strfirstchar_s", {R"(406; "a+b+c")", {}})),
        // One character alone is moved when the rest of the text cannot be measured.
        changes_text("str_ltrim", "  ab", shown_result(str_ltrim), R"(0; "ab")",
                     failures().of("strnlen_s", {R"(0; "a ab")", {}}).of("memmove_s", {R"(406; "  ab")", {}})),
        changes_text("str_rtrim", "ab  ", shown_text(str_rtrim), R"("ab")", failures().of("strnlen_s", {R"("")", {}})),
        changes_text("str_trim", "  ab ", shown_result(str_trim), R"(0; "ab")",
                     failures()
                         .of("strnlen_s", {R"(0; "a ab")", {}})
                         .of("memmove_s", {R"(406; "  ab ")", {}})
                         .of("strnlen_s", {R"(0; "")", {}})),
        changes_text("str_to_lower", "aBC", shown_text(str_to_lower), R"("abc")"),
        changes_text("str_to_upper", "aBc", shown_text(str_to_upper), R"("ABC")"),
        changes_text(
            "nyx_stpcpy", "-----", [](char *text) { return std::to_string(nyx_stpcpy(text, "abc") - text) + "; "; },
            R"(3; "abc")"),
    };
}

// Keys of hash maps

inline scenarios key_scenarios() {
    return {
        plain(
            "nyx_string_hash_calc", [] { return std::to_string(nyx_string_hash_calc("key")); },
            std::to_string(umbra_hash_calculate("key", 3)),
            failures().of("strnlen_s", {std::to_string(umbra_hash_calculate("", 0)), {}})),
        plain(
            "nyx_string_hash_cmp", [] { return std::to_string(nyx_string_hash_cmp("key", "key")); }, "1",
            failures().of("strcmp_s", {"0", {}})),
    };
}

// Bounded strings

// A function that compares, and says so through an indicator that held 0.
inline scenario compares(const std::string &name, const std::function<std::string(int *)> &compare,
                         const std::string &undisturbed, const std::vector<failing_call> &failing) {
    return plain(
        name,
        [compare] {
            int indicator = 0;
            const std::string result = compare(&indicator);
            return result + "; indicator " + std::to_string(indicator);
        },
        undisturbed, failing);
}

inline scenarios bounded_string_scenarios() {
    const outcome refused = {R"(406; "ab")", {}};
    const outcome invalid = {R"(INVALID_ARGUMENT; "ab")", {}};
    return {
        changes_text(
            "nyx_strcpy_s", "ab", [](char *text) { return std::to_string(nyx_strcpy_s("me", text, 8, "cd")) + "; "; },
            R"(0; "cd")", failures().harmless("strnlen_s").of("strcpy_s", refused)),
        changes_text(
            "nyx_strncpy_s", "ab",
            [](char *text) { return std::to_string(nyx_strncpy_s("me", text, 8, "cd", 8)) + "; "; }, R"(0; "cd")",
            failures().harmless("strnlen_s").of("strncpy_s", refused)),
        changes_text(
            "nyx_strcat_s", "ab", [](char *text) { return std::to_string(nyx_strcat_s("me", text, 8, "cd")) + "; "; },
            R"(0; "abcd")", failures().harmless("strnlen_s").of("strcat_s", refused)),
        changes_text(
            "nyx_strncat_s", "ab",
            [](char *text) { return std::to_string(nyx_strncat_s("me", text, 8, "cd", 1)) + "; "; }, R"(0; "abc")",
            failures().harmless("strnlen_s").of("strncat_s", refused)),
        compares(
            "nyx_strcmp_s", [](int *indicator) { return std::to_string(nyx_strcmp_s("me", "b", 8, "a", indicator)); },
            "0; indicator 1", failures().of("strcmp_s", {"406; indicator 0", {}})),
        changes_text(
            "nyx_safe_strncpy", "ab", [](char *text) { return shown_code(nyx_safe_strncpy(text, 8, "cd", 2)) + "; "; },
            R"(0; "cd")", failures().of("strncpy_s", invalid)),
        changes_text(
            "nyx_safe_strncat", "ab", [](char *text) { return shown_code(nyx_safe_strncat(text, 8, "cd", 2)) + "; "; },
            R"(0; "abcd")", failures().of("strncat_s", invalid)),
        compares(
            "nyx_safe_strcmp", [](int *indicator) { return shown_code(nyx_safe_strcmp("a", 8, "a", indicator)); },
            "0; indicator 0", failures().of("strcmp_s", {"INVALID_ARGUMENT; indicator 1", {}})),
    };
}

// Searches

inline constexpr const char *searched = "abcbd";

inline std::string shown_place(const char *found) {
    const auto place = reinterpret_cast<std::uintptr_t>(found) - reinterpret_cast<std::uintptr_t>(searched);
    return place <= std::strlen(searched) ? std::to_string(place) : "another place";
}

inline scenario searches(const std::string &name, const std::function<errno_t(const char **)> &search,
                         const std::string &undisturbed) {
    return plain(
        name,
        [search] {
            const char *found = "old";
            const errno_t result = search(&found);
            return std::to_string(result) + (found == nullptr ? " null" : " at " + shown_place(found));
        },
        undisturbed);
}

// None of them asks the platform for anything while its arguments are in order; about others it tells the constraint
// handler, which cannot fail.
inline scenarios search_scenarios() {
    return {
        searches(
            "strchar_s_tmp", [](const char **at) { return strchar_s_tmp(searched, 5, 'b', at); }, "0 at 1"),
        searches(
            "strchar_s_tmp/refused", [](const char **at) { return strchar_s_tmp(searched, 0, 'b', at); }, "401 null"),
        searches(
            "strrchar_s_tmp", [](const char **at) { return strrchar_s_tmp(searched, 5, 'b', at); }, "0 at 3"),
        searches(
            "strrchar_s_tmp/refused", [](const char **at) { return strrchar_s_tmp(nullptr, 5, 'b', at); }, "400 null"),
        searches(
            "strpbrk_s_tmp", [](const char **at) { return strpbrk_s_tmp(searched, 5, "dc", 2, at); }, "0 at 2"),
        searches(
            "strpbrk_s_tmp/refused", [](const char **at) { return strpbrk_s_tmp(searched, 5, "dc", 0, at); },
            "401 null"),
        searches(
            "strstr_s_tmp", [](const char **at) { return strstr_s_tmp(searched, 5, "bd", 2, at); }, "0 at 3"),
        searches(
            "strstr_s_tmp/refused", [](const char **at) { return strstr_s_tmp(searched, 2, "xy", 2, at); }, "407 null"),
    };
}

}  // namespace nyx_test

#endif
