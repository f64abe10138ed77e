#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include "writers.h"

namespace quillgen {

using google::protobuf::io::Printer;

namespace {

using variables = std::map<std::string, std::string>;

// What the lines of a member are made of: $r$ record type, $m$ struct member, $n$ name, $f$ field number, $levels$ the
// levels still to be taken into the frame of a record that holds itself.
variables variables_of(const record &r, const member &m) {
    return {{"r", r.c_name},
            {"m", m.c_name},
            {"n", m.name},
            {"f", std::to_string(m.field)},
            {"reset", m.reset},
            {"e", m.element},
            {"levels", m.element == r.c_name ? ", Levels" : ""},
            {"only_levels", m.element == r.c_name ? "<Levels>" : ""}};
}

struct rule {
    std::set<member_kind> kinds;
    const char *line;
};

const std::set<member_kind> numbers = {member_kind::number32, member_kind::number64};
const std::set<member_kind> flags = {member_kind::flag, member_kind::wide_flag};
const std::set<member_kind> varints = {member_kind::number32, member_kind::number64, member_kind::flag,
                                       member_kind::wide_flag};

// The line that a member of each kind adds to a function; a kind that is not listed adds none.
template <size_t N>
void print_rule(const rule (&rules)[N], const record &r, const member &m, Printer &out) {
    for (const rule &candidate : rules) {
        if (candidate.kinds.contains(m.kind)) {
            out.Print(variables_of(r, m), candidate.line);
        }
    }
}

// The same, with another line for nested records unless it is null.
template <size_t N>
void print_rule_or(const char *nested_line, const rule (&rules)[N], const record &r, const member &m, Printer &out) {
    if (nested_line != nullptr && m.kind == member_kind::record) {
        out.Print(variables_of(r, m), nested_line);
    } else {
        print_rule(rules, r, m, out);
    }
}

// Where the presence bits begin: behind the last member.
std::string presence_offset(const record &r) {
    if (r.members.empty()) {
        return "0";
    }
    const member &last = r.members.back();
    const std::string field = last.repeated() ? last.c_name + "_count" : last.c_name;
    return "offsetof(" + r.c_name + ", " + field + ")\n        + sizeof(" + r.c_name + "::" + field + ")";
}

// The fields of a record as a condition on a field number, neighbours in one range.
std::string membership(const record &r) {
    std::set<uint32_t> fields;
    for (const member &m : r.members) {
        fields.insert(m.field);
    }
    std::string out;
    for (auto field = fields.begin(); field != fields.end(); ++field) {
        const uint32_t first = *field;
        while (std::next(field) != fields.end() && *std::next(field) == *field + 1) {
            ++field;
        }
        const std::string range =
            first == *field ? "field == " + std::to_string(first)
                            : "(field >= " + std::to_string(first) + " && field <= " + std::to_string(*field) + ")";
        out += (out.empty() ? "" : " || ") + range;
    }
    return out.empty() ? "false" : out;
}

void write_facts(const record &r, Printer &out) {
    out.Print(
        "    static constexpr std::size_t members = $members$;\n"
        "    static constexpr std::size_t presence_offset = $offset$;\n"
        "    static constexpr bool zero_reset = $zero$;\n\n"
        "    static constexpr bool is_member(uint32_t$field$) {\n"
        "        return $membership$;\n"
        "    }\n\n",
        "members", std::to_string(r.members.size()), "offset", presence_offset(r), "zero",
        r.zero_reset ? "true" : "false", "field", r.members.empty() ? "" : " field", "membership", membership(r));
}

// The presence bit of each member by name.
void write_bits(const record &r, Printer &out) {
    if (r.members.empty()) {
        return;
    }
    out.Print("    struct bit {\n        enum : uint32_t {\n");
    for (size_t k = 0; k < r.members.size(); ++k) {
        out.Print("            $m$ = 1U << $k$,\n", "m", r.members[k].c_name, "k", std::to_string(k));
    }
    out.Print("        };\n    };\n\n");
}

void write_occupied(const record &r, Printer &out) {
    if (r.members.empty()) {
        out.Print("    static bool occupied(const $r$ *) { return false; }\n\n", "r", r.c_name);
        return;
    }
    out.Print(
        "    static QUILL_INLINE bool occupied(const $r$ *r) {\n"
        "        return presence<$r$>::bits(r) != 0",
        "r", r.c_name);
    for (const member &m : r.members) {
        if (m.kind == member_kind::record) {
            out.Print("\n            || codec<$e$>::occupied(&r->$m$)", "e", m.element, "m", m.c_name);
        }
    }
    out.Print(";\n    }\n\n");
}

// Wide records are mostly empty: members are visited in groups of eight, and a group in which nothing is present at
// any inline depth is passed in one test.
constexpr size_t group_size = 8;

std::string group_mask(size_t first, size_t last) {
    std::ostringstream out;
    out << "0x" << std::hex << std::uppercase << (((uint64_t{1} << last) - 1) & ~((uint64_t{1} << first) - 1)) << "U";
    return out.str();
}

std::string group_condition(const record &r, size_t first, size_t last) {
    std::ostringstream out;
    out << "(has & " << group_mask(first, last) << ") != 0";
    for (size_t k = first; k < last; ++k) {
        const member &m = r.members[k];
        if (m.kind == member_kind::record) {
            out << "\n                || codec<" << m.element << ">::occupied(&r->" << m.c_name << ")";
        }
    }
    return out.str();
}

// Records of a single member, or of none, are taken into their holders. What a recursive record holds stays out of it:
// that keeps the frame of a level of nesting small.
std::string inlining(const record &r) {
    if (r.members.size() <= 1) {
        return "QUILL_INLINE ";
    }
    return r.in_recursion ? "QUILL_NOINLINE " : "";
}

struct signature {
    std::string template_parameter;  // such as "class Pass", or empty
    std::string result;              // with the blank behind it
    std::string name;
    std::string parameters;
    std::string arguments;  // the parameters' names
    std::string levels = "levels_in_a_frame";
};

// The opening of a codec function. That of a record that holds itself takes several levels into one frame.
void open_function(const record &r, const signature &function, Printer &out) {
    const variables names = {{"template", function.template_parameter},
                             {"result", function.result},
                             {"name", function.name},
                             {"parameters", function.parameters},
                             {"arguments", function.arguments},
                             {"levels", function.levels},
                             {"inline", inlining(r)}};
    const bool generic = !function.template_parameter.empty();
    if (generic) {
        out.Print(names, "    template <$template$>\n");
    }
    if (!r.recursive) {
        out.Print(names, "    static $inline$$result$$name$(\n            $parameters$) {\n");
        return;
    }
    out.Print(names,
              "    static QUILL_NOINLINE $result$$name$(\n            $parameters$) {\n"
              "        return $name$_levels<$levels$>($arguments$);\n"
              "    }\n\n");
    out.Print(names, generic ? "    template <int Levels, $template$>\n" : "    template <int Levels>\n");
    out.Print(names, "    static QUILL_INLINE $result$$name$_levels(\n            $parameters$) {\n");
}

// The record as a function's parameter; without members it is not used.
std::string record_parameter(const record &r, const char *qualifier = "") {
    return qualifier + r.c_name + " *" + (r.members.empty() ? "" : "r");
}

// A record of many groups tells the writing pass which of them are empty.
bool remembers_found(const record &r) {
    return r.members.size() > 2 * group_size;
}

// Prints what `print_member` prints for the members [first, last), within the condition that is not empty.
template <class PrintMember>
void print_group(const std::string &condition, size_t first, size_t last, Printer &out, PrintMember print_member) {
    if (!condition.empty()) {
        out.Print("        if ($condition$) {\n", "condition", condition);
        out.Indent();
        out.Indent();
    }
    print_member(first, last);
    if (!condition.empty()) {
        out.Outdent();
        out.Outdent();
        out.Print("        }\n");
    }
}

void write_size(const record &r, Printer &out) {
    static const rule rules[] = {
        {varints, "        size += has & bit::$m$ ? size_varint<$f$>(r->$m$) : 0;\n"},
        {{member_kind::text}, "        size += has & bit::$m$ ? size_text<$f$>(r->$m$, pass) : 0;\n"},
        {{member_kind::texts}, "        size += has & bit::$m$ ? size_texts<$f$>(r->$m$, r->$m$_count, pass) : 0;\n"},
        {{member_kind::numbers32}, "        size += has & bit::$m$ ? size_varints<$f$>(r->$m$, r->$m$_count) : 0;\n"},
        {{member_kind::record}, "        size += size_record<$f$>((has & bit::$m$) != 0, &r->$m$, pass);\n"},
        {{member_kind::records},
         "        size += has & bit::$m$ ? size_records<$f$$levels$>(r->$m$, r->$m$_count, pass) : 0;\n"},
    };
    static const char noting[] =
        "        size += note(found, bit::$m$,\n"
        "            size_record<$f$>((has & bit::$m$) != 0, &r->$m$, pass));\n";
    open_function(r, {"class Pass", "uint64_t ", "size", record_parameter(r, "const ") + ", Pass &pass", "r, pass"},
                  out);
    if (r.members.empty()) {
        out.Print("        return pass.leave(0);\n    }\n\n");
        return;
    }
    out.Print("        const uint32_t has = presence<$r$>::bits(r);\n        uint64_t size = 0;\n", "r", r.c_name);
    if (remembers_found(r)) {
        out.Print("        uint32_t found = 0;\n");
    }
    for (size_t first = 0; first < r.members.size(); first += group_size) {
        const size_t last = std::min(first + group_size, r.members.size());
        const std::string condition = r.members.size() > group_size ? group_condition(r, first, last) : "";
        print_group(condition, first, last, out, [&](size_t from, size_t to) {
            for (size_t k = from; k < to; ++k) {
                print_rule_or(remembers_found(r) ? noting : nullptr, rules, r, r.members[k], out);
            }
        });
    }
    if (remembers_found(r)) {
        out.Print("        pass.remember(found);\n");
    }
    out.Print("        return pass.leave(size);\n    }\n\n");
}

void write_write(const record &r, Printer &out) {
    static const rule rules[] = {
        {varints, "        at = has & bit::$m$ ? write_varint<$f$>(r->$m$, at, out) : at;\n"},
        {{member_kind::text}, "        at = has & bit::$m$ ? write_text<$f$>(r->$m$, at, out) : at;\n"},
        {{member_kind::texts}, "        at = has & bit::$m$ ? write_texts<$f$>(r->$m$, r->$m$_count, at, out) : at;\n"},
        {{member_kind::numbers32},
         "        at = has & bit::$m$ ? write_varints<$f$>(r->$m$, r->$m$_count, at, out) : at;\n"},
        {{member_kind::record}, "        at = write_record<$f$>((has & bit::$m$) != 0, &r->$m$, at, out);\n"},
        {{member_kind::records},
         "        at = has & bit::$m$ ? write_records<$f$$levels$>(r->$m$, r->$m$_count, at, out) : at;\n"},
    };
    static const char finding[] =
        "        at = found & bit::$m$\n"
        "            ? write_record<$f$>((has & bit::$m$) != 0, &r->$m$, at, out) : at;\n";
    open_function(r,
                  {"class Writer", "position_in<Writer> ", "write",
                   record_parameter(r, "const ") + ", position_in<Writer> end, Writer &out", "r, end, out"},
                  out);
    out.Print("        const typename Writer::mark place = out.enter();\n");
    if (r.members.empty()) {
        out.Print("        return out.leave(place, end, end);\n    }\n\n");
        return;
    }
    out.Print(
        "        const uint32_t has = presence<$r$>::bits(r);\n"
        "        position_in<Writer> at = end;\n",
        "r", r.c_name);
    if (remembers_found(r)) {
        out.Print("        const uint32_t found = out.recall(UINT32_MAX);\n");
    }
    for (size_t groups = (r.members.size() + group_size - 1) / group_size; groups > 0; --groups) {
        const size_t first = (groups - 1) * group_size;
        const size_t last = std::min(first + group_size, r.members.size());
        std::string condition;
        if (remembers_found(r)) {
            condition = "((has | found) & " + group_mask(first, last) + ") != 0";
        } else if (r.members.size() > group_size) {
            condition = group_condition(r, first, last);
        }
        print_group(condition, first, last, out, [&](size_t from, size_t to) {
            for (size_t k = to; k > from; --k) {
                print_rule_or(remembers_found(r) ? finding : nullptr, rules, r, r.members[k - 1], out);
            }
        });
    }
    out.Print("        return out.leave(place, at, end);\n    }\n\n");
}

void write_decode(const record &r, Printer &out) {
    static const rule rules[] = {
        {numbers,
         "                case tag_of($f$, wire_varint):\n"
         "                    at = decode_number(&r->$m$, at, end, in);\n"},
        {flags,
         "                case tag_of($f$, wire_varint):\n"
         "                    at = decode_flag(&r->$m$, at, end, in);\n"},
        {{member_kind::text},
         "                case tag_of($f$, wire_bytes):\n"
         "                    at = decode_text(&r->$m$, at, end, in);\n"},
        {{member_kind::texts},
         "                case tag_of($f$, wire_bytes):\n"
         "                    at = decode_texts($f$, &r->$m$, &r->$m$_count, at, end, in);\n"},
        {{member_kind::numbers32},
         "                case tag_of($f$, wire_varint):\n"
         "                    at = decode_numbers($f$, &r->$m$, &r->$m$_count, at, end, in);\n"},
        {{member_kind::record},
         "                case tag_of($f$, wire_bytes):\n"
         "                    at = decode_record(r->has_$n$, &r->$m$, at, end, in);\n"},
        {{member_kind::records},
         "                case tag_of($f$, wire_bytes):\n"
         "                    at = decode_records$only_levels$($f$, &r->$m$, &r->$m$_count, at, end, in);\n"},
    };
    open_function(r,
                  {"", "const uint8_t *", "decode",
                   record_parameter(r) + ", const uint8_t *at, const uint8_t *end, decoding &in", "r, at, end, in"},
                  out);
    out.Print(
        "        while (at != end) {\n"
        "            uint32_t tag = 0;\n"
        "            at = quill_read_varint32(&tag, at, end, in);\n"
        "            if (at == nullptr) {\n"
        "                return nullptr;\n"
        "            }\n");
    if (r.members.empty()) {
        out.Print("            at = decode_other<$r$>(tag, at, end, in);\n", "r", r.c_name);
    } else {
        out.Print("            switch (tag) {\n");
        for (const member &m : r.members) {
            print_rule(rules, r, m, out);
            out.Print(
                "                    if (at != nullptr) {\n"
                "                        r->has_$n$ = 1;\n"
                "                    }\n"
                "                    break;\n",
                "n", m.name);
        }
        out.Print(
            "                default:\n"
            "                    at = decode_other<$r$>(tag, at, end, in);\n"
            "            }\n",
            "r", r.c_name);
    }
    out.Print(
        "            if (at == nullptr) {\n"
        "                return nullptr;\n"
        "            }\n"
        "        }\n"
        "        return at;\n"
        "    }\n\n");
}

void write_reset(const record &r, Printer &out) {
    if (r.members.empty()) {
        out.Print(
            "    static bool has_spare_bits(const $r$ *) { return false; }\n\n"
            "    static constexpr void keep_spare_bits(uint8_t *) {}\n\n"
            "    static void set_defaults($r$ *) {}\n\n",
            "r", r.c_name);
        return;
    }
    out.Print(
        "    static QUILL_INLINE bool has_spare_bits(const $r$ *r) {\n"
        "        return presence<$r$>::has_spare(r)",
        "r", r.c_name);
    for (const member &m : r.members) {
        if (m.kind == member_kind::record) {
            out.Print("\n            || codec<$e$>::has_spare_bits(&r->$m$)", "e", m.element, "m", m.c_name);
        }
    }
    out.Print(";\n    }\n\n");
    out.Print(
        "    static constexpr void keep_spare_bits(uint8_t *image) {\n"
        "        presence<$r$>::keep_spare_bits(image);\n",
        "r", r.c_name);
    for (const member &m : r.members) {
        if (m.kind == member_kind::record) {
            out.Print("        codec<$e$>::keep_spare_bits(image + offsetof($r$, $m$));\n", "e", m.element, "r",
                      r.c_name, "m", m.c_name);
        }
    }
    out.Print("    }\n\n    static void set_defaults($r$ *$arg$) {\n", "r", r.c_name, "arg", r.zero_reset ? "" : "r");
    for (const member &m : r.members) {
        if (m.reset != "0") {
            out.Print("        r->$m$ = $reset$;\n", "m", m.c_name, "reset", m.reset);
        }
        if (m.kind == member_kind::record && !m.zero_reset) {
            out.Print("        codec<$e$>::set_defaults(&r->$m$);\n", "e", m.element, "m", m.c_name);
        }
    }
    out.Print("    }\n\n");
}

void write_holdings(const record &r, Printer &out) {
    static const rule rules[] = {
        {{member_kind::text}, "\n            | held(r->$m$)"},
        {{member_kind::texts}, "\n            | held(r->$m$) | r->$m$_count"},
        {{member_kind::numbers32}, "\n            | held(r->$m$) | r->$m$_count"},
        {{member_kind::record}, "\n            | codec<$e$>::holdings(&r->$m$)"},
        {{member_kind::records}, "\n            | held(r->$m$) | r->$m$_count"},
    };
    if (!r.owns) {
        out.Print("    static uint64_t holdings(const $r$ *) { return 0; }\n\n", "r", r.c_name);
        return;
    }
    out.Print("    static QUILL_INLINE uint64_t holdings(const $r$ *r) {\n        return uint64_t{0}", "r", r.c_name);
    for (const member &m : r.members) {
        print_rule(rules, r, m, out);
    }
    out.Print(";\n    }\n\n");
}

void write_copy(const record &r, Printer &out) {
    static const rule rules[] = {
        {{member_kind::text},
         "        if (!copy_text(&dst->$m$, src->$m$, call)) {\n"
         "            dst->has_$n$ = 0;\n"
         "        }\n"},
        {{member_kind::texts},
         "        if (!copy_texts(&dst->$m$, &dst->$m$_count, src->$m$, src->$m$_count, call)) {\n"
         "            dst->has_$n$ = 0;\n"
         "        }\n"},
        {{member_kind::numbers32},
         "        if (!copy_numbers(&dst->$m$, &dst->$m$_count, src->$m$, src->$m$_count, call)) {\n"
         "            dst->has_$n$ = 0;\n"
         "        }\n"},
        {{member_kind::record}, "        copy_record(&dst->$m$, &src->$m$, call);\n"},
        {{member_kind::records},
         "        if (!copy_records$only_levels$(&dst->$m$, &dst->$m$_count, src->$m$, src->$m$_count, call)) {\n"
         "            dst->has_$n$ = 0;\n"
         "        }\n"},
    };
    if (!r.owns) {
        out.Print("    static void copy_owned($r$ *, const $r$ *, copying &) {}\n\n", "r", r.c_name);
        return;
    }
    open_function(
        r,
        {"", "void ", "copy_owned", r.c_name + " *dst, const " + r.c_name + " *src, copying &call", "dst, src, call"},
        out);
    for (const member &m : r.members) {
        print_rule(rules, r, m, out);
    }
    out.Print("    }\n\n");
}

void write_release(const record &r, Printer &out) {
    static const rule rules[] = {
        {{member_kind::text}, "        release_text(&r->$m$, call);\n"},
        {{member_kind::texts}, "        release_texts(&r->$m$, &r->$m$_count, call);\n"},
        {{member_kind::numbers32}, "        release_numbers(&r->$m$, call);\n"},
        {{member_kind::record}, "        release_record(&r->$m$, call);\n"},
        {{member_kind::records}, "        release_records$only_levels$(&r->$m$, &r->$m$_count, call);\n"},
    };
    if (!r.owns) {
        out.Print("    static void release($r$ *, const releasing &) {}\n", "r", r.c_name);
        return;
    }
    open_function(r, {"", "void ", "release", record_parameter(r) + ", const releasing &call", "r, call"}, out);
    for (const member &m : r.members) {
        print_rule(rules, r, m, out);
    }
    out.Print("    }\n");
}

void write_codec(const record &r, Printer &out) {
    out.Print("template <>\nstruct codec<$r$> {\n", "r", r.c_name);
    write_facts(r, out);
    write_bits(r, out);
    write_occupied(r, out);
    write_size(r, out);
    write_write(r, out);
    write_decode(r, out);
    write_reset(r, out);
    write_holdings(r, out);
    write_copy(r, out);
    write_release(r, out);
    out.Print("};\n\n");
}

void write_exports(const record &r, Printer &out) {
    const variables names = {{"r", r.c_name}, {"unused", r.holds_tree ? ", uint32_t" : ""}};
    out.Print(names,
              "uint64_t $r$_encode_ext(\n"
              "        const $r$ *record, uint8_t *buffer, uint64_t buffer_length,\n"
              "        quill_segment *segments, uint32_t *segment_count$unused$) {\n"
              "    return quill::encode(record, buffer, buffer_length, segments, segment_count);\n"
              "}\n\n"
              "int32_t $r$_decode_ext(\n"
              "        $r$ *record, const uint8_t *buf, uint64_t len,\n"
              "        quill_alloc_fn alloc, void *alloc_ctx$unused$) {\n"
              "    return quill::decode(record, buf, len, alloc, alloc_ctx);\n"
              "}\n\n"
              "int32_t $r$_duplicate(\n"
              "        $r$ *dst, const $r$ *src,\n"
              "        quill_alloc_fn alloc_fn, void *alloc_ctx) {\n"
              "    return quill::duplicate(dst, src, alloc_fn, alloc_ctx);\n"
              "}\n\n"
              "void $r$_free_ext(\n"
              "        $r$ *record, quill_free_fn free_fn, void *free_ctx$unused$) {\n"
              "    quill::free_owned(record, free_fn, free_ctx);\n"
              "}\n\n");
}

}  // namespace

void write_source(const message_file &model, Printer &out) {
    write_notice(model, out);
    out.Print(
        "#include \"$prefix$.h\"\n\n#include \"quill/decode.h\"\n#include \"quill/encode.h\"\n"
        "#include \"quill/lifetime.h\"\n\nnamespace quill {\n\n",
        "prefix", model.prefix);
    for (const record &r : model.records) {
        write_codec(r, out);
    }
    out.Print("}  // namespace quill\n\n");
    for (const record &r : model.records) {
        write_exports(r, out);
    }
}

}  // namespace quillgen
