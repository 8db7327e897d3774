#include <gtest/gtest.h>
#include <sys/stat.h>
#include <wqevents/alerts.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/code_points.h"
#include "support/env_value.h"
#include "support/random.h"
#include "support/temp_dir.h"

namespace {

using namespace wq::test;

enum Loaded { loaded = 0, not_opened = -1, refused = -2 };

class Catalogue : public testing::Test {
  protected:
    int load(std::string_view content) { return load_path(dir_.write("catalogue", content)); }
    static int load_path(const std::string& path) {
        codeptpath(path.c_str());
        return codeptcatinit();
    }

    TempDir dir_;
};

TEST_F(Catalogue, GivesTextsBySetAndCodePoint) {
    ASSERT_EQ(load(catalogue({{7, 0x0009, "data"},
                              {2, 0xFFFE, "last probable"},
                              {1, 0xA001, "type"},
                              {2, 0x0000, ""},
                              {2, 0xA001, "probable"},
                              {6, 0x2000, "act"}})),
              loaded);
    EXPECT_STREQ(codeptstr(1, 0xA001), "type");
    EXPECT_STREQ(codeptstr(2, 0xA001), "probable");
    EXPECT_STREQ(codeptstr(2, 0), "");
    EXPECT_STREQ(codeptstr(2, 0xFFFE), "last probable");
    EXPECT_STREQ(codeptstr(6, 0x2000), "act");
    EXPECT_STREQ(codeptstr(7, 9), "data");
}

TEST_F(Catalogue, ShowsDigitsForWhatItLacks) {
    ASSERT_EQ(load(catalogue({{1, 0xA001, "type"}, {3, 0xA001, "user"}})), loaded);
    EXPECT_STREQ(codeptstr(1, 0xA000), "A000");
    EXPECT_STREQ(codeptstr(1, 0xA002), "A002");
    EXPECT_STREQ(codeptstr(2, 0xA001), "A001");
    EXPECT_STREQ(codeptstr(3, 0xAB), "00AB");
    EXPECT_STREQ(codeptstr(3, 0x1A001), "1A001");
    EXPECT_STREQ(codeptstr(3, -1), "FFFFFFFF");
}

TEST_F(Catalogue, HasSevenSets) {
    ASSERT_EQ(load(catalogue({{0, 5, "zero"}, {8, 5, "eight"}, {1, 5, "one"}})), loaded);
    for (const int set : {0, 8, -1, 9, INT_MAX, INT_MIN}) {
        EXPECT_STREQ(codeptstr(set, 5), "-") << set;
        EXPECT_STREQ(codeptstr(set, 0xFFFF), "") << set;
    }
    EXPECT_STREQ(codeptstr(1, 5), "one");
}

TEST_F(Catalogue, TheLastCodePointHasNoText) {
    ASSERT_EQ(load(catalogue({{1, 0xFFFF, "never shown"}})), loaded);
    EXPECT_STREQ(codeptstr(1, 0xFFFF), "");
}

TEST_F(Catalogue, WithoutOneEverythingIsDigits) {
    EXPECT_EQ(load_path(dir_.path("nothing")), not_opened);
    EXPECT_STREQ(codeptstr(1, 0x0A01), "0A01");
    EXPECT_STREQ(codeptstr(0, 0x0A01), "0A01");
    EXPECT_STREQ(codeptstr(1, 0xFFFF), "");
}

TEST_F(Catalogue, IsLoadedAnewByEachCall) {
    ASSERT_EQ(load(catalogue({{1, 1, "before"}})), loaded);
    ASSERT_EQ(load(catalogue({{1, 1, "after"}, {1, 2, "more"}})), loaded);
    EXPECT_STREQ(codeptstr(1, 1), "after");
    EXPECT_EQ(load(catalogue_header(0)), refused);
    EXPECT_STREQ(codeptstr(1, 1), "0001");
    ASSERT_EQ(load(catalogue({{1, 1, "again"}})), loaded);
    EXPECT_STREQ(codeptstr(1, 1), "again");
    std::filesystem::remove(dir_.path("catalogue"));
    EXPECT_EQ(codeptcatinit(), not_opened);
    EXPECT_STREQ(codeptstr(1, 1), "0001");
}

TEST_F(Catalogue, FindsEachOfManyEntries) {
    Random random;
    SCOPED_TRACE(random.name());
    std::vector<CodePoint> points;
    for (uint16_t set = 1; set <= 7; ++set) {
        for (uint32_t id = 0; id < 2000; id += set) {
            points.push_back({set, static_cast<uint16_t>(id),
                              std::to_string(set).append(".").append(std::to_string(id))});
        }
    }
    for (size_t i = points.size() - 1; i > 0; --i) {
        std::swap(points[i], points[random.between(0, static_cast<uint32_t>(i))]);
    }
    ASSERT_EQ(load(catalogue(points)), loaded);
    for (const CodePoint& point : points) {
        ASSERT_EQ(codeptstr(point.set, point.id), point.text);
    }
    EXPECT_STREQ(codeptstr(7, 1), "0001");
}

/* ---- files that are none */

TEST_F(Catalogue, RefusesBadHeaders) {
    const std::string good = catalogue({{1, 1, "text"}});
    EXPECT_EQ(load(""), refused);
    EXPECT_EQ(load("codepoint.cat457" + good.substr(16)), refused);
    EXPECT_EQ(load("Codepoint.cat456" + good.substr(16)), refused);
    EXPECT_EQ(load(catalogue_header(0) + std::string(100, '\0')), refused);
    EXPECT_EQ(load(catalogue_header(0xFFFFFFFF) + std::string(100, '\0')), refused);
    EXPECT_EQ(load(catalogue_header(0x80000000) + std::string(100, '\0')), refused);
    EXPECT_STREQ(codeptstr(1, 1), "0001");
}

TEST_F(Catalogue, RefusesCountsThatLie) {
    const std::string one = catalogue({{1, 1, ""}});
    ASSERT_EQ(one.size(), 33U);
    for (const uint32_t count : {2U, 3U, 1000U, 0x10000000U, 0x20000000U, 0x7FFFFFFFU}) {
        EXPECT_EQ(load(catalogue_header(count) + one.substr(24)), refused) << count;
    }
}

TEST_F(Catalogue, EndsWithinTheEntries) {
    const std::string whole = catalogue({{1, 1, "one"}, {1, 2, "two"}});
    for (size_t size = 0; size < 40; ++size) {
        EXPECT_EQ(load(whole.substr(0, size)), refused) << size;
        EXPECT_STREQ(codeptstr(1, 1), "0001") << size;
    }
    for (size_t size = 40; size <= whole.size(); ++size) {
        EXPECT_EQ(load(whole.substr(0, size)), loaded) << size;
        EXPECT_STREQ(codeptstr(1, 1), size < 44 ? "0001" : "one") << size;
        EXPECT_STREQ(codeptstr(1, 2), size < 48 ? "0002" : "two") << size;
    }
}

TEST_F(Catalogue, TextsLieInTheTextArea) {
    const std::string texts("ab\0cd", 5); /* the last one is not terminated */
    const uint32_t start = 24 + 8 * 7;
    std::string file = catalogue_header(7);
    const uint32_t offsets[] = {0, start - 1, start, start + 1, start + 2, start + 3, 0xFFFFFFFF};
    for (uint16_t i = 0; i < 7; ++i) {
        file.append(catalogue_entry(1, i, offsets[i]));
    }
    ASSERT_EQ(load(file + texts), loaded);
    const char* shown[] = {"0000", "0001", "ab", "b", "", "0005", "0006"};
    for (int i = 0; i < 7; ++i) {
        EXPECT_STREQ(codeptstr(1, i), shown[i]) << i;
    }
}

TEST_F(Catalogue, IsLoadedEvenIfNoTextIsUsable) {
    ASSERT_EQ(load(catalogue_header(1) + catalogue_entry(1, 1, 5)), loaded);
    EXPECT_STREQ(codeptstr(1, 1), "0001");
    EXPECT_STREQ(codeptstr(8, 1), "-");
}

TEST_F(Catalogue, RefusesWhatIsNoFile) {
    EXPECT_EQ(load_path(dir_.path()), refused);
    const std::string fifo = dir_.path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(load_path(fifo), refused) << "and does not wait for a writer";
    EXPECT_EQ(load_path("/dev/zero"), refused);
    EXPECT_EQ(load_path("/dev/null"), refused);
}

TEST_F(Catalogue, SurvivesAnyBytes) {
    Random random;
    SCOPED_TRACE(random.name());
    const std::string good = catalogue({{1, 1, "one"}, {2, 2, "two"}, {7, 3, "three"}});
    for (int round = 0; round < 500; ++round) {
        std::string file = good;
        for (uint32_t i = random.between(1, 4); i > 0; --i) {
            file[random.between(16, static_cast<uint32_t>(file.size()) - 1)] =
                static_cast<char>(random.one_in(3) ? random.between(0, 8) : random.byte());
        }
        const int result = load(file);
        ASSERT_TRUE(result == loaded || result == refused);
        for (int set = 0; set < 9; ++set) {
            for (int id = 0; id < 5; ++id) {
                ASSERT_LT(std::string(codeptstr(set, id)).size(), 40U);
            }
        }
    }
}

TEST_F(Catalogue, NoneIsOpenToBeRead) {
    std::array<char, 4> octets{};
    ASSERT_EQ(load(catalogue({{1, 1, "one"}})), loaded);
    EXPECT_EQ(cread(octets.data(), 4), 0);
    EXPECT_EQ(cread(nullptr, 4), 0);
    EXPECT_EQ(cread(octets.data(), 0), 0);
    EXPECT_EQ(cread(octets.data(), -1), 0);
}

/* ---- the order */

TEST_F(Catalogue, EntriesAreOrderedBySetThenCodePoint) {
    const auto entry = [](uint16_t set, uint16_t id) {
        cp_entry made{};
        made.ce_set = set;
        made.ce_alertid = id;
        return made;
    };
    std::array<cp_entry, 5> entries{entry(2, 1), entry(1, 0xFFFF), entry(1, 0), entry(0xFFFF, 0),
                                    entry(2, 0)};
    std::qsort(entries.data(), entries.size(), sizeof(cp_entry), cecmp);
    std::vector<std::pair<int, int>> order;
    for (const cp_entry& e : entries) {
        order.emplace_back(e.ce_set, e.ce_alertid);
    }
    EXPECT_EQ(order,
              (std::vector<std::pair<int, int>>{{1, 0}, {1, 0xFFFF}, {2, 0}, {2, 1}, {0xFFFF, 0}}));
    EXPECT_EQ(cecmp(&entries[0], &entries[0]), 0);
    EXPECT_EQ(cecmp(nullptr, &entries[0]), 0);
    EXPECT_EQ(cecmp(&entries[0], nullptr), 0);
}

/* ---- where it is looked for */

class Search : public Catalogue {
  protected:
    /* No path is set before: an empty one counts as none. */
    void SetUp() override { codeptpath(""); }

