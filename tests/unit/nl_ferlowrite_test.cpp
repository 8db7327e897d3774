#include <gtest/gtest.h>
#include <wqevents/alerts.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include "support/alert_conf.h"
#include "support/random.h"

namespace {

using namespace wq::test;

TEST_F(Alerts, WritesThemAsTheyAreRead) {
    ASSERT_EQ(read_alerts("OTHER_UP {1.3.6.1.4.1.5000} 6 7\n92 2 0 ;\n"
                          "ACME_DOWN {1.3.6.1.4.1.4242} 6 2\n93 0 95 1 7 ;\n" +
                          name_line +
                          "92 12 A001 93 2 FE00 2132 94 1 33C1 2 10 \"first $1\" 11 \"a  b\"\n"
                          "81 1 20A0 1 12 \"$2\" 98 1 20 \"\" ;\n"),
              (ConfRead{0, ""}));
    ASSERT_EQ(write(), (ConfRead{0, ""}));
    EXPECT_EQ(written(),
              "#\n###################\n#\n"
              "ACME_UP {1.3.6.1.4.1.4242} 6 1 \n"
              "92 12 a001 \n"
              "93 2 fe00 2132 \n"
              "94 1 33c1 2 10 \"first $1\" 11 \"a  b\" \n"
              "81 1 20a0 1 12 \"$2\" \n"
              "98 1 20 \"\"  ;\n"
              "ACME_DOWN {1.3.6.1.4.1.4242} 6 2 \n"
              "93 0 \n"
              "95 1 7  ;\n"
              "OTHER_UP {1.3.6.1.4.1.5000} 6 4000000000 \n"
              "92 2 0  ;\n");
    EXPECT_TRUE(is_free(path_));
    EXPECT_EQ(descriptors_of(path_), 0);
}

TEST_F(Alerts, WritesAShorterTextOverALongerOne) {
    ASSERT_EQ(read_alerts("#" + std::string(900, '#') + "\n").result, 0);
    EXPECT_EQ(write(), (ConfRead{0, ""}));
    EXPECT_EQ(written(), "#\n###################\n#\n");
}

TEST_F(Alerts, SaysWhichEnterpriseHasNoIdentifier) {
    ASSERT_EQ(read_alerts(name_line + "92 11 FFFF ;\n").result, 0);
    for (enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        uint32_t* const numbers = std::exchange(e->enterprise_oid, nullptr);
        const bool is_acme = std::string(e->enterprise_name) == "acme";
        errno = 0;
        const ConfRead result = write();
        EXPECT_EQ(errno, is_acme ? EINVAL : 0);
        EXPECT_EQ(result, is_acme ? ConfRead({-1,
                                              "Enterprise \"acme\" has no object identifier: "
                                              "ferlo format file not written\n"})
                                  : ConfRead({0, ""}))
            << "only one with alerts matters";
        e->enterprise_oid = numbers;
    }
}

TEST_F(Alerts, PrintsOneRecord) {
    ASSERT_EQ(read_alerts(name_line + "92 11 FFFF ;\n").result, 0);
    char* text = nullptr;
    size_t size = 0;
    FILE* const stream = open_memstream(&text, &size);
    const uint32_t oid[] = {1, 3, 6};
    print_ferlo_rec(stream, trap("ACME_UP"), oid, 3);
    fclose(stream);
    EXPECT_EQ(std::string(text, size), "ACME_UP {1.3.6} 6 1 \n92 11 ffff  ;\n");
    std::free(text);
}

TEST_F(Alerts, PadsAKeyOfOneDigit) {
    const std::pair<int, const char*> keys[] = {
        {5, "\n 5 0  ;\n"}, {0xF, "\n f 0  ;\n"}, {0x10, "\n10 0  ;\n"}};
    for (const auto& [key, line] : keys) {
        trap("ACME_UP")->alert_element = new_alert(key);
        ASSERT_EQ(write(), (ConfRead{0, ""}));
        EXPECT_NE(written().find(line), std::string::npos) << written();
        delete_ferlo_record(trap("ACME_UP"));
    }
}

std::string random_text(Random& random) {
    std::string text = "\"";
    for (uint32_t i = random.between(0, 12); i > 0; --i) {
        text.push_back("ab $1%;#9.-"[random.between(0, 10)]);
    }
    return text.append("\"");
}

std::string random_items(Random& random, uint32_t count) {
    std::string text;
    char number[16];
    std::snprintf(number, sizeof number, "%x ", count);
    text.append(number);
    for (; count > 0; --count) {
        std::snprintf(number, sizeof number, "%x ", random.any_size());
        text.append(number).append(random_text(random)).append(random.one_in(3) ? "\n" : " ");
    }
    return text;
}

/* A count, code points, and the items that they ask for. */
std::string random_points(Random& random, bool with_items) {
    constexpr uint32_t asked[] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 2, 3, 0, 0};
    const uint32_t count = random.between(0, 5);
    uint32_t items = 0;
    char number[16];
    std::snprintf(number, sizeof number, "%x ", count);
    std::string text(number);
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t point = random.any_size();
        items += asked[point >> 4 & 0xF];
        std::snprintf(number, sizeof number, "%X ", point);
        text.append(number);
    }
    return with_items && items > 0 ? text.append(random_items(random, items)) : text;
}

