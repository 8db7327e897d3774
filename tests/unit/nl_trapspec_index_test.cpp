#include "EMS/events/nl_trapspec_index.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/random.h"
#include "support/trap_model.h"

namespace {

using namespace wq::test;
using wq::HashTable;
using wq::OrderedBlocks;

TEST(HashTable, HoldsWhatWasPutInAndNotTakenOut) {
    Random random;
    SCOPED_TRACE(random.name());
    std::vector<int> items(5000);
    HashTable<int> table;
    std::multimap<uint32_t, int*> expected;
    for (int& item : items) {
        const uint32_t hash = random.between(0, 600) << random.between(0, 3);
        table.insert(hash, &item);
        expected.emplace(hash, &item);
        if (random.one_in(2)) {
            const auto gone = expected.lower_bound(random.between(0, 600));
            if (gone != expected.end()) {
                table.erase(gone->first, gone->second);
                expected.erase(gone);
            }
        }
        ASSERT_EQ(table.size(), expected.size());
    }
    for (uint32_t hash = 0; hash <= 4800; ++hash) {
        std::vector<int*> found;
        table.visit(hash, [&](int* item) {
            found.push_back(item);
            return true;
        });
        std::vector<int*> wanted;
        for (auto [at, end] = expected.equal_range(hash); at != end; ++at) {
            wanted.push_back(at->second);
        }
        std::ranges::sort(found);
        std::ranges::sort(wanted);
        ASSERT_EQ(found, wanted) << hash;
    }
}

TEST(HashTable, EndsAVisitThatHasSeenEnough) {
    std::vector<int> items(3);
    HashTable<int> table;
    int visits = 0;
    table.visit(1, [&](int*) { return ++visits < 2; });
    EXPECT_EQ(visits, 0);
    for (int& item : items) {
        table.insert(1, &item);
    }
    table.visit(1, [&](int*) { return ++visits < 2; });
    EXPECT_EQ(visits, 2);
}

TEST(OrderedBlocks, KeepsItsOrderWhateverComesAndGoes) {
    Random random;
    SCOPED_TRACE(random.name());
    OrderedBlocks<uint32_t> blocks;
    std::vector<uint32_t> expected;
    for (int step = 0; step < 6000; ++step) {
        const uint32_t value = random.between(0, 3000);
        const auto below = [&](uint32_t entry) { return entry < value; };
        const auto at = blocks.first_not(below);
        const auto place = std::partition_point(expected.begin(), expected.end(), below);
        ASSERT_EQ(at == blocks.end(), place == expected.end());
        if (place != expected.end() && random.one_in(3)) {
            ASSERT_EQ(blocks[at], *place);
            blocks.erase(at);
            expected.erase(place);
        } else {
            blocks.insert(at, value);
            expected.insert(place, value);
        }
        ASSERT_EQ(blocks.size(), expected.size());
        if (!expected.empty()) {
            ASSERT_EQ(blocks.front(), expected.front());
        }
    }
    std::vector<uint32_t> all;
    blocks.for_each([&](uint32_t entry) { all.push_back(entry); });
    EXPECT_EQ(all, expected);
    std::vector<uint32_t> forth;
    for (auto at = blocks.begin(); at != blocks.end(); at = blocks.after(at)) {
        forth.push_back(blocks[at]);
    }
    EXPECT_EQ(forth, expected);
    std::vector<uint32_t> back;
    for (auto at = blocks.end(); at != blocks.begin();) {
        at = blocks.before(at);
        back.push_back(blocks[at]);
    }
    std::ranges::reverse(back);
    EXPECT_EQ(back, expected);
    blocks.clear();
    EXPECT_EQ(blocks.size(), 0U);
    EXPECT_TRUE(blocks.begin() == blocks.end());
}

TEST(ItemPool, TellsItsItemsFromOthers) {
    struct Item {
        char text[100];
    };
    struct Note {
        int number = 0;
    };
    Random random;
    SCOPED_TRACE(random.name());
    wq::ItemPool<Item, Note> pool;
    std::map<Item*, int> held;
    Item other{};
    for (int i = 1; i < 5000; ++i) {
        Item* item = pool.take();
        ASSERT_TRUE(std::ranges::all_of(item->text, [](char c) { return c == 0; }));
        std::ranges::fill(item->text, 'x');
        ASSERT_EQ(pool.note_of(item)->number, 0);
        pool.note_of(item)->number = i;
        ASSERT_TRUE(held.emplace(item, i).second);
        for (int gone = random.one_in(500) ? 300 : 1; gone > 0 && !held.empty(); --gone) {
            const auto some = held.lower_bound(item - random.between(0, 2000));
            if (some != held.end() && random.one_in(2)) {
                ASSERT_EQ(pool.note_of(some->first)->number, some->second);
                ASSERT_TRUE(pool.give_back(some->first));
                held.erase(some);
            }
        }
    }
    EXPECT_EQ(pool.note_of(&other), nullptr);
    EXPECT_FALSE(pool.give_back(&other));
    int notes = 0;
    pool.for_each([&](Item& item, const Note&) { notes += held.contains(&item) ? 1 : 0; });
    EXPECT_EQ(notes, static_cast<int>(held.size()));
    for (const auto& [item, number] : held) {
        EXPECT_EQ(pool.note_of(item)->number, number);
        EXPECT_TRUE(pool.give_back(item));
    }
    pool.for_each([&](const Item&, const Note&) { ADD_FAILURE(); });
}

/* An item that nobody may read: following a list as far as it ends the process. */
template <class Item>
class Tripwire {
  public:
    Tripwire() : page_(mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {}
    ~Tripwire() { munmap(page_, 4096); }
    Tripwire(const Tripwire&) = delete;
    Tripwire& operator=(const Tripwire&) = delete;
    Item* get() const { return static_cast<Item*>(page_); }

  private:
    void* page_;
};

Oid enterprise_oid(int number) {
    return {1, 3, 6, 1, 4, 1, static_cast<uint32_t>(number)};
}

/* Enterprises of 1.3.6.1.4.1.0 on with as many traps each: N.0, N.1 ... of the even numbers. */
class Configured : public ::testing::Test {
  protected:
    void configure(int enterprises, int traps) {
        for (int i = 0; i < enterprises; ++i) {
            TrapModel::enterprise(enterprise_oid(i), "e" + std::to_string(i));
        }
        for (enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
            enterprises_.push_back(e);
            for (int i = 0; i < traps; ++i) {
                TrapModel::trap(e, name(static_cast<int>(enterprises_.size()) - 1, i), 6, 2 * i);
            }
        }
    }
    static std::string name(int enterprise, int number) {
        return std::to_string(enterprise).append(".").append(std::to_string(number));
    }
    trap_record* by_numbers(int enterprise, int specific) {
        trap_record* found = nullptr;
        find_exact_trap_record(enterprises_[static_cast<size_t>(enterprise)], 6, specific, &found);
        return found;
    }
    void expect_all_right() {
        for (int i = 0; i < static_cast<int>(enterprises_.size()); ++i) {
            enterprise_info* e = enterprises_[static_cast<size_t>(i)];
            ASSERT_EQ(find_enterprise(enterprise_oid(i)),
                      walk_enterprise(enterprise_oid(i), enterprise_list_head.next));
            for (int n = -1; n < 420; ++n) {
                ASSERT_EQ(by_numbers(i, n), walk_numbers(e, 6, n)) << i << " " << n;
            }
        }
    }

