// The codec against libprotobuf: what one writes the other reads, value by value.
#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <gtest/gtest.h>

#include <cctype>
#include <memory>
#include <string>
#include <vector>

#include "counting_allocator.h"
#include "nyx.pb.h"
#include "record_builder.h"
#include "record_compare.h"
#include "record_tables.h"

namespace {

using google::protobuf::Descriptor;
using google::protobuf::DescriptorPool;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::MessageFactory;
using google::protobuf::Reflection;
using nyx_test::counting_allocator;
using nyx_test::member;
using nyx_test::member_kind;
using nyx_test::random_record;
using nyx_test::record_table;
using nyx_test::table_of;

// "get_config" is the message quill.nyx.GetConfig.
std::string message_name(const std::string &record) {
    std::string name = "quill.nyx.";
    bool upper = true;
    for (const char c : record) {
        if (c != '_') {
            name += upper ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
        }
        upper = c == '_';
    }
    return name;
}

const Descriptor *descriptor_of(const record_table &table) {
    // Reaching for one message keeps the file that registers all of them.
    const DescriptorPool *pool = quill::nyx::Request::descriptor()->file()->pool();
    return pool->FindMessageTypeByName(message_name(table.name));
}

std::unique_ptr<Message> new_message(const record_table &table) {
    return std::unique_ptr<Message>(MessageFactory::generated_factory()->GetPrototype(descriptor_of(table))->New());
}

std::string text_of(const void *text) {
    return static_cast<const char *>(text);
}

// Compares a message with the canonical record it was made of; returns the first difference.
class message_comparison {
  public:
    std::string visit(const record_table &table, const void *record, const Message &message, const std::string &path) {
        if (!message.GetReflection()->GetUnknownFields(message).empty()) {
            return path + " has unknown fields";
        }
        for (const member &m : table.members) {
            const FieldDescriptor *field = message.GetDescriptor()->FindFieldByName(m.name);
            std::string found = field == nullptr ? path + " has no field " + m.name
                                                 : one_field(table, m, record, message, field, path + '.' + m.name);
            if (!found.empty()) {
                return found;
            }
        }
        return {};
    }

  private:
    std::string one_field(const record_table &table, const member &m, const void *record, const Message &message,
                          const FieldDescriptor *field, const std::string &path) {
        const Reflection *reflection = message.GetReflection();
        if (nyx_test::is_repeated(m.kind)) {
            return repeated(m, record, message, field, path);
        }
        if (reflection->HasField(message, field) != nyx_test::is_present(table, m, record)) {
            return path + ": present on one side only";
        }
        if (m.kind == member_kind::record) {
            return visit(table_of(m.element), nyx_test::nested_of(m, record), reflection->GetMessage(message, field),
                         path);
        }
        return same_value(m, record, message, field) ? std::string{} : path + ": the values differ";
    }

    // An absent field of a message has its default, which is the reset value of the record.
    static bool same_value(const member &m, const void *record, const Message &message, const FieldDescriptor *field) {
        const Reflection *reflection = message.GetReflection();
        switch (m.kind) {
            case member_kind::number32:
                return reflection->GetUInt32(message, field) == nyx_test::number_of(m, record);
            case member_kind::number64:
                return reflection->GetUInt64(message, field) == nyx_test::number_of(m, record);
            case member_kind::flag:
            case member_kind::wide_flag:
                return (reflection->GetBool(message, field) ? 1U : 0U) == nyx_test::number_of(m, record);
            default:
                break;
        }
        const void *text = nyx_test::pointer_of(m, record);
        return reflection->GetString(message, field) == (text != nullptr ? text_of(text) : "");
    }

    std::string repeated(const member &m, const void *record, const Message &message, const FieldDescriptor *field,
                         const std::string &path) {
        const auto count = nyx_test::count_of(m, record);
        if (static_cast<uint32_t>(message.GetReflection()->FieldSize(message, field)) != count) {
            return path + ": the counts differ";
        }
        const void *array = nyx_test::pointer_of(m, record);
        for (uint32_t i = 0; i < count; ++i) {
            std::string found = element(m, array, i, message, field, path + '[' + std::to_string(i) + ']');
            if (!found.empty()) {
                return found;
            }
        }
        return {};
    }

