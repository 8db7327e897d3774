/*
 * Random edits, through the library and by hand, of small and large configurations: after each one
 * some look-ups must tell what following the lists tells, and in the end nothing may be left.
 */
#include <gtest/gtest.h>
#include <wqevents/configuration.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "support/random.h"
#include "support/trap_model.h"

namespace {

using namespace wq::test;

struct Shape {
    const char* title;
    uint32_t records;
    uint32_t enterprises;
    uint32_t numbers;  /* of different specific numbers */
    uint32_t names;    /* that the library is given */
    bool double_names; /* names written by hand may be taken */
    uint32_t steps;
};

class Storm {
  public:
    explicit Storm(const Shape& shape) : shape_(shape) {}
    ~Storm() {
        for (trap_record* rec : aside_) {
            free_trap_record(rec);
        }
        for (enterprise_info* e : enterprises_aside_) {
            while (trap_record* rec = head_of(e)->next) {
                head_of(e)->next = rec->next;
                free_trap_record(rec);
            }
            free_enterprise(e);
        }
    }
    Storm(const Storm&) = delete;
    Storm& operator=(const Storm&) = delete;

    std::string name() const { return random_.name(); }

    void run() {
        for (uint32_t i = 0; i < shape_.enterprises; ++i) {
            add_enterprise();
        }
        for (uint32_t i = 0; i < shape_.records; ++i) {
            add_trap();
        }
        using Action = void (Storm::*)();
        static constexpr std::array<Action, 21> actions = {
            &Storm::add_trap,         &Storm::add_trap,        &Storm::add_trap,
            &Storm::add_trap,         &Storm::add_enterprise,  &Storm::delete_by_numbers,
            &Storm::delete_by_name,   &Storm::delete_empty,    &Storm::drop_by_hand,
            &Storm::set_aside,        &Storm::bring_back,      &Storm::bring_back,
            &Storm::make_by_hand,     &Storm::rename_by_hand,  &Storm::renumber_by_hand,
            &Storm::enterprise_aside, &Storm::enterprise_back, &Storm::make_enterprise,
            &Storm::move_run,         &Storm::rewrite_names,   &Storm::cut_enterprises};
        for (uint32_t i = 0; i < shape_.steps && !::testing::Test::HasFailure(); ++i) {
            (this->*actions[random_.between(0, actions.size() - 1)])();
            for (int check = 0; check < 4; ++check) {
                compare();
            }
        }
    }

  private:
    /* Nested ones among them. */
    Oid some_oid() {
        Oid oid = {1, 3, 6, 1, 4, 1};
        for (uint32_t left = random_.between(0, 3); left > 0; --left) {
            oid.push_back(random_.between(0, shape_.enterprises / 4 + 2));
        }
        return oid;
    }
    int some_generic() { return random_.one_in(8) ? static_cast<int>(random_.between(0, 5)) : 6; }
    int some_specific() { return static_cast<int>(random_.between(0, shape_.numbers)); }
    std::string some_name() { return "t" + std::to_string(random_.between(0, shape_.names)); }
    std::string some_hand_name() {
        return shape_.double_names ? some_name() : "h" + std::to_string(++hand_names_);
    }

    enterprise_info* some_enterprise() {
        std::vector<enterprise_info*> all;
        for (enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
            all.push_back(e);
        }
        return all.empty() ? TrapModel::enterprise({1, 3}, "only")
                           : all[random_.between(0, static_cast<uint32_t>(all.size() - 1))];
    }
    static std::vector<trap_record*> records_of(enterprise_info* enterprise) {
        std::vector<trap_record*> all;
        for (trap_record* r = head_of(enterprise)->next; r != nullptr; r = r->next) {
            all.push_back(r);
        }
        return all;
    }
    Named some_record() {
        enterprise_info* e = some_enterprise();
        const std::vector<trap_record*> all = records_of(e);
        return all.empty()
                   ? Named()
                   : Named{e, all[random_.between(0, static_cast<uint32_t>(all.size() - 1))]};
    }

    static size_t traps() {
        size_t count = 0;
        for (enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
            count += records_of(e).size();
        }
        return count;
    }

