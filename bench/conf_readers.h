// Two other ways to read a trap configuration into the same records: as one would write it down
// plainly, and as fast as one pass without any check goes. Both know only what the generator
// writes.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <wqevents/configuration.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace wq::bench {

// What a reader has made; its traps hang on the enterprises.
class OtherModel {
  public:
    OtherModel() = default;
    ~OtherModel() {
        for (enterprise_info* enterprise : enterprises_) {
            free_traps(enterprise->trap_rec_list_head.next);
            std::free(enterprise->enterprise_name);
            std::free(enterprise->enterprise_oid);
            std::free(enterprise);
        }
    }
    OtherModel(const OtherModel&) = delete;
    OtherModel& operator=(const OtherModel&) = delete;

    enterprise_info* add(char* name, const std::vector<uint32_t>& oid) {
        auto* enterprise = static_cast<enterprise_info*>(std::calloc(1, sizeof(enterprise_info)));
        enterprise->enterprise_name = name;
        enterprise->oid_len = static_cast<uint32_t>(oid.size());
        enterprise->enterprise_oid =
            static_cast<uint32_t*>(std::malloc(oid.size() * sizeof(uint32_t)));
        std::memcpy(enterprise->enterprise_oid, oid.data(), oid.size() * sizeof(uint32_t));
        enterprises_.push_back(enterprise);
        return enterprise;
    }
    std::size_t traps() const {
        std::size_t count = 0;
        for (const enterprise_info* enterprise : enterprises_) {
            for (auto* r = enterprise->trap_rec_list_head.next; r != nullptr; r = r->next) {
                ++count;
            }
        }
        return count;
    }

  private:
    static void free_element(const trap_element& element) {
        std::free(element.rawstring);
        std::free(element.format);
    }
    static void free_traps(trap_record* record) {
        while (record != nullptr) {
            trap_record* next = record->next;
            free_element(record->description);
            if (record->execargs_ptr != nullptr) {
                free_element(*record->execargs_ptr);
                std::free(record->execargs_ptr);
            }
            for (int i = 0; i < record->nodeCnt; ++i) {
                std::free(record->nodeList[i]);
            }
            std::free(record->nodeList);
            std::free(record->trapDescription);
            std::free(record);
            record = next;
        }
    }

    std::vector<enterprise_info*> enterprises_;
};

// Copies the text with "%s" for each token; what a token is, is not checked.
inline void compile(std::string_view raw, trap_element& element) {
    auto* text = static_cast<char*>(std::malloc(raw.size() * 2 + 1));
    char* out = text;
    for (std::size_t i = 0; i < raw.size(); ++i) {
        *out++ = raw[i];
        if (raw[i] == '%') {
            *out++ = '%';
        } else if (raw[i] == '$' && i + 1 < raw.size()) {
            trap_arg& arg = element.arg_list[element.num_args++];
            const char kind = raw[++i];
            const bool numbered = kind >= '1' && kind <= '9';
            arg.arg_type = numbered ? ARG_NUM : ARG_A;
            arg.arg_num = numbered ? kind - '0' : 0;
            out[-1] = '%';
            *out++ = 's';
        }
    }
    *out = '\0';
    element.format = text;
}

inline void parse_oid(const char* text, std::vector<uint32_t>& oid) {
    oid.clear();
    char* end = nullptr;
    for (;; text = end + 1) {
        oid.push_back(static_cast<uint32_t>(std::strtoul(text, &end, 10)));
        if (*end != '.') {
            return;
        }
    }
}

// getline(), sscanf(), strdup(), hash maps.
class PlainReader {
  public:
    PlainReader(const char* path, OtherModel& model) : model_(model), file_(std::fopen(path, "r")) {
        read();
    }
    ~PlainReader() {
        std::free(line_);
        std::fclose(file_);
    }
    PlainReader(const PlainReader&) = delete;
    PlainReader& operator=(const PlainReader&) = delete;

