#include <gtest/gtest.h>
#include <sys/stat.h>
#include <wqevents/configuration.h>

#include <array>
#include <numeric>
#include <string>
#include <vector>

#include "support/temp_dir.h"
#include "support/trap_model.h"

namespace {

using namespace wq::test;

int compare(const Oid& a, const Oid& b) {
    return oidcmp(a.data(), b.data(), static_cast<uint32_t>(a.size()),
                  static_cast<uint32_t>(b.size()));
}

TEST(Oidcmp, TellsTheFirstDifferenceOrHowMuchIsLeft) {
    struct Row {
        Oid a;
        Oid b;
        int result;
    };
    const std::vector<Row> rows = {
        {{1, 3, 6}, {1, 3, 6}, 0},
        {{1, 3, 6}, {1, 3, 9}, -3},
        {{1, 3, 9}, {1, 3, 6}, 3},
        {{1, 3, 6, 1}, {1, 3, 9}, -3},
        {{1, 3, 6, 1, 4}, {1, 3, 6}, -2}, /* what extends sorts first */
        {{1, 3, 6}, {1, 3, 6, 1, 4}, 2},
        {{}, {}, 0},
        {{}, {1, 3}, 2},
        {{1, 3}, {}, -2},
        {{4294967295U}, {0}, -1}, /* the difference is taken as signed */
        {{0}, {4294967295U}, 1},
        {{2147483647}, {0}, 2147483647},
        {{2147483648U}, {0}, -2147483647 - 1},
        {{0}, {2147483648U}, -2147483647 - 1},
        {{0}, {2147483649U}, 2147483647},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(compare(row.a, row.b), row.result)
            << ::testing::PrintToString(row.a) << " " << ::testing::PrintToString(row.b);
    }
    EXPECT_EQ(oidcmp(nullptr, nullptr, 3, 5), 0) << "null is empty";
}

TEST(InsertEnterprise, KeepsTheMoreSpecificFirst) {
    const TrapModel model;
    const std::vector<std::pair<Oid, std::string>> given = {
        {{1, 3, 6, 1, 4, 1, 9}, "nine"},
        {{1, 3, 6, 1, 4, 1, 4242}, "outer"},
        {{1, 3, 6, 1, 4, 1, 4242, 6, 3}, "inner"},
        {{1, 3, 6, 1, 4, 1, 4242, 7}, "seven"},
        {{1, 3, 6, 1, 4, 1, 1}, "one"},
    };
    for (const auto& [oid, name] : given) {
        EXPECT_EQ(insert_enterprise(oid.data(), static_cast<uint32_t>(oid.size()), name.c_str()),
                  0);
    }
    EXPECT_EQ(enterprise_names(),
              (std::vector<std::string>{"one", "nine", "inner", "seven", "outer"}));
}

TEST(InsertEnterprise, RenamesTheOneWithTheSameIdentifier) {
    const TrapModel model;
    const Oid oid = {1, 3, 6, 1, 4, 1, 4242};
    enterprise_info* first = TrapModel::enterprise(oid, "before");
    trap_record* trap = TrapModel::trap(first, "t", 6, 1);
    EXPECT_EQ(TrapModel::enterprise(oid, "after"), first);
    EXPECT_EQ(enterprise_names(), std::vector<std::string>{"after"});
    EXPECT_EQ(head_of(first)->next, trap);
    EXPECT_EQ(find_enterprise_name("before"), nullptr);
    EXPECT_EQ(find_enterprise_name("after"), first);
    /* its own name, which is released */
    EXPECT_EQ(insert_enterprise(oid.data(), 7, first->enterprise_name), 0);
    EXPECT_STREQ(first->enterprise_name, "after");
}

TEST(InsertEnterprise, CopiesAndRefusesNull) {
    const TrapModel model;
    Oid oid = {1, 3, 6};
    std::string name = "name";
    EXPECT_EQ(insert_enterprise(oid.data(), 3, name.c_str()), 0);
    oid[2] = 7;
    name = "else";
    EXPECT_EQ(find_enterprise(Oid{1, 3, 6}), enterprise_list_head.next);
    EXPECT_STREQ(enterprise_list_head.next->enterprise_name, "name");
    EXPECT_EQ(insert_enterprise(nullptr, 3, "x"), -1);
    EXPECT_EQ(insert_enterprise(oid.data(), 3, nullptr), -1);
    EXPECT_EQ(enterprise_names().size(), 1U);
}

class FindEnterprise : public ::testing::Test {
  protected:
    TrapModel model_;
    enterprise_info* outer_ = TrapModel::enterprise({1, 3, 6, 1, 4, 1, 4242}, "outer");
    enterprise_info* inner_ = TrapModel::enterprise({1, 3, 6, 1, 4, 1, 4242, 6, 3}, "inner");
};

TEST_F(FindEnterprise, FindsTheLongestBeginning) {
    EXPECT_EQ(find_enterprise(Oid{1, 3, 6, 1, 4, 1, 4242, 6, 3, 1}), inner_);
    EXPECT_EQ(find_enterprise(Oid{1, 3, 6, 1, 4, 1, 4242, 6, 3}), inner_);
    EXPECT_EQ(find_enterprise(Oid{1, 3, 6, 1, 4, 1, 4242, 6}), outer_);
    EXPECT_EQ(find_enterprise(Oid{1, 3, 6, 1, 4, 1, 4242, 5}), outer_);
    EXPECT_EQ(find_enterprise(Oid{1, 3, 6, 1, 4, 1, 4242}), outer_);
    EXPECT_EQ(find_enterprise(Oid{1, 3, 6, 1, 4, 1}), nullptr);
    EXPECT_EQ(find_enterprise(Oid{1, 3, 6, 1, 4, 1, 4243}), nullptr);
}

TEST_F(FindEnterprise, GoesOnFromAnEnterprise) {
    const Oid oid = {1, 3, 6, 1, 4, 1, 4242, 6, 3, 1};
    EXPECT_EQ(find_enterprise_from(oid, inner_), inner_);
    EXPECT_EQ(find_enterprise_from(oid, inner_->next), outer_);
    EXPECT_EQ(find_enterprise_from(oid, outer_->next), nullptr);
    enterprise_info* start = outer_;
    EXPECT_EQ(find_enterprise_relative(oid.data(), 6, &start), -1);
    EXPECT_EQ(start, nullptr);
}

TEST_F(FindEnterprise, NullFindsNothing) {
    const Oid oid = {1};
    enterprise_info* found = outer_;
    EXPECT_EQ(::find_enterprise(nullptr, 3, &found), -1);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(::find_enterprise(oid.data(), 1, nullptr), -1);
    EXPECT_EQ(find_enterprise_relative(oid.data(), 1, nullptr), -1);
    EXPECT_EQ(find_enterprise_relative(oid.data(), 1, &found), -1) << "no start";
}

TEST_F(FindEnterprise, ByName) {
    EXPECT_EQ(find_enterprise_name("inner"), inner_);
    EXPECT_EQ(find_enterprise_name("inne"), nullptr);
    EXPECT_EQ(find_enterprise_name("inner "), nullptr);
    enterprise_info* second = TrapModel::enterprise({1, 3, 6, 1, 4, 1, 9000}, "inner");
    EXPECT_NE(second, inner_);
    EXPECT_EQ(find_enterprise_name("inner"), inner_) << "the first of that name";
    enterprise_info* found = inner_;
    EXPECT_EQ(name_to_enterprise("none", &found), -1);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(name_to_enterprise(nullptr, &found), -1);
    EXPECT_EQ(name_to_enterprise("inner", nullptr), -1);
}

TEST_F(FindEnterprise, OidToNameNeedsRoomForTheTerminator) {
    const Oid oid = {1, 3, 6, 1, 4, 1, 4242, 1};
    std::array<char, 6> text{};
    EXPECT_EQ(oid_to_name(oid.data(), 8, text.data(), 6), 0);
    EXPECT_STREQ(text.data(), "outer");
    EXPECT_EQ(oid_to_name(oid.data(), 8, text.data(), 5), -1);
    EXPECT_STREQ(text.data(), "");
    text[0] = 'x';
    EXPECT_EQ(oid_to_name(oid.data(), 8, text.data(), 0), -1);
    EXPECT_EQ(text[0], 'x') << "no room for an empty text";
    EXPECT_EQ(oid_to_name(oid.data(), 6, text.data(), 6), -1) << "no enterprise";
    EXPECT_STREQ(text.data(), "");
    EXPECT_EQ(oid_to_name(oid.data(), 8, nullptr, 6), -1);
}

TEST(CnameToOid, ReadsNumbersBetweenRunsOfSeparators) {
    struct Row {
        const char* text;
        Oid oid;
        int result;
    };
    const std::vector<Row> rows = {
        {".1.3.6.1", {1, 3, 6, 1}, 0},
        {"1.3.x", {1, 3}, 1},
        {" \t.,1 ,.\t3..6.", {1, 3, 6}, 0},
        {"", {}, 0},
        {" . ,\t", {}, 0},
        {"x", {}, 1},
        {"1.3x.4", {1, 3}, 1},
        {"1.-3", {1}, 1},
        {"1.3\n", {1, 3}, 1},
        {"4294967295", {4294967295U}, 0},
        {"4294967297", {1}, 0},
    };
    for (const Row& row : rows) {
        Oid oid(row.oid.size() + 1);
        int count = -5;
        EXPECT_EQ(cname_to_oid(row.text, oid.data(), &count), row.result) << row.text;
        EXPECT_EQ(count, static_cast<int>(row.oid.size())) << row.text;
        oid.pop_back();
        EXPECT_EQ(oid, row.oid) << row.text;
    }
    uint32_t number = 0;
    int count = 0;
    EXPECT_EQ(cname_to_oid(nullptr, &number, &count), -1);
    EXPECT_EQ(cname_to_oid("1", nullptr, &count), -1);
    EXPECT_EQ(cname_to_oid("1", &number, nullptr), -1);
}

TEST(OidToString, JoinsAtMostAHundredNumbers) {
    const Oid oid = {1, 3, 6, 1, 4, 1, 4294967295U};
    char* text = oid_to_string(oid.data(), 7);
    EXPECT_STREQ(text, "1.3.6.1.4.1.4294967295");
    EXPECT_EQ(oid_to_string(oid.data(), 1), text) << "the next call overwrites it";
    EXPECT_STREQ(text, "1");
    EXPECT_STREQ(oid_to_string(oid.data(), 0), "");
    EXPECT_EQ(oid_to_string(nullptr, 3), nullptr);

    const Oid longest(101, 4294967295U);
    std::string expected = "4294967295";
    for (int i = 1; i < 100; ++i) {
        expected.append(".4294967295");
    }
    EXPECT_EQ(oid_to_string(longest.data(), 101), expected);
}

/* A record with nodes that lives in the test. */
int matches(std::vector<std::string> nodes, const char* node) {
    std::vector<char*> list;
    for (std::string& text : nodes) {
        list.push_back(text.data());
    }
    trap_record rec{};
    rec.nodeCnt = static_cast<int32_t>(list.size());
    rec.nodeList = list.data();
    return trapRecNodesMatch(&rec, node);
}

TEST(TrapRecNodesMatch, ComparesWholeNames) {
    EXPECT_EQ(matches({}, "any"), 1);
    EXPECT_EQ(matches({}, nullptr), 1);
    EXPECT_EQ(matches({"alpha", "beta"}, "beta"), 1);
    EXPECT_EQ(matches({"alpha", "beta"}, "bet"), 0);
    EXPECT_EQ(matches({"alpha", "beta"}, "betas"), 0);
    EXPECT_EQ(matches({"alpha", "beta"}, "Beta"), 0);
    EXPECT_EQ(matches({"alpha"}, nullptr), 0);
    EXPECT_EQ(trapRecNodesMatch(nullptr, "alpha"), 0);
}

TEST(TrapRecNodesMatch, CountsAndListsThatDisagree) {
    trap_record rec{};
    rec.nodeCnt = -1;
    EXPECT_EQ(trapRecNodesMatch(&rec, nullptr), 1);
    rec.nodeCnt = 2;
    EXPECT_EQ(trapRecNodesMatch(&rec, "a"), 0);
    std::array<char*, 2> nulls{};
    rec.nodeList = nulls.data();
    EXPECT_EQ(trapRecNodesMatch(&rec, "a"), 0);
}

TEST(TrapRecNodesMatch, ReadsTheFirstWordOfEachLineOfAList) {
    const TempDir dir;
    const std::string list = dir.write("nodes",
                                       "# delta\n"
                                       "\n"
                                       "  alpha here\n"
                                       "\tbeta\n"
                                       "   # gamma\n"
                                       "gamma#\n"
                                       "last");
    const std::vector<std::pair<const char*, int>> rows = {
        {"alpha", 1}, {"here", 0},   {"beta", 1}, {"#", 0}, {"delta", 0},
        {"gamma", 0}, {"gamma#", 1}, {"last", 1}, {"", 0},  {"first", 1},
    };
    for (const auto& [node, result] : rows) {
        EXPECT_EQ(matches({"first", list}, node), result) << node;
    }
    EXPECT_EQ(matches({list}, list.c_str()), 1) << "an entry is a name as well";
}

TEST(TrapRecNodesMatch, AListThatCannotBeOpenedEndsTheSearch) {
    const TempDir dir;
    const std::string missing = dir.path("missing");
    const std::string list = dir.write("nodes", "beta\n");
    EXPECT_EQ(matches({"alpha", missing, "beta"}, "alpha"), 1) << "found before it";
    EXPECT_EQ(matches({"alpha", missing, "beta"}, "beta"), 0) << "though it stands behind";
    EXPECT_EQ(matches({missing, list}, "beta"), 0);
    EXPECT_EQ(matches({list, missing}, "beta"), 1);
    EXPECT_EQ(matches({dir.path(), "beta"}, "beta"), 0) << "a folder is no list";
}

TEST(TrapRecNodesMatch, AListIsNotFollowedIntoAnother) {
    const TempDir dir;
    const std::string list = dir.path("self");
    dir.write("self", list + "\n");
    EXPECT_EQ(matches({list}, "alpha"), 0);
}

class FindRecord : public ::testing::Test {
  protected:
    TrapModel model_;
    enterprise_info* enterprise_ = TrapModel::enterprise({1, 3, 6, 1, 4, 1, 4242}, "e");
    trap_record* all_ = TrapModel::trap(enterprise_, "all", 6, 10);
    trap_record* node_ = TrapModel::trap(enterprise_, "node", 6, 10, {"alpha"});
    trap_record* late_ = TrapModel::trap(enterprise_, "late", 6, 20);
    trap_record* any_ = TrapModel::trap(enterprise_, "any", -1, 0);
    trap_record* cold_ = TrapModel::trap(enterprise_, "cold", 0, 0);
    trap_record* below_ = TrapModel::trap(enterprise_, "below", 6, -20);

