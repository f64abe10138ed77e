// XPath expressions that grow towards their front, and the prefixes of their namespaces.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "nyx_api_common.h"
#include "umbra/named_alloc.h"

namespace {

// "ns" and the longest number that an int has, with the terminator.
constexpr std::uint64_t alias_size = sizeof "ns2147483647";

void release_alias(umbra_hashmap *map, umbra_hashmap_entry *entry, void * /*visit_ctx*/) {
    void *const key = umbra_hashmap_key(entry);
    void *const value = umbra_hashmap_value(entry);
    umbra_hashmap_remove_tuple(map, entry);
    nyx_gpb_free(key);
    nyx_gpb_free(value);
}

int alias_make(umbra_hashmap *aliases, const char *ns, const char **alias) {
    auto *const made = static_cast<char *>(umbra_named_calloc_(1, alias_size, "namespace alias"));
    if (made == nullptr) {
        return ENOMEM;
    }
    char *const key = nyx_strdup(ns, "copy of namespace for xpath attribute");
    static_cast<void>(
        std::snprintf(made, alias_size, "ns%d", static_cast<std::int32_t>(umbra_hashmap_size(aliases) + 1)));
    if (key == nullptr || umbra_hashmap_insert(aliases, key, made) == 0) {
        nyx_gpb_free(key);
        nyx_gpb_free(made);
        return ENOMEM;
    }
    *alias = made;
    return 0;
}

// Finds the alias of a namespace, or makes one.
int xpath_namespace_alias(xpath_context *ctx, const char *ns, const char **alias) {
    const umbra_hashmap_entry *const entry = umbra_hashmap_get(ctx->namespace_aliases, ns);
    if (entry == nullptr) {
        return alias_make(ctx->namespace_aliases, ns, alias);
    }
    *alias = static_cast<const char *>(umbra_hashmap_value(entry));
    return *alias == nullptr ? EINVAL : 0;
}

struct step {
    const char *alias;  // null: none
    const char *name;
    const char *const *key_names;
    const char *const *key_values;
    std::uint32_t key_count;
    const char *rest;  // the path behind the step; null: none
};

// Gives every text of which the expression consists to `take`, in order.
template <class Take>
void for_each_text(const step &of, Take take) {
    if (of.alias != nullptr) {
        take(of.alias);
        take(":");
    }
    take(of.name);
    for (std::uint32_t i = 0; i < of.key_count; ++i) {
        take(i == 0 ? "[" : " and ");
        take(of.key_names[i]);
        take(" = '");
        take(of.key_values[i]);
        take("'");
    }
    if (of.key_count != 0) {
        take("]");
    }
    if (of.rest != nullptr) {
        take("/");
        take(of.rest);
    }
}

// The bytes of the expression with its terminator. False: more than can be told.
bool measure(const step &of, std::uint64_t *size) {
    *size = 1;
    bool told = true;
    for_each_text(of, [size, &told](const char *text) {
        if (text != nullptr && __builtin_add_overflow(*size, std::strlen(text), size)) {
            told = false;
        }
    });
    return told;
}

// Null: no memory.
char *expression_make(const step &of) {
    std::uint64_t size = 0;
    if (!measure(of, &size)) {
        return nullptr;
    }
    auto *const made = static_cast<char *>(umbra_named_calloc_(1, size, "xpath error string"));
    if (made == nullptr) {
        return nullptr;
    }
    char *end = made;
    for_each_text(of, [&end](const char *text) { end = nyx_stpcpy(end, text); });
    return made;
}

// False: no memory. What was copied stays in the attribute.
bool declare_alias(quill_nyx_attribute *attribute, const umbra_hashmap_entry *entry) {
    attribute->value = nyx_strdup(static_cast<const char *>(umbra_hashmap_key(entry)), "copy of xpath namespace tag");
    if (attribute->value == nullptr) {
        return false;
    }
    attribute->has_value = 1;
    const rcode rc = nyx_strdup_concat("xmlns:", static_cast<const char *>(umbra_hashmap_value(entry)),
                                       "prepended 'xmlns:' to xpath namespace value", &attribute->key);
    if (rc != 0 || attribute->key == nullptr) {
        return false;
    }
    attribute->has_key = 1;
    return true;
}

// Declares all aliases in attributes of the node.
int declare_aliases(umbra_hashmap *aliases, quill_nyx_datatree *node) {
    const std::uint32_t count = umbra_hashmap_size(aliases);
    if (count == 0) {
        return 0;
    }
    auto *const attributes = static_cast<quill_nyx_attribute *>(
        umbra_named_calloc_(count, sizeof(quill_nyx_attribute), "query transformer namespace attributes"));
    if (attributes == nullptr) {
        return ENOMEM;
    }
    quill_nyx_attribute *next = attributes;
    for (umbra_hashmap_entry *entry = umbra_hashmap_first(aliases); entry != nullptr;
         entry = umbra_hashmap_next(aliases, entry)) {
        if (!declare_alias(next++, entry)) {
            return ENOMEM;  // the attributes are left behind, as the header says
        }
    }
    node->attributes = attributes;
    node->attributes_count = count;
    node->has_attributes = 1;
    return 0;
}

}  // namespace

int xpath_context_init(xpath_context *ctx) {
    if (ctx == nullptr) {
        return 0;
    }
    *ctx = {};
    const int rc = umbra_hashmap_create(&ctx->namespace_aliases, 0, nyx_string_hash_calc, nyx_string_hash_cmp, 0);
    if (rc != 0) {
        ctx->namespace_aliases = nullptr;  // whatever the platform left there
    }
    return rc;
}

void xpath_context_destroy(xpath_context *ctx) {
    if (ctx == nullptr) {
        return;
    }
    if (ctx->namespace_aliases != nullptr) {
        umbra_hashmap_iterate(ctx->namespace_aliases, release_alias, nullptr);
        umbra_hashmap_free(ctx->namespace_aliases);
    }
    nyx_gpb_free(ctx->path);
    *ctx = {};
}

char *nyx_stpcpy(char *dst, const char *src) {
    return dst == nullptr || src == nullptr ? dst : stpcpy(dst, src);
}

int xpath_prepend(xpath_context *ctx, const char *name, const char *ns, const char *const *key_names,
                  const char *const *key_values, std::uint32_t key_count) {
    if (ctx == nullptr || name == nullptr) {
        return EINVAL;
    }
    if (key_count != 0 && (key_names == nullptr || key_values == nullptr)) {
        return EINVAL;
    }
    const char *alias = nullptr;
    if (ns != nullptr) {
        const int rc = xpath_namespace_alias(ctx, ns, &alias);
        if (rc != 0) {
            return rc;
        }
    }
    char *const path = expression_make({alias, name, key_names, key_values, key_count, ctx->path});
    if (path == nullptr) {
        return ENOMEM;
    }
    nyx_gpb_free(ctx->path);
    ctx->path = path;
    return 0;
}

int xpath_to_nyx_error(xpath_context *ctx, quill_nyx_error *error) {
    if (ctx == nullptr || error == nullptr) {
        return EINVAL;
    }
    quill_nyx_datatree &node = error->error_path;
    if (node.has_value != 0 && node.value != nullptr) {
        return EINVAL;
    }
    node.value = nyx_strdup(ctx->path, "copy of xpath path");
    node.has_value = 1;
    if (node.attributes != nullptr) {
        return EINVAL;
    }
    return declare_aliases(ctx->namespace_aliases, &node);
}
