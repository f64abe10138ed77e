#include <iterator>
#include <map>
#include <set>

#include "writers.h"

namespace quillgen {

using google::protobuf::io::Printer;

namespace {

using variables = std::map<std::string, std::string>;

// What the lines of a member are made of: $r$ record type, $m$ struct member, $n$ name, $f$ field number.
variables variables_of(const record &r, const member &m) {
    return {{"r", r.c_name}, {"m", m.c_name}, {"n", m.name}, {"f", std::to_string(m.field)}, {"reset", m.reset}};
}

struct rule {
    member_kind kind;
    const char *line;
};

// The line that a member of each kind adds to a function; a kind that is not listed adds none.
template <size_t N>
void print_rule(const rule (&rules)[N], const record &r, const member &m, Printer &out) {
    for (const rule &candidate : rules) {
        if (candidate.kind == m.kind) {
            out.Print(variables_of(r, m), candidate.line);
        }
    }
}

// Where the presence bits begin: behind the last member.
std::string presence_offset(const record &r) {
    if (r.members.empty()) {
        return "0";
    }
    const member &last = r.members.back();
    const std::string field = last.repeated() ? last.c_name + "_count" : last.c_name;
    return "offsetof(" + r.c_name + ", " + field + ") + sizeof(" + r.c_name + "::" + field + ")";
}

std::string zero_reset(const record &r) {
    std::string out;
    for (const member &m : r.members) {
        if (m.reset != "0") {
            return "false";
        }
        if (m.kind == member_kind::record) {
            out += (out.empty() ? "" : " && ") + ("codec<" + m.element + ">::zero_reset");
        }
    }
    return out.empty() ? "true" : out;
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
        "    static constexpr bool is_member(uint32_t$field$) { return $membership$; }\n\n",
        "members", std::to_string(r.members.size()), "offset", presence_offset(r), "zero", zero_reset(r), "field",
        r.members.empty() ? "" : " field", "membership", membership(r));
}

void write_is_blank(const record &r, Printer &out) {
    if (r.members.empty()) {
        out.Print("    static bool is_blank(const $r$ *) { return true; }\n\n", "r", r.c_name);
        return;
    }
    out.Print("    static QUILL_INLINE bool is_blank(const $r$ *r) {\n        return presence<$r$>::none(r)", "r",
              r.c_name);
    for (const member &m : r.members) {
        if (m.kind == member_kind::record) {
            out.Print("\n            && codec<$e$>::is_blank(&r->$m$)", "e", m.element, "m", m.c_name);
        }
    }
    out.Print(";\n    }\n\n");
}

void write_size(const record &r, Printer &out) {
    static const rule rules[] = {
        {member_kind::number32, "        size += r->has_$n$ ? size_varint<$f$>(r->$m$) : 0;\n"},
        {member_kind::number64, "        size += r->has_$n$ ? size_varint<$f$>(r->$m$) : 0;\n"},
        {member_kind::flag, "        size += r->has_$n$ ? size_varint<$f$>(r->$m$) : 0;\n"},
        {member_kind::wide_flag, "        size += r->has_$n$ ? size_varint<$f$>(r->$m$) : 0;\n"},
        {member_kind::text, "        size += r->has_$n$ ? size_text<$f$>(r->$m$, pass) : 0;\n"},
        {member_kind::texts, "        size += r->has_$n$ ? size_texts<$f$>(r->$m$, r->$m$_count, pass) : 0;\n"},
        {member_kind::numbers32, "        size += r->has_$n$ ? size_varints<$f$>(r->$m$, r->$m$_count) : 0;\n"},
        {member_kind::record, "        size += size_record<$f$>(r->has_$n$, &r->$m$, pass);\n"},
        {member_kind::records, "        size += r->has_$n$ ? size_records<$f$>(r->$m$, r->$m$_count, pass) : 0;\n"},
    };
    out.Print("    template <class Pass>\n    static uint64_t size(const $r$ *$arg$, Pass &pass) {\n        uint64_t size = 0;\n",
              "r", r.c_name, "arg", r.members.empty() ? "" : "r");
    for (const member &m : r.members) {
        print_rule(rules, r, m, out);
    }
    out.Print("        return pass.leave(size);\n    }\n\n");
}

void write_write(const record &r, Printer &out) {
    static const rule rules[] = {
        {member_kind::number32, "        at = r->has_$n$ ? write_varint<$f$>(r->$m$, at, out) : at;\n"},
        {member_kind::number64, "        at = r->has_$n$ ? write_varint<$f$>(r->$m$, at, out) : at;\n"},
        {member_kind::flag, "        at = r->has_$n$ ? write_varint<$f$>(r->$m$, at, out) : at;\n"},
        {member_kind::wide_flag, "        at = r->has_$n$ ? write_varint<$f$>(r->$m$, at, out) : at;\n"},
        {member_kind::text, "        at = r->has_$n$ ? write_text<$f$>(r->$m$, at, out) : at;\n"},
        {member_kind::texts, "        at = r->has_$n$ ? write_texts<$f$>(r->$m$, r->$m$_count, at, out) : at;\n"},
        {member_kind::numbers32, "        at = r->has_$n$ ? write_varints<$f$>(r->$m$, r->$m$_count, at, out) : at;\n"},
        {member_kind::record, "        at = write_record<$f$>(r->has_$n$, &r->$m$, at, out);\n"},
        {member_kind::records, "        at = r->has_$n$ ? write_records<$f$>(r->$m$, r->$m$_count, at, out) : at;\n"},
    };
    out.Print(
        "    template <class Writer>\n"
        "    static typename Writer::position write(const $r$ *$arg$, typename Writer::position end, Writer &out) {\n"
        "        const typename Writer::mark place = out.enter();\n"
        "        typename Writer::position at = end;\n",
        "r", r.c_name, "arg", r.members.empty() ? "" : "r");
    for (auto m = r.members.rbegin(); m != r.members.rend(); ++m) {
        print_rule(rules, r, *m, out);
    }
    out.Print("        return out.leave(place, at, end);\n    }\n\n");
}

void write_decode(const record &r, Printer &out) {
    static const rule rules[] = {
        {member_kind::number32,
         "                case tag_of($f$, wire_varint):\n"
         "                    at = decode_number(&r->$m$, at, end, in);\n"},
        {member_kind::number64,
         "                case tag_of($f$, wire_varint):\n"
         "                    at = decode_number(&r->$m$, at, end, in);\n"},
        {member_kind::flag,
         "                case tag_of($f$, wire_varint):\n"
         "                    at = decode_flag(&r->$m$, at, end, in);\n"},
        {member_kind::wide_flag,
         "                case tag_of($f$, wire_varint):\n"
         "                    at = decode_flag(&r->$m$, at, end, in);\n"},
        {member_kind::text,
         "                case tag_of($f$, wire_bytes):\n"
         "                    at = decode_text(&r->$m$, at, end, in);\n"},
        {member_kind::texts,
         "                case tag_of($f$, wire_bytes):\n"
         "                    at = decode_texts($f$, &r->$m$, &r->$m$_count, at, end, in);\n"},
        {member_kind::numbers32,
         "                case tag_of($f$, wire_varint):\n"
         "                    at = decode_numbers($f$, &r->$m$, &r->$m$_count, at, end, in);\n"},
        {member_kind::record,
         "                case tag_of($f$, wire_bytes):\n"
         "                    at = decode_record(r->has_$n$, &r->$m$, at, end, in);\n"},
        {member_kind::records,
         "                case tag_of($f$, wire_bytes):\n"
         "                    at = decode_records($f$, &r->$m$, &r->$m$_count, at, end, in);\n"},
    };
    out.Print(
        "    static const uint8_t *decode($r$ *$arg$, const uint8_t *at, const uint8_t *end, decoding &in) {\n"
        "        while (at != end) {\n"
        "            uint32_t tag = 0;\n"
        "            at = quill_read_varint32(&tag, at, end, in);\n"
        "            if (at == nullptr) {\n"
        "                return nullptr;\n"
        "            }\n",
        "r", r.c_name, "arg", r.members.empty() ? "" : "r");
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

void write_clear(const record &r, Printer &out) {
    static const rule rules[] = {
        {member_kind::number32, "        r->$m$ = $reset$;\n"},
        {member_kind::number64, "        r->$m$ = $reset$;\n"},
        {member_kind::flag, "        r->$m$ = $reset$;\n"},
        {member_kind::wide_flag, "        r->$m$ = $reset$;\n"},
        {member_kind::text, "        r->$m$ = nullptr;\n"},
        {member_kind::texts, "        r->$m$ = nullptr;\n        r->$m$_count = 0;\n"},
        {member_kind::numbers32, "        r->$m$ = nullptr;\n        r->$m$_count = 0;\n"},
        {member_kind::record, "        clear_record(&r->$m$);\n"},
        {member_kind::records, "        r->$m$ = nullptr;\n        r->$m$_count = 0;\n"},
    };
    if (r.members.empty()) {
        out.Print("    static void clear($r$ *) {}\n\n", "r", r.c_name);
        return;
    }
    out.Print("    static void clear($r$ *r) {\n", "r", r.c_name);
    for (const member &m : r.members) {
        print_rule(rules, r, m, out);
    }
    out.Print("        presence<$r$>::clear(r);\n    }\n\n", "r", r.c_name);
}

void write_copy(const record &r, Printer &out) {
    static const rule rules[] = {
        {member_kind::number32, "        dst->$m$ = src->$m$;\n"},
        {member_kind::number64, "        dst->$m$ = src->$m$;\n"},
        {member_kind::flag, "        dst->$m$ = src->$m$;\n"},
        {member_kind::wide_flag, "        dst->$m$ = src->$m$;\n"},
        {member_kind::text,
         "        if (!copy_text(&dst->$m$, src->$m$, call)) {\n"
         "            dst->has_$n$ = 0;\n"
         "        }\n"},
        {member_kind::texts,
         "        if (!copy_texts(&dst->$m$, &dst->$m$_count, src->$m$, src->$m$_count, call)) {\n"
         "            dst->has_$n$ = 0;\n"
         "        }\n"},
        {member_kind::numbers32,
         "        if (!copy_numbers(&dst->$m$, &dst->$m$_count, src->$m$, src->$m$_count, call)) {\n"
         "            dst->has_$n$ = 0;\n"
         "        }\n"},
        {member_kind::record, "        copy_record(&dst->$m$, &src->$m$, call);\n"},
        {member_kind::records,
         "        if (!copy_records(&dst->$m$, &dst->$m$_count, src->$m$, src->$m$_count, call)) {\n"
         "            dst->has_$n$ = 0;\n"
         "        }\n"},
    };
    if (r.members.empty()) {
        out.Print("    static void copy($r$ *, const $r$ *, copying &) {}\n\n", "r", r.c_name);
        return;
    }
    out.Print(
        "    static void copy($r$ *dst, const $r$ *src, copying &$call$) {\n"
        "        presence<$r$>::copy(dst, src);\n",
        "r", r.c_name, "call", [&] {
            for (const member &m : r.members) {
                if (!m.varint()) {
                    return "call";
                }
            }
            return "";
        }());
    for (const member &m : r.members) {
        print_rule(rules, r, m, out);
    }
    out.Print("    }\n\n");
}

void write_release(const record &r, Printer &out) {
    static const rule rules[] = {
        {member_kind::text, "        release_text(&r->$m$, call);\n"},
        {member_kind::texts, "        release_texts(&r->$m$, &r->$m$_count, call);\n"},
        {member_kind::numbers32, "        release_numbers(&r->$m$, call);\n"},
        {member_kind::record, "        release_record(&r->$m$, call);\n"},
        {member_kind::records, "        release_records(&r->$m$, &r->$m$_count, call);\n"},
    };
    if (!r.owns) {
        out.Print("    static void release($r$ *, const releasing &) {}\n", "r", r.c_name);
        return;
    }
    out.Print("    static void release($r$ *r, const releasing &call) {\n", "r", r.c_name);
    for (const member &m : r.members) {
        print_rule(rules, r, m, out);
    }
    out.Print("    }\n");
}

void write_codec(const record &r, Printer &out) {
    out.Print("template <>\nstruct codec<$r$> {\n", "r", r.c_name);
    write_facts(r, out);
    write_is_blank(r, out);
    write_size(r, out);
    write_write(r, out);
    write_decode(r, out);
    write_clear(r, out);
    write_copy(r, out);
    write_release(r, out);
    out.Print("};\n\n");
}

void write_exports(const record &r, Printer &out) {
    const variables names = {{"r", r.c_name}, {"unused", r.holds_tree ? ", uint32_t" : ""}};
    out.Print(names,
              "uint64_t $r$_encode_ext(const $r$ *record, uint8_t *buffer, uint64_t buffer_length,\n"
              "        quill_segment *segments, uint32_t *segment_count$unused$) {\n"
              "    return quill::encode(record, buffer, buffer_length, segments, segment_count);\n"
              "}\n\n"
              "int32_t $r$_decode_ext($r$ *record, const uint8_t *buf, uint64_t len,\n"
              "        quill_alloc_fn alloc, void *alloc_ctx$unused$) {\n"
              "    return quill::decode(record, buf, len, alloc, alloc_ctx);\n"
              "}\n\n"
              "int32_t $r$_duplicate($r$ *dst, const $r$ *src,\n"
              "        quill_alloc_fn alloc_fn, void *alloc_ctx) {\n"
              "    return quill::duplicate(dst, src, alloc_fn, alloc_ctx);\n"
              "}\n\n"
              "void $r$_free_ext($r$ *record, quill_free_fn free_fn, void *free_ctx$unused$) {\n"
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