    /* A catalogue of one text in the folder `place`. */
    void put(const std::string& place, const std::string& text) const {
        std::filesystem::create_directories(dir_.path(place));
        dir_.write(place + "/codepoint.cat", catalogue({{1, 1, text}}));
    }
    static std::string found(const std::string& nlspath) {
        const EnvValue value("NLSPATH", nlspath);
        codeptpath("");
        return codeptcatinit() == loaded ? codeptstr(1, 1) : "none";
    }
};

TEST_F(Search, TakesTheFirstAlongThePath) {
    put("a", "in a");
    put("b/En_US", "in b");
    const std::string a = dir_.path("a");
    const std::string b = dir_.path("b");
    EXPECT_EQ(found(a + "/%N"), "in a");
    EXPECT_EQ(found(b + "/%L/%N"), "in b");
    EXPECT_EQ(found(b + "/%L/LC_MESSAGES/%N.cat:" + a + "/%N"), "in b");
    EXPECT_EQ(found("/nowhere/%N:" + a + "/%N:" + b + "/%L/%N"), "in a");
    EXPECT_EQ(found("::" + b + "/%N:" + b + "/%L"), "in b") << "the first lacks the locale";
    EXPECT_EQ(found(a + "xyz"), "in a") << "the last three characters go, whatever they are";
    EXPECT_EQ(found("ab:%"), "none");
    EXPECT_EQ(found(""), "none");
}

/* The root folder is nobody's choice. */
TEST_F(Search, AnEmptyEntryIsTheCurrentFolder) {
    put("a", "in a");
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(dir_.path("a"));
    const std::string elsewhere = dir_.path("elsewhere") + "/%N";
    EXPECT_EQ(found(":" + elsewhere), "in a");
    EXPECT_EQ(found(elsewhere + "::" + elsewhere), "in a");
    EXPECT_EQ(found("%N"), "in a");
    EXPECT_EQ(found(elsewhere + ":"), "none") << "an end is no entry";
    std::filesystem::current_path(before);
    EXPECT_EQ(found(":" + elsewhere), "none");
}

TEST_F(Search, TheLocaleIsAlwaysTheSame) {
    const EnvValue all("LC_ALL", "C");
    put("b/En_US", "in b");
    EXPECT_EQ(found(dir_.path("b") + "/%L/%N"), "in b");
}

TEST_F(Search, SaysThatThereIsNoPath) {
    const EnvValue value("NLSPATH", nullptr);
    int result = loaded;
    const std::string said = captured_stderr([&] { result = codeptcatinit(); });
    EXPECT_EQ(said.substr(0, 16), "getenv(NLSPATH):");
    EXPECT_EQ(result, not_opened) << "the system has no catalogue of its own here";
}

TEST_F(Search, APathThatIsSetStays) {
    put("a", "in a");
    put("b", "in b");
    codeptpath((dir_.path("a") + "/codepoint.cat").c_str());
    const EnvValue value("NLSPATH", dir_.path("b") + "/%N");
    codeptpath(nullptr);
    ASSERT_EQ(codeptcatinit(), loaded);
    EXPECT_STREQ(codeptstr(1, 1), "in a");
}

}  // namespace