    TrapModel model_;
    std::vector<enterprise_info*> enterprises_;
};

TEST_F(Configured, LookUpsReadOnlyWhatIsNearTheAnswer) {
    configure(200, 200);
    enterprise_info* e = enterprises_[100];
    trap_record* middle = by_numbers(100, 200);
    const Tripwire<trap_record> no_record;
    const Tripwire<enterprise_info> no_enterprise;
    trap_record* after = by_numbers(100, 260);
    trap_record* early = by_numbers(100, 60);
    const std::vector<trap_record*> next = {after->next, early->next};
    enterprise_info* far = enterprises_[150];
    enterprise_info* near = enterprises_[50];
    const std::vector<enterprise_info*> next_enterprise = {far->next, near->next};
    after->next = early->next = no_record.get();
    far->next = near->next = no_enterprise.get();

    EXPECT_EQ(by_numbers(100, 200), middle);
    EXPECT_EQ(findExactTrapRecord(e, 6, 200, "node"), middle);
    EXPECT_EQ(by_numbers(100, 201), nullptr);
    EXPECT_EQ(nameToExactTrap("100.100"), middle);
    EXPECT_EQ(find_enterprise(enterprise_oid(100)), e);
    EXPECT_EQ(find_enterprise(Oid{1, 3, 6, 1, 4, 1, 100, 7}), e);
    EXPECT_EQ(find_enterprise_from(Oid{1, 3, 6, 1, 4, 1, 100, 7}, enterprises_[99]), e);
    trap_record* added = TrapModel::trap(e, "added", 6, 201);
    EXPECT_EQ(middle->next, added);
    EXPECT_STREQ(TrapModel::trap(e, "100.100", 6, 203)->name, "100.100_1");
    EXPECT_EQ(deleteTrapRecord("added"), 0);
    EXPECT_EQ(delete_trap_record(e, 6, 203), 0);
    const Oid inside = {1, 3, 6, 1, 4, 1, 100, 1};
    EXPECT_EQ(insert_enterprise(inside.data(), 8, "inside"), 0);
    EXPECT_EQ(enterprises_[99]->next, find_enterprise(inside));
    EXPECT_EQ(delete_enterprise_record(find_enterprise(inside)), 0);

    after->next = next[0];
    early->next = next[1];
    far->next = next_enterprise[0];
    near->next = next_enterprise[1];
}

TEST_F(Configured, AReaderNeedNotFollowTheListsForNewNames) {
    configure(20, 20);
    const Tripwire<trap_record> no_record;
    const wq::IndexTrust trust;
    trap_record* last = by_numbers(5, 38);
    last->next = no_record.get();
    EXPECT_EQ(nameToExactTrap("new"), nullptr);
    EXPECT_STREQ(TrapModel::trap(enterprises_[6], "new", 6, 1)->name, "new");
    EXPECT_EQ(nameToExactTrap("new"), by_numbers(6, 1));
    last->next = nullptr;
}

TEST_F(Configured, AReaderKnowsWhatProgramsMade) {
    configure(20, 20);
    trap_record* made = link(enterprises_[3], TrapModel::handmade_trap("made", 6, 5));
    enterprise_info* own = link(TrapModel::handmade_enterprise(enterprise_oid(500), "own"));
    trap_record* owns = link(own, TrapModel::handmade_trap("owns", 6, 5));
    TrapModel::rename(by_numbers(4, 0), "renamed");
    {
        const wq::IndexTrust trust;
        const wq::IndexTrust inner;
        EXPECT_EQ(nameToExactTrap("made"), made);
        EXPECT_EQ(find_name("owns"), (Named{own, owns}));
        EXPECT_EQ(nameToExactTrap("renamed"), by_numbers(4, 0));
        EXPECT_EQ(nameToExactTrap("4.0"), nullptr);
        EXPECT_EQ(by_numbers(3, 5), made);
        EXPECT_STREQ(TrapModel::trap(own, "made", 6, 6)->name, "made_1");
    }
    EXPECT_EQ(nameToExactTrap("made"), made);
    free_trap_record(unlink(head_of(enterprises_[3]), made));
    EXPECT_EQ(nameToExactTrap("made"), nullptr);
    EXPECT_STREQ(TrapModel::trap(enterprises_[0], "made", 6, 7)->name, "made");
    expect_all_right();
}

/* What programs do to lists longer than are followed anyway, and to short ones. */
class Relinked : public Configured, public ::testing::WithParamInterface<int> {
  protected:
    void SetUp() override { configure(GetParam(), GetParam()); }
    int some() const { return GetParam() / 2; }
    enterprise_info* e() { return enterprises_[static_cast<size_t>(some())]; }
};

TEST_P(Relinked, UnlinkedAndFreed) {
    for (const int number : {some(), some() + 1, 0, GetParam() - 1}) {
        trap_record* rec = by_numbers(some(), 2 * number);
        free_trap_record(unlink(head_of(e()), rec));
        EXPECT_EQ(by_numbers(some(), 2 * number), nullptr);
        EXPECT_EQ(nameToExactTrap(name(some(), number).c_str()), nullptr);
    }
    expect_all_right();
}

TEST_P(Relinked, UnlinkedAndKept) {
    std::vector<trap_record*> kept;
    for (int i = 0; i < 3; ++i) {
        kept.push_back(unlink(head_of(e()), by_numbers(some(), 2 * (some() + i))));
        EXPECT_EQ(nameToExactTrap(kept.back()->name), nullptr);
    }
    expect_all_right();
    std::ranges::for_each(kept, [&](trap_record* rec) { link(e(), rec); });
    expect_all_right();
    EXPECT_EQ(nameToExactTrap(kept[1]->name), kept[1]);
}

TEST_P(Relinked, ThreeNeighboursAtOnce) {
    trap_record* before = by_numbers(some(), 2 * some());
    trap_record* first = before->next;
    trap_record* last = first->next->next;
    before->next = last->next;
    EXPECT_EQ(nameToExactTrap(last->name), nullptr);
    expect_all_right();
    before->next = first;
    expect_all_right();
    EXPECT_EQ(nameToExactTrap(last->name), last);
}

TEST_P(Relinked, CutOffAndTakenApart) {
    trap_record* last = by_numbers(some(), 4);
    std::vector<trap_record*> kept;
    while (trap_record* rec = last->next) {
        last->next = rec->next;
        rec->next = nullptr;
        kept.push_back(rec);
    }
    EXPECT_EQ(by_numbers(some(), 2 * some()), nullptr);
    EXPECT_EQ(nameToExactTrap(name(some(), some()).c_str()), nullptr);
    expect_all_right();
    std::ranges::for_each(kept, [&](trap_record* rec) { link(e(), rec); });
    expect_all_right();
}

TEST_P(Relinked, EmptiedAtTheHead) {
    trap_record* first = head_of(e())->next;
    head_of(e())->next = nullptr;
    EXPECT_EQ(nameToExactTrap(name(some(), some()).c_str()), nullptr);
    EXPECT_EQ(by_numbers(some(), GetParam()), nullptr);
    expect_all_right();
    head_of(e())->next = first;
    expect_all_right();
    enterprise_info* all = enterprise_list_head.next;
    enterprise_list_head.next = nullptr;
    EXPECT_EQ(find_enterprise(enterprise_oid(some())), nullptr);
    EXPECT_EQ(nameToExactTrap(name(some(), some()).c_str()), nullptr);
    EXPECT_EQ(find_enterprise_name("e1"), nullptr);
    enterprise_list_head.next = all;
    EXPECT_EQ(find_enterprise(enterprise_oid(some())), e());
    expect_all_right();
}

TEST_P(Relinked, MadeByHand) {
    trap_record* made = link(e(), TrapModel::handmade_trap("made", 6, 2 * some() + 1));
    trap_record* first = link(e(), TrapModel::handmade_trap("first", 0, 0));
    EXPECT_EQ(by_numbers(some(), 2 * some() + 1), made);
    EXPECT_EQ(findExactTrapRecord(e(), 0, 0, "node"), first);
    EXPECT_EQ(nameToExactTrap("made"), made);
    expect_all_right();
    /* of a program's own memory, gone again without a word */
    auto own = std::make_unique<trap_record>();
    own->generic_trap = 6;
    own->specific_trap = 2 * some() + 1;
    TrapModel::rename(own.get(), "own");
    own->next = made->next;
    made->next = own.get();
    EXPECT_EQ(find_name("own"), (Named{e(), own.get()}));
    EXPECT_EQ(by_numbers(some(), 2 * some() + 2), own->next);
    made->next = own->next;
    own.reset();
    EXPECT_EQ(nameToExactTrap("own"), nullptr);
    expect_all_right();
}

TEST_P(Relinked, MovedToAnotherEnterprise) {
    trap_record* rec = unlink(head_of(e()), by_numbers(some(), 2 * some()));
    rec->specific_trap = 7;
    link(enterprises_[1], rec);
    EXPECT_EQ(find_name(rec->name), (Named{enterprises_[1], rec}));
    EXPECT_EQ(by_numbers(1, 7), rec);
    expect_all_right();
    EXPECT_EQ(deleteTrapRecord(rec->name), 0);
    expect_all_right();
}

TEST_P(Relinked, RenamedAndRenumbered) {
    trap_record* rec = by_numbers(some(), 2 * some());
    TrapModel::rename(rec, "renamed");
    EXPECT_EQ(nameToExactTrap("renamed"), rec);
    EXPECT_EQ(nameToExactTrap(name(some(), some()).c_str()), nullptr);
    EXPECT_EQ(nameToExactTrap("renamed"), rec);
    rec->specific_trap += 1;
    EXPECT_EQ(by_numbers(some(), 2 * some()), nullptr);
    EXPECT_EQ(by_numbers(some(), 2 * some() + 1), rec);
    rec->specific_trap = rec->next->specific_trap;
    EXPECT_EQ(by_numbers(some(), 2 * some() + 2), rec) << "the first of two";
    expect_all_right();
}

TEST_P(Relinked, Enterprises) {
    enterprise_info* kept = unlink(&enterprise_list_head, e());
    EXPECT_EQ(find_enterprise(enterprise_oid(some())), nullptr);
    EXPECT_EQ(nameToExactTrap(name(some(), 0).c_str()), nullptr);
    EXPECT_EQ(find_enterprise_name(kept->enterprise_name), nullptr);
    expect_all_right();
    link(kept);
    EXPECT_EQ(find_enterprise(enterprise_oid(some())), kept);
    Oid inner = enterprise_oid(some());
    inner.push_back(9);
    enterprise_info* made = link(TrapModel::handmade_enterprise(inner, "made"));
    EXPECT_EQ(find_enterprise(inner), made);
    EXPECT_EQ(find_enterprise_name("made"), made);
    enterprise_info* twin =
        link(TrapModel::handmade_enterprise(enterprise_oid(some() + 1), "twin"));
    EXPECT_EQ(find_enterprise(enterprise_oid(some() + 1)), twin) << "the first of two";
    doFree(kept->enterprise_name);
    kept->enterprise_name = doStrdup("renamed");
    EXPECT_EQ(find_enterprise_name("renamed"), kept);
    expect_all_right();
    free_enterprise(unlink(&enterprise_list_head, made));
    EXPECT_EQ(find_enterprise(inner), kept);
}

TEST_P(Relinked, AnIdentifierChangedInPlace) {
    e()->enterprise_oid[6] = 1000; /* to the end of the list, where it must stand then */
    link(unlink(&enterprise_list_head, e()));
    EXPECT_EQ(find_enterprise(enterprise_oid(1000)), e());
    EXPECT_EQ(find_enterprise(enterprise_oid(some())), nullptr);
    EXPECT_EQ(find_enterprise(enterprise_oid(some() + 1)),
              enterprises_[static_cast<size_t>(some()) + 1]);
}

// With a sanitizer each look costs some ten times as much.
#ifdef __SANITIZE_ADDRESS__
constexpr int many = 100;
#else
constexpr int many = 200;
#endif

INSTANTIATE_TEST_SUITE_P(Sizes, Relinked, ::testing::Values(8, 40, many));

/* Lists that are relinked as a whole, as programs tell. */
class Retold : public Relinked {
  protected:
    /* Cuts out `count` records from the one of that place on and gives the first. */
    trap_record* cut(enterprise_info* enterprise, int place, int count) {
        trap_record* before = head_of(enterprise);
        for (; place > 0; --place) {
            before = before->next;
        }
        trap_record* first = before->next;
        trap_record* last = first;
        for (; count > 1; --count) {
            last = last->next;
        }
        before->next = last->next;
        last->next = nullptr;
        return first;
    }
    void expect_names_as_in_lists() {
        for (int i = 0; i < static_cast<int>(enterprises_.size()); ++i) {
            for (int n = 0; n < GetParam(); n += 7) {
                ASSERT_EQ(find_name(name(i, n)), walk_name(name(i, n))) << i << " " << n;
            }
        }
    }
};

TEST_P(Retold, ARunMovesToAnotherEnterprise) {
    enterprise_info* other = enterprises_[1];
    const int run = GetParam() / 4 + 2;
    trap_record* first = cut(e(), 1, run);
    trap_record* last = first;
    first->generic_trap = 7; /* after all others */
    while (last->next != nullptr) {
        last = last->next;
        last->generic_trap = 7;
    }
    trap_record* end = head_of(other);
    while (end->next != nullptr) {
        end = end->next;
    }
    end->next = first;
    trapspec_relinked();
    EXPECT_EQ(find_name(last->name), (Named{other, last}));
    EXPECT_EQ(findExactTrapRecord(other, 7, last->specific_trap, "node"), last);
    trap_record* found = nullptr;
    EXPECT_EQ(find_exact_trap_record(e(), 6, last->specific_trap, &found), -1);
    EXPECT_EQ(delete_trap_record(e(), 6, last->specific_trap), -1);
    EXPECT_EQ(delete_trap_record(other, 7, last->specific_trap), 0);
    expect_all_right();
    expect_names_as_in_lists();
}

TEST_P(Retold, ARunIsCutOutAndKept) {
    trap_record* kept = cut(e(), 1, GetParam() - 2);
    trapspec_relinked();
    EXPECT_EQ(nameToExactTrap(kept->next->name), nullptr);
    EXPECT_STREQ(TrapModel::trap(enterprises_[0], kept->name, 6, 1)->name, kept->name);
    expect_all_right();
    expect_names_as_in_lists();
    while (trap_record* rec = kept) {
        kept = rec->next;
        free_trap_record(rec);
    }
    expect_all_right();
}

TEST_P(Retold, NamesAndNumbersAreRewritten) {
    for (trap_record* r = head_of(e())->next; r != nullptr; r = r->next) {
        r->specific_trap += 1000;
        TrapModel::rename(r, "new" + std::to_string(r->specific_trap));
    }
    trapspec_relinked();
    const int last = 1000 + 2 * (GetParam() - 1);
    EXPECT_STREQ(by_numbers(some(), last)->name, ("new" + std::to_string(last)).c_str());
    EXPECT_EQ(nameToExactTrap("new1000"), by_numbers(some(), 1000));
    EXPECT_EQ(nameToExactTrap(name(some(), 0).c_str()), nullptr);
    EXPECT_STREQ(TrapModel::trap(enterprises_[0], "new1002", 6, 1)->name, "new1002_1");
    expect_all_right();
}

TEST_P(Retold, EnterprisesMoveAndSwapTheirRecords) {
    enterprise_info* first = enterprises_[0];
    std::swap(head_of(first)->next, head_of(e())->next);
    enterprise_info* rest = e()->next;
    e()->next = nullptr; /* the others are kept elsewhere */
    trapspec_relinked();
    EXPECT_EQ(find_name(name(some(), 1)), (Named{first, head_of(first)->next->next}));
    EXPECT_EQ(nameToExactTrap(name(some() + 1, 0).c_str()), nullptr);
    EXPECT_EQ(find_enterprise(enterprise_oid(some() + 1)), nullptr);
    expect_all_right();
    e()->next = rest;
    trapspec_relinked();
    EXPECT_EQ(find_enterprise(enterprise_oid(some() + 1)), rest);
    expect_all_right();
    expect_names_as_in_lists();
}

INSTANTIATE_TEST_SUITE_P(Sizes, Retold, ::testing::Values(8, 40, 100));

/* Numbers so far apart that their differences change sign have no order but that of their list. */
TEST(ModelIndexOrder, FollowsListsThatNoOrderHoldsFor) {
    const TrapModel model;
    Random random;
    SCOPED_TRACE(random.name());
    std::vector<Oid> expected; /* by the rule: before the first one that compares greater */
    for (int i = 0; i < 300; ++i) {
        const Oid oid = {1, 3, random.bits() >> random.between(0, 2), random.between(0, 3)};
        TrapModel::enterprise(oid, "e");
        const auto at = std::ranges::find_if(expected, [&](const Oid& other) {
            return oidcmp(other.data(), oid.data(), 4, 4) >= 0;
        });
        if (at == expected.end() || *at != oid) {
            expected.insert(at, oid);
        }
    }
    std::vector<Oid> all;
    for (const enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        all.emplace_back(e->enterprise_oid, e->enterprise_oid + e->oid_len);
    }
    EXPECT_EQ(all, expected);
    for (const Oid& oid : all) {
        EXPECT_EQ(find_enterprise(oid), walk_enterprise(oid, enterprise_list_head.next));
    }
}

TEST(ModelIndexOrder, TakesTheHighestNumbersForNegativeOnes) {
    const TrapModel model;
    for (uint32_t i = 0; i < 60; ++i) {
        TrapModel::enterprise({1, 3, 30 - i}, std::to_string(30 - static_cast<int>(i)));
    }
    EXPECT_STREQ(enterprise_list_head.next->enterprise_name, "-29");
    EXPECT_STREQ(find_enterprise(Oid{1, 3, 4294967295U})->enterprise_name, "-1");
    EXPECT_STREQ(find_enterprise(Oid{1, 3, 7, 1})->enterprise_name, "7");
    EXPECT_EQ(find_enterprise(Oid{1, 3, 2147483648U}), nullptr);
}

TEST(ModelIndexNames, EnterprisesMayShareThem) {
    const TrapModel model;
    std::vector<enterprise_info*> all;
    for (int i = 0; i < 40; ++i) {
        TrapModel::enterprise(enterprise_oid(40 - i), i % 2 == 0 ? "even" : "odd");
    }
    for (const char* name : {"even", "odd", "none"}) {
        EXPECT_EQ(find_enterprise_name(name), walk_enterprise_name(name)) << name;
    }
    while (enterprise_info* first = walk_enterprise_name("even")) {
        EXPECT_EQ(find_enterprise_name("even"), first);
        EXPECT_EQ(delete_enterprise_record(first), 0);
    }
    EXPECT_EQ(find_enterprise_name("even"), nullptr);
    TrapModel::enterprise(enterprise_oid(99), "odd");
    EXPECT_EQ(find_enterprise_name("odd"), walk_enterprise_name("odd"));
}

}  // namespace