    std::string element(const member &m, const void *array, uint32_t i, const Message &message,
                        const FieldDescriptor *field, const std::string &path) {
        const Reflection *reflection = message.GetReflection();
        const auto at = static_cast<int>(i);
        if (m.kind == member_kind::records) {
            return visit(table_of(m.element), nyx_test::record_at(m, array, i),
                         reflection->GetRepeatedMessage(message, field, at), path);
        }
        const bool same = m.kind == member_kind::numbers32
                              ? reflection->GetRepeatedUInt32(message, field, at) == nyx_test::number32_at(array, i)
                              : reflection->GetRepeatedString(message, field, at) == nyx_test::text_at(array, i);
        return same ? std::string{} : path + ": the values differ";
    }
};

nyx_test::build_options canonical(uint64_t seed) {
    nyx_test::build_options options;
    options.canonical = true;
    options.depth = static_cast<unsigned>(1 + seed % 5);
    return options;
}

std::vector<uint8_t> encoded(const record_table &table, const void *record) {
    std::vector<uint8_t> bytes(table.encode(record, nullptr, 0, nullptr, nullptr, 0));
    table.encode(record, bytes.data(), bytes.size(), nullptr, nullptr, 0);
    return bytes;
}

// Decodes the bytes, compares the result with the record and releases it.
void expect_decodes_to(const random_record &record, const uint8_t *bytes, uint64_t length) {
    const record_table &table = record.table();
    counting_allocator blocks;
    nyx_test::record_memory memory(table);
    ASSERT_EQ(table.decode(memory.get(), bytes, length, counting_allocator::alloc, &blocks, 0), 0);
    EXPECT_EQ(nyx_test::difference(table, record.get(), memory.get()), "");
    table.free(memory.get(), counting_allocator::free, &blocks, 0);
    EXPECT_EQ(blocks.live_blocks(), 0U);
    EXPECT_EQ(blocks.complaints(), "");
}

class ProtobufOracle : public testing::TestWithParam<record_table> {
  protected:
    static constexpr uint64_t records = 150;
};

TEST_P(ProtobufOracle, TheMessageHasTheRecordsFields) {
    const Descriptor *descriptor = descriptor_of(GetParam());
    ASSERT_NE(descriptor, nullptr);
    EXPECT_EQ(static_cast<std::size_t>(descriptor->field_count()), GetParam().members.size());
    for (const member &m : GetParam().members) {
        SCOPED_TRACE(m.name);
        const FieldDescriptor *field = descriptor->FindFieldByName(m.name);
        ASSERT_NE(field, nullptr);
        EXPECT_EQ(static_cast<uint32_t>(field->number()), m.field);
        EXPECT_EQ(static_cast<uint32_t>(field->index()), m.bit);
        EXPECT_EQ(field->is_repeated(), nyx_test::is_repeated(m.kind));
        EXPECT_FALSE(field->is_packed());
    }
}

TEST_P(ProtobufOracle, LibprotobufReadsWhatWeWrite) {
    for (uint64_t seed = 0; seed < records && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const random_record record(GetParam(), seed, canonical(seed));
        const std::vector<uint8_t> bytes = encoded(GetParam(), record.get());
        const auto message = new_message(GetParam());
        ASSERT_TRUE(message->ParseFromArray(bytes.data(), static_cast<int>(bytes.size())));
        EXPECT_EQ(message_comparison().visit(GetParam(), record.get(), *message, GetParam().name), "");
    }
}

TEST_P(ProtobufOracle, WeReadWhatLibprotobufWrites) {
    for (uint64_t seed = 0; seed < records && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const random_record record(GetParam(), seed, canonical(seed));
        const std::vector<uint8_t> bytes = encoded(GetParam(), record.get());
        const auto message = new_message(GetParam());
        ASSERT_TRUE(message->ParseFromArray(bytes.data(), static_cast<int>(bytes.size())));
        const std::string written = message->SerializeAsString();
        ASSERT_EQ(written.size(), bytes.size());
        expect_decodes_to(record, reinterpret_cast<const uint8_t *>(written.data()), written.size());
    }
}

TEST_P(ProtobufOracle, WeReadWhatWeWrite) {
    for (uint64_t seed = 0; seed < records && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const random_record record(GetParam(), seed, canonical(seed));
        const std::vector<uint8_t> bytes = encoded(GetParam(), record.get());
        expect_decodes_to(record, bytes.data(), bytes.size());
    }
}

INSTANTIATE_TEST_SUITE_P(Records, ProtobufOracle,
                         testing::ValuesIn(nyx_test::record_tables().begin(), nyx_test::record_tables().end()),
                         [](const auto &instance) { return std::string(instance.param.name); });

// Field order is the one thing in which the two may differ: libprotobuf writes by field number.
TEST(ProtobufOracle, OnlyEditConfigIsWrittenInAnotherOrder) {
    for (const record_table &table : nyx_test::record_tables()) {
        bool ascending = true;
        for (std::size_t i = 1; i < table.members.size(); ++i) {
            ascending = ascending && table.members[i - 1].field < table.members[i].field;
        }
        EXPECT_EQ(ascending, std::string(table.name) != "edit_config") << table.name;
    }
}

}  // namespace
