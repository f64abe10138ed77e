// Writes the seeds of the fuzz targets: make_corpus <directory> fills a directory for each target below that one. What
// the targets found from there on stands in fuzz/corpus.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "record_builder.h"
#include "skein/skein.h"
#include "wire.h"

namespace {

using namespace nyx_test;
namespace fs = std::filesystem;

constexpr std::size_t longest_seed = 8000;
constexpr std::size_t longest_encode_seed = 500;
constexpr std::size_t longest_lifetime_seed = 1000;

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

void add_lifetime_seeds(corpus &lifetime, const record_table &table) {
    const uint8_t index = index_of(table.id);
    for (const uint8_t failing : bytes{0, 1, 2, 3, 5, 8, 13, 21}) {
        const bytes message = failing == 0 ? full_message(table, 0) : random_message(table, failing);
        if (message.size() <= longest_lifetime_seed) {
            lifetime.add(std::string(table.name) + "_fails_" + std::to_string(failing),
                         bytes{index, failing} + message);
        }
    }
}

bytes text(const std::string &of) {
    return {of.begin(), of.end()};
}

bytes terminated(const std::string &of) {
    return text(of) + bytes{0};
}

void add_xpath_seeds(corpus &xpath) {
    const std::string ns = "urn:example:interfaces";
    const bytes keyed = bytes{0x26, 0} + terminated("interface") + terminated(ns) + terminated("name");
    const bytes steps = bytes{2, 0} + terminated("mtu") + keyed + terminated("eth0") + bytes{6, 0} +
                        terminated("interfaces") + terminated(ns) + bytes{6, 0} + terminated("top") +
                        terminated("urn:example:other");
    xpath.add("path", steps + bytes{0, 0});
    for (uint8_t failing = 1; failing < 10; ++failing) {
        xpath.add("conversion_fails_" + std::to_string(failing), steps + bytes{0, failing, 0, 0});
        xpath.add("step_fails_" + std::to_string(failing),
                  bytes{6, failing} + terminated("a") + terminated("b") + steps + bytes{0, 0});
    }
    xpath.add("quote_in_a_key", bytes{0x22, 0} + terminated("a") + terminated("k") + terminated("it's"));
    xpath.add("null_keys", bytes{0x5A, 0} + terminated("a") + terminated("k") + terminated("v") + terminated("l"));
    xpath.add("empty_names", bytes{6, 0, 0, 0, 6, 0, 0, 0, 0, 0});
    bytes many;
    for (unsigned i = 0; i < 40; ++i) {
        many = many + bytes{6, 0} + terminated("n") + terminated("urn:" + std::to_string(i));
    }
    xpath.add("many_namespaces", many + bytes{0, 0, 0xF1, 0, 6, 0} + terminated("n") + terminated("urn:1"));
    const bytes texts = bytes{0} + terminated("urn:1") + terminated("ns1:a/ns1:b");
    for (uint8_t failing = 0; failing < 8; ++failing) {
        xpath.add("given_path_fails_" + std::to_string(failing), bytes{0xF5, failing} + texts);
    }
    xpath.add("given_path_null", bytes{0xF5, 0, 1} + terminated("a") + bytes{0xF5, 0, 2} + terminated("b"));
    xpath.add("given_path_short_of_memory", bytes{0xF5, 0, 12} + terminated("a") + terminated("b"));
    xpath.add("entries", bytes{0xF9, 0, 3, 0xF9, 0, 0, 0xF9, 1, 3, 0xF9, 2, 1});
    xpath.add("broken_arguments", bytes{5, 0} + terminated("a") + terminated("b"));
}

void add_string_seeds(corpus &strings) {
    const auto add = [&](const std::string &name, uint8_t helper, const bytes &arguments) {
        strings.add(name, bytes{helper, 0} + arguments);
        strings.add(name + "_fails", bytes{helper, 1} + arguments);
    };
    add("replace", 0,
        bytes{2} + terminated("abcd") + terminated("ab") + terminated("X") + terminated("abc") + text("Y"));
    add("replace_many", 0, bytes{1} + terminated(std::string(15, 'a')) + terminated("a") + text("bb"));
    add("replace_with_200_pairs", 0, bytes{0xF9} + terminated("a1a2a3") + terminated("a") + text("b"));
    add("replace_nothing", 0, bytes{1} + terminated("abc") + bytes{0} + text("b"));
    add("replace_character", 1, bytes{'/', '.'} + text("a/b//c"));
    add("token", 2, bytes{2} + terminated(",;") + text("a,b;;c"));
    add("split", 3, terminated(" ") + text("a b c d e f  g h i j k"));
    add("trim", 4, text(" \t a b\n "));
    add("case", 5, text("aBc\xE4\xC4z"));
    add("count", 6, bytes{'a'} + text("abaca"));
    add("join", 7, terminated("ab") + text("cd"));
    add("copy", 8, terminated("ab") + bytes{1});
    add("keys", 9, terminated("ab") + text("ab"));
    add("order", 10, bytes(26, 1));
    add("chain", 11, text("abc"));
    for (uint8_t what = 0; what < 5; ++what) {
        for (const uint8_t form : bytes{0x00, 0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x60}) {
            const bytes call = bytes{what, form, 8, 3} + terminated("abcd") + text("xy");
            strings.add("bounded_" + std::to_string(what) + '_' + std::to_string(form), bytes{12, 0} + call);
        }
    }
    add("search_character", 13, bytes{'b', 6} + text("abcabc"));
    add("search_cut", 13, bytes{'z', 3} + text("abcabc"));
    add("search_text", 14, bytes{2, 2} + terminated("cd") + text("abcdef"));
    add("search_set", 14, bytes{9, 3} + terminated("xyl") + text("hello"));
    add("search_unbounded", 14, bytes{0xFF, 0xFE} + terminated("lo") + text("hello"));
}

void add_dump_seeds(corpus &dump) {
    const record_table &response = table_of(record_id::response);
    for (unsigned depth = 0; depth < 3; ++depth) {
        const bytes message = nested_member(32, full_message(table_of(record_id::datatree), depth));
        if (message.size() < 4000) {
            dump.add("tree_" + std::to_string(depth), bytes{0} + terminated("a title") + message);
        }
    }
    dump.add("chain", bytes{2, 0} + nested_member(32, chain_of(60)));
    dump.add("deep_chain", bytes{2, 0} + nested_member(32, chain_of(290)));
    const bytes schema = nested_member(4, full_message(table_of(record_id::schema), 0));
    dump.add("schemas", bytes{1} + terminated("schemas") + schema + schema + nested_member(4, {}));
    dump.add("no_schemas", bytes{3, 0});
    dump.add("long_title", bytes{0} + terminated(std::string(1100, 't')) + nested_member(32, text_member(1, "r")));
    for (const std::size_t length : std::vector<std::size_t>{140, 150, 160, 240, 249, 250, 1015, 1023, 1024, 1100}) {
        const bytes child = nested_member(7, text_member(1, std::string(length, 'n')) + number_member(5, 1));
        dump.add("name_of_" + std::to_string(length),
                 bytes{2, 0} + nested_member(32, text_member(1, "root") + child + child));
    }
    for (uint64_t seed = 0; seed < 12; ++seed) {
        const bytes message = random_message(response, seed);
        if (message.size() < 4000) {
            dump.add("random_" + std::to_string(seed),
                     bytes{static_cast<uint8_t>(seed % 4 + 8), 0x31, 0x05} + terminated("t") + message);
        }
    }
}

// A trace file that the library has made, as small as can be.
bytes real_trace_file() {
    char name[] = "/tmp/make_corpus_XXXXXX";
    if (mkdtemp(name) == nullptr || setenv("SKEIN_DIR", name, 1) != 0) {
        return {};
    }
    uint64_t handle = 0;
    bytes content;
    if (skein_init2("seed.trace", 0, 0, 16, 1024, 0, &handle) == 0) {
        for (std::size_t i = 0; i < 14; ++i) {
            _skein_str(handle, i, ("entry " + std::to_string(i) + std::string(i * 7, '.')).c_str());
        }
        skein_close(handle);
        for (const fs::directory_entry &each : fs::recursive_directory_iterator(name)) {
            if (each.path().filename() == "seed.trace") {
                std::ifstream file(each.path(), std::ios::binary);
                content.assign(std::istreambuf_iterator<char>(file), {});
            }
        }
    }
    fs::remove_all(name);
    return content;
}

void add_reader_seeds(corpus &reader) {
    const bytes real = real_trace_file();
    reader.add("real_file", bytes{'R', 0} + real);
    reader.add("real_file_cut", bytes{'R', 1} + bytes(real.begin(), real.begin() + 4096 + 300));
    // Eight slots and four entries, of which the second is broken.
    const bytes broken = bytes{7, 0, 0, 1, 'a', 0, 1, 'b', 0, 1, 'c', 0, 1, 'd', 0x13, 131, 1, 2, 3, 4, 5, 6, 7, 8, 5};
    reader.add("broken_entry", broken);
    reader.add("broken_entry_older_than_a_lap", broken + bytes{4, 7});
    // A slot behind the newest entry that is busy, or was given up: what is older than a lap before it is left out.
    const bytes lap = bytes{7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    reader.add("busy_behind_the_newest", lap + bytes{11, 3, 1, 1});
    reader.add("given_up_behind_the_newest", lap + bytes{3, 3, 0});
    bytes entries;
    for (uint8_t i = 0; i < 40; ++i) {
        entries = entries + bytes{0, i} + bytes(i, static_cast<uint8_t>('a' + i % 26));
    }
    for (const uint8_t slots : bytes{0, 1, 2, 7, 30}) {
        reader.add("ring_of_" + std::to_string(slots + 1), bytes{slots, 1} + entries);
        reader.add("damaged_" + std::to_string(slots + 1),
                   bytes{slots, 0} + entries + bytes{0x1B, 129, 9, 0, 3, 0,   0x13, 130, 3, 1,    2,   3, 4,
                                                     5,    6,   7, 8, 3, 131, 1,    4,   5, 0x0B, 129, 9, 9});
        reader.add("cut_" + std::to_string(slots + 1), bytes{slots, 2} + entries + bytes{6, 70, 0});
    }
}

void add_wire_seeds(corpus &wire) {
    const bytes small = {2, 0, 0, 0, 3, 1, 2, 3};
    wire.add("messages", bytes{0, 4} + small + bytes{1, 0, 0, 0, 0} + small);
    wire.add("message_too_long", bytes{0, 0} + small + small);
    for (uint8_t kept = 1; kept < 8; ++kept) {
        wire.add("message_cut_" + std::to_string(kept),
                 bytes{0, 4} + small + bytes(small.begin(), small.begin() + kept));
    }
    wire.add("unknown_kind", bytes{0, 4, 4, 0, 0, 0, 0});
    for (const fs::directory_entry &each : fs::directory_iterator(REQUEST_INPUTS)) {
        std::ifstream file(each.path(), std::ios::binary);
        const bytes content{std::istreambuf_iterator<char>(file), {}};
        wire.add("request_" + each.path().stem().string(), bytes{1, 0} + content);
        wire.add("request_fails_" + each.path().stem().string(), bytes{1, 7} + content);
    }
    for (uint8_t seed = 0; seed < 6; ++seed) {
        wire.add("response_" + std::to_string(seed),
                 bytes{2, seed} + random_message(table_of(record_id::response), seed));
        wire.add("result_" + std::to_string(seed),
                 bytes{3, seed} + random_message(table_of(record_id::request_result), seed));
    }
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_corpus <directory>\n");
        return 2;
    }
    const fs::path root = argv[1];
    corpus decode(root / "decode");
    corpus encode(root / "encode");
    corpus lifetime(root / "lifetime");
    for (const record_table &table : record_tables()) {
        add_record(decode, table);
        add_encode_seeds(encode, table);
        add_lifetime_seeds(lifetime, table);
    }
    add_special_messages(decode);
    corpus xpath(root / "xpath");
    add_xpath_seeds(xpath);
    corpus strings(root / "strings");
    add_string_seeds(strings);
    corpus dump(root / "dump");
    add_dump_seeds(dump);
    corpus reader(root / "skein_reader");
    add_reader_seeds(reader);
    corpus wire(root / "wire");
    add_wire_seeds(wire);
    decode.report("decode");
    encode.report("encode");
    lifetime.report("lifetime");
    xpath.report("xpath");
    strings.report("strings");
    dump.report("dump");
    reader.report("skein_reader");
    wire.report("wire");
    return 0;
}
