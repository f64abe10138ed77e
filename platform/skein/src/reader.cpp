#include "skein/reader.h"

#include <fcntl.h>
#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "directory.h"
#include "entry.h"
#include "format.h"

using namespace skein;

// A copy of a ring. `whole` says of each slot whether a good entry begins there.
struct skein_reader {
    open_file file;
    file_header header;
    ring_slots slots;
    uint64_t present;  // slots that the file holds: of one that was cut off, fewer than its header tells
    unsigned char *whole;
    char *text;
    uint64_t begin;  // the tickets of the entries that count: from `begin` to before `end`
    uint64_t end;
    uint64_t intact;  // nothing from here on can have been overwritten by what was drawn
    uint64_t position;
    skein_file_info info;
};

namespace {

// Reads until the end of the file. Returns the bytes that were read, or a negative errno.
int64_t read_at(int file, void *to, uint64_t size, uint64_t offset) {
    uint64_t done = 0;
    while (done < size) {
        const ssize_t length =
            pread(file, static_cast<char *>(to) + done, size - done, static_cast<off_t>(offset + done));
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length < 0) {
            return -errno;
        }
        if (length == 0) {
            break;
        }
        done += static_cast<uint64_t>(length);
    }
    return static_cast<int64_t>(done);
}

int read_header(skein_reader &reader) {
    const int64_t length = read_at(reader.file.get(), &reader.header, sizeof reader.header, 0);
    if (length < 0) {
        return static_cast<int>(-length);
    }
    const bool sound = length == static_cast<int64_t>(sizeof reader.header) && header_is_sound(reader.header);
    return sound ? 0 : EBADMSG;
}

int allocate(skein_reader &reader) {
    const geometry sizes{reader.header.slot_size, reader.header.slot_count};
    // Zeroed: what a file that was cut off lacks reads as slots that were never used. They cost no memory as long as
    // nobody looks at them.
    reader.slots = {static_cast<unsigned char *>(calloc(sizes.slot_count, sizes.slot_size)), sizes};
    reader.whole = static_cast<unsigned char *>(calloc(sizes.slot_count, 1));
    reader.text = static_cast<char *>(malloc(uint64_t{sizes.text_max()} + 1));
    return reader.slots.base != nullptr && reader.whole != nullptr && reader.text != nullptr ? 0 : ENOMEM;
}

// Copies `slots` slots of the file anew, from the one of `index`; they may go on at the ring's beginning.
void copy_anew(skein_reader &reader, uint64_t index, uint64_t slots) {
    const geometry &sizes = reader.slots.sizes;
    for (uint64_t done = 0; done < slots;) {
        const uint64_t first = sizes.index(index + done);
        const uint64_t part = std::min(slots - done, sizes.slot_count - first);
        read_at(reader.file.get(), reader.slots.at(first), part * sizes.slot_size,
                header_size + first * sizes.slot_size);
        done += part;
    }
}

enum class found { nothing, whole, broken };

// What begins in the slot; of what is not nothing `head` tells the slots, and of an entry that is whole the rest.
found look_at(const skein_reader &reader, uint64_t index, entry_head &head) {
    const geometry &sizes = reader.slots.sizes;
    const uint64_t state = *reader.slots.at(index);
    const uint64_t ticket = ticket_of(state);
    if (state_of(state) != slot_state::first || ticket >= ticket_limit || sizes.index(ticket) != index) {
        return found::nothing;
    }
    return read_head(reader.slots, ticket, head) ? found::whole : found::broken;
}

// The copy is not made at one instant: an entry that ends at the ring's beginning may have been finished after its end
// was copied and before its first slot was. A second look tells that from damage. It is over when as much was copied as
// the first time: a file full of broken entries takes no more time than a sound one.
void look_again(skein_reader &reader) {
    uint64_t left = reader.slots.sizes.slot_count;
    for (uint64_t index = 0; index < reader.present; ++index) {
        entry_head head;
        const bool broken = look_at(reader, index, head) == found::broken;
        const uint64_t slots = std::max(head.slots, 1U);
        if (broken && slots <= left) {
            copy_anew(reader, index, slots);
            left -= slots;
        }
    }
}

