// Writes the seeds of the fuzz targets: make_corpus <directory> fills <directory>/decode and <directory>/encode.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>

#include "record_builder.h"
#include "wire.h"

namespace {

using namespace nyx_test;
namespace fs = std::filesystem;

constexpr std::size_t longest_seed = 8000;
constexpr std::size_t longest_encode_seed = 500;

bytes repeated(std::size_t count, const bytes &element) {
    bytes out;
    for (std::size_t i = 0; i < count; ++i) {
        out = out + element;
    }
    return out;
}

bytes chain_of(unsigned depth) {
    bytes out = text_member(1, "leaf");
    for (unsigned i = 0; i < depth; ++i) {
        out = text_member(1, "n") + nested_member(7, out);
    }
    return out;
}

bytes random_message(const record_table &table, uint64_t seed) {
    build_options options;
    options.canonical = true;
    options.elements = 8;
    options.longest_text = 30;
    const random_record source(table, seed, options);
    bytes message(table.encode(source.get(), nullptr, 0, nullptr, nullptr, 0));
    table.encode(source.get(), message.data(), message.size(), nullptr, nullptr, 0);
    return message;
}

class corpus {
  public:
    explicit corpus(const fs::path &directory) : directory_(directory) { fs::create_directories(directory); }

    void add(const std::string &name, const bytes &content) {
        std::ofstream file(directory_ / name, std::ios::binary);
        file.write(reinterpret_cast<const char *>(content.data()), static_cast<std::streamsize>(content.size()));
        ++files_;
        bytes_ += content.size();
    }

    void report(const char *name) const { std::printf("%s: %zu files, %zu bytes\n", name, files_, bytes_); }

  private:
    fs::path directory_;
    std::size_t files_ = 0;
    std::size_t bytes_ = 0;
};

uint8_t index_of(record_id id) {
    return static_cast<uint8_t>(&table_of(id) - record_tables().data());
}

void add_record(corpus &decode, const record_table &table) {
    const std::string name = table.name;
    const uint8_t index = index_of(table.id);
    const bytes full = full_message(table, 0);
    if (full.size() <= longest_seed) {
        decode.add(name + "_full", bytes{index, 0} + full);
        decode.add(name + "_full_fails_late", bytes{index, 9} + full);
        decode.add(name + "_cut",
                   bytes{index, 0} + bytes(full.begin(), full.begin() + static_cast<long>(full.size() / 2)));
    }
    for (uint8_t seed = 0; seed < 2; ++seed) {
        const bytes message = random_message(table, 100 + seed);
        if (!message.empty() && message.size() <= longest_seed) {
            decode.add(name + "_random_" + std::to_string(seed), bytes{index, seed} + message);
        }
    }
}

void add_special_messages(corpus &decode) {
    const uint8_t tree = index_of(record_id::datatree);
    const uint8_t request = index_of(record_id::request);
    const uint8_t info = index_of(record_id::node_info);
    const uint8_t notification = index_of(record_id::notification);
    decode.add("chain_60", bytes{tree, 3} + chain_of(60));
    decode.add("chain_300", bytes{tree, 0} + chain_of(300));
    decode.add("empty_children", bytes{tree, 2} + repeated(40, nested_member(7, {})));
    decode.add("split_run", bytes{tree, 0} + nested_member(7, {}) + number_member(4, 1) + nested_member(7, {}));
    decode.add("text_twice", bytes{tree, 0} + text_member(1, "a") + text_member(1, "b"));
    decode.add("record_twice", bytes{request, 0} + nested_member(35, nested_member(1, text_member(1, "x"))) +
                                   nested_member(35, nested_member(1, text_member(1, "y"))));
    decode.add("field_41", bytes{request, 0} + nested_member(41, nested_member(1, text_member(1, "x"))));
    decode.add("long_varints", bytes{tree, 0,    0xA0, 0x80, 0x80, 0x80, 0x80, 0xFF, 0x7F, 0xFF,
                                     0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00});
    decode.add("unknown_fields", bytes{tree, 0} + number_member(60, 1) + tag(60, 1) + bytes(8, 1) + tag(60, 5) +
                                     bytes(4, 1) + text_member(60, "abc") + tag(60, 2) + bytes{0x7F});
    decode.add("group", bytes{tree, 0} + tag(60, 3) + tag(60, 4));
    decode.add("wrong_type", bytes{tree, 0} + tag(1, 5) + bytes(4, 1));
    decode.add("mixed_tags_in_a_run", bytes{info, 0, 0x1A, 1, 'a', 0x18, 1, 'b', 0x9D, 0x00, 1, 'c'});
    decode.add("zero_bytes_in_a_text", bytes{info, 0, 0x0A, 3, 0, 'a', 0});
    decode.add("packed", bytes{notification, 0, 0x0A, 0x02, 0x01, 0x02});
    decode.add("numbers", bytes{notification, 1} + repeated(20, number_member(1, 0xFFFFFFFF)));
}

void add_encode_seeds(corpus &encode, const record_table &table) {
    const uint8_t index = index_of(table.id);
    const std::string name = table.name;
    bytes message = full_message(table, 0);
    for (uint64_t seed = 0; message.size() > longest_encode_seed; ++seed) {
        message = random_message(table, seed);
    }
    encode.add(name + "_as_decoded", bytes{index, 1} + message);
    encode.add(name + "_some_bits_flipped", bytes{index, 1 + 2 * 3, 0x11, 0x40, 0x02} + message);
    encode.add(name + "_built_1", bytes{index, 0, 1, 2, 3, 4, 5});
    encode.add(name + "_built_2", bytes{index, 2 * 2, 0x55, 0x0F, 9, 8, 7, 6});
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_corpus <directory>\n");
        return 2;
    }
    corpus decode(fs::path(argv[1]) / "decode");
    corpus encode(fs::path(argv[1]) / "encode");
    for (const record_table &table : record_tables()) {
        add_record(decode, table);
        add_encode_seeds(encode, table);
    }
    add_special_messages(decode);
    decode.report("decode");
    encode.report("encode");
    return 0;
}