    trap_record* by_numbers(int generic, int specific) {
        trap_record* found = all_;
        const int result = find_exact_trap_record(enterprise_, generic, specific, &found);
        EXPECT_EQ(result, found != nullptr ? 0 : -1);
        return found;
    }
};

TEST_F(FindRecord, ByNumbersAndNode) {
    EXPECT_EQ(findExactTrapRecord(enterprise_, 6, 10, "alpha"), node_);
    EXPECT_EQ(findExactTrapRecord(enterprise_, 6, 10, "beta"), all_);
    EXPECT_EQ(findExactTrapRecord(enterprise_, 6, 10, nullptr), all_);
    EXPECT_EQ(findExactTrapRecord(enterprise_, 6, 20, "alpha"), late_);
    EXPECT_EQ(findExactTrapRecord(enterprise_, 6, 11, nullptr), nullptr);
    EXPECT_EQ(findExactTrapRecord(enterprise_, 6, 21, nullptr), nullptr);
    EXPECT_EQ(findExactTrapRecord(enterprise_, -1, 0, nullptr), any_);
    EXPECT_EQ(findExactTrapRecord(enterprise_, -2, 0, nullptr), nullptr);
    EXPECT_EQ(findExactTrapRecord(enterprise_, 6, -20, nullptr), below_);
    EXPECT_EQ(findExactTrapRecord(nullptr, 6, 10, nullptr), nullptr);
}

TEST_F(FindRecord, ByNumbersAlone) {
    EXPECT_EQ(by_numbers(6, 10), node_);
    EXPECT_EQ(by_numbers(0, 0), cold_);
    EXPECT_EQ(by_numbers(6, 0), nullptr);
    EXPECT_EQ(by_numbers(7, 0), nullptr);
    trap_record* found = nullptr;
    EXPECT_EQ(find_exact_trap_record(nullptr, 6, 10, &found), -1);
    EXPECT_EQ(find_exact_trap_record(enterprise_, 6, 10, nullptr), -1);
}

TEST_F(FindRecord, EndsWhereTheListHasPassedTheNumbers) {
    trap_record* out_of_order = TrapModel::handmade_trap("x", 6, 15);
    late_->next = out_of_order;
    EXPECT_EQ(by_numbers(6, 15), nullptr);
    EXPECT_EQ(findExactTrapRecord(enterprise_, 6, 15, nullptr), nullptr);
}

TEST_F(FindRecord, ByName) {
    EXPECT_EQ(find_name("node"), (Named{enterprise_, node_}));
    EXPECT_EQ(find_name("nod"), Named());
    EXPECT_EQ(find_name("nodes"), Named());
    EXPECT_EQ(nameToExactTrap("late"), late_);
    EXPECT_EQ(nameToExactTrap("lat"), nullptr);
    EXPECT_EQ(nameToExactTrap(nullptr), nullptr);
    Named found;
    EXPECT_EQ(nameToTrapAndEnterprise("late", &found.record, &found.enterprise), 0);
    EXPECT_EQ(nameToTrapAndEnterprise("none", &found.record, &found.enterprise), -1);
    EXPECT_EQ(found, Named());
    EXPECT_EQ(nameToTrapAndEnterprise(nullptr, &found.record, &found.enterprise), -1);
    EXPECT_EQ(nameToTrapAndEnterprise("late", nullptr, &found.enterprise), -1);
    EXPECT_EQ(nameToTrapAndEnterprise("late", &found.record, nullptr), -1);
}

TEST_F(FindRecord, ByNameTakesTheFirstInTheOrderOfTheLists) {
    enterprise_info* before = TrapModel::enterprise({1, 3, 6, 1, 4, 1, 1}, "before");
    trap_record* twin = TrapModel::trap(before, "twin", 6, 10);
    TrapModel::rename(twin, "late");
    EXPECT_EQ(find_name("late"), (Named{before, twin}));
    TrapModel::rename(any_, "below");
    EXPECT_EQ(find_name("below"), (Named{enterprise_, any_}));
}

TEST_F(FindRecord, NamesCountUpToTheirFortiethCharacter) {
    const std::string stored(39, 'n');
    trap_record* longest = TrapModel::trap(enterprise_, stored, 6, 30);
    EXPECT_EQ(nameToExactTrap(stored.c_str()), longest);
    EXPECT_EQ(nameToExactTrap((stored + "n").c_str()), nullptr) << "it has no fortieth";
    /* a name that a program wrote into the whole field */
    std::memset(longest->name, 'n', sizeof longest->name);
    EXPECT_EQ(nameToExactTrap((stored + "n").c_str()), longest);
    EXPECT_EQ(nameToExactTrap((stored + "n and more").c_str()), longest);
    EXPECT_EQ(nameToExactTrap(stored.c_str()), nullptr);
    longest->name[39] = '\0';
}

}  // namespace
