#include "records.h"

#include <new>

namespace request_path {

char *copy_string(const std::string &text) {
    char *const copy = nyx_strdup(text.c_str(), "text of a record");
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    return copy;
}

template <class record_type>
record_type *make_records(size_t count) {
    void *block = nyx_gpb_alloc(count * sizeof(record_type), nullptr);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return static_cast<record_type *>(block);
}
template quill_nyx_datatree *make_records(size_t);
template quill_nyx_attribute *make_records(size_t);
template quill_nyx_error *make_records(size_t);

namespace {

void write_attributes(quill_nyx_datatree &record, const node &tree) {
    record.attributes = make_records<quill_nyx_attribute>(tree.attributes.size());
    record.attributes_count = static_cast<uint32_t>(tree.attributes.size());
    record.has_attributes = 1;
    for (size_t i = 0; i < tree.attributes.size(); ++i) {
        record.attributes[i].key = copy_string(tree.attributes[i].key);
        record.attributes[i].has_key = 1;
        record.attributes[i].value = copy_string(tree.attributes[i].value);
        record.attributes[i].has_value = 1;
    }
}

void write_children(quill_nyx_datatree &record, const node &tree) {
    record.children = make_records<quill_nyx_datatree>(tree.children.size());
    record.children_count = static_cast<uint32_t>(tree.children.size());
    record.has_children = 1;
    for (size_t i = 0; i < tree.children.size(); ++i) {
        write_tree(record.children[i], tree.children[i]);
    }
}

std::string text_of(const char *string) {
    return string == nullptr ? std::string() : std::string(string);
}

}  // namespace

void write_tree(quill_nyx_datatree &record, const node &tree) {
    record.name = copy_string(tree.name);
    record.has_name = 1;
    if (!tree.value.empty()) {
        record.value = copy_string(tree.value);
        record.has_value = 1;
    }
    if (!tree.name_space.empty()) {
        record.namespace_ = copy_string(tree.name_space);
        record.has_namespace = 1;
    }
    if (tree.operation) {
        record.operation = *tree.operation;
        record.has_operation = 1;
    }
    if (!tree.attributes.empty()) {
        write_attributes(record, tree);
    }
    if (!tree.children.empty()) {
        write_children(record, tree);
    }
}

node read_tree(const quill_nyx_datatree &record) {
    node tree;
    tree.name = text_of(record.name);
    tree.value = text_of(record.value);
    tree.name_space = text_of(record.namespace_);
    if (record.has_operation) {
        tree.operation = record.operation;
    }
    for (uint32_t i = 0; i < record.attributes_count; ++i) {
        tree.attributes.push_back({text_of(record.attributes[i].key), text_of(record.attributes[i].value)});
    }
    tree.children.reserve(record.children_count);
    for (uint32_t i = 0; i < record.children_count; ++i) {
        tree.children.push_back(read_tree(record.children[i]));
    }
    return tree;
}

}  // namespace request_path