// Marks the good entries; returns the first ticket after the newest of them.
uint64_t find_entries(skein_reader &reader) {
    uint64_t newest_end = 0;
    for (uint64_t index = 0; index < reader.present; ++index) {
        entry_head head;
        if (look_at(reader, index, head) == found::whole) {
            reader.whole[index] = 1;
            newest_end = std::max(newest_end, ticket_of(*reader.slots.at(index)) + head.slots);
        }
    }
    return newest_end;
}

// The first ticket from this one on whose slot the file holds. The others' slots read as never used, and a small file
// may claim millions of them: they are stepped over in one go.
uint64_t next_present(const skein_reader &reader, uint64_t ticket) {
    const geometry &sizes = reader.slots.sizes;
    const uint64_t index = sizes.index(ticket);
    return index < reader.present ? ticket : ticket + (sizes.slot_count - index);
}

// The end of what writers have taken behind the newest entry, in slots that they are still in or have given up. The
// entries of the lap before are gone there, while older ones, whose takers sleep, may still stand.
uint64_t taken_end(const skein_reader &reader, uint64_t newest_end) {
    const uint64_t count = reader.slots.sizes.slot_count;
    uint64_t end = newest_end;
    uint64_t ticket = next_present(reader, newest_end);
    for (; ticket < newest_end + count; ticket = next_present(reader, ticket + 1)) {
        const uint64_t word = *reader.slots[ticket];
        const bool busy = state_of(word) == slot_state::busy && ((word ^ ticket) & busy_ticket_mask) == 0;
        const bool given_up = word == state_word(slot_state::free, ticket);
        const bool half_published = end == ticket && word == state_word(slot_state::further, ticket);
        if (busy || given_up || half_published) {
            end = ticket + 1;
        }
    }
    return end;
}

// `drawn` is the ticket counter before the copy was made, `drawn_after` after it. If it moved, what was drawn meanwhile
// was copied in part only and is left out, as are the old entries that it overwrote. A counter that contradicts the
// entries is damaged and is not used.
void choose_window(skein_reader &reader, uint64_t newest_end, uint64_t drawn, uint64_t drawn_after) {
    const uint64_t count = reader.slots.sizes.slot_count;
    const auto lap_before = [&](uint64_t ticket) { return ticket > count ? ticket - count : 0; };
    reader.end = newest_end;
    reader.begin = std::min(lap_before(taken_end(reader, newest_end)), reader.end);
    if (drawn < drawn_after && newest_end <= drawn_after) {
        reader.end = std::min(newest_end, drawn);
        reader.begin = std::min(lap_before(drawn_after), reader.end);
        reader.info.overrun = reader.begin - std::min(lap_before(drawn), reader.begin);
    }
    // Whoever drew a ticket may have taken some slots of an older entry and not yet its first one.
    reader.intact = lap_before(std::max(newest_end, drawn_after));
}

void count(skein_reader &reader) {
    const geometry &sizes = reader.slots.sizes;
    uint64_t ticket = next_present(reader, reader.begin);
    for (; ticket < reader.end; ticket = next_present(reader, ticket + 1)) {
        const uint64_t state = *reader.slots[ticket];
        if (state == state_word(slot_state::first, ticket)) {
            const bool whole = reader.whole[sizes.index(ticket)] != 0;
            reader.info.entries += whole ? 1 : 0;
            reader.info.damaged += !whole && ticket >= reader.intact ? 1 : 0;
        } else if (state != 0 && state_of(state) != slot_state::busy &&
                   sizes.index(ticket_of(state)) != sizes.index(ticket)) {
            ++reader.info.damaged;
        }
    }
    for (uint64_t index = 0; index < reader.present; ++index) {
        reader.info.unfinished += state_of(*reader.slots.at(index)) == slot_state::busy ? 1 : 0;
    }
}

