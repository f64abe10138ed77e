#include "model.h"

#include <algorithm>
#include <cctype>
#include <set>
#include <string_view>

#include "quill_options.pb.h"

namespace quillgen {

namespace pb = google::protobuf;

namespace {

std::string snake_case(std::string_view camel) {
    std::string out;
    for (const char c : camel) {
        if (std::isupper(static_cast<unsigned char>(c)) != 0) {
            if (!out.empty()) {
                out += '_';
            }
            out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        } else {
            out += c;
        }
    }
    return out;
}

std::string upper_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
}

// The members whose names the struct cannot bear as they are: the header serves C++ too.
std::string struct_spelling(const std::string &name) {
    static const std::set<std::string_view> keywords = {"alignas",
                                                        "alignof",
                                                        "and",
                                                        "and_eq",
                                                        "asm",
                                                        "auto",
                                                        "bitand",
                                                        "bitor",
                                                        "bool",
                                                        "break",
                                                        "case",
                                                        "catch",
                                                        "char",
                                                        "char16_t",
                                                        "char32_t",
                                                        "char8_t",
                                                        "class",
                                                        "co_await",
                                                        "co_return",
                                                        "co_yield",
                                                        "compl",
                                                        "concept",
                                                        "const",
                                                        "const_cast",
                                                        "consteval",
                                                        "constexpr",
                                                        "constinit",
                                                        "continue",
                                                        "decltype",
                                                        "default",
                                                        "delete",
                                                        "do",
                                                        "double",
                                                        "dynamic_cast",
                                                        "else",
                                                        "enum",
                                                        "explicit",
                                                        "export",
                                                        "extern",
                                                        "false",
                                                        "float",
                                                        "for",
                                                        "friend",
                                                        "goto",
                                                        "if",
                                                        "inline",
                                                        "int",
                                                        "long",
                                                        "mutable",
                                                        "namespace",
                                                        "new",
                                                        "noexcept",
                                                        "not",
                                                        "not_eq",
                                                        "nullptr",
                                                        "operator",
                                                        "or",
                                                        "or_eq",
                                                        "private",
                                                        "protected",
                                                        "public",
                                                        "register",
                                                        "reinterpret_cast",
                                                        "requires",
                                                        "restrict",
                                                        "return",
                                                        "short",
                                                        "signed",
                                                        "sizeof",
                                                        "static",
                                                        "static_assert",
                                                        "static_cast",
                                                        "struct",
                                                        "switch",
                                                        "template",
                                                        "this",
                                                        "thread_local",
                                                        "throw",
                                                        "true",
                                                        "try",
                                                        "typedef",
                                                        "typeid",
                                                        "typename",
                                                        "union",
                                                        "unsigned",
                                                        "using",
                                                        "virtual",
                                                        "void",
                                                        "volatile",
                                                        "wchar_t",
                                                        "while",
                                                        "xor",
                                                        "xor_eq"};
    return keywords.contains(name) ? name + "_" : name;
}

// The comment written before or behind a declaration, folded into one line.
template <class Descriptor>
std::string comment_of(const Descriptor &descriptor) {
    pb::SourceLocation location;
    if (!descriptor.GetSourceLocation(&location)) {
        return {};
    }
    const std::string &raw = location.leading_comments.empty() ? location.trailing_comments : location.leading_comments;
    std::string out;
    for (const char c : raw) {
        const bool blank = c == '\n' || c == ' ';
        if (!blank) {
            out += c;
        } else if (!out.empty() && out.back() != ' ') {
            out += ' ';
        }
    }
    while (!out.empty() && out.back() == ' ') {
        out.pop_back();
    }
    return out;
}

std::optional<member_kind> kind_of(const pb::FieldDescriptor &field) {
    const bool repeated = field.is_repeated();
    switch (field.type()) {
        case pb::FieldDescriptor::TYPE_UINT32:
            return repeated ? member_kind::numbers32 : member_kind::number32;
        case pb::FieldDescriptor::TYPE_UINT64:
            return repeated ? std::nullopt : std::optional(member_kind::number64);
        case pb::FieldDescriptor::TYPE_BOOL:
            if (repeated) {
                return std::nullopt;
            }
            return field.options().GetExtension(::quill::wide) ? member_kind::wide_flag : member_kind::flag;
        case pb::FieldDescriptor::TYPE_BYTES:
            return repeated ? member_kind::texts : member_kind::text;
        case pb::FieldDescriptor::TYPE_MESSAGE:
            return repeated ? member_kind::records : member_kind::record;
        default:
            return std::nullopt;
    }
}

std::string reset_of(const pb::FieldDescriptor &field) {
    if (!field.has_default_value()) {
        return "0";
    }
    switch (field.type()) {
        case pb::FieldDescriptor::TYPE_UINT32:
            return std::to_string(field.default_value_uint32());
        case pb::FieldDescriptor::TYPE_UINT64:
            return std::to_string(field.default_value_uint64());
        default:
            return field.default_value_bool() ? "1" : "0";
    }
}

std::string element_type(const pb::FieldDescriptor &field, member_kind kind, const std::string &prefix) {
    switch (kind) {
        case member_kind::number32:
        case member_kind::numbers32:
        case member_kind::wide_flag:
            return "uint32_t";
        case member_kind::number64:
            return "uint64_t";
        case member_kind::flag:
            return "uint8_t";
        case member_kind::text:
        case member_kind::texts:
            return "char *";
        case member_kind::record:
        case member_kind::records:
            return prefix + "_" + snake_case(field.message_type()->name());
    }
    return {};
}

std::string dotted_to_prefix(std::string package) {
    std::replace(package.begin(), package.end(), '.', '_');
    return package;
}

const record *find_record(const message_file &model, const std::string &c_name) {
    const auto found =
        std::find_if(model.records.begin(), model.records.end(), [&](const record &r) { return r.c_name == c_name; });
    return found == model.records.end() ? nullptr : &*found;
}

bool add_member(record &owner, const pb::FieldDescriptor &field, const message_file &model, std::string &error) {
    const auto kind = kind_of(field);
    if (!kind || (field.has_default_value() && field.type() == pb::FieldDescriptor::TYPE_BYTES)) {
        error = "the codec has no rule for the member " + std::string(field.full_name());
        return false;
    }
    member m;
    m.name = field.name();
    m.c_name = struct_spelling(m.name);
    m.kind = *kind;
    m.field = static_cast<uint32_t>(field.number());
    m.element = element_type(field, *kind, model.prefix);
    m.reset = reset_of(field);
    m.meaning = comment_of(field);
    const std::string named = field.options().GetExtension(::quill::enumeration);
    if (!named.empty()) {
        m.enumeration = model.prefix + "_" + snake_case(named);
    }

    if (m.nested()) {
        const bool itself = m.element == owner.c_name;
        const record *held = find_record(model, m.element);
        if (held == nullptr && !(itself && m.repeated())) {
            error = "the member " + std::string(field.full_name()) + " holds a record that is declared further down";
            return false;
        }
        owner.holds_tree = owner.holds_tree || itself || held->holds_tree;
        owner.owns = owner.owns || m.repeated() || held->owns;
        m.zero_reset = itself || held->zero_reset;
        owner.zero_reset = owner.zero_reset && (m.repeated() || m.zero_reset);
    } else if (!m.varint()) {
        owner.owns = true;
    }
    owner.zero_reset = owner.zero_reset && m.reset == "0";
    owner.members.push_back(std::move(m));
    return true;
}

void mark_recursion(message_file &model) {
    for (record &holder : model.records) {
        for (const member &m : holder.members) {
            holder.recursive = holder.recursive || m.element == holder.c_name;
        }
    }
    for (const record &holder : model.records) {
        for (record &held : model.records) {
            held.in_recursion =
                held.in_recursion ||
                (holder.recursive && std::any_of(holder.members.begin(), holder.members.end(),
                                                 [&](const member &m) { return m.element == held.c_name; }));
        }
    }
}

enumeration build_enumeration(const pb::EnumDescriptor &descriptor, const std::string &prefix) {
    enumeration out;
    out.c_name = prefix + "_" + snake_case(descriptor.name());
    out.meaning = comment_of(descriptor);
    for (int i = 0; i < descriptor.value_count(); ++i) {
        const pb::EnumValueDescriptor &value = *descriptor.value(i);
        out.values.push_back({upper_case(prefix) + "_" + value.name(), value.number(), comment_of(value)});
    }
    return out;
}

}  // namespace

bool member::repeated() const {
    return kind == member_kind::texts || kind == member_kind::numbers32 || kind == member_kind::records;
}

bool member::nested() const {
    return kind == member_kind::record || kind == member_kind::records;
}

bool member::varint() const {
    return kind == member_kind::number32 || kind == member_kind::number64 || kind == member_kind::flag ||
           kind == member_kind::wide_flag;
}

std::optional<message_file> build_model(const pb::FileDescriptor &file, std::string &error) {
    message_file model;
    model.proto_name = file.name();
    model.prefix = dotted_to_prefix(file.package());
    for (int i = 0; i < file.enum_type_count(); ++i) {
        model.enumerations.push_back(build_enumeration(*file.enum_type(i), model.prefix));
    }
    for (int i = 0; i < file.message_type_count(); ++i) {
        const pb::Descriptor &message = *file.message_type(i);
        record r;
        r.c_name = model.prefix + "_" + snake_case(message.name());
        r.meaning = comment_of(message);
        for (int k = 0; k < message.field_count(); ++k) {
            if (!add_member(r, *message.field(k), model, error)) {
                return std::nullopt;
            }
        }
        model.records.push_back(std::move(r));
    }
    mark_recursion(model);
    return model;
}

}  // namespace quillgen