  private:
    bool next() {
        while (getline(&line_, &room_, file_) > 0) {
            line_[std::strcspn(line_, "\n")] = '\0';
            if (line_[std::strspn(line_, " \t")] != '#') {
                return true;
            }
        }
        return false;
    }

    void read() {
        while (next()) {
            int number = 0;
            char name[256];
            char oid[256];
            char extra = 0;
            if (sscanf(line_, "CATEGORY %d \"%255[^\"]\"", &number, name) == 2) {
                categories_[name] = number;
            } else if (std::strncmp(line_, "ACTION", 6) == 0) {
                read_description();
            } else if (sscanf(line_, "%255s {%255[^}]} %c", name, oid, &extra) == 2) {
                parse_oid(oid, oid_);
                enterprises_[oid] = model_.add(strdup(name), oid_);
            } else {
                read_trap();
            }
        }
    }

    void read_trap() {
        char name[256];
        char oid[256];
        char category[256];
        auto* record = static_cast<trap_record*>(std::calloc(1, sizeof(trap_record)));
        if (sscanf(line_, "%255s {%255[^}]} %d %d %c %d %d \"%255[^\"]\"", name, oid,
                   &record->generic_trap, &record->specific_trap, &record->source,
                   &record->severity, &record->status, category) != 8) {
            std::abort();
        }
        const auto enterprise = enterprises_.find(oid);
        const auto slot = categories_.find(category);
        if (enterprise == enterprises_.end() || slot == categories_.end() ||
            !traps_.emplace(name, record).second) {
            std::abort();
        }
        std::snprintf(record->name, sizeof record->name, "%.39s", name);
        record->category_number = slot->second;
        next();
        record->description.rawstring = strdup(line_);
        compile(line_, record->description);
        read_options(*record);
        trap_record*& last = last_[enterprise->second];
        (last != nullptr ? last->next : enterprise->second->trap_rec_list_head.next) = record;
        last = record;
    }

    void read_options(trap_record& record) {
        next();
        if (std::strncmp(line_, "EXEC", 4) == 0) {
            record.execargs_ptr = static_cast<trap_element*>(std::calloc(1, sizeof(trap_element)));
            record.execargs_ptr->rawstring = strdup(line_ + 5);
            compile(line_ + 5, *record.execargs_ptr);
            next();
        }
        if (std::strncmp(line_, "FORWARD", 7) == 0) {
            record.forward = 1;
            next();
        }
        if (std::strncmp(line_, "NODES", 5) == 0) {
            record.nodeCnt = 1;
            record.nodeList = static_cast<char**>(std::malloc(sizeof(char*)));
            record.nodeList[0] = strdup(line_ + 6);
            next();
        }
        record.trapDescription = strdup(read_description().c_str());
    }

    std::string read_description() {
        std::string text;
        while (next() && std::strcmp(line_, "EDESC") != 0) {
            if (std::strcmp(line_, "SDESC") != 0) {
                text += line_;
                text += '\n';
            }
        }
        if (!text.empty()) {
            text.pop_back();
        }
        return text;
    }

    OtherModel& model_;
    std::FILE* file_;
    char* line_ = nullptr;
    std::size_t room_ = 0;
    std::vector<uint32_t> oid_;
    std::unordered_map<std::string, int> categories_;
    std::unordered_map<std::string, enterprise_info*> enterprises_;
    std::unordered_map<std::string, trap_record*> traps_;
    std::unordered_map<const enterprise_info*, trap_record*> last_;
};

