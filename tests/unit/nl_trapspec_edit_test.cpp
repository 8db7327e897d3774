#include <gtest/gtest.h>
#include <wqevents/alerts.h>
#include <wqevents/configuration.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "support/random.h"
#include "support/trap_conf.h"
#include "support/trap_model.h"

namespace {

using namespace wq::test;
using Texts = std::vector<std::string>;

/* What a call of insertMallocTrapRecord() gives; null texts are not given. */
struct Given {
    const char* name = "trap";
    int generic = 6;
    int specific = 1;
    Texts nodes;
    int category = 3;
    char source = 'A';
    const char* format = nullptr;
    const char* exec = nullptr;
    const char* display = nullptr;
    const char* description = nullptr;
    int severity = 2;
    int status = 4;
    int forward = 1;
    const char* event_class = nullptr;
    Texts slot_names;
    Texts slot_values;
};

std::vector<char*> copies(const Texts& texts) {
    std::vector<char*> list;
    for (const std::string& text : texts) {
        list.push_back(doStrdup(text.c_str()));
    }
    return list;
}

trap_record* insert(enterprise_info* enterprise, const Given& given) {
    std::vector<char*> names = copies(given.slot_names);
    std::vector<char*> values = copies(given.slot_values);
    return insertMallocTrapRecord(
        enterprise, given.name, given.generic, given.specific, static_cast<int>(given.nodes.size()),
        TrapModel::node_list(given.nodes), given.category, given.source, doStrdup(given.format),
        doStrdup(given.exec), doStrdup(given.display), doStrdup(given.description), given.severity,
        given.status, given.forward, given.event_class, static_cast<int>(names.size()),
        names.data(), values.data());
}

Texts nodes_of(const trap_record* rec) {
    return {rec->nodeList, rec->nodeList + rec->nodeCnt};
}

class Edit : public ::testing::Test {
  protected:
    TrapModel model_;
    enterprise_info* enterprise_ = TrapModel::enterprise({1, 3, 6, 1, 4, 1, 4242}, "e");
};

using InsertRecord = Edit;

TEST_F(InsertRecord, FillsANewRecord) {
    Given given;
    given.nodes = {"alpha", "beta"};
    given.format = "format $1";
    given.exec = "exec $2";
    given.display = "display $3";
    given.description = "described";
    given.event_class = "class";
    given.slot_names = {"n1", "n2"};
    given.slot_values = {"v1", "v2"};
    const trap_record* rec = insert(enterprise_, given);
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(head_of(enterprise_)->next, rec);
    EXPECT_EQ(rec->next, nullptr);
    EXPECT_STREQ(rec->name, "trap");
    EXPECT_EQ(nodes_of(rec), given.nodes);
    EXPECT_STREQ(rec->trapDescription, "described");
    EXPECT_EQ(rec->generic_trap, 6);
    EXPECT_EQ(rec->specific_trap, 1);
    EXPECT_EQ(rec->category_name, nullptr);
    EXPECT_EQ(rec->category_number, 3);
    EXPECT_EQ(rec->source, 'A');
    EXPECT_EQ(rec->severity, 2);
    EXPECT_EQ(rec->status, 4);
    EXPECT_EQ(rec->forward, 1);
    EXPECT_STREQ(rec->description.rawstring, "format $1");
    EXPECT_STREQ(rec->description.format, "format %s");
    EXPECT_EQ(rec->exec_prog, nullptr);
    EXPECT_STREQ(rec->execargs_ptr->rawstring, "exec $2");
    EXPECT_EQ(rec->exec_display_prog, nullptr);
    EXPECT_STREQ(rec->exec_display_args_ptr->rawstring, "display $3");
    EXPECT_STREQ(rec->alert_record_name, "");
    EXPECT_EQ(rec->alert_element, nullptr);
    EXPECT_STREQ(rec->prxClassName, "class");
    ASSERT_EQ(rec->slotMap->slotCnt, 2);
    EXPECT_STREQ(rec->slotMap->slotName[1], "n2");
    EXPECT_STREQ(rec->slotMap->slotVal[0], "v1");
}

TEST_F(InsertRecord, LeavesWhatIsNotGivenEmpty) {
    const trap_record* rec = insert(enterprise_, {});
    EXPECT_EQ(rec->nodeCnt, 0);
    EXPECT_EQ(rec->nodeList, nullptr);
    EXPECT_EQ(rec->trapDescription, nullptr);
    EXPECT_EQ(rec->description.format, nullptr);
    EXPECT_EQ(rec->execargs_ptr, nullptr);
    EXPECT_EQ(rec->exec_display_args_ptr, nullptr);
    EXPECT_EQ(rec->prxClassName, nullptr);
    EXPECT_EQ(rec->slotMap, nullptr);
}

TEST_F(InsertRecord, OwnsWhatItIsGivenWhenItFails) {
    Given given;
    given.nodes = {"alpha"};
    given.format = given.exec = given.display = given.description = "text";
    given.slot_names = given.slot_values = {"s"};
    EXPECT_EQ(insert(nullptr, given), nullptr);
    given.name = nullptr;
    EXPECT_EQ(insert(enterprise_, given), nullptr);
    EXPECT_EQ(head_of(enterprise_)->next, nullptr);
}

TEST_F(InsertRecord, OwnsListsWithoutEntriesAndSlotsWithoutValues) {
    std::array<char*, 2> names = {doStrdup("n1"), doStrdup("n2")};
    auto** no_nodes = static_cast<char**>(doMalloc(sizeof(char*)));
    const trap_record* rec =
        insertMallocTrapRecord(enterprise_, "trap", 6, 1, 0, no_nodes, 2, 'A', nullptr, nullptr,
                               nullptr, nullptr, 1, 0, 0, nullptr, 2, names.data(), nullptr);
    EXPECT_EQ(rec->nodeList, nullptr);
    EXPECT_EQ(rec->slotMap, nullptr);
    rec = insertMallocTrapRecord(enterprise_, "other", 6, 2, 3, nullptr, 2, 'A', nullptr, nullptr,
                                 nullptr, nullptr, 1, 0, 0, nullptr, -1, nullptr, nullptr);
    EXPECT_EQ(rec->nodeCnt, 0) << "no list, no nodes";
}

TEST_F(InsertRecord, UpdatesTheOneWithoutNodes) {
    Given before;
    before.format = "before";
    before.exec = "exec";
    before.display = "display";
    before.description = "described";
    before.event_class = "class";
    before.slot_names = {"n"};
    before.slot_values = {"v"};
    trap_record* rec = insert(enterprise_, before);

    Given after;
    after.name = "renamed";
    after.category = 9;
    after.source = 'd';
    after.severity = 5;
    after.status = 6;
    after.forward = 0;
    after.format = "after $1";
    after.event_class = "other class";
    after.slot_names = {"other"};
    after.slot_values = {"others"};
    EXPECT_EQ(insert(enterprise_, after), rec);
    EXPECT_EQ(names_of(enterprise_), Texts{"renamed"});
    EXPECT_EQ(nameToExactTrap("renamed"), rec);
    EXPECT_EQ(nameToExactTrap("trap"), nullptr);
    EXPECT_EQ(rec->category_number, 9);
    EXPECT_EQ(rec->source, 'd');
    EXPECT_EQ(rec->severity, 5);
    EXPECT_EQ(rec->status, 6);
    EXPECT_EQ(rec->forward, 0);
    EXPECT_STREQ(rec->description.rawstring, "after $1");
    EXPECT_STREQ(rec->execargs_ptr->rawstring, "exec") << "none was given";
    EXPECT_STREQ(rec->exec_display_args_ptr->rawstring, "display");
    EXPECT_STREQ(rec->trapDescription, "described");
    EXPECT_STREQ(rec->prxClassName, "class") << "kept in any case";
    EXPECT_STREQ(rec->slotMap->slotName[0], "n");

    after.exec = "new exec";
    after.display = "new display";
    after.description = "new description";
    after.format = nullptr;
    after.name = rec->name;
    EXPECT_EQ(insert(enterprise_, after), rec);
    EXPECT_STREQ(rec->name, "renamed");
    EXPECT_STREQ(rec->description.rawstring, "after $1");
    EXPECT_STREQ(rec->execargs_ptr->rawstring, "new exec");
    EXPECT_STREQ(rec->exec_display_args_ptr->rawstring, "new display");
    EXPECT_STREQ(rec->trapDescription, "new description");
}

TEST_F(InsertRecord, UpdatesTheOneThatHoldsForANode) {
    Given first;
    first.name = "first";
    first.nodes = {"alpha", "beta"};
    trap_record* with_nodes = insert(enterprise_, first);
    Given all;
    all.name = "all";
    trap_record* general = insert(enterprise_, all);

    Given update;
    update.name = "update";
    update.nodes = {"gamma", "beta"};
    EXPECT_EQ(insert(enterprise_, update), with_nodes);
    EXPECT_EQ(nodes_of(with_nodes), first.nodes) << "its own are kept";
    EXPECT_STREQ(with_nodes->name, "update");

    update.nodes = {"gamma"};
    update.name = "gamma";
    const trap_record* added = insert(enterprise_, update);
    EXPECT_NE(added, with_nodes);
    EXPECT_NE(added, general) << "a record for every node does not count";
    EXPECT_EQ(names_of(enterprise_), (Texts{"gamma", "update", "all"}));

    update.nodes = {};
    update.name = "everywhere";
    EXPECT_EQ(insert(enterprise_, update), general);
}

TEST_F(InsertRecord, TakesTheNodesInTurn) {
    Given given;
    given.name = "beta";
    given.nodes = {"beta"};
    insert(enterprise_, given);
    given.name = "alpha";
    given.nodes = {"alpha"};
    insert(enterprise_, given);
    ASSERT_EQ(names_of(enterprise_), (Texts{"alpha", "beta"}));
    given.name = "update";
    given.nodes = {"beta", "alpha"};
    insert(enterprise_, given);
    EXPECT_EQ(names_of(enterprise_), (Texts{"alpha", "update"}));
}

TEST_F(InsertRecord, GoesOnPastAGeneralRecord) {
    trap_record* general = TrapModel::trap(enterprise_, "all", 6, 1);
    /* a program put it in front by hand */
    trap_record* with_nodes = TrapModel::trap(enterprise_, "nodes", 6, 1, {"alpha"});
    head_of(enterprise_)->next = general;
    general->next = with_nodes;
    with_nodes->next = nullptr;
    Given update;
    update.name = "update";
    update.nodes = {"alpha"};
    EXPECT_EQ(insert(enterprise_, update), with_nodes);
}

TEST_F(InsertRecord, KeepsTheOrderByNumbers) {
    for (const auto& [generic, specific] : std::vector<std::pair<int, int>>{{6, 30},
                                                                            {-1, 0},
                                                                            {6, 10},
                                                                            {4, 0},
                                                                            {6, -1},
                                                                            {6, 20},
                                                                            {0, 7},
                                                                            {2147483647, 0},
                                                                            {-2147483647 - 1, 0}}) {
        TrapModel::trap(enterprise_,
                        std::to_string(generic).append("/").append(std::to_string(specific)),
                        generic, specific);
    }
    EXPECT_EQ(names_of(enterprise_), (Texts{"-2147483648/0", "-1/0", "0/7", "4/0", "6/-1", "6/10",
                                            "6/20", "6/30", "2147483647/0"}));
}

TEST_F(InsertRecord, PutsNodesBeforeAndGeneralBehindEqualNumbers) {
    TrapModel::trap(enterprise_, "after", 6, 2);
    TrapModel::trap(enterprise_, "before", 6, 0);
    TrapModel::trap(enterprise_, "a", 6, 1, {"a"});
    TrapModel::trap(enterprise_, "b", 6, 1, {"b"});
    TrapModel::trap(enterprise_, "all", 6, 1);
    TrapModel::trap(enterprise_, "c", 6, 1, {"c"});
    EXPECT_EQ(names_of(enterprise_), (Texts{"before", "c", "b", "a", "all", "after"}));
}

TEST_F(InsertRecord, MakesNamesUnique) {
    EXPECT_STREQ(TrapModel::trap(enterprise_, "x", 6, 1)->name, "x");
    EXPECT_STREQ(TrapModel::trap(enterprise_, "x", 6, 2)->name, "x_1");
    EXPECT_STREQ(TrapModel::trap(enterprise_, "x", 6, 3)->name, "x_2");
    EXPECT_STREQ(TrapModel::trap(enterprise_, "x_1", 6, 4)->name, "x_1_1");
    EXPECT_EQ(deleteTrapRecord("x_1"), 0);
    EXPECT_STREQ(TrapModel::trap(enterprise_, "x", 6, 5)->name, "x_1") << "it is free again";
    TrapModel::rename(nameToExactTrap("x_2"), "y");
    EXPECT_STREQ(TrapModel::trap(enterprise_, "x", 6, 6)->name, "x_2");
    enterprise_info* other = TrapModel::enterprise({1, 3}, "other");
    EXPECT_STREQ(TrapModel::trap(other, "x", 6, 1)->name, "x_3") << "among all enterprises";
}

/* Models in which the lists alone are asked for names, and larger ones. */
class Suffixes : public InsertRecord, public ::testing::WithParamInterface<int> {
  protected:
    void SetUp() override {
        read_others();
        for (int i = 0; i < 4; ++i) {
            named_t_.push_back(insert_t());
        }
    }
    trap_record* insert_t() { return TrapModel::trap(enterprise_, "t", 6, ++specific_); }