    /* The name that a new record gets. */
    static std::string unique_name(const std::string& name) {
        std::string unique = name;
        for (int i = 1; walk_name(unique).record != nullptr; ++i) {
            unique = name + "_" + std::to_string(i);
        }
        return unique;
    }

    void add_trap() {
        if (shape_.double_names && traps() >= 800) {
            return; /* a large model tells names apart only while hands keep them unique */
        }
        enterprise_info* e = some_enterprise();
        const std::string given = some_name();
        const int generic = some_generic();
        const int specific = some_specific();
        std::vector<std::string> nodes;
        if (random_.one_in(6)) {
            nodes.push_back("node" + std::to_string(random_.between(0, 3)));
        }
        const bool update = holder(e, generic, specific, nodes) != nullptr;
        const std::string name = update ? given : unique_name(given);
        EXPECT_EQ(TrapModel::trap(e, given, generic, specific, nodes)->name, name);
    }
    /* The record that is updated; the ones here have one node or none. */
    static trap_record* holder(enterprise_info* e, int generic, int specific,
                               const std::vector<std::string>& nodes) {
        trap_record* r = walk_numbers(e, generic, specific);
        for (; r != nullptr && r->generic_trap == generic && r->specific_trap == specific;
             r = r->next) {
            if (nodes.empty() ? r->nodeCnt == 0 : r->nodeCnt > 0 && r->nodeList[0] == nodes[0]) {
                return r;
            }
        }
        return nullptr;
    }

    void add_enterprise() {
        TrapModel::enterprise(some_oid(), "e" + std::to_string(random_.between(0, 1000)));
    }
    void delete_by_numbers() {
        enterprise_info* e = some_enterprise();
        const int generic = some_generic();
        const int specific = some_specific();
        const bool there = walk_numbers(e, generic, specific) != nullptr;
        EXPECT_EQ(delete_trap_record(e, generic, specific), there ? 0 : -1);
    }
    void delete_by_name() {
        const std::string name = some_name();
        const bool there = walk_name(name).record != nullptr;
        EXPECT_EQ(deleteTrapRecord(name.c_str()), there ? 0 : -1);
    }
    void delete_empty() {
        enterprise_info* e = some_enterprise();
        EXPECT_EQ(delete_enterprise_record(e), head_of(e)->next == nullptr ? 0 : -1);
    }

    void drop_by_hand() {
        const Named some = some_record();
        if (some.record != nullptr) {
            free_trap_record(unlink(head_of(some.enterprise), some.record));
        }
    }
    void set_aside() {
        const Named some = some_record();
        if (some.record != nullptr && aside_.size() < 4) {
            aside_.push_back(unlink(head_of(some.enterprise), some.record));
        }
    }
    void bring_back() {
        if (!aside_.empty()) {
            trap_record* rec = aside_.back();
            aside_.pop_back();
            rec->specific_trap = some_specific();
            link(some_enterprise(), rec);
        }
    }
    void make_by_hand() {
        link(some_enterprise(),
             TrapModel::handmade_trap(some_hand_name(), some_generic(), some_specific()));
    }
    void rename_by_hand() {
        const Named some = some_record();
        if (some.record != nullptr) {
            TrapModel::rename(some.record, some_hand_name());
        }
    }
    void renumber_by_hand() {
        const Named some = some_record();
        if (some.record == nullptr) {
            return;
        }
        const trap_record* next = some.record->next;
        if (next != nullptr && next->generic_trap == some.record->generic_trap) {
            some.record->specific_trap = next->specific_trap; /* still in order */
        } else if (next == nullptr) {
            ++some.record->specific_trap;
        }
    }
    void enterprise_aside() {
        if (enterprises_aside_.size() < 3 && enterprise_list_head.next != nullptr) {
            enterprises_aside_.push_back(unlink(&enterprise_list_head, some_enterprise()));
        }
    }
    void enterprise_back() {
        if (!enterprises_aside_.empty()) {
            enterprise_info* e = enterprises_aside_.back();
            enterprises_aside_.pop_back();
            link(e);
        }
    }
    void make_enterprise() {
        link(TrapModel::handmade_enterprise(some_oid(),
                                            "m" + std::to_string(random_.between(0, 1000))));
    }

