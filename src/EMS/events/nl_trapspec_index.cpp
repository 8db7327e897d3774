// What the index beside the configuration knows, and when it is given up.
#include "EMS/events/nl_trapspec_index.h"

#include <utility>

namespace wq {

constinit ModelIndex model_index;

trap_record* ModelIndex::make_record() {
    trap_record* record = records_.take();
    return record != nullptr ? record : static_cast<trap_record*>(doMalloc(sizeof(trap_record)));
}

enterprise_info* ModelIndex::make_enterprise() {
    enterprise_info* made = enterprises_.take();
    return made != nullptr ? made : static_cast<enterprise_info*>(doMalloc(sizeof *made));
}

void ModelIndex::free(trap_record* record) {
    RecordNote* note = note_of(*record);
    if (note != nullptr && tables_ != nullptr) {
        take_out_of_order(*record, *note);
        if (note->named) {
            tables_->by_name.erase(note->name_hash, record);
        }
    }
    if (!records_.give_back(record)) {
        doFree(record);
    }
}

void ModelIndex::free(enterprise_info* enterprise) {
    if (EnterpriseEntry* entry = known_entry(*enterprise)) {
        release_records(*entry);
        take_out_of_order(*entry);
        last_entry_ = last_entry_ == entry ? nullptr : last_entry_;
    }
    if (!enterprises_.give_back(enterprise)) {
        doFree(enterprise);
    }
}

// Null for a record that a program made, which is not read.
RecordNote* ModelIndex::note_of(const trap_record& record) {
    RecordNote* note = records_.note_of(&record);
    if (note != nullptr && note->generation != generation_) {
        *note = RecordNote();
        note->generation = generation_;
    }
    return note;
}

EnterpriseEntry* ModelIndex::known_entry(const enterprise_info& enterprise) {
    const EnterpriseNote* note = enterprises_.note_of(&enterprise);
    return note == nullptr ? nullptr : note->entry.get();
}

// Null for one that a program made, or when there is no memory.
EnterpriseEntry* ModelIndex::entry_of(enterprise_info& enterprise) {
    if (last_entry_ != nullptr && last_entry_->item == &enterprise) {
        return last_entry_;
    }
    EnterpriseNote* note = enterprises_.note_of(&enterprise);
    if (!is_made() || note == nullptr) {
        return nullptr;
    }
    if (note->entry == nullptr) {  // it was in no list when the index was made
        change([&] { index_records(new_entry(enterprise, *note)); });
    }
    return note->entry.get();
}

EnterpriseEntry& ModelIndex::new_entry(enterprise_info& enterprise, EnterpriseNote& note) {
    note.entry = std::make_unique<EnterpriseEntry>();
    note.entry->item = &enterprise;
    return *note.entry;
}

void ModelIndex::drop() {
    ++generation_;
    last_entry_ = nullptr;
    enterprises_.for_each(
        [](const enterprise_info& /*item*/, EnterpriseNote& note) { note.entry.reset(); });
    std::default_delete<Tables>()(std::exchange(tables_, nullptr));
}

bool ModelIndex::is_made() {
    return tables_ != nullptr || change([this] { make_tables(); });
}

void ModelIndex::make_tables() {
    tables_ = std::make_unique<Tables>().release();
    if (is_believed()) {
        reading_->foreign.clear();
    }
    index_enterprises();
    // Those in no list as well: a program may have set them aside, and link them in again.
    records_.for_each([this](trap_record& record, const RecordNote& /*note*/) {
        enter_name(record, *note_of(record));
    });
    for (enterprise_info* e = enterprise_list_head.next; e != nullptr; e = e->next) {
        for (trap_record* r = e->trap_rec_list_head.next; r != nullptr; r = r->next) {
            const RecordNote* note = note_of(*r);
            if (note == nullptr || note->owner == nullptr) {
                note_foreign(*e, *r);
            }
        }
    }
}

void ModelIndex::add(enterprise_info& enterprise) {
    EnterpriseNote* note = enterprises_.note_of(&enterprise);
    if (tables_ != nullptr && note != nullptr) {
        change([&] { put_in_order(new_entry(enterprise, *note)); });
    }
}

void ModelIndex::add(enterprise_info& enterprise, trap_record& record, bool after_equals) {
    if (tables_ == nullptr) {
        return;
    }
    change([&] {
        RecordNote* note = note_of(record);
        EnterpriseEntry* owner = known_entry(enterprise);
        if (note != nullptr) {
            enter_name(record, *note);
        }
        if (note != nullptr && owner != nullptr) {
            put_in_order(record, *note, *owner, after_equals);
        } else {
            note_foreign(enterprise, record);
        }
    });
    try {
        if (is_believed()) {
            reading_->runs.add(enterprise, record);
        }
    } catch (const std::bad_alloc&) {
        drop_node_runs();
    }
}

void ModelIndex::begin_reading() {
    if (++readers_ > 1) {
        return;
    }
    drop();
    try {
        reading_ = std::make_unique<Reading>().release();
    } catch (const std::bad_alloc&) {
        // The lists are asked then.
    }
}

void ModelIndex::end_reading() {
    if (--readers_ == 0) {
        std::default_delete<Reading>()(std::exchange(reading_, nullptr));
    }
}

void ModelIndex::drop_node_runs() {
    if (is_believed()) {
        reading_->runs.clear();
    }
}

}  // namespace wq

void trapspec_relinked(void) {
    wq::model_index.drop();
}
