// The platform's message layer reads the record from outside the library: every byte of it is pinned.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>

#include "orca_msg_rec.h"

namespace {

template <class Value>
Value at(const void *record, std::size_t offset) {
    Value value;
    std::memcpy(&value, static_cast<const uint8_t *>(record) + offset, sizeof value);
    return value;
}

// The library's own record. A program that is not position independent may have been given a copy of it.
const void *record_in_library() {
    void *library = dlopen("libnyx.so.1", RTLD_NOW | RTLD_NOLOAD);
    const void *record = library != nullptr ? dlsym(library, "orca_msg_rec_yang_info") : nullptr;
    if (library != nullptr) {
        dlclose(library);
    }
    return record;
}

// The mapping that holds an address, as a line of /proc/self/maps: "7f00-7f10 r--p ...".
std::string mapping_of(const void *address) {
    std::ifstream maps("/proc/self/maps");
    const auto wanted = reinterpret_cast<uintptr_t>(address);
    for (std::string line; std::getline(maps, line);) {
        const std::size_t dash = line.find('-');
        const uint64_t start = std::stoull(line, nullptr, 16);
        const uint64_t end = std::stoull(line.substr(dash + 1), nullptr, 16);
        if (start <= wanted && wanted < end) {
            return line;
        }
    }
    return {};
}

std::string permissions_of(const void *address) {
    const std::string line = mapping_of(address);
    return line.empty() ? line : line.substr(line.find(' ') + 1, 3);
}

void expect_record(const void *record) {
    EXPECT_EQ(at<uint64_t>(record, 0), 0U);
    EXPECT_STREQ(at<const char *>(record, 8), "%s");
    EXPECT_EQ(at<uint64_t>(record, 16), 0U);
    EXPECT_STREQ(at<const char *>(record, 24), "YANG");
    EXPECT_STREQ(at<const char *>(record, 32), "TEVO");
    EXPECT_STREQ(at<const char *>(record, 40), "INFO");
    EXPECT_EQ(at<uint16_t>(record, 48), 0U);
    EXPECT_EQ(at<uint16_t>(record, 50), 6U);
    EXPECT_EQ(at<uint32_t>(record, 52), 0U);
    EXPECT_EQ(at<uint64_t>(record, 56), 0U);
    EXPECT_EQ(at<uint16_t>(record, 64), 2U);
    EXPECT_EQ(at<uint16_t>(record, 66), 5605U);
    EXPECT_EQ(at<uint32_t>(record, 68), 0U);
}

TEST(MessageCatalogueRecord, Has72BytesWithTheirValues) {
    EXPECT_EQ(sizeof(orca_msg_rec_yang_info), 72U);
    expect_record(&orca_msg_rec_yang_info);
}

TEST(MessageCatalogueRecord, ItsNumbersAreLittleEndianBytes) {
    const uint8_t numbers[24] = {0, 0, 6, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0xE5, 0x15, 0, 0, 0, 0};
    EXPECT_EQ(std::memcmp(reinterpret_cast<const uint8_t *>(&orca_msg_rec_yang_info) + 48, numbers, 24), 0);
}

TEST(MessageCatalogueRecord, HasNamedMembersAtTheirOffsets) {
    EXPECT_EQ(offsetof(orca_msg_rec, reserved_0), 0U);
    EXPECT_EQ(offsetof(orca_msg_rec, format), 8U);
    EXPECT_EQ(offsetof(orca_msg_rec, reserved_1), 16U);
    EXPECT_EQ(offsetof(orca_msg_rec, component), 24U);
    EXPECT_EQ(offsetof(orca_msg_rec, group), 32U);
    EXPECT_EQ(offsetof(orca_msg_rec, mnemonic), 40U);
    EXPECT_EQ(offsetof(orca_msg_rec, reserved_2), 48U);
    EXPECT_EQ(offsetof(orca_msg_rec, severity), 50U);
    EXPECT_EQ(offsetof(orca_msg_rec, reserved_3), 52U);
    EXPECT_EQ(offsetof(orca_msg_rec, reserved_4), 56U);
    EXPECT_EQ(offsetof(orca_msg_rec, record_kind), 64U);
    EXPECT_EQ(offsetof(orca_msg_rec, record_code), 66U);
    EXPECT_EQ(offsetof(orca_msg_rec, reserved_5), 68U);
}

TEST(MessageCatalogueRecord, TheGetterReturnsTheRecordsAddressEveryTime) {
    EXPECT_EQ(orca_msg_rec_yang_info_getfn(), &orca_msg_rec_yang_info);
    EXPECT_EQ(orca_msg_rec_yang_info_getfn(), orca_msg_rec_yang_info_getfn());
}

TEST(MessageCatalogueRecord, IsExportedUnderItsName) {
    ASSERT_NE(record_in_library(), nullptr) << dlerror();
    expect_record(record_in_library());
}

TEST(MessageCatalogueRecord, LiesInMemoryThatIsReadOnlyAfterLoading) {
    ASSERT_NE(record_in_library(), nullptr);
    EXPECT_EQ(permissions_of(record_in_library()), "r--") << mapping_of(record_in_library());
    EXPECT_NE(mapping_of(record_in_library()).find("libnyx.so"), std::string::npos) << mapping_of(record_in_library());
    EXPECT_EQ(permissions_of(&orca_msg_rec_yang_info), "r--") << mapping_of(&orca_msg_rec_yang_info);
}

TEST(MessageCatalogueRecord, ItsTextsAreReadOnlyToo) {
    const orca_msg_rec *record = orca_msg_rec_yang_info_getfn();
    for (const char *text : {record->format, record->component, record->group, record->mnemonic}) {
        EXPECT_EQ(permissions_of(text), "r--") << mapping_of(text);
    }
}

}  // namespace
