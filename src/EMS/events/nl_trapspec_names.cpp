// Which trap has a name.
//
// A hash leads to the records that the library knows by the name. The answer is the only one of
// them that still has it and is in its list: the links before it there and the links before its
// enterprise lead to it. If several have it, or a record that a program made does, the lists are
// asked for the first one. A name that no known record has may have been written into one by hand,
// so the lists are asked as well, and what they say is kept; only while a file is read is it known
// that nobody writes. If there are few records, all of this takes longer than following the lists.
#include <cstring>

#include "EMS/events/nl_trapspec_index.h"

namespace wq {
namespace {

NamedTrap follow_names(std::string_view name) {
    for (enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        for (trap_record* r = e->trap_rec_list_head.next; r != nullptr; r = r->next) {
            if (name_text(r->name) == name) {
                return {e, r};
            }
        }
    }
    return {};
}

}  // namespace

// It differs from process to process, so that no file can be made to fill one place.
uint32_t ModelIndex::hash_name(std::string_view name) const {
    constexpr uint64_t odd_multiplier = 0x9e3779b97f4a7c15U;  // 2^64 over the golden ratio
    constexpr size_t word = sizeof(uint64_t);
    uint64_t hash = seed() ^ name.size();
    const auto mix = [&](uint64_t bits) {
        hash = (hash ^ bits) * odd_multiplier;
        hash ^= hash >> 32;
    };
    const auto word_at = [&](size_t at) {
        uint64_t bits = 0;
        std::memcpy(&bits, name.data() + at, word);
        return bits;
    };
    if (name.size() >= word) {
        for (size_t at = 0; at + word < name.size(); at += word) {
            mix(word_at(at));
        }
        mix(word_at(name.size() - word));  // some of it may be in the one before, too
    } else {
        uint64_t bits = 0;
        for (const char c : name) {
            bits = bits << 8 | static_cast<unsigned char>(c);
        }
        mix(bits);
    }
    hash *= odd_multiplier;
    return static_cast<uint32_t>(hash >> 32 ^ hash);
}

void ModelIndex::prefetch_name(std::string_view name) const {
    if (tables_ != nullptr) {
        tables_->by_name.prefetch(hash_name(name));
    }
}

void ModelIndex::enter_name(trap_record& record, RecordNote& note) {
    const uint32_t hash = hash_name(name_text(record.name));
    if (note.named && note.name_hash == hash) {
        return;
    }
    if (note.named) {
        tables_->by_name.erase(note.name_hash, &record);
        note.named = false;
    }
    tables_->by_name.insert(hash, &record);
    note.name_hash = hash;
    note.named = true;
}

// A record that is in no order: for its name the lists are asked.
void ModelIndex::note_foreign(enterprise_info& enterprise, trap_record& record) {
    const std::string_view name = name_text(record.name);
    tables_->foreign_names.insert(hash_name(name));
    if (is_believed()) {
        reading_->foreign.try_emplace(std::string(name), NamedTrap{&enterprise, &record});
    }
}

void ModelIndex::renamed(trap_record& record) {
    if (is_believed()) {
        reading_->suffixes.clear();  // the old name may have had one
    }
    RecordNote* note = note_of(record);
    const bool foreign = note == nullptr || note->owner == nullptr;
    if (tables_ == nullptr || (foreign && is_believed())) {
        drop();  // it is known by the old name as well
        return;
    }
    change([&] {
        if (note != nullptr) {
            enter_name(record, *note);
        }
        if (foreign) {
            tables_->foreign_names.insert(hash_name(name_text(record.name)));
        }
    });
}

// True if the links of the records before it lead to this one, and nothing else does.
bool ModelIndex::is_linked(const trap_record& record) {
    const RecordNote* note = note_of(record);
    if (note->owner == nullptr) {
        return false;
    }
    const EnterpriseEntry& owner = *note->owner;
    const trap_record* at = &record;
    for (size_t i = 0; i < checked_links && note->before != nullptr; ++i) {
        if (note->before->next != at) {
            return false;
        }
        at = note->before;
        note = note_of(*at);
    }
    return owner.item->trap_rec_list_head.next == owner.records.front().item;
}

bool ModelIndex::is_in_list(trap_record& record, enterprise_info& enterprise) {
    if (!is_listed(enterprise)) {
        return false;
    }
    if (is_believed() || is_linked(record)) {
        return true;
    }
    const uint64_t numbers = numbers_of(record);
    const trap_record* at = record_before(enterprise, numbers)->next;
    while (at != nullptr && at != &record && numbers_of(*at) == numbers) {
        at = at->next;
    }
    return at == &record;
}

// Counts the records that are known to have the name, up to 2 of them.
ModelIndex::Bearers ModelIndex::bearers(std::string_view name, uint32_t hash) const {
    Bearers found;
    tables_->by_name.visit(hash, [&](trap_record* record) {
        if (name_text(record->name) == name) {
            found.record = record;
            ++found.count;
        }
        return found.count < 2;
    });
    return found;
}

// By the word of the index; nothing if it does not know the name or is wrong.
NamedTrap ModelIndex::known_trap(std::string_view name, uint32_t hash) {
    const Bearers known = bearers(name, hash);
    if (tables_->foreign_names.contains(hash)) {
        if (known.count != 0 || !is_believed()) {
            return follow_names(name);
        }
        const auto foreign = reading_->foreign.find(name);
        return foreign == reading_->foreign.end() ? NamedTrap() : foreign->second;
    }
    if (known.count > 1) {
        return follow_names(name);
    }
    const EnterpriseEntry* owner = known.count == 0 ? nullptr : note_of(*known.record)->owner;
    if (owner == nullptr) {
        return {};
    }
    enterprise_info* enterprise = owner->item;
    return is_in_list(*known.record, *enterprise) ? NamedTrap{enterprise, known.record}
                                                  : NamedTrap();
}

bool ModelIndex::follows_names() const {
    return !is_believed() && tables_->by_name.size() <= few_records;
}

NamedTrap ModelIndex::find_trap(std::string_view name) {
    if (!is_made() || follows_names()) {
        return follow_names(name);
    }
    NamedTrap found = known_trap(name, hash_name(name));
    if (found.record == nullptr && !is_believed()) {
        found = follow_names(name);
        if (found.record != nullptr) {
            renamed(*found.record);
        }
    }
    return found;
}

bool ModelIndex::is_taken(std::string_view name) {
    if (is_made() && !is_believed() && tables_->by_name.size() > very_many_records) {
        const uint32_t hash = hash_name(name);
        if (bearers(name, hash).count == 0 && !tables_->foreign_names.contains(hash)) {
            return false;
        }
    }
    return find_trap(name).record != nullptr;
}

int ModelIndex::first_suffix(std::string_view name) {
    if (!is_believed()) {
        return 1;  // one of them may have been given up since
    }
    const auto found = reading_->suffixes.find(name);
    return found == reading_->suffixes.end() ? 1 : found->second;
}

void ModelIndex::set_first_suffix(std::string_view name, int number) {
    if (!is_believed()) {
        return;
    }
    try {
        const auto found = reading_->suffixes.find(name);
        if (found != reading_->suffixes.end()) {
            found->second = number;
        } else {
            reading_->suffixes.emplace(name, number);
        }
    } catch (const std::bad_alloc&) {
        // The search begins with 1 again.
    }
}

}  // namespace wq