int copy(skein_reader &reader) {
    int error = read_header(reader);
    if (error == 0) {
        error = allocate(reader);
    }
    if (error != 0) {
        return error;
    }
    const geometry &sizes = reader.slots.sizes;
    const uint64_t size = sizes.file_size() - header_size;
    const int64_t length = read_at(reader.file.get(), reader.slots.base, size, header_size);
    if (length < 0) {
        return static_cast<int>(-length);
    }
    reader.present = (static_cast<uint64_t>(length) + sizes.slot_size - 1) / sizes.slot_size;
    look_again(reader);
    const uint64_t newest_end = find_entries(reader);
    file_header after = reader.header;
    read_at(reader.file.get(), &after, sizeof after, 0);
    choose_window(reader, newest_end, reader.header.next_ticket, after.next_ticket);
    reader.info.truncated = static_cast<uint64_t>(length) < size ? 1 : 0;
    count(reader);
    return 0;
}

void describe(skein_reader &reader) {
    const file_header &header = reader.header;
    reader.info.version = header.version;
    reader.info.slot_size = header.slot_size;
    reader.info.slot_count = header.slot_count;
    reader.info.creator = header.creator;
    reader.info.created = header.created;
    reader.info.next_ticket = header.next_ticket;
    reader.info.lost = header.lost;
    reader.info.superseded = header.superseded != 0 ? 1 : 0;
}

int open_reader(open_file file, skein_reader **out) {
    void *block = calloc(1, sizeof(skein_reader));
    if (block == nullptr) {
        return ENOMEM;
    }
    auto *reader = new (block) skein_reader{};
    reader->file = std::move(file);
    const int error = copy(*reader);
    if (error != 0) {
        skein_reader_close(reader);
        return error;
    }
    describe(*reader);
    reader->file = open_file();
    reader->position = reader->begin;
    *out = reader;
    return 0;
}

}  // namespace

int32_t skein_reader_open(const char *directory, const char *name, skein_reader **reader) {
    if (reader == nullptr) {
        return EINVAL;
    }
    *reader = nullptr;
    if (!name_is_valid(name)) {
        return EINVAL;
    }
    place at;
    int error = 0;
    if (directory != nullptr) {
        error = open_place_anywhere(directory, name, at);
    } else {
        char root[path_size];
        error = find_directory(root);
        error = error == 0 ? open_place(root, name, if_missing::fail, at) : error;
    }
    open_file file;
    if (error == 0) {
        error = open_regular(at.directory.get(), at.leaf, O_RDONLY | O_NOFOLLOW, file);
    }
    return error == 0 ? open_reader(std::move(file), reader) : error;
}

int32_t skein_reader_open_path(const char *path, skein_reader **reader) {
    if (reader == nullptr) {
        return EINVAL;
    }
    *reader = nullptr;
    if (path == nullptr) {
        return EINVAL;
    }
    open_file file;
    const int error = open_regular(AT_FDCWD, path, O_RDONLY, file);
    return error == 0 ? open_reader(std::move(file), reader) : error;
}

int32_t skein_reader_next(skein_reader *reader, skein_entry *entry) {
    if (reader == nullptr || entry == nullptr) {
        return EINVAL;
    }
    const ring_slots &slots = reader->slots;
    uint64_t ticket = next_present(*reader, reader->position);
    for (; ticket < reader->end; ticket = next_present(*reader, ticket + 1)) {
        entry_head head;
        if (reader->whole[slots.sizes.index(ticket)] == 0 || !read_head(slots, ticket, head)) {
            continue;
        }
        read_text(slots, ticket, head.length, reader->text);
        *entry = {ticket,
                  head.time,
                  static_cast<uint32_t>(head.ids),
                  static_cast<uint32_t>(head.ids >> 32U),
                  head.attributes,
                  reader->text,
                  head.length,
                  head.full_length};
        reader->position = ticket + head.slots;
        return 0;
    }
    reader->position = reader->end;
    return ENOENT;
}

void skein_reader_rewind(skein_reader *reader) {
    if (reader != nullptr) {
        reader->position = reader->begin;
    }
}

int32_t skein_reader_info(const skein_reader *reader, skein_file_info *info) {
    if (reader == nullptr || info == nullptr) {
        return EINVAL;
    }
    *info = reader->info;
    return 0;
}

void skein_reader_close(skein_reader *reader) {
    if (reader == nullptr) {
        return;
    }
    free(reader->slots.base);
    free(reader->whole);
    free(reader->text);
    reader->~skein_reader();
    free(reader);
}