    /* Moves some records from the beginning of a list to the end of another. */
    void move_run() {
        enterprise_info* from = some_enterprise();
        enterprise_info* to = some_enterprise();
        trap_record* end = head_of(to);
        while (end->next != nullptr) {
            end = end->next;
        }
        for (uint32_t left = random_.between(0, 40); left > 0 && head_of(from)->next != nullptr;
             --left) {
            trap_record* rec = unlink(head_of(from), head_of(from)->next);
            if (from == to && end == rec) {
                end = head_of(to);
            }
            rec->generic_trap = end == head_of(to) ? 6 : end->generic_trap;
            rec->specific_trap = end == head_of(to) ? 0 : end->specific_trap;
            rec->next = end->next;
            end->next = rec;
            end = rec;
        }
        trapspec_relinked();
    }
    void rewrite_names() {
        for (trap_record* rec : records_of(some_enterprise())) {
            TrapModel::rename(rec, some_hand_name());
        }
        trapspec_relinked();
    }
    /* Some enterprises are gone and come back. */
    void cut_enterprises() {
        enterprise_info* before = some_enterprise();
        enterprise_info* rest = std::exchange(before->next, nullptr);
        trapspec_relinked();
        compare();
        before->next = rest;
        trapspec_relinked();
    }

    void compare() {
        const Oid oid = some_oid();
        ASSERT_EQ(find_enterprise(oid), walk_enterprise(oid, enterprise_list_head.next));
        enterprise_info* start = some_enterprise();
        ASSERT_EQ(find_enterprise_from(oid, start), walk_enterprise(oid, start));
        compare_numbers(some_enterprise(), some_generic(), some_specific());
        const Named some = some_record();
        if (some.record != nullptr) {
            compare_numbers(some.enterprise, some.record->generic_trap, some.record->specific_trap);
            ASSERT_EQ(find_name(some.record->name), walk_name(some.record->name));
        }
        const std::string name = some_name();
        ASSERT_EQ(find_name(name), walk_name(name));
        if (!aside_.empty()) {
            ASSERT_EQ(find_name(aside_.back()->name), walk_name(aside_.back()->name));
        }
        const std::string of_enterprise =
            (random_.one_in(2) ? "e" : "m") + std::to_string(random_.between(0, 1000));
        ASSERT_EQ(find_enterprise_name(of_enterprise), walk_enterprise_name(of_enterprise));
    }
    static void compare_numbers(enterprise_info* e, int generic, int specific) {
        trap_record* found = nullptr;
        find_exact_trap_record(e, generic, specific, &found);
        ASSERT_EQ(found, walk_numbers(e, generic, specific));
        trap_record* general = found;
        while (general != nullptr && general->nodeCnt != 0) {
            general = general->next;
        }
        if (general != nullptr &&
            (general->generic_trap != generic || general->specific_trap != specific)) {
            general = nullptr;
        }
        ASSERT_EQ(findExactTrapRecord(e, generic, specific, nullptr), general);
    }

    Shape shape_;
    TrapModel model_;
    Random random_;
    std::vector<trap_record*> aside_; /* taken out of their lists, not freed */
    std::vector<enterprise_info*> enterprises_aside_;
    uint32_t hand_names_ = 0;
};

class RandomEdits : public ::testing::TestWithParam<Shape> {};

TEST_P(RandomEdits, NeverChangeAnAnswer) {
    Storm storm(GetParam());
    SCOPED_TRACE(storm.name());
    storm.run();
}

INSTANTIATE_TEST_SUITE_P(Models, RandomEdits,
                         ::testing::Values(Shape{"empty", 0, 0, 5, 20, true, 2000},
                                           Shape{"few", 30, 5, 20, 60, true, 3000},
                                           Shape{"short_lists", 600, 120, 20, 900, false, 1500},
                                           Shape{"long_lists", 1500, 4, 5000, 3000, false, 1200},
                                           Shape{"many_equal_numbers", 400, 3, 12, 900, false,
                                                 1500},
                                           Shape{"many_of_both", 4000, 200, 200, 9000, false, 250}),
                         [](const auto& named) { return std::string(named.param.title); });

}  // namespace