std::string random_body(Random& random) {
    const char* causes[] = {"94 ", "95 ", "96 "};
    const char* types[] = {"1 ", "2 ", "3 ", "11 ", "12 "};
    std::string text;
    bool open = false;
    for (uint32_t i = random.between(1, 6); i > 0; --i) {
        switch (random.between(0, 3)) {
            case 0:
                text.append("92 ").append(types[random.between(0, 4)]).append("A001\n");
                break;
            case 1:
                text.append("93 ").append(random_points(random, false));
                break;
            case 2:
                text.append(open ? "81 " : causes[random.between(0, 2)]);
                text.append(random_points(random, true));
                open = !open;
                break;
            default:
                text.append("98 ").append(random_items(random, random.between(0, 4)));
        }
    }
    return text.append(" ;\n");
}

TEST_F(Alerts, WhatIsWrittenReadsTheSame) {
    Random random;
    SCOPED_TRACE(random.name());
    for (int round = 0; round < 40; ++round) {
        ASSERT_EQ(read_alerts(name_line + random_body(random) +
                              "OTHER_UP {1.3.6.1.4.1.5000} 6 7\n" + random_body(random)),
                  (ConfRead{0, ""}));
        const std::string acme = told(trap("ACME_UP")->alert_element);
        const std::string other = told(trap("OTHER_UP")->alert_element);
        ASSERT_EQ(write(), (ConfRead{0, ""}));
        const std::string first = written();
        delete_ferlo_record(trap("ACME_UP"));
        delete_ferlo_record(trap("OTHER_UP"));
        ASSERT_EQ(read_again(), (ConfRead{0, ""})) << first;
        ASSERT_EQ(told(trap("ACME_UP")->alert_element), acme) << first;
        ASSERT_EQ(told(trap("OTHER_UP")->alert_element), other) << first;
        ASSERT_EQ(write(), (ConfRead{0, ""}));
        ASSERT_EQ(written(), first);
    }
}

TEST_F(Alerts, DeletesRecordsThatLackParts) {
    alert_record* const list = new_alert(0x98);
    list->num_detaileddata = 2;
    list->detailed_data = static_cast<detailed_data_record**>(doMalloc(2 * sizeof(void*)));
    list->detailed_data[1] =
        static_cast<detailed_data_record*>(doMalloc(sizeof(detailed_data_record)));
    list->next = new_alert(0x98);
    list->next->num_detaileddata = 3;
    trap("ACME_UP")->alert_element = list;
    EXPECT_EQ(write(), (ConfRead{0, ""}));
    EXPECT_NE(written().find("\n98 2 0 \"\" 0 \"\" \n98 0  ;\n"), std::string::npos);
    delete_ferlo_record(trap("ACME_UP"));
    EXPECT_EQ(trap("ACME_UP")->alert_element, nullptr);
}

}  // namespace
