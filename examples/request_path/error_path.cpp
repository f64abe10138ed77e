#include "error_path.h"

#include <algorithm>
#include <new>
#include <string>
#include <string_view>

namespace request_path {

namespace {

void require(int result) {
    if (result != 0) {
        throw std::bad_alloc();
    }
}

std::string in_quotes(char quote, std::string_view value) {
    std::string text(1, quote);
    text += value;
    text += quote;
    return text;
}

/* XPath 1.0 has no escapes: a value with both kinds of quotes is put together from parts that have one each. */
std::string quoted(std::string_view value) {
    if (value.find('"') == std::string_view::npos) {
        return in_quotes('"', value);
    }
    std::string call = "concat(";
    while (!value.empty()) {
        const bool starts_with_double = value.find('"') < value.find('\'');
        const size_t length = std::min(value.find(starts_with_double ? '\'' : '"'), value.size());
        call += in_quotes(starts_with_double ? '\'' : '"', value.substr(0, length));
        value.remove_prefix(length);
        call += value.empty() ? ")" : ", ";
    }
    return call;
}

/* @return the namespace's prefix with its colon */
std::string prefix_in(const xpath_context &context, const char *name_space) {
    if (name_space == nullptr) {
        return {};
    }
    const umbra_hashmap_entry *const known = umbra_hashmap_get(context.namespace_aliases, name_space);
    return std::string(static_cast<const char *>(umbra_hashmap_value(known))) + ":";
}

}  // namespace

error_path::context::context() {
    if (xpath_context_init(&xpath) != 0) {
        xpath_context_destroy(&xpath);
        throw std::bad_alloc();
    }
}

void error_path::prepend(const node &place, const distinction &mark) {
    const char *const name_space = place.name_space.empty() ? nullptr : place.name_space.c_str();
    require(xpath_prepend(&prefixes_.xpath, place.name.c_str(), name_space, nullptr, nullptr, 0));
    std::string step = place.name;
    switch (mark.by) {
        case distinction::means::key:
            return prepend_comparison(step, name_space, prefix_in(prefixes_.xpath, name_space) + mark.key, mark.value);
        case distinction::means::value:
            return prepend_comparison(step, name_space, ".", mark.value);
        case distinction::means::position:
            step += '[';
            step += std::to_string(mark.position);
            step += ']';
            break;
        case distinction::means::absence:
            step += "[last() + 1]";
            break;
        case distinction::means::name:
            break;
    }
    require(xpath_prepend(&path_.xpath, step.c_str(), name_space, nullptr, nullptr, 0));
}

void error_path::prepend_comparison(const std::string &name, const char *name_space, const std::string &key,
                                    const std::string &value) {
    if (value.find('\'') != std::string::npos) {  // the library would put it between single quotes as it is
        const std::string step = name + "[" + key + " = " + quoted(value) + "]";
        return require(xpath_prepend(&path_.xpath, step.c_str(), name_space, nullptr, nullptr, 0));
    }
    const char *const keys[] = {key.c_str()};
    const char *const values[] = {value.c_str()};
    require(xpath_prepend(&path_.xpath, name.c_str(), name_space, keys, values, 1));
}

bool error_path::write(quill_nyx_error &error) {
    return xpath_to_nyx_error(&path_.xpath, &error) == 0 && error.error_path.value != nullptr;
}

}  // namespace request_path
