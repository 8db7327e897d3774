#include <gtest/gtest.h>
#include <wqevents/formatter.h>

#include <climits>
#include <string>
#include <vector>

#include "support/exact_block.h"

namespace {

using namespace wq::test;

class Nodes : public testing::Test {
  protected:
    explicit Nodes(std::vector<std::string> names = {"gate", "mill", "well"})
        : names_(std::move(names)) {
        for (std::string& name : names_) {
            list_.push_back(name.data());
        }
        record_.nodeList = list_.data();
        record_.nodeCnt = static_cast<int32_t>(list_.size());
    }

    std::string sprint(size_t size) {
        ExactArray<char> buffer(size);
        trpFmtSprintNodes(&record_, buffer.data(), buffer.length());
        return size != 0 ? buffer.data() : "";
    }

    std::vector<std::string> names_;
    std::vector<char*> list_;
    trap_record record_{};
};

TEST_F(Nodes, AreSeparatedByBlanks) {
    EXPECT_EQ(sprint(100), "gate mill well");
    record_.nodeCnt = 1;
    EXPECT_EQ(sprint(100), "gate");
}

TEST_F(Nodes, NoneAreAllSources) {
    record_.nodeCnt = 0;
    EXPECT_EQ(sprint(100), "ALL SOURCES");
    EXPECT_EQ(sprint(12), "ALL SOURCES");
    EXPECT_EQ(sprint(11), "ALL SOURCE");
    record_.nodeCnt = -1;
    EXPECT_EQ(sprint(100), "ALL SOURCES");
    record_.nodeCnt = 3;
    record_.nodeList = nullptr;
    EXPECT_EQ(sprint(100), "ALL SOURCES");
    EXPECT_STREQ(trpAllSourcesStr, "ALL SOURCES");
}

TEST_F(Nodes, TheProgramMayChangeTheText) {
    const char* const usual = trpAllSourcesStr;
    record_.nodeCnt = 0;
    trpAllSourcesStr = "tous";
    EXPECT_EQ(sprint(100), "tous");
    trpAllSourcesStr = nullptr;
    EXPECT_EQ(sprint(100), "");
    trpAllSourcesStr = usual;
}

/* Before a name: the text so far, the name and 5. */
TEST_F(Nodes, AnEllipsisStandsForWhatDoesNotFit) {
    EXPECT_EQ(sprint(10 + 4 + 5), "gate mill well");
    EXPECT_EQ(sprint(10 + 4 + 4), "gate mill ...");
    EXPECT_EQ(sprint(5 + 4 + 5), "gate mill ...");
    EXPECT_EQ(sprint(5 + 4 + 4), "gate ...");
    EXPECT_EQ(sprint(4 + 5), "gate ...");
    EXPECT_EQ(sprint(4 + 4), "...");
    EXPECT_EQ(sprint(4), "...");
    EXPECT_EQ(sprint(3), "..");
    EXPECT_EQ(sprint(1), "");
}

TEST_F(Nodes, MissingNamesAreEmpty) {
    list_[1] = nullptr;
    EXPECT_EQ(sprint(100), "gate  well");
}

TEST_F(Nodes, NullPointersAndNoRoomDoNothing) {
    char buffer[] = "as was";
    trpFmtSprintNodes(nullptr, buffer, 7);
    trpFmtSprintNodes(&record_, nullptr, 7);
    for (const int size : {0, -1, INT_MIN}) {
        trpFmtSprintNodes(&record_, buffer, size);
    }
    EXPECT_STREQ(buffer, "as was");
}

TEST(NodesOfARecord, AreWrittenInOnePass) {
    std::vector<std::string> names(100000, "a-node.example.net");
    std::vector<char*> list;
    for (std::string& name : names) {
        list.push_back(name.data());
    }
    trap_record record{};
    record.nodeList = list.data();
    record.nodeCnt = static_cast<int32_t>(list.size());
    ExactArray<char> buffer(names.size() * 19 + 5);
    trpFmtSprintNodes(&record, buffer.data(), buffer.length());
    EXPECT_EQ(std::string(buffer.data()).size(), names.size() * 19 - 1);
}

}  // namespace
