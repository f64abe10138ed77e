// The functions that the loaded library exports, read from its own table of symbols.
#ifndef NYX_TEST_FAILING_EXPORTS_H
#define NYX_TEST_FAILING_EXPORTS_H

#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>
#include <link.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>

namespace nyx_test {

// A library's dynamic section, as far as it tells about symbols.
class symbol_tables {
  public:
    explicit symbol_tables(const link_map &library) {
        for (const ElfW(Dyn) *entry = library.l_ld; entry->d_tag != DT_NULL; ++entry) {
            if (entry->d_tag == DT_SYMTAB) {
                symbols_ = reinterpret_cast<const ElfW(Sym) *>(entry->d_un.d_ptr);
            } else if (entry->d_tag == DT_STRTAB) {
                names_ = reinterpret_cast<const char *>(entry->d_un.d_ptr);
            } else if (entry->d_tag == DT_GNU_HASH) {
                hash_ = reinterpret_cast<const std::uint32_t *>(entry->d_un.d_ptr);
            }
        }
    }

    [[nodiscard]] std::set<std::string> functions() const {
        std::set<std::string> found;
        if (symbols_ == nullptr || names_ == nullptr || hash_ == nullptr) {
            return found;
        }
        // What is defined stands behind what is imported.
        for (std::uint32_t i = first_defined(), end = end_of_symbols(); i < end; ++i) {
            if (ELF64_ST_TYPE(symbols_[i].st_info) == STT_FUNC) {
                found.insert(names_ + symbols_[i].st_name);
            }
        }
        return found;
    }

  private:
    // The hash table: four numbers, a Bloom filter, the buckets, and the chains, which end where their lowest bit is
    // set.
    [[nodiscard]] std::uint32_t bucket_count() const { return hash_[0]; }
    [[nodiscard]] std::uint32_t first_defined() const { return hash_[1]; }
    [[nodiscard]] const std::uint32_t *buckets() const {
        return hash_ + 4 + std::uint64_t{hash_[2]} * sizeof(ElfW(Addr)) / sizeof *hash_;
    }
    [[nodiscard]] std::uint32_t end_of_symbols() const {
        const std::uint32_t *const chains = buckets() + bucket_count();
        std::uint32_t last = *std::max_element(buckets(), chains);
        if (last < first_defined()) {
            return first_defined();
        }
        while ((chains[last - first_defined()] & 1U) == 0) {
            ++last;
        }
        return last + 1;
    }

    const ElfW(Sym) *symbols_ = nullptr;
    const char *names_ = nullptr;
    const std::uint32_t *hash_ = nullptr;
};

inline std::set<std::string> exported_functions() {
    void *const library = dlopen("libnyx.so.1", RTLD_LAZY | RTLD_NOLOAD);
    link_map *map = nullptr;
    if (library == nullptr || dlinfo(library, RTLD_DI_LINKMAP, &map) != 0) {
        ADD_FAILURE() << dlerror();
        return {};
    }
    std::set<std::string> found = symbol_tables(*map).functions();
    dlclose(library);
    return found;
}

}  // namespace nyx_test

#endif
