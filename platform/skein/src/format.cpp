#include "format.h"

#include <cstring>

namespace skein {

uint64_t header_checksum(const file_header &header) {
    uint64_t words[header_checked_words];
    std::memcpy(words, &header, sizeof words);
    checksum sum(file_magic);
    for (const uint64_t word : words) {
        sum.add(word);
    }
    return sum.value();
}

bool header_is_sound(const file_header &header) {
    return header.magic == file_magic && header.version == file_version && header.header_size == header_size &&
           header.byte_order == file_byte_order && geometry{header.slot_size, header.slot_count}.valid() &&
           header.checksum == header_checksum(header);
}

}  // namespace skein
