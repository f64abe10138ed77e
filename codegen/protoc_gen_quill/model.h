// What the generator knows of a message file: records with their members, in the order and with the
// kinds that the codec needs. Built once from the descriptors; the writers only read it.
#ifndef PROTOC_GEN_QUILL_MODEL_H
#define PROTOC_GEN_QUILL_MODEL_H

#include <google/protobuf/descriptor.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quillgen {

enum class member_kind {
    number32,   // unsigned 32-bit integer or enumeration
    number64,   // unsigned 64-bit integer
    flag,       // boolean kept in 8 bits
    wide_flag,  // boolean kept in 32 bits
    text,       // owned NUL-terminated string
    texts,      // repeated string
    numbers32,  // repeated unsigned 32-bit integer
    record,     // record held inline
    records,    // repeated record
};

struct member {
    std::string name;         // as declared, also in has_<name>
    std::string c_name;       // as spelled in the struct
    std::string element;      // C type of the member, or of its elements when it is repeated
    std::string enumeration;  // C type name of its enumeration, or empty
    std::string meaning;      // one line of documentation
    uint32_t field = 0;
    member_kind kind = member_kind::number32;
    std::string reset = "0";  // value after a reset
    bool zero_reset = true;   // the record held here is all zeros after a reset

    [[nodiscard]] bool repeated() const;
    [[nodiscard]] bool nested() const;
    [[nodiscard]] bool varint() const;
};

struct record {
    std::string c_name;  // such as "quill_nyx_datatree"
    std::string meaning;
    std::vector<member> members;  // in declaration order, which is also the order on the wire
    bool holds_tree = false;      // is a data tree or holds one at some depth
    bool owns = false;            // owns a string or an array at some depth
    bool zero_reset = true;       // a reset record is all zeros
    bool recursive = false;       // holds itself
    bool in_recursion = false;    // holds itself, or is held by a record that does
};

struct enumerator {
    std::string c_name;
    int32_t value = 0;
    std::string meaning;
};

struct enumeration {
    std::string c_name;
    std::string meaning;
    std::vector<enumerator> values;
};

struct message_file {
    std::string proto_name;  // such as "nyx.proto"
    std::string prefix;      // such as "quill_nyx"
    std::vector<enumeration> enumerations;
    std::vector<record> records;  // a record stands behind those that it holds
};

// Reads a file's descriptors. A construct that the codec has no rule for is refused: the result is
// empty and `error` names it.
std::optional<message_file> build_model(const google::protobuf::FileDescriptor &file, std::string &error);

}  // namespace quillgen

#endif
