#include "EMS/events/nl_trp_values.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <wqevents/codec.h>
#include <wqevents/formatter.h>
#include <wqevents/names.h>
#include <wqplatform.h>

#include <array>
#include <climits>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "support/exact_block.h"
#include "support/locales.h"
#include "support/random.h"
#include "support/traps.h"
#include "support/vectors.h"

namespace {

using namespace std::string_literals;

/* What the MIB library and the resolver of this program know. */
std::string mib_name;
std::map<std::string, std::string> host_names;

}  // namespace

extern "C" void sprint__objid(char* buf, const uint32_t* /*oid*/, int /*len*/) {
    buf[mib_name.copy(buf, 2047)] = '\0';
}

extern "C" hostent* gethostbyaddr_new(const void* address, socklen_t length, int family) {
    static hostent host;
    static std::string name;
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, address, text.data(), text.size());
    const auto known = host_names.find(text.data());
    if (length != 4 || family != AF_INET || known == host_names.end()) {
        return nullptr;
    }
    name = known->second;
    host.h_name = name.data();
    return &host;
}

namespace {

using wq::test::binding;
using wq::test::binding_from_text;
using wq::test::CtypeLocale;
using wq::test::ExactArray;
using wq::test::number_binding;
using wq::test::objid_binding;
using wq::test::Oid;
using wq::test::read_vectors;
using wq::test::string_binding;
using wq::test::Trap;
using wq::test::Vector;

constexpr size_t roomy = 4096;

class Values : public testing::Test {
  protected:
    void SetUp() override {
        mib_name.clear();
        host_names.clear();
    }
    void TearDown() override {
        oidFreeTree(oidTree);
        oidTree = nullptr;
        free_all_info();
    }
};

void name_in_tree(const char* oid, const std::string& name) {
    ASSERT_NE(insertOid(oid, buildOidData(name.c_str())), nullptr);
}

void configure(const Oid& oid, const std::string& name) {
    ASSERT_EQ(insert_enterprise(oid.data(), static_cast<uint32_t>(oid.size()), name.c_str()), 0);
}

/* What `render` writes into a block of exactly `size` bytes. */
template <class Render>
std::string rendered(size_t size, Render&& render) {
    ExactArray<char> buffer(size);
    std::fill_n(buffer.data(), size, '\x55');
    render(buffer.data(), buffer.length());
    if (size == 0) {
        return {};
    }
    const size_t length = strnlen(buffer.data(), size);
    EXPECT_LT(length, size) << "not terminated";
    return {buffer.data(), length};
}

std::string value(SnmpVarBindEMS var, size_t size = roomy) {
    return rendered(size, [&](char* buf, int buflen) { formatValue(buf, buflen, &var); });
}

std::string kind(uint8_t type, size_t size = roomy) {
    SnmpVarBindEMS var = binding({1, 3}, type);
    return rendered(size, [&](char* buf, int buflen) { formatKind(buf, buflen, &var); });
}

std::string enterprise(Trap trap, int as_string, size_t size = roomy) {
    return rendered(
        size, [&](char* buf, int buflen) { formatEnterprise(buf, buflen, &trap.info, as_string); });
}

std::string community(Trap trap, size_t size = roomy) {
    return rendered(size, [&](char* buf, int buflen) { formatCommunity(buf, buflen, &trap.info); });
}

std::string objid(const Oid& oid, int by_name, size_t size = roomy) {
    const ExactArray<uint32_t> exact{std::span(oid)};
    return rendered(size, [&](char* buf, int buflen) {
        char* position = buf;
        int left = buflen;
        formatObjectID(&position, &left, exact.data(), exact.length(), by_name);
        EXPECT_EQ(position - buf, static_cast<ptrdiff_t>(std::strlen(buf)));
        EXPECT_EQ(left, buflen - (position - buf));
    });
}

uint32_t wire_address(const char* dotted) {
    return inet_addr(dotted);
}

TEST_F(Values, EachTypeHasItsText) {
    for (const Vector& row : read_vectors("value_value.txt", 2)) {
        SCOPED_TRACE(row.where);
        EXPECT_EQ(value(binding_from_text(row[0])), row[1]);
    }
}

TEST_F(Values, EachTextIsCutAtTheRoom) {
    for (const Vector& row : read_vectors("value_value.txt", 2)) {
        SCOPED_TRACE(row.where);
        for (size_t size = 1; size <= row[1].size() + 12; ++size) {
            const std::string text = value(binding_from_text(row[0]), size);
            EXPECT_EQ(text, row[1].substr(0, text.size())) << size;
        }
    }
}

TEST_F(Values, NumbersAreCutAtTheirLastDigitThatFits) {
    const SnmpVarBindEMS var = number_binding({1, 3}, ASN_COUNTER09, 4294967295);
    EXPECT_EQ(value(var, 1), "");
    EXPECT_EQ(value(var, 4), "429");
    EXPECT_EQ(value(var, 10), "429496729");
    EXPECT_EQ(value(var, 11), "4294967295");
    EXPECT_EQ(value(number_binding({1, 3}, ASN_INTEGER09, 0xFFFFFFF4), 3), "-1");
    EXPECT_EQ(value(number_binding({1, 3}, 9, 0), 9), "Unknown ");
}

TEST_F(Values, AnIntegerMayHaveAName) {
    const SnmpVarBindEMS var = number_binding({1, 3, 6, 1}, ASN_INTEGER09, 2);
    EXPECT_EQ(value(var), "2");
    name_in_tree("1.3.6.1.2", "down");
    EXPECT_EQ(value(var), "down");
    EXPECT_EQ(value(number_binding({1, 3, 6, 1}, ASN_INTEGER09, 3)), "3");
    EXPECT_EQ(value(number_binding({1, 3, 6, 1}, ASN_GAUGE09, 2)), "2");
    EXPECT_EQ(value(number_binding({1, 3, 6}, ASN_INTEGER09, 1)), "1");
}

TEST_F(Values, ANegativeIntegerIsLookedUpAsTheSubIdentifierOfItsBits) {
    name_in_tree("1.3.4294967295", "none");
    EXPECT_EQ(value(number_binding({1, 3}, ASN_INTEGER09, 0xFFFFFFFF)), "none");
}

TEST_F(Values, ANameThatDoesNotFitIsLeftOut) {
    name_in_tree("1.3.6.1.2", "down");
    const SnmpVarBindEMS integer = number_binding({1, 3, 6, 1}, ASN_INTEGER09, 2);
    EXPECT_EQ(value(integer, 4), "");
    EXPECT_EQ(value(integer, 5), "down");
    const SnmpVarBindEMS identifier = objid_binding({1, 1}, {1, 3, 6, 1, 2, 7});
    EXPECT_EQ(value(identifier, 4), "");
    EXPECT_EQ(value(identifier, 5), "down");
}

TEST_F(Values, AnIdentifierIsNamedByItsParent) {
    name_in_tree("1.3.6.1", "internet");
    EXPECT_EQ(value(objid_binding({1, 1}, {1, 3, 6, 1, 5})), "internet");
    EXPECT_EQ(value(objid_binding({1, 1}, {1, 3, 6, 1})), "1.3.6.1");
    EXPECT_EQ(value(objid_binding({1, 1}, {1})), "1");
    EXPECT_EQ(value(objid_binding({1, 1}, {})), "");
}

TEST_F(Values, AnIdentifierWithoutANameInTheTreeIsTheMibs) {
    mib_name = ".iso.org.dod.internet.mgmt.mib-2";
    EXPECT_EQ(value(objid_binding({1, 1}, {1, 3, 6, 1, 2, 1})), "mgmt.mib-2");
    name_in_tree("1.3.6.1.2", "management");
    EXPECT_EQ(value(objid_binding({1, 1}, {1, 3, 6, 1, 2, 1})), "management");
}

TEST_F(Values, AnAddressIsTheHostsNameOrDotted) {
    const SnmpVarBindEMS var = number_binding({1, 3}, ASN_IPADDR09, wire_address("10.1.2.3"));
    EXPECT_EQ(value(var), "10.1.2.3");
    host_names["10.1.2.3"] = "alpha.example.com";
    EXPECT_EQ(value(var), "alpha.example.com");
    EXPECT_EQ(value(var, 6), "alpha");
    EXPECT_EQ(value(number_binding({1, 3}, ASN_IPADDR09, wire_address("255.0.99.100"))),
              "255.0.99.100");
    EXPECT_EQ(value(number_binding({1, 3}, ASN_IPADDR09, wire_address("255.0.99.100")), 8),
              "255.0.9");
}

TEST_F(Values, NothingIsWrittenWithoutRoomOrRecord) {
    SnmpVarBindEMS var = number_binding({1, 3}, ASN_INTEGER09, 7);
    Trap trap;
    std::array<char, 40> buffer;
    for (const int buflen : {0, -1, INT_MIN}) {
        buffer.fill('x');
        formatValue(buffer.data(), buflen, &var);
        formatKind(buffer.data(), buflen, &var);
        formatEnterprise(buffer.data(), buflen, &trap.info, 1);
        formatCommunity(buffer.data(), buflen, &trap.info);
        EXPECT_EQ(buffer[0], 'x');
    }
    formatValue(buffer.data(), 40, nullptr);
    formatKind(buffer.data(), 40, nullptr);
    formatEnterprise(buffer.data(), 40, nullptr, 1);
    formatCommunity(buffer.data(), 40, nullptr);
    EXPECT_EQ(buffer[0], 'x');
    formatValue(nullptr, 40, &var);
    formatKind(nullptr, 40, &var);
    formatEnterprise(nullptr, 40, &trap.info, 1);
    formatCommunity(nullptr, 40, &trap.info);
}

TEST_F(Values, LengthsBeyondTheArraysCountAsTheArrays) {
    SnmpVarBindEMS var = string_binding({1, 3}, wq::test::Bytes(EMS_STRING_MAX, 'a'));
    for (const uint32_t length : {1025U, 5000U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        var.val_len = length;
        EXPECT_EQ(value(var), std::string(EMS_STRING_MAX, 'a')) << length;
    }
    SnmpVarBindEMS identifier = objid_binding({1, 3}, Oid(EMS_OID_MAX, 7));
    const std::string whole = value(identifier);
    EXPECT_EQ(whole.size(), 2 * EMS_OID_MAX - 1U);
    for (const uint32_t length : {129U, 5000U, 0xFFFFFFFFU}) {
        identifier.val_len = length;
        EXPECT_EQ(value(identifier), whole);
    }
    name_in_tree("1", "root");
    SnmpVarBindEMS integer = number_binding(Oid(EMS_OID_MAX, 1), ASN_INTEGER09, 5);
    for (const uint32_t length : {128U, 129U, 0xFFFFFFFFU}) {
        integer.oid_length = length;
        EXPECT_EQ(value(integer), "5");
    }
}

TEST_F(Values, AnIntegersNameMayBeOneLongerThanAnIdentifier) {
    std::string text;
    for (int i = 0; i < 60; ++i) {
        text.append("1.");
    }
    name_in_tree(text.append("9").c_str(), "deep");
    EXPECT_EQ(value(number_binding(Oid(60, 1), ASN_INTEGER09, 9)), "deep");
    EXPECT_EQ(value(number_binding(Oid(EMS_OID_MAX, 1), ASN_INTEGER09, 9)), "9");
}

TEST(FormatKind, NamesTheTypes) {
    for (const Vector& row : read_vectors("value_kind.txt", 2)) {
        SCOPED_TRACE(row.where);
        const uint8_t type = wq::test::from_hex(row[0]).at(0);
        EXPECT_EQ(kind(type), row[1]);
        EXPECT_EQ(kind(type, 30), row[1]);
    }
}

TEST(FormatKind, IsEmptyBelowThirtyBytes) {
    for (size_t size = 1; size <= 29; ++size) {
        EXPECT_EQ(kind(ASN_OBJID09, size), "");
        EXPECT_EQ(kind(99, size), "");
    }
}

TEST_F(Values, ObjectIdentifiersByNameOrInNumbers) {
    for (const Vector& row : read_vectors("value_objid.txt", 6)) {
        SCOPED_TRACE(row.where);
        mib_name = row[2];
        if (!row[3].empty()) {
            configure({1, 3, 6, 1, 4, 1, 99}, row[3]);
        }
        const Oid oid = wq::test::oid(row[0]);
        const auto size = static_cast<size_t>(wq::test::number(row[4]));
        EXPECT_EQ(objid(oid, static_cast<int>(wq::test::number(row[1])), size), row[5]);
        free_all_info();
    }
}

/* "Caf\u00e9" has four characters and five bytes, or five characters in a locale of single bytes.
 */
TEST_F(Values, ObjectIdentifiersGoOnAfterTheCharactersOfTheName) {
    const std::string name = "Caf\xc3\xa9";
    const Oid oid{1, 3, 6, 1, 4, 1, 99, 1};
    configure({1, 3, 6, 1, 4, 1, 99}, name);
    EXPECT_EQ(objid(oid, 1), name + ".1.99.1");
    const CtypeLocale locale(wq::test::utf8_locale);
    ASSERT_TRUE(locale.is_set());
    EXPECT_EQ(objid(oid, 1), name + ".4.1.99.1");
    /* What has to fit is counted in bytes: six before a sub-identifier. */
    EXPECT_EQ(objid(oid, 1, 10), name + ".");
    EXPECT_EQ(objid(oid, 1, 12), name + ".4.");
    free_all_info();
    configure({1, 3, 6, 1, 4, 1, 99}, "\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9");
    EXPECT_EQ(objid(oid, 1),
              "\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9\xc3\xa9"
              "1");
    EXPECT_EQ(objid(oid, 1, 15), "1.3.6.1.4.") << "name and dot need fifteen beside the terminator";
    free_all_info();
    configure({1, 3, 6, 1, 4, 1, 99}, "ab\xc3");
    EXPECT_EQ(objid(oid, 1), "ab\xc3.1.4.1.99.1") << "what is no character counts as one";
}

TEST_F(Values, ObjectIdentifiersGoOnAfterTheCharactersOfTwoBytes) {
    REQUIRE_TWO_BYTE_LOCALE(locale);
    const std::string name = std::string("ab") + locale.encoding().backslash;
    configure({1, 3, 6, 1, 4, 1, 99}, name);
    EXPECT_EQ(objid({1, 3, 6, 1, 4, 1, 99, 1}, 1), name + ".1.4.1.99.1");
}

TEST_F(Values, NamesOfTheMibAreCountedInCharacters) {
    const CtypeLocale locale(wq::test::utf8_locale);
    ASSERT_TRUE(locale.is_set());
    /* The last of the 22 characters that are dropped is one of two bytes. */
    mib_name = ".iso.org.dod.internet\u00e9mgmt.x";
    EXPECT_EQ(objid({1, 2}, 1), "mgmt.x");
    /* 22 characters in 23 bytes are not more than 22. */
    mib_name = ".iso.org.dod.internet\u00e9";
    EXPECT_EQ(objid({1, 2}, 1), mib_name);
    mib_name = ".iso.org.dod.internet.\u00e9";
    EXPECT_EQ(objid({1, 2}, 1), "1.2") << "one character is no name";
    const std::string ten = "b\u00e9bbbbbbb.";
    const std::string fifty = ten + ten + ten + ten + "a\u00e9aaaaaaaa";
    mib_name = ".iso.org.dod.internet." + fifty;
    EXPECT_EQ(objid({1, 2}, 1), fifty);
    mib_name = ".iso.org.dod.internet.x" + fifty;
    EXPECT_EQ(objid({1, 2}, 1), fifty.substr(ten.size()));
}

TEST_F(Values, ObjectIdentifiersNeverPassTheRoom) {
    const Oid oid{1, 3, 6, 1, 4, 1, 99, 4294967295, 2147483648, 70, 800, 9000};
    for (const char* name : {"", ".iso.org.dod.internet.private.enterprises.99.rest"}) {
        mib_name = name;
        for (const bool is_configured : {false, true}) {
            if (is_configured) {
                configure({1, 3, 6, 1, 4, 1, 99}, "acme");
            }
            for (int by_name = 0; by_name < 2; ++by_name) {
                const std::string whole = objid(oid, by_name);
                for (size_t size = 1; size < whole.size() + 8; ++size) {
                    const std::string text = objid(oid, by_name, size);
                    EXPECT_LT(text.size(), size);
                    EXPECT_TRUE(size >= 10 || text.empty()) << size;
                }
            }
        }
        free_all_info();
    }
}

TEST_F(Values, ObjectIdentifiersAdvanceTheCallersPosition) {
    std::array<char, 40> buffer{};
    char* position = buffer.data();
    int left = 40;
    const std::array<uint32_t, 4> oid{1, 3, 6, 1};
    formatObjectID(&position, &left, oid.data(), 4, 0);
    formatObjectID(&position, &left, oid.data(), 2, 0);
    EXPECT_STREQ(buffer.data(), "1.3.6.11.3");
    EXPECT_EQ(position, buffer.data() + 10);
    EXPECT_EQ(left, 30);
}

TEST_F(Values, ObjectIdentifiersNeedARoomAndAPosition) {
    std::array<char, 4> buffer{'x', 'x', 'x', '\0'};
    const uint32_t oid = 1;
    char* position = buffer.data();
    for (int left : {0, -1, INT_MIN}) {
        const int before = left;
        formatObjectID(&position, &left, &oid, 1, 1);
        EXPECT_EQ(left, before);
    }
    int left = 4;
    formatObjectID(&position, &left, nullptr, 1, 1);
    formatObjectID(nullptr, &left, &oid, 1, 1);
    formatObjectID(&position, nullptr, &oid, 1, 1);
    EXPECT_STREQ(buffer.data(), "xxx");
    EXPECT_EQ(position, buffer.data());
    formatObjectID(&position, &left, &oid, 1, 1);
    EXPECT_STREQ(buffer.data(), "");
    EXPECT_EQ(left, 4);
    char* nowhere = nullptr;
    formatObjectID(&nowhere, &left, &oid, 1, 1);
}

TEST_F(Values, ANegativeCountOfSubIdentifiersIsNone) {
    std::array<char, 40> buffer{'x'};
    char* position = buffer.data();
    int left = 40;
    const uint32_t oid = 1;
    formatObjectID(&position, &left, &oid, -1, 0);
    EXPECT_STREQ(buffer.data(), "");
    EXPECT_EQ(left, 40);
}

TEST_F(Values, ANameOfTheWholeAreaIsTaken) {
    mib_name = std::string(3000, 'x');
    EXPECT_EQ(objid({1, 3}, 1), std::string(50, 'x'));
    mib_name.back() = '.';
    EXPECT_EQ(objid({1, 3}, 1, 100), "1.3");
}

Trap trap_of(const Oid& oid) {
    Trap trap;
    wq::test::set_enterprise(trap, oid);
    return trap;
}

const Oid acme{1, 3, 6, 1, 4, 1, 99};

TEST_F(Values, AnEnterpriseIsNamedByTheTreeFirst) {
    mib_name = ".iso.org.dod.internet.private.enterprises.99";
    EXPECT_EQ(enterprise(trap_of(acme), 1), "private.enterprises.99");
    configure(acme, "acme");
    EXPECT_EQ(enterprise(trap_of(acme), 1), "acme");
    name_in_tree("1.3.6.1.4.1.99", "Acme Ltd.");
    EXPECT_EQ(enterprise(trap_of(acme), 1), "Acme Ltd.");
    EXPECT_EQ(enterprise(trap_of(acme), -1), "Acme Ltd.");
    EXPECT_EQ(enterprise(trap_of(acme), 0), "1.3.6.1.4.1.99");
}

TEST_F(Values, AnEnterprisesNameThatDoesNotFitGivesWayToTheNext) {
    name_in_tree("1.3.6.1.4.1.99", "Acme Limited of Springfield");
    configure(acme, "Acme Limited");
    EXPECT_EQ(enterprise(trap_of(acme), 1, 28), "Acme Limited of Springfield");
    EXPECT_EQ(enterprise(trap_of(acme), 1, 27), "Acme Limited");
    EXPECT_EQ(enterprise(trap_of(acme), 1, 14), "Acme Limited");
    /* One byte more than the terminator has to be left behind a configured name. */
    EXPECT_EQ(enterprise(trap_of(acme), 1, 13), "1.3.6.1.");
}

TEST_F(Values, AnEnterpriseBelowAConfiguredOneHasItsName) {
    configure(acme, "acme");
    Oid below = acme;
    below.insert(below.end(), {1, 2});
    EXPECT_EQ(enterprise(trap_of(below), 1), "acme");
}

TEST_F(Values, AnEnterpriseWithoutANameIsNumbers) {
    EXPECT_EQ(enterprise(trap_of(acme), 1), "1.3.6.1.4.1.99");
    EXPECT_EQ(enterprise(trap_of({}), 1), "");
    EXPECT_EQ(enterprise(trap_of({}), 0), "");
}

TEST_F(Values, AnEnterprisesLengthIsKeptWithinTheRecord) {
    Trap trap = trap_of(Oid(EMS_OID_MAX, 7));
    const std::string whole = enterprise(trap, 0);
    EXPECT_EQ(whole.size(), 2 * EMS_OID_MAX - 1U);
    for (const int32_t length : {129, INT_MAX}) {
        trap.info.elen = length;
        EXPECT_EQ(enterprise(trap, 0), whole);
        EXPECT_EQ(enterprise(trap, 1), whole);
    }
    for (const int32_t length : {-1, INT_MIN}) {
        trap.info.elen = length;
        EXPECT_EQ(enterprise(trap, 0), "");
        EXPECT_EQ(enterprise(trap, 1), "");
    }
}

TEST_F(Values, EnterprisesNeverPassTheRoom) {
    for (const char* name : {"", "Acme Limited of Springfield"}) {
        if (*name != '\0') {
            name_in_tree("1.3.6.1.4.1.99", name);
            configure(acme, name);
        }
        for (size_t size = 1; size < 40; ++size) {
            for (int as_string = 0; as_string < 2; ++as_string) {
                EXPECT_LT(enterprise(trap_of(acme), as_string, size).size(), size);
            }
        }
    }
}

Trap trap_with_community(const std::string& community) {
    Trap trap;
    wq::test::set_community(trap, community);
    return trap;
}

TEST(FormatCommunity, IsAnOctetString) {
    EXPECT_EQ(community(trap_with_community("public")), "public");
    EXPECT_EQ(community(trap_with_community("")), "");
    EXPECT_EQ(community(trap_with_community("\x01\x02")), "0x01 02");
    EXPECT_EQ(community(trap_with_community("public"), 7), "publ");
    strictHex = 1;
    EXPECT_EQ(community(trap_with_community("a b")), "0x61 20 62");
    strictHex = 0;
}

TEST(FormatCommunity, LengthIsKeptWithinTheRecord) {
    Trap trap = trap_with_community(std::string(EMS_COMMUNITY_MAX, 'c'));
    EXPECT_EQ(community(trap), std::string(EMS_COMMUNITY_MAX, 'c'));
    for (const int32_t length : {129, INT_MAX}) {
        trap.info.clen = length;
        EXPECT_EQ(community(trap), std::string(EMS_COMMUNITY_MAX, 'c'));
    }
    for (const int32_t length : {0, -1, INT_MIN}) {
        trap.info.clen = length;
        EXPECT_EQ(community(trap), "");
    }
}

TEST(FormatCommunity, NeverPassesTheRoom) {
    for (const char* text : {"public", "\x01\x02\x03"}) {
        for (size_t size = 1; size < 20; ++size) {
            EXPECT_LT(community(trap_with_community(text), size).size(), size);
        }
    }
}

const char* const severities[] = {"Cleared", "Indeterminate", "Warning",
                                  "Minor",   "Critical",      "Major"};

TEST(Severity, NumbersAndNames) {
    for (int number = 0; number < 6; ++number) {
        EXPECT_STREQ(severityToString(number), severities[number]);
        EXPECT_EQ(stringToSeverity(severities[number]), number);
    }
    for (const int number : {-1, 6, 7, INT_MIN, INT_MAX}) {
        EXPECT_STREQ(severityToString(number), "Unknown");
    }
}

TEST(Severity, NamesAreComparedExactly) {
    for (const char* name : {"major", "MAJOR", "Majo", "Major ", " Major", "", "Unknown", "5"}) {
        EXPECT_EQ(stringToSeverity(name), 0) << name;
    }
    EXPECT_EQ(stringToSeverity(nullptr), 0);
}

/* The sink's text ends where the text of a reader ends; the bytes behind it stay. */
TEST(AppendOctets, EndsAtAZeroByte) {
    std::array<char, 40> buffer{};
    wq::TextSink sink(buffer.data(), buffer.size());
    sink.append("<");
    const std::array<uint8_t, 5> octets{'a', 'b', 0, 'c', 'd'};
    wq::append_octets(sink, octets);
    EXPECT_EQ(sink.text(), "<ab");
    EXPECT_EQ(std::memcmp(buffer.data(), "<ab\0cd", 7), 0);
    sink.append(">");
    EXPECT_EQ(sink.text(), "<ab>");
}

TEST_F(Values, AnyBindingInAnyRoom) {
    wq::test::Random random;
    SCOPED_TRACE(random.name());
    name_in_tree("1.3.6.1.2", "two");
    configure(acme, "acme");
    for (int round = 0; round < 3000; ++round) {
        SnmpVarBindEMS var{};
        auto* bytes = reinterpret_cast<uint8_t*>(&var);
        for (size_t i = 0; i < 200; ++i) {
            bytes[offsetof(SnmpVarBindEMS, val) + i] = random.byte();
        }
        var.oid[0] = 1;
        var.oid_length = random.any_size();
        var.val_len = random.one_in(2) ? random.between(0, 60) : random.any_size();
        var.type = random.one_in(4)
                       ? random.byte()
                       : static_cast<uint8_t>(random.one_in(2) ? random.between(2, 6)
                                                               : random.between(64, 68));
        mib_name.assign(random.between(0, 80), 'n');
        const size_t size = random.between(1, 120);
        EXPECT_LT(value(var, size).size(), size);
        EXPECT_LT(kind(var.type, size).size(), size);
    }
}

}  // namespace
