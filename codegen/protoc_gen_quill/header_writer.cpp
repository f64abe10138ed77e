#include <algorithm>
#include <cctype>
#include <sstream>

#include "writers.h"

namespace quillgen {

using google::protobuf::io::Printer;

namespace {

std::string include_guard(const message_file &model) {
    std::string guard;
    for (const char c : model.prefix) {
        guard += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return guard + "_H";
}

// A comment of its own, broken into lines.
std::string block_comment(const std::string &text) {
    static constexpr size_t width = 112;
    if (text.size() <= width) {
        return "/** " + text + " */\n";
    }
    std::string out = "/**\n *";
    size_t column = 2;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (column + 1 + word.size() > width) {
            out += "\n *";
            column = 2;
        }
        out += " " + word;
        column += 1 + word.size();
    }
    return out + "\n */\n";
}

// Declarations with their comments, the comments one below the other.
class commented_lines {
  public:
    void add(std::string code, std::string comment) { lines_.emplace_back(std::move(code), std::move(comment)); }

    void print(Printer &out) const {
        size_t width = 0;
        for (const auto &[code, comment] : lines_) {
            width = std::max(width, code.size());
        }
        for (const auto &[code, comment] : lines_) {
            out.Print("    $code$$pad$ /**< $comment$ */\n", "code", code, "pad", std::string(width - code.size(), ' '),
                      "comment", comment);
        }
    }

  private:
    std::vector<std::pair<std::string, std::string>> lines_;
};

void write_enumeration(const enumeration &e, Printer &out) {
    out.Print("$comment$typedef uint32_t $name$;\nenum {\n", "comment",
              block_comment(e.meaning + " Any 32-bit value is carried."), "name", e.c_name);
    commented_lines lines;
    for (const enumerator &v : e.values) {
        const char *comma = &v == &e.values.back() ? "" : ",";
        lines.add(v.c_name + " = " + std::to_string(v.value) + comma, v.meaning);
    }
    lines.print(out);
    out.Print("};\n\n");
}

std::string declaration(const member &m) {
    const std::string type = m.enumeration.empty() ? m.element : m.enumeration;
    const bool pointer = type.back() == '*';
    if (m.repeated()) {
        return type + (pointer ? "*" : " *") + m.c_name + ";";
    }
    return type + (pointer ? "" : " ") + m.c_name + ";";
}

void write_struct(const record &r, Printer &out) {
    out.Print("$comment$struct $name$ {\n", "comment", block_comment(r.meaning), "name", r.c_name);
    commented_lines lines;
    for (const member &m : r.members) {
        lines.add(declaration(m), m.meaning + "; field " + std::to_string(m.field) +
                                      (m.reset != "0" ? "; " + m.reset + " after a reset" : ""));
        if (m.repeated()) {
            lines.add("uint32_t " + m.c_name + "_count;", "elements in " + m.c_name);
        }
    }
    if (r.members.empty()) {
        lines.add("uint8_t reserved;", "keeps the size the same in C and C++; never read");
    }
    lines.print(out);
    if (!r.members.empty()) {
        out.Print("    /** Presence: bit k of these bytes belongs to the k-th member. @{ */\n");
        for (const member &m : r.members) {
            out.Print("    uint8_t has_$name$ : 1;\n", "name", m.name);
        }
        out.Print("    /** @} */\n");
    }
    out.Print("};\n\n");
}

void write_prototypes(const record &r, Printer &out) {
    const std::map<std::string, std::string> names = {
        {"r", r.c_name},
        {"pass_through", r.holds_tree ? ", uint32_t pass_through" : ""},
        {"nest_arg", r.holds_tree ? ", uint32_t nest_arg" : ""},
        {"alloc", r.owns ? "" : " Never calls alloc, which may be null."},
        {"reset", r.members.empty() ? "\n *  There is nothing to reset: any well-formed input is skipped." : ""},
        {"free", r.owns ? "" : " Owns nothing: does nothing."},
    };
    out.Print(names,
              "/** Encodes a $r$; see @ref quill_encode. */\n"
              "uint64_t $r$_encode_ext(\n"
              "    const $r$ *record, uint8_t *buffer, uint64_t buffer_length,\n"
              "    quill_segment *segments, uint32_t *segment_count$pass_through$);\n"
              "/** Decodes a $r$; see @ref quill_decode.$alloc$$reset$ */\n"
              "int32_t $r$_decode_ext(\n"
              "    $r$ *record, const uint8_t *buf, uint64_t len,\n"
              "    quill_alloc_fn alloc, void *alloc_ctx$nest_arg$);\n"
              "/** Copies a $r$ deeply; see @ref quill_copy. */\n"
              "int32_t $r$_duplicate(\n"
              "    $r$ *dst, const $r$ *src,\n"
              "    quill_alloc_fn alloc_fn, void *alloc_ctx);\n"
              "/** Releases what a $r$ owns; see @ref quill_free.$free$ */\n"
              "void $r$_free_ext(\n"
              "    $r$ *record, quill_free_fn free_fn, void *free_ctx$nest_arg$);\n\n");
}

}  // namespace

void write_notice(const message_file &model, Printer &out) {
    out.Print("/* Generated by protoc-gen-quill from $proto$ - do not edit; run \"./dev regen\". */\n", "proto",
              model.proto_name);
}

void write_header(const message_file &model, Printer &out) {
    write_notice(model, out);
    out.Print(
        "/**\n * @file $prefix$.h\n"
        " * The $count$ message records, their enumerations and their codec. quill.h says what all of them have in\n"
        " * common and what encoding, decoding, deep copy and release do.\n */\n"
        "#ifndef $guard$\n#define $guard$\n\n#include <stdint.h>\n\n#include \"quill.h\"\n\n"
        "#ifdef __cplusplus\nextern \"C\" {\n#endif\n\n"
        "#pragma GCC visibility push(default)\n\n",
        "prefix", model.prefix, "count", std::to_string(model.records.size()), "guard", include_guard(model));
    for (const enumeration &e : model.enumerations) {
        write_enumeration(e, out);
    }
    for (const record &r : model.records) {
        out.Print("typedef struct $r$ $r$;\n", "r", r.c_name);
    }
    out.Print("\n");
    for (const record &r : model.records) {
        write_struct(r, out);
    }
    for (const record &r : model.records) {
        write_prototypes(r, out);
    }
    out.Print("#pragma GCC visibility pop\n\n#ifdef __cplusplus\n}\n#endif\n\n#endif\n");
}

}  // namespace quillgen