    /* From a file: inserting tens of thousands of traps one by one takes long. */
    void read_others() {
        const std::string oid = oid_to_string(enterprise_->enterprise_oid, enterprise_->oid_len);
        std::string text = "CATEGORY 2 \"Error Events\"\n";
        text += std::string(enterprise_->enterprise_name) + " {" + oid + "}\n";
        for (int i = 0; i < GetParam(); ++i) {
            const std::string number = std::to_string(i);
            text += "other" + number + " {" + oid + "} 5 " + number +
                    " A 1 0 \"Error Events\"\nformat\nSDESC\nEDESC\n";
        }
        const TempDir dir;
        char* message = nullptr;
        ASSERT_EQ(augmentTrapspecFile(&message, dir.write("conf", text).c_str()), 0) << message;
    }

    std::vector<trap_record*> named_t_; /* t, t_1, t_2, t_3 */
    int specific_ = 0;
};

TEST_P(Suffixes, TakeTheFirstThatIsFreeAfterARenaming) {
    EXPECT_STREQ(named_t_[3]->name, "t_3");
    TrapModel::rename(named_t_[1], "renamed");
    EXPECT_STREQ(insert_t()->name, "t_1");
    EXPECT_STREQ(insert_t()->name, "t_4");
}

TEST_P(Suffixes, TakeTheFirstThatIsFreeAfterAnUnlinking) {
    trap_record* kept = unlink(head_of(enterprise_), named_t_[3]);
    EXPECT_STREQ(insert_t()->name, "t_3");
    trap_record* also_kept = unlink(head_of(enterprise_), named_t_[1]);
    EXPECT_STREQ(insert_t()->name, "t_1");
    EXPECT_STREQ(insert_t()->name, "t_4");
    free_trap_record(unlink(head_of(enterprise_), named_t_[2]));
    EXPECT_STREQ(insert_t()->name, "t_2");
    free_trap_record(kept);
    free_trap_record(also_kept);
}

TEST_P(Suffixes, KnowNamesThatWereWrittenByHand) {
    TrapModel::rename(nameToExactTrap("other7"), "t_4");
    if (GetParam() > 20000) {
        trapspec_relinked();
    }
    EXPECT_STREQ(insert_t()->name, "t_5");
}

TEST_P(Suffixes, KnowTrapsThatWereSetAsideForAWhile) {
    trap_record* aside = unlink(head_of(enterprise_), named_t_[2]);
    trapspec_relinked();
    link(enterprise_, aside);
    EXPECT_STREQ(insert_t()->name, "t_4");
}

INSTANTIATE_TEST_SUITE_P(Sizes, Suffixes, ::testing::Values(10, 300, 3000, 30000));

/* Of the records with nodes the first one that holds for the first of `nodes` that one holds for.
 */
trap_record* holder_in_turn(enterprise_info* enterprise, const Texts& nodes) {
    for (const std::string& node : nodes) {
        for (trap_record* r = head_of(enterprise)->next; r != nullptr; r = r->next) {
            if (r->nodeCnt > 0 && trapRecNodesMatch(r, node.c_str()) != 0) {
                return r;
            }
        }
    }
    return nullptr;
}

class NodeSearch : public TrapConf {
  protected:
    NodeSearch()
        : lists_({dir_.write("a", "n1\nn2 x\n"), dir_.write("b", "n3\n\n# n4\n"),
                  dir_.path("none")}) {}

