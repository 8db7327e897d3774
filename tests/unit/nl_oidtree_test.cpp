#include <gtest/gtest.h>
#include <wqevents/names.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <map>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/exact_block.h"
#include "support/locales.h"
#include "support/oid_names.h"
#include "support/random.h"
#include "support/vectors.h"

namespace wq::test {
namespace {

/* More siblings than are walked. */
constexpr uint32_t many = 1000;

oidnode* node_by_hand(uint32_t val, const char* name) {
    oidnode* node = newOidNode(val);
    node->data = name == nullptr ? nullptr : buildOidData(name);
    return node;
}

void link_in(oidnode*& link, oidnode* node) {
    node->sib = link;
    link = node;
}

/* The link of the child with that value, found by walking. */
oidnode** link_of(oidnode* parent, uint32_t val) {
    oidnode** link = &parent->child;
    while (*link != nullptr && (*link)->val != val) {
        link = &(*link)->sib;
    }
    return link;
}

std::vector<uint32_t> values_of(const oidnode* first) {
    std::vector<uint32_t> values;
    for (; first != nullptr; first = first->sib) {
        values.push_back(first->val);
    }
    return values;
}

std::string child_name(uint32_t val) {
    return std::string("n").append(std::to_string(val));
}

void insert_children(Tree& tree, const std::vector<uint32_t>& values) {
    for (const uint32_t val : values) {
        ASSERT_NE(tree.insert(std::to_string(val), child_name(val)), nullptr);
    }
}

std::vector<uint32_t> numbers(uint32_t count, uint32_t step = 1) {
    std::vector<uint32_t> values(count);
    std::iota(values.begin(), values.end(), 1);
    for (uint32_t& val : values) {
        val *= step;
    }
    return values;
}

/* Every child is found, and nothing between them. */
void expect_children(const Tree& tree, const std::vector<uint32_t>& sorted) {
    ASSERT_EQ(values_of(tree.root->child), sorted);
    for (size_t i = 0; i < sorted.size(); ++i) {
        ASSERT_EQ(tree.name(std::to_string(sorted[i])), child_name(sorted[i]));
        const uint32_t above = sorted[i] + 1;
        if (i + 1 == sorted.size() || sorted[i + 1] != above) {
            ASSERT_EQ(tree.name(std::to_string(above)), Name());
        }
    }
}

/* What a dump prints, the heading of the process's first one taken off and kept. */
std::string heading;
std::string dump(oidnode* root, char* line = nullptr) {
    std::string text = captured_stdout([&] { dumpOidTree(root, line); });
    if (heading.empty() && root != nullptr) {
        heading = text.substr(0, text.find('\n') + 1);
        text.erase(0, heading.size());
    }
    return text;
}

TEST(NewOidNode, HasOnlyItsValue) {
    const Tree tree(newOidNode(UINT32_MAX));
    ASSERT_NE(tree.root, nullptr);
    EXPECT_EQ(tree.root->val, UINT32_MAX);
    EXPECT_EQ(tree.root->child, nullptr);
    EXPECT_EQ(tree.root->sib, nullptr);
    EXPECT_EQ(tree.root->data, nullptr);
}

TEST(BuildOidData, HoldsAtMost63Characters) {
    for (const size_t length : {0U, 1U, 62U, 63U, 64U, 100'000U}) {
        const ExactArray<char> text([&] {
            std::vector<char> characters(length, 'a');
            characters.push_back('\0');
            return characters;
        }());
        oiddata* data = buildOidData(text.data());
        ASSERT_NE(data, nullptr);
        EXPECT_EQ(std::string(data->mapping_str), std::string(std::min<size_t>(length, 63), 'a'));
        std::free(data);
    }
    EXPECT_EQ(buildOidData(nullptr), nullptr);
}

TEST(BuildOidData, CutsNoCharacterOfTwoBytes) {
    const CtypeLocale locale(utf8_locale);
    ASSERT_TRUE(locale.is_set());
    for (const size_t before : {61U, 62U, 63U}) {
        const std::string front(before, 'a');
        oiddata* data = buildOidData((front + "\u00e9").c_str());
        EXPECT_EQ(std::string(data->mapping_str), before == 61 ? front + "\u00e9" : front);
        std::free(data);
    }
}

TEST(InsertOid, ReadsNumbersOfEachBase) {
    for (const Vector& row : read_vectors("oid_text.txt", 3)) {
        SCOPED_TRACE(row.where);
        Tree tree;
        oidnode* node = tree.insert(row[0], "name");
        if (row[1] == "-") {
            EXPECT_EQ(node, nullptr);
            EXPECT_EQ(tree.root, nullptr) << "a tree is not begun for nothing";
            continue;
        }
        ASSERT_NE(node, nullptr);
        EXPECT_STREQ(node->data->mapping_str, "name");
        EXPECT_EQ(node->val, oid(row[1]).back());
        EXPECT_EQ(tree.name(row[1]), "name");
        EXPECT_STREQ(findOidInTree(tree.root, "name"), row[1].c_str());
        EXPECT_EQ(tree.root->val, 0U);
        EXPECT_EQ(tree.root->data, nullptr);
    }
}

TEST(BuildEntOid, ReadsNumbersOfEachBase) {
    for (const Vector& row : read_vectors("oid_text.txt", 3)) {
        SCOPED_TRACE(row.where);
        const Oid expected = oid(row[2]);
        ExactArray<uint32_t> numbers(expected.size());
        const int count = buildEntOid(numbers.data(), row[0].c_str());
        ASSERT_EQ(count, static_cast<int>(expected.size()));
        EXPECT_EQ(numbers.first(expected.size()), expected);
    }
}

TEST(BuildEntOid, ReadsAtMost128Numbers) {
    std::string text("1");
    for (int i = 2; i <= 500; ++i) {
        text.append(".").append(std::to_string(i));
    }
    ExactArray<uint32_t> numbers(128);
    EXPECT_EQ(buildEntOid(numbers.data(), text.c_str()), 128);
    EXPECT_EQ(numbers.first(128).back(), 128U);
    EXPECT_EQ(buildEntOid(nullptr, "1"), 0);
    EXPECT_EQ(buildEntOid(numbers.data(), nullptr), 0);
}

/* "1.1.1." ... of `numbers` numbers. */
std::string ones(int numbers) {
    std::string text;
    for (int i = 0; i < numbers; ++i) {
        text.append("1.");
    }
    return text;
}

TEST(InsertOid, Uses127Characters) {
    Tree tree;
    ASSERT_NE(tree.insert(ones(63) + "5", "127"), nullptr);
    EXPECT_EQ(tree.name(ones(63) + "5"), "127");
    ASSERT_NE(tree.insert(ones(63) + "67", "128"), nullptr);
    EXPECT_EQ(tree.name(ones(63) + "6"), "128");
    ASSERT_NE(tree.insert(ones(63) + "7." + std::string(100'000, 'x'), "more"), nullptr);
    EXPECT_EQ(tree.name(ones(63) + "7"), "more");
    EXPECT_EQ(tree.insert(ones(62) + "11.5", "ends in a dot"), nullptr);
}

TEST(InsertOid, KeepsSiblingsAscending) {
    Tree tree;
    insert_children(tree, {5, 1, 4294967295, 3, 0, 4, 2});
    EXPECT_EQ(values_of(tree.root->child), (std::vector<uint32_t>{0, 1, 2, 3, 4, 5, 4294967295}));
}

TEST(InsertOid, SharesTheNodesOnTheWay) {
    Tree tree;
    oidnode* const below = tree.insert("1.3.6", "dod");
    oidnode* const above = tree.insert("1.3", "org");
    EXPECT_EQ(above->child, below);
    EXPECT_EQ(tree.root->child->child, above);
    EXPECT_EQ(tree.name("1.3.6"), "dod");
    EXPECT_EQ(tree.name("1.3"), "org");
}

TEST(InsertOid, TheLastNameWins) {
    Tree tree;
    oidnode* node = tree.insert("1.3", "first");
    EXPECT_EQ(tree.insert("1.3", "second"), node);
    EXPECT_EQ(tree.name("1.3"), "second");
    EXPECT_EQ(TreeInsertOid(&tree.root, "1.3", node->data), node) << "the same once more";
    EXPECT_EQ(tree.name("1.3"), "second");
}

TEST(InsertOid, ARefusedNameStaysTheCallers) {
    Tree tree;
    oiddata* data = buildOidData("name");
    EXPECT_EQ(TreeInsertOid(&tree.root, "1.x", data), nullptr);
    EXPECT_STREQ(data->mapping_str, "name");
    ASSERT_NE(TreeInsertOid(&tree.root, "1.2", data), nullptr);
    EXPECT_EQ(tree.name("1.2"), "name");
}

TEST(InsertOid, NullIsRefused) {
    oidnode* root = nullptr;
    oiddata data{};
    EXPECT_EQ(TreeInsertOid(nullptr, "1", &data), nullptr);
    EXPECT_EQ(TreeInsertOid(&root, nullptr, &data), nullptr);
    EXPECT_EQ(TreeInsertOid(&root, "1", nullptr), nullptr);
    EXPECT_EQ(root, nullptr);
}

TEST(InsertOid, BeginsTheTreeOfTheProcess) {
    ASSERT_EQ(oidTree, nullptr);
    const Oid path{1, 3};
    EXPECT_EQ(lookupOid(path.data(), 2), nullptr);
    EXPECT_EQ(getOidData(path.data(), 2), nullptr);
    oidnode* node = insertOid("1.3", buildOidData("org"));
    ASSERT_NE(node, nullptr);
    ASSERT_NE(oidTree, nullptr);
    EXPECT_STREQ(lookupOid(path.data(), 2), "org");
    EXPECT_EQ(getOidData(path.data(), 2), node->data);
    oidFreeTree(oidTree);
    EXPECT_EQ(oidTree, nullptr) << "nothing is left to be freed again";
}

TEST(LookupOid, IsExact) {
    Tree tree;
    tree.insert("1.3.6", "dod");
    for (const char* path : {"1", "1.3", "1.3.6.1", "1.3.5", "1.3.7", "3.6", "1.3.6.0", "0"}) {
        EXPECT_EQ(tree.name(path), Name()) << path;
    }
    const Oid path{1, 3, 6};
    EXPECT_STREQ(TreeLookupOid(tree.root, path.data(), 3), "dod");
    EXPECT_EQ(TreeGetOidData(tree.root, path.data(), 3), tree.root->child->child->child->data);
    for (const int length : {0, -1, INT_MIN}) {
        EXPECT_EQ(TreeLookupOid(tree.root, path.data(), length), nullptr);
        EXPECT_EQ(TreeGetOidData(tree.root, path.data(), length), nullptr);
    }
    EXPECT_EQ(TreeLookupOid(nullptr, path.data(), 3), nullptr);
    EXPECT_EQ(TreeLookupOid(tree.root, nullptr, 3), nullptr);
}

TEST(LookupOid, OfNothingIsNothingEvenWhereTheRootHasAName) {
    const Tree tree(node_by_hand(0, "root"));
    const Oid path{0};
    EXPECT_EQ(TreeLookupOid(tree.root, path.data(), 0), nullptr);
    EXPECT_EQ(TreeLookupOid(tree.root, path.data(), 1), nullptr);
    EXPECT_EQ(findOidInTree(tree.root, "root"), nullptr);
}

TEST(FindOidInTree, TakesTheFirstInDepth) {
    Tree tree;
    tree.insert("1.9", "twice");
    tree.insert("1.3.6", "twice");
    tree.insert("2", "once");
    tree.insert("4294967295.0", "high");
    EXPECT_STREQ(findOidInTree(tree.root, "twice"), "1.3.6");
    EXPECT_STREQ(findOidInTree(tree.root, "once"), "2");
    EXPECT_STREQ(findOidInTree(tree.root, "high"), "4294967295.0");
    tree.insert("1.3", "twice");
    EXPECT_STREQ(findOidInTree(tree.root, "twice"), "1.3") << "a node before what is below it";
    EXPECT_EQ(findOidInTree(tree.root, "Twice"), nullptr);
    EXPECT_EQ(findOidInTree(tree.root, "twic"), nullptr);
    EXPECT_EQ(findOidInTree(tree.root, nullptr), nullptr);
    EXPECT_EQ(findOidInTree(nullptr, "twice"), nullptr);
}

/* A program may hold on to a result; longer ones that follow do not free it. */
TEST(FindOidInTree, TheTextStaysReadable) {
    Tree tree;
    std::string path = "1";
    std::vector<const char*> results;
    for (int depth = 1; depth <= 60; ++depth) {
        tree.insert(path, "at " + std::to_string(depth));
        results.push_back(findOidInTree(tree.root, ("at " + std::to_string(depth)).c_str()));
        EXPECT_STREQ(results.back(), path.c_str());
        path += ".1";
    }
    /* No identifier's text has room for these; a tree made by hand does. */
    oidnode* node = tree.root;
    for (int depth = 0; depth < 2000; ++depth) {
        oidnode*& below = node->child;
        if (below == nullptr) {
            below = node_by_hand(1, nullptr);
        }
        node = below;
    }
    node->data = buildOidData("deep");
    const char* deep = findOidInTree(tree.root, "deep");
    ASSERT_NE(deep, nullptr);
    EXPECT_EQ(std::strlen(deep), 2 * 2000 - 1U);
    for (const char* result : results) {
        EXPECT_EQ(*result, '1');
        EXPECT_LE(std::strlen(result), 2 * 2000 - 1U);
    }
}

TEST(FindOidInTree, FindsANameWithoutATerminator) {
    Tree tree;
    oidnode* node = tree.insert("1", "");
    std::memset(node->data->mapping_str, 'a', sizeof node->data->mapping_str);
    EXPECT_STREQ(findOidInTree(tree.root, std::string(64, 'a').c_str()), "1");
}

TEST(DumpOidTree, ListsNamesInDepthFirstOrder) {
    Tree tree;
    tree.insert("1.10", "b");
    tree.insert("1.9.4294967295", "it's a");
    tree.insert("1", "top");
    tree.insert("2", "");
    EXPECT_EQ(dump(tree.root),
              "\t.1 -> 'top'\n"
              "\t.1.9.-1 -> 'it's a'\n"
              "\t.1.10 -> 'b'\n"
              "\t.2 -> ''\n");
    EXPECT_EQ(heading, "Exposed mappings:\n") << "over the first listing of the process";
    std::string line(".0");
    EXPECT_EQ(dump(tree.root->child, line.data()),
              "\t.0.9.-1 -> 'it's a'\n"
              "\t.0.10 -> 'b'\n");
    EXPECT_EQ(line, ".0");
}

TEST(DumpOidTree, ListsNothingOfNothing) {
    EXPECT_EQ(dump(nullptr), "");
    const Tree tree(newOidNode(0));
    EXPECT_EQ(dump(tree.root), "");
}

/* A chain of `depth` children made by hand, the last one named. */
oidnode* deep_tree(int depth) {
    oidnode* root = newOidNode(0);
    oidnode* node = root;
    for (int i = 0; i < depth; ++i) {
        node->child = newOidNode(1);
        node = node->child;
    }
    node->data = buildOidData("deep");
    return root;
}

TEST(DeepTree, NeedsNoStack) {
    constexpr int depth = 1'000'000;
    const Tree tree(deep_tree(depth));
    const Oid path(depth, 1);
    EXPECT_STREQ(TreeLookupOid(tree.root, path.data(), depth), "deep");
    EXPECT_EQ(TreeLookupOid(tree.root, path.data(), depth - 1), nullptr);
    EXPECT_EQ(std::strlen(findOidInTree(tree.root, "deep")), 2U * depth - 1);
    EXPECT_EQ(dump(tree.root).size(), 2U * depth + std::strlen("\t -> 'deep'\n"));
}

TEST(DeepTree, Of128Levels) {
    const Tree tree(deep_tree(128));
    const Oid path(128, 1);
    EXPECT_STREQ(TreeLookupOid(tree.root, path.data(), 128), "deep");
    EXPECT_EQ(findOidInTree(tree.root, "deep"), ones(127) + "1");
}

TEST(ManySiblings, AreFoundInWhateverOrderTheyCame) {
    Random random;
    SCOPED_TRACE(random.name());
    const std::vector<uint32_t> sorted = numbers(many, 3);
    std::vector<uint32_t> order = sorted;
    std::mt19937 shuffler(random.bits());
    for (int round = 0; round < 4; ++round) {
        Tree tree;
        insert_children(tree, order);
        expect_children(tree, sorted);
        insert_children(tree, order);
        expect_children(tree, sorted);
        round == 0 ? std::reverse(order.begin(), order.end())
                   : std::shuffle(order.begin(), order.end(), shuffler);
    }
}

/* A walk over all siblings for each would take minutes. */
TEST(ManySiblings, CostNoMoreThanFew) {
    constexpr uint32_t count = 200'000;
    Random random;
    SCOPED_TRACE(random.name());
    std::vector<uint32_t> order = numbers(count);
    for (int round = 0; round < 3; ++round) {
        Tree tree;
        insert_children(tree, order);
        for (const uint32_t val : order) {
            ASSERT_EQ(TreeLookupOid(tree.root, &val, 1), child_name(val));
        }
        std::mt19937 shuffler(random.bits());
        round == 0 ? std::reverse(order.begin(), order.end())
                   : std::shuffle(order.begin(), order.end(), shuffler);
    }
}

TEST(TreeByHand, IsWalkedAndExtended) {
    Tree tree(newOidNode(0));
    for (uint32_t val = many; val > 0; --val) {
        link_in(tree.root->child, node_by_hand(2 * val, child_name(2 * val).c_str()));
    }
    expect_children(tree, numbers(many, 2));
    insert_children(tree, {1, 777, 2 * many + 1});
    EXPECT_EQ(tree.name("777"), "n777");
    EXPECT_EQ(tree.name("778"), "n778");
    EXPECT_EQ(tree.name("1"), "n1");
    EXPECT_EQ(tree.name("779"), Name());
}

TEST(TreeByHand, NodesMayBeLinkedInAnywhere) {
    Tree tree;
    insert_children(tree, numbers(many, 10));
    std::vector<uint32_t> sorted = numbers(many, 10);
    const auto add = [&](uint32_t val) {
        oidnode** link = &tree.root->child;
        while (*link != nullptr && (*link)->val < val) {
            link = &(*link)->sib;
        }
        link_in(*link, node_by_hand(val, child_name(val).c_str()));
        sorted.insert(std::lower_bound(sorted.begin(), sorted.end(), val), val);
    };
    for (const uint32_t val : {5'005U, 10 * many + 1, 1U, 2U, 5'004U, 10 * many + 2}) {
        add(val);
        expect_children(tree, sorted);
        oidnode* node = *link_of(tree.root, val);
        EXPECT_EQ(tree.insert(std::to_string(val), child_name(val)), node) << "the same node";
    }
    for (uint32_t val = 20 * many; val > 19 * many; --val) {
        add(val); /* a long stretch in one place */
    }
    expect_children(tree, sorted);
    insert_children(tree, {19 * many + 500, 30 * many});
    sorted.push_back(30 * many);
    expect_children(tree, sorted);
}

TEST(TreeByHand, ATreeTakenOutIsFreedByItself) {
    Tree tree;
    std::vector<uint32_t> left;
    insert_children(tree, numbers(many));
    tree.insert("500.1", "below");
    for (uint32_t val = 1; val <= many; ++val) {
        if (val % 3 == 0) {
            left.push_back(val);
            continue;
        }
        oidnode** link = link_of(tree.root, val);
        oidnode* node = *link;
        *link = node->sib;
        node->sib = nullptr;
        oidFreeTree(node);
    }
    expect_children(tree, left);
    insert_children(tree, numbers(many));
    expect_children(tree, numbers(many));
    EXPECT_EQ(tree.name("500.1"), Name());
}

/* The first child stays, so that only the free can tell that what is known of the chain is old. */
TEST(TreeByHand, ANodeFreedAfterTheFirstIsForgotten) {
    for (const uint32_t gone : {2U, 500U, many - 1, many}) {
        Tree tree;
        insert_children(tree, numbers(many));
        ASSERT_EQ(tree.name(std::to_string(gone)), child_name(gone));
        oidnode** link = link_of(tree.root, gone);
        oidnode* node = *link;
        *link = node->sib;
        node->sib = nullptr;
        oidFreeTree(node);
        EXPECT_EQ(tree.name(std::to_string(gone)), Name()) << gone;
        insert_children(tree, {gone});
        expect_children(tree, numbers(many));
    }
}

TEST(TreeByHand, OneThatDoesNotAscendIsWalkedAsItIs) {
    Tree tree(newOidNode(0));
    for (const uint32_t val : numbers(100)) {
        link_in(tree.root->child, node_by_hand(val, child_name(val).c_str()));
    }
    EXPECT_EQ(tree.name("100"), "n100") << "the first";
    EXPECT_EQ(tree.name("50"), Name()) << "it ought to come before the first";
    insert_children(tree, {200, 150});
    EXPECT_EQ(tree.name("200"), "n200");
    EXPECT_EQ(tree.name("150"), "n150");
    EXPECT_EQ(tree.name("100"), "n100");
}

TEST(TreeByHand, FreedByHandLeavesNothingBehind) {
    for (int round = 0; round < 3; ++round) {
        oidnode* root = nullptr;
        for (const uint32_t val : numbers(100)) {
            ASSERT_NE(name_oid(root, std::to_string(val), "name"), nullptr);
        }
        for (oidnode* node = root->child; node != nullptr;) {
            oidnode* next = node->sib;
            std::free(node->data);
            std::free(node);
            node = next;
        }
        std::free(root);
    }
    Tree tree;
    insert_children(tree, numbers(many));
    expect_children(tree, numbers(many));
}

/* Random trees beside a plain map, and other trees that come and go. */
TEST(RandomTrees, AgreeWithAMap) {
    Random random;
    SCOPED_TRACE(random.name());
    const auto random_path = [&] {
        std::string path = std::to_string(random.between(0, 300));
        for (uint32_t depth = random.between(0, 2); depth > 0; --depth) {
            path.append(".").append(std::to_string(random.between(0, 300)));
        }
        return path;
    };
    Tree tree;
    std::map<std::string, std::string> names;
    for (int step = 0; step < 20'000; ++step) {
        const std::string path = random_path();
        if (random.one_in(2)) {
            names[path] = child_name(random.bits());
            ASSERT_NE(tree.insert(path, names[path]), nullptr);
        }
        const auto known = names.find(path);
        ASSERT_EQ(tree.name(path), known == names.end() ? Name() : Name(known->second)) << path;
        if (random.one_in(1000)) {
            Tree other;
            insert_children(other, numbers(100));
        }
    }
    for (const auto& [path, name] : names) {
        ASSERT_EQ(tree.name(path), name) << path;
    }
}

TEST(OidFreeTree, FreesSiblingsToo) {
    oidnode* first = node_by_hand(1, "a");
    first->sib = node_by_hand(2, "b");
    first->sib->child = node_by_hand(3, "c");
    first->sib->child->sib = node_by_hand(4, nullptr);
    oidFreeTree(first);
    oidFreeTree(nullptr);
}

}  // namespace
}  // namespace wq::test