// One pass over the mapped file, field by field from a known line to the next.
class OnePassReader {
  public:
    OnePassReader(const char* path, OtherModel& model) : model_(model) {
        const int fd = open(path, O_RDONLY | O_CLOEXEC);
        struct stat status {};
        if (fd < 0 || fstat(fd, &status) != 0) {
            std::abort();
        }
        size_ = static_cast<std::size_t>(status.st_size);
        map_ = mmap(nullptr, size_, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
        close(fd);
        at_ = static_cast<const char*>(map_);
        read();
    }
    ~OnePassReader() { munmap(map_, size_); }
    OnePassReader(const OnePassReader&) = delete;
    OnePassReader& operator=(const OnePassReader&) = delete;

  private:
    bool next() {
        const char* end = static_cast<const char*>(map_) + size_;
        while (at_ != end) {
            const auto* newline = static_cast<const char*>(
                std::memchr(at_, '\n', static_cast<std::size_t>(end - at_)));
            line_ = {at_, static_cast<std::size_t>(newline - at_)};
            at_ = newline + 1;
            if (line_[0] != '#') {
                return true;
            }
        }
        return false;
    }

    std::string_view field(char end) {
        const std::size_t length = line_.find(end);
        const std::string_view value = line_.substr(0, length);
        line_.remove_prefix(length + 1);
        return value;
    }

    int number() {
        const std::string_view text = field(' ');
        int value = 0;
        std::from_chars(text.data(), text.data() + text.size(), value);
        return value;
    }

    static char* copy(std::string_view text) {
        auto* to = static_cast<char*>(std::malloc(text.size() + 1));
        std::memcpy(to, text.data(), text.size());
        to[text.size()] = '\0';
        return to;
    }

    void read() {
        while (next()) {
            if (line_.starts_with("CATEGORY ")) {
                field(' ');
                const int slot = number();
                field('"');
                categories_.emplace_back(field('"'), slot);
            } else if (line_.starts_with("ACTION ")) {
                read_description();
            } else if (line_.ends_with('}')) {
                char* name = copy(field(' '));
                parse_oid(line_.data() + 1, oid_);
                by_oid_.emplace(line_.substr(1, line_.size() - 2), model_.add(name, oid_));
            } else {
                read_trap();
            }
        }
    }

    void read_trap() {
        auto* record = static_cast<trap_record*>(std::calloc(1, sizeof(trap_record)));
        const std::string_view name = field(' ');
        std::memcpy(record->name, name.data(), name.size());
        field('{');
        const std::string_view oid = field('}');
        field(' ');
        record->generic_trap = number();
        record->specific_trap = number();
        record->source = field(' ')[0];
        record->severity = number();
        record->status = number();
        field('"');
        const std::string_view category = field('"');
        for (const auto& [text, slot] : categories_) {
            if (text == category) {
                record->category_number = slot;
            }
        }
        next();
        record->description.rawstring = copy(line_);
        compile(line_, record->description);
        read_options(*record);
        append(record, oid);
    }

    void append(trap_record* record, std::string_view oid) {
        if (oid != last_oid_) {
            last_oid_ = oid;
            tail_ = &by_oid_[oid]->trap_rec_list_head.next;
        }
        *tail_ = record;
        tail_ = &record->next;
    }

    void read_options(trap_record& record) {
        next();
        if (line_.starts_with("EXEC")) {
            line_.remove_prefix(5);
            record.execargs_ptr = static_cast<trap_element*>(std::calloc(1, sizeof(trap_element)));
            record.execargs_ptr->rawstring = copy(line_);
            compile(line_, *record.execargs_ptr);
            next();
        }
        if (line_.starts_with("FORWARD")) {
            record.forward = 1;
            next();
        }
        if (line_.starts_with("NODES")) {
            record.nodeCnt = 1;
            record.nodeList = static_cast<char**>(std::malloc(sizeof(char*)));
            record.nodeList[0] = copy(line_.substr(6));
            next();
        }
        const char* start = at_;
        const char* last = at_;
        while (next() && line_ != "EDESC") {
            last = at_;
        }
        record.trapDescription = copy({start, static_cast<std::size_t>(last - start) - 1});
    }

    void read_description() {
        while (next() && line_ != "EDESC") {
        }
    }

    OtherModel& model_;
    std::size_t size_ = 0;
    void* map_ = nullptr;
    const char* at_ = nullptr;
    std::string_view line_;
    std::vector<uint32_t> oid_;
    std::vector<std::pair<std::string_view, int>> categories_;
    std::unordered_map<std::string_view, enterprise_info*> by_oid_;
    std::string_view last_oid_;
    trap_record** tail_ = nullptr;
};

}  // namespace wq::bench