    Texts some_nodes() {
        Texts nodes;
        for (uint32_t left = random_.between(0, 5); left > 0; --left) {
            nodes.push_back(random_.one_in(8)
                                ? lists_[random_.between(0, 2)]
                                : std::string("n").append(std::to_string(random_.between(0, 40))));
        }
        return nodes;
    }
    static std::string block(const std::string& name, const Texts& nodes) {
        std::string text = name + " {.1.3.6.1.4.1.9} 6 1 A 1 0 \"Error Events\"\nfmt\n";
        for (size_t i = 0; i < nodes.size(); ++i) {
            text.append(i == 0 ? "NODES " : " ").append(nodes[i]);
        }
        return text.append(nodes.empty() ? "" : "\n").append("SDESC\nEDESC\n");
    }

    Texts lists_;
    Random random_;
};

constexpr char one_enterprise[] = "CATEGORY 2 \"Error Events\"\nnine {.1.3.6.1.4.1.9}\n";

TEST_F(NodeSearch, UpdatesTheRecordThatASearchNodeByNodeFinds) {
    SCOPED_TRACE(random_.name());
    enterprise_info* e = TrapModel::enterprise({1, 3, 6, 1, 4, 1, 9}, "nine");
    for (int i = 0; i < 300; ++i) {
        const Texts nodes = some_nodes();
        trap_record* expected =
            nodes.empty() ? findExactTrapRecord(e, 6, 1, nullptr) : holder_in_turn(e, nodes);
        trap_record* got = TrapModel::trap(e, "t" + std::to_string(i), 6, 1, nodes);
        ASSERT_TRUE(expected == nullptr || expected == got) << i;
        ASSERT_EQ(expected == nullptr,
                  nodes_of(got) == nodes && got->name[0] == 't' && expected != got)
            << i;
        if (random_.one_in(10)) {
            free_trap_record(unlink(head_of(e), head_of(e)->next));
        }
    }
}

TEST_F(NodeSearch, ReadsAFileAsItsBlocksWouldBeInserted) {
    SCOPED_TRACE(random_.name());
    std::string text = one_enterprise;
    enterprise_info* e = TrapModel::enterprise({1, 3, 6, 1, 4, 1, 9}, "nine");
    for (int i = 0; i < 300; ++i) {
        const std::string name = "t" + std::to_string(i);
        const Texts nodes = some_nodes();
        text += block(name, nodes);
        TrapModel::trap(e, name, 6, 1, nodes);
    }
    std::vector<std::pair<std::string, Texts>> expected;
    for (trap_record* r = head_of(e)->next; r != nullptr; r = r->next) {
        expected.emplace_back(r->name, nodes_of(r));
    }
    EXPECT_EQ(read(text), ConfRead());
    std::vector<std::pair<std::string, Texts>> got;
    for (trap_record* r = head_of(enterprise_list_head.next)->next; r != nullptr; r = r->next) {
        got.emplace_back(r->name, nodes_of(r));
    }
    EXPECT_EQ(got, expected);
}

TEST_F(NodeSearch, ReadsNamesWithTheFirstSuffixThatIsFree) {
    EXPECT_EQ(read(std::string(one_enterprise) + block("t", {"a"}) + block("t", {"b"}) +
                   block("t", {"c"}) + block("x", {"b"}) + block("t", {"d"}) + block("t", {"e"})),
              ConfRead());
    Texts names;
    for (const char* node : {"a", "b", "c", "d", "e"}) {
        names.emplace_back(findExactTrapRecord(enterprise_list_head.next, 6, 1, node)->name);
    }
    EXPECT_EQ(names, (Texts{"t", "x", "t_2", "t_1", "t_3"}));
}

TEST_F(NodeSearch, ReadsGeneralRecordsOfTheSameNumbers) {
    EXPECT_EQ(read(std::string(one_enterprise) + block("t", {}) + block("u", {"a"}) +
                   block("v", {}) + block("w", {"a", "b"}) + block("x", {})),
              ConfRead());
    const enterprise_info* e = enterprise_list_head.next;
    EXPECT_STREQ(e->trap_rec_list_head.next->name, "w");
    EXPECT_STREQ(e->trap_rec_list_head.next->next->name, "x");
    EXPECT_EQ(e->trap_rec_list_head.next->next->next, nullptr);
}

/* Hours, if each node were looked for in all records before it. */
TEST_F(NodeSearch, ReadsManyRecordsOfTheSameNumbers) {
    constexpr int records = 20'000;
    std::string text = one_enterprise;
    for (int i = 0; i < records; ++i) {
        Texts nodes;
        for (int n = 0; n < 20; ++n) {
            nodes.push_back(std::to_string(i).append("-").append(std::to_string(n)));
        }
        text += block(i % 2 == 0 ? "same" : "t" + std::to_string(i), nodes);
    }
    EXPECT_EQ(read(text), ConfRead());
    enterprise_info* e = enterprise_list_head.next;
    int count = 0;
    for (trap_record* r = head_of(e)->next; r != nullptr; r = r->next) {
        ++count;
    }
    EXPECT_EQ(count, records);
    EXPECT_STREQ(findExactTrapRecord(e, 6, 1, "0-19")->name, "same");
    EXPECT_STREQ(findExactTrapRecord(e, 6, 1, "19998-0")->name, "same_9999");
}

TEST_F(InsertRecord, CutsNamesToTheField) {
    const std::string longest(39, 'n');
    EXPECT_EQ(TrapModel::trap(enterprise_, longest, 6, 1)->name, longest);
    EXPECT_EQ(TrapModel::trap(enterprise_, longest + "n", 6, 2)->name,
              std::string(37, 'n').append("_1"))
        << "a name that nobody has until it is cut";
    for (int i = 2; i <= 9; ++i) {
        TrapModel::trap(enterprise_, longest, 6, 1 + i);
    }
    EXPECT_EQ(TrapModel::trap(enterprise_, longest, 6, 11)->name,
              std::string(36, 'n').append("_10"));
    EXPECT_EQ(TrapModel::trap(enterprise_, std::string(60, 'm'), 6, 12)->name,
              std::string(39, 'm'));
}

TEST_F(Edit, AddSourceToListGrowsByTwenty) {
    int count = 0;
    int capacity = 0;
    char** list = nullptr;
    for (int i = 1; i <= 45; ++i) {
        std::string name = "node" + std::to_string(i);
        trpFmtAddSourceToList(&count, &capacity, &list, name.c_str());
        name[0] = 'X';
        EXPECT_EQ(count, i);
        EXPECT_EQ(capacity, (i + 19) / 20 * 20);
        EXPECT_EQ(list[i - 1], "node" + std::to_string(i));
    }
    EXPECT_STREQ(list[0], "node1");
    trpFmtAddSourceToList(nullptr, &capacity, &list, "x");
    trpFmtAddSourceToList(&count, nullptr, &list, "x");
    trpFmtAddSourceToList(&count, &capacity, nullptr, "x");
    trpFmtAddSourceToList(&count, &capacity, &list, nullptr);
    EXPECT_EQ(count, 45);
    for (int i = 0; i < count; ++i) {
        doFree(list[i]);
    }
    doFree(list);
}

TEST_F(Edit, DeletesEnterprisesWithoutTraps) {
    enterprise_info* other = TrapModel::enterprise({1, 3, 6}, "other");
    TrapModel::trap(enterprise_, "t", 6, 1);
    EXPECT_EQ(delete_enterprise_record(enterprise_), -1) << "it has a trap";
    EXPECT_EQ(enterprise_names(), (Texts{"e", "other"}));
    EXPECT_EQ(delete_trap_record(enterprise_, 6, 1), 0);
    EXPECT_EQ(delete_enterprise_record(enterprise_), 0);
    EXPECT_EQ(enterprise_names(), Texts{"other"});
    enterprise_info* loose = TrapModel::handmade_enterprise({1, 3, 6}, "loose");
    EXPECT_EQ(delete_enterprise_record(loose), -1) << "not in the list";
    free_enterprise(loose);
    EXPECT_EQ(delete_enterprise_record(other), 0);
    EXPECT_EQ(enterprise_list_head.next, nullptr);
    EXPECT_EQ(delete_enterprise_record(nullptr), -1);
}

TEST_F(Edit, DeletesTrapsByNumbers) {
    TrapModel::trap(enterprise_, "all", 6, 1);
    TrapModel::trap(enterprise_, "nodes", 6, 1, {"alpha"});
    TrapModel::trap(enterprise_, "last", 6, 2);
    EXPECT_EQ(delete_trap_record(enterprise_, 6, 1), 0);
    EXPECT_EQ(names_of(enterprise_), (Texts{"all", "last"})) << "the first of them";
    EXPECT_EQ(delete_trap_record(enterprise_, 6, 1), 0);
    EXPECT_EQ(delete_trap_record(enterprise_, 6, 1), -1);
    EXPECT_EQ(delete_trap_record(enterprise_, 6, 2), 0);
    EXPECT_EQ(head_of(enterprise_)->next, nullptr);
    EXPECT_EQ(delete_trap_record(nullptr, 6, 2), -1);
}

TEST_F(Edit, DeletesTrapsByName) {
    TrapModel::trap(enterprise_, "a", 6, 1);
    TrapModel::trap(enterprise_, "b", 6, 2);
    TrapModel::trap(enterprise_, "c", 6, 3);
    EXPECT_EQ(deleteTrapRecord("b"), 0);
    EXPECT_EQ(names_of(enterprise_), (Texts{"a", "c"}));
    EXPECT_EQ(deleteTrapRecord("b"), -1);
    EXPECT_EQ(deleteTrapRecord("a"), 0);
    EXPECT_EQ(deleteTrapRecord("c"), 0);
    EXPECT_EQ(deleteTrapRecord(nullptr), -1);
}

TEST_F(Edit, DeletesByNameFromAListThatIsOutOfOrder) {
    trap_record* a = TrapModel::trap(enterprise_, "a", 6, 1);
    TrapModel::trap(enterprise_, "b", 6, 2);
    TrapModel::trap(enterprise_, "c", 6, 3);
    a->specific_trap = 9;
    EXPECT_EQ(deleteTrapRecord("c"), 0);
    EXPECT_EQ(deleteTrapRecord("a"), 0);
    EXPECT_EQ(names_of(enterprise_), Texts{"b"});
}

void add_action(const std::string& name) {
    ++numActionCommands;
    actionCommands = static_cast<actionCmd*>(
        doRealloc(actionCommands, static_cast<size_t>(numActionCommands) * sizeof(actionCmd)));
    actionCommands[numActionCommands - 1] = {doStrdup(name.c_str()), doStrdup("described"), 5,
                                             doStrdup("command")};
}

Texts action_names() {
    Texts names;
    for (int i = 0; i < numActionCommands; ++i) {
        names.emplace_back(actionCommands[i].name);
    }
    return names;
}

TEST_F(Edit, DeletesActions) {
    for (const char* name : {"a", "b", "twin", "c", "twin"}) {
        add_action(name);
    }
    EXPECT_EQ(deleteTrapAction("none"), 1);
    EXPECT_EQ(deleteTrapAction("twin"), 0);
    EXPECT_EQ(action_names(), (Texts{"a", "b", "c", "twin"})) << "the first of that name";
    EXPECT_EQ(deleteTrapAction("twin"), 0);
    EXPECT_EQ(deleteTrapAction("a"), 0);
    EXPECT_EQ(action_names(), (Texts{"b", "c"}));
    EXPECT_EQ(actionCommands[1].waitTime, 5);
    EXPECT_STREQ(actionCommands[1].cmd, "command");
    EXPECT_EQ(deleteTrapAction(nullptr), 1);
}

TEST_F(Edit, DeletingTheOnlyActionLeavesAnEmptyTable) {
    add_action("only");
    EXPECT_EQ(deleteTrapAction("only"), 0);
    EXPECT_EQ(actionCommands, nullptr);
    EXPECT_EQ(numActionCommands, 0);
    EXPECT_EQ(deleteTrapAction("only"), 1);
}

TEST_F(Edit, FreesActions) {
    actionCmd action = {doStrdup("name"), nullptr, 3, doStrdup("command")};
    freeAction(&action);
    EXPECT_EQ(action.name, nullptr);
    EXPECT_EQ(action.cmd, nullptr);
    freeAction(nullptr);
    add_action("a");
    add_action("b");
    freeAllActions();
    EXPECT_EQ(actionCommands, nullptr);
    EXPECT_EQ(numActionCommands, 0);
    freeAllActions();
}

/* An alert with detailed data and code points, all from doMalloc(). */
alert_record* make_alert() {
    auto* alert = static_cast<alert_record*>(doMalloc(sizeof(alert_record)));
    alert->num_codepoints = 2;
    alert->codepoints = static_cast<int*>(doMalloc(2 * sizeof(int)));
    alert->num_detaileddata = 2;
    alert->detailed_data =
        static_cast<detailed_data_record**>(doMalloc(2 * sizeof(detailed_data_record*)));
    alert->detailed_data[0] =
        static_cast<detailed_data_record*>(doMalloc(sizeof(detailed_data_record)));
    alert->detailed_data[0]->dd_args = static_cast<trap_element*>(doMalloc(sizeof(trap_element)));
    makeFormatString(doStrdup("data $1"), alert->detailed_data[0]->dd_args);
    return alert;
}

/* What is not released here is found by the leak check. */
TEST_F(Edit, FreesARecordWithAllItOwns) {
    Given given;
    given.nodes = {"alpha", "beta"};
    given.format = given.exec = given.display = given.description = given.event_class = "text";
    given.slot_names = {"n1", "n2"};
    given.slot_values = {"v1", "v2"};
    trap_record* rec = insert(enterprise_, given);
    rec->alert_element = make_alert();
    rec->alert_element->next = make_alert();
    std::string own = "the program's";
    rec->category_name = rec->exec_prog = rec->exec_display_prog = own.data();
    head_of(enterprise_)->next = nullptr;
    free_trap_record(rec);
    free_trap_record(nullptr);
    EXPECT_EQ(nameToExactTrap("trap"), nullptr);
    EXPECT_EQ(own, "the program's");
}

TEST_F(Edit, FreesAnEnterpriseButNotItsTraps) {
    trap_record* rec = TrapModel::trap(enterprise_, "t", 6, 1);
    enterprise_list_head.next = nullptr;
    free_enterprise(enterprise_);
    free_enterprise(nullptr);
    EXPECT_STREQ(rec->name, "t");
    EXPECT_EQ(nameToExactTrap("t"), nullptr);
    free_trap_record(rec);
}

TEST_F(Edit, FreeAllInfoLeavesNothing) {
    enterprise_info* other = TrapModel::enterprise({1, 3, 6}, "other");
    for (int i = 0; i < 10; ++i) {
        Given given;
        given.specific = i;
        given.nodes = {"alpha"};
        given.format = "format $1";
        insert(i % 2 == 0 ? enterprise_ : other, given)->alert_element = make_alert();
    }
    EMScategories[0] = doStrdup("zero");
    EMScategories[63] = doStrdup("last");
    add_action("a");
    free_all_info();
    EXPECT_EQ(enterprise_list_head.next, nullptr);
    for (const char* category : EMScategories) {
        EXPECT_EQ(category, nullptr);
    }
    EXPECT_EQ(actionCommands, nullptr);
    EXPECT_EQ(numActionCommands, 0);
    free_all_info();
}

}  // namespace
