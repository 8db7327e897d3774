// wqevents conf repair: a file whose writer did not finish.
//
// Such a file begins with a mark and goes on with the old text, the new one, or the beginning of
// the new one and the end of the old. Nothing in the file tells which, and such a mix may well be
// read without an error. So only the old text that was kept beside is taken without being told to.
#include "conf_repair.h"

#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <wqevents/configuration.h>

#include "command.h"
#include "conf_edit.h"
#include "conf_file.h"
#include "conf_model.h"
#include "output.h"
#include "shown_text.h"

namespace wq::command {
namespace {

constexpr const char* repair_footer =
    "\nAn editor that is killed while it writes leaves a file whose first line is '!', which "
    "nothing\n"
    "reads. It is repaired\n"
    "  - from FILE~, the old text that 'wqevents conf set --backup' and the like keep, if that "
    "was\n"
    "    made by the edit that was killed;\n"
    "  - with --force, from an older FILE~: the edits after it are lost;\n"
    "  - with --force, where there is no FILE~, by putting the first line back, if the text after "
    "it\n"
    "    can be read and ends as such a file ends. It may be the old text, the new one, or a mix\n"
    "    of both: look through it.\n"
    "An old text that ends in NULs, which an editor of an earlier version may leave, loses these.\n"
    "Else the file stays as it is, and the status is 1.\n"
    "\n"
    "Examples:\n"
    "  wqevents conf repair --dry-run\n"
    "  wqevents conf repair vortd.conf --backup";

struct RepairOptions {
    EditOptions edit;
    bool force = false;
};

// The bytes that a file gets, and what is said about them.
struct Repair {
    std::string bytes;
    std::string told;
};

// The reader's message; none where the text is that of a whole configuration.
std::optional<std::string> fault_of(const std::string& text, const std::string& name) {
    try {
        load_text(text, name);
        return std::nullopt;
    } catch (const Failure& failure) {
        return failure.what();
    }
}

std::string local_time(std::time_t when) {
    char text[64] = "";
    std::tm parts{};
    if (localtime_r(&when, &parts) != nullptr) {
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    }
    return text;
}

// When the file was written last, and when it got its name, permissions and contents.
struct Times {
    std::time_t contents;
    std::time_t everything;
};

std::optional<Times> times_of(const std::string& name) {
    struct stat status {};
    if (stat(name.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return Times{status.st_mtime, status.st_ctime};
}

// The edit that was killed kept its backup right before it began to write.
bool belongs_to_last_write(const Times& backup, const Times& file) {
    constexpr std::time_t longest_edit = 60;
    return file.contents - backup.everything <= longest_edit;
}

Failure cannot_repair(const std::string& why) {
    return Failure(shown(getVortdConfFile()) + " is not repaired: " + why);
}

Repair from_backup(const std::string& name, const std::string& backup, bool force) {
    std::string bytes = read_configuration_bytes(backup);
    const auto fault = fault_of(bytes, backup);
    if (fault || bytes.size() <= unfinished_mark.size()) {
        throw cannot_repair(fault ? *fault : shown(backup) + " is empty");
    }
    const auto kept = times_of(backup);
    const auto written = times_of(name);
    const std::string when = kept ? local_time(kept->everything) : "";
    if (!force && kept && written && !belongs_to_last_write(*kept, *written)) {
        throw cannot_repair(
            backup + " was kept at " + when + ", long before " + shown(name) + " was written at " +
            local_time(written->contents) +
            ".\nThe edits after it would be lost. To take it all the same: --force");
    }
    return {std::move(bytes), "It has the text of " + shown(backup) + ", kept at " + when +
                                  ": the edit that was not finished is lost."};
}

bool ends_as_written(std::string_view text) {
    return text.ends_with(std::string("\n") + edescKeyword + "\n") ||
           text.ends_with("\n# User added trap formats:\n#\n");
}

// With the first line that every written file has.
Repair from_the_rest(const std::string& name, const std::string& bytes, bool force) {
    std::string text = "#\n" + bytes.substr(unfinished_mark.size());
    const std::string no_backup = "there is no " + shown(backup_name());
    if (text.find('\0') != std::string::npos) {
        throw cannot_repair(no_backup +
                            ", and the text after the first line is not whole: it has "
                            "NULs");
    }
    if (const auto fault = fault_of(text, name)) {
        throw cannot_repair(no_backup + ", and the text after the first line is not whole:\n" +
                            *fault);
    }
    if (!text.starts_with("#\n# Created by zeltrap at ") || !ends_as_written(text)) {
        throw cannot_repair(no_backup +
                            ", and the text after the first line does not begin and "
                            "end as a written file does");
    }
    if (!force) {
        throw cannot_repair(no_backup +
                            ".\nThe text after the first line can be read, but it may be the new "
                            "text with an end of the old one:\nnothing tells. To take it all the "
                            "same: --force, after a look at what --force --dry-run prints");
    }
    return {
        std::move(text),
        "Its first line is back. The text may be a mix of the old and the new one: look through "
        "it."};
}

std::string without_last_nuls(const std::string& bytes) {
    return bytes.substr(0, bytes.find_last_not_of('\0') + 1);
}

// Room that was made for a longer text before anything of the old one changed.
std::optional<Repair> from_old_text(const std::string& name, const std::string& bytes) {
    std::string text = without_last_nuls(bytes);
    if (text.size() == bytes.size() || text.size() <= unfinished_mark.size() ||
        text.find('\0') != std::string::npos || !text.ends_with('\n') || fault_of(text, name)) {
        return std::nullopt;
    }
    return Repair{std::move(text), "The NULs at its end are gone."};
}

// None where nothing is wrong.
std::optional<Repair> find_repair(const std::string& bytes, bool force) {
    const std::string name = getVortdConfFile();
    if (is_unfinished(bytes)) {
        const std::string backup = backup_name();
        return times_of(backup) ? from_backup(name, backup, force)
                                : from_the_rest(name, bytes, force);
    }
    if (auto repair = from_old_text(name, bytes)) {
        return repair;
    }
    if (const auto fault = fault_of(bytes, name)) {
        throw cannot_repair("its first line is not '!', so it is no text that was not finished:\n" +
                            *fault);
    }
    return std::nullopt;
}

void say(const std::string& text) {
    Output output;
    output.text() = text + "\n";
    output.flush();
}

// The unfinished text must not take the place of the backup that it was repaired from.
void keep_unfinished(const LockedFile& file, const std::string& bytes) {
    const std::string name = std::string(getVortdConfFile()) + ".unfinished";
    put_beside(name, fileno(file.get()), bytes);
}

void run_repair(const RepairOptions& options) {
    const EditOptions& edit = options.edit;
    setVortdConfFile(edit.conf.c_str());
    LockedFile file = edit.dry_run ? nullptr : lock_configuration(edit.wait);
    const std::string before =
        edit.dry_run ? read_configuration_bytes(getVortdConfFile()) : bytes_of(file);
    const auto repair = find_repair(before, options.force);
    const std::string name = getVortdConfFile();
    if (!repair) {
        say("nothing to repair in " + shown(name));
        return;
    }
    if (edit.dry_run) {
        print_difference(edit, before, repair->bytes);
        return;
    }
    if (edit.backup) {
        keep_unfinished(file, before);
    }
    replace_bytes(file, repair->bytes);
    file.reset();
    say("repaired " + shown(name) + "\n  " + repair->told);
    tell_daemon(edit);
}

}  // namespace

void add_conf_repair(CLI::App& conf) {
    const auto options = std::make_shared<RepairOptions>();
    CLI::App* repair = conf.add_subcommand("repair", "Mend a file whose writer did not finish");
    add_edit_options(*repair, options->edit);
    repair->get_option("--backup")->description("Keep the unfinished text as FILE.unfinished");
    CLI::Option* file = repair->add_option("FILE", options->edit.conf, "The file");
    file->type_name("")->excludes(repair->get_option("--conf"));
    repair->add_flag("--force", options->force, "Take what may be wrong, see below");
    repair->footer(repair_footer);
    repair->callback([options] { run_repair(*options); });
}

}  // namespace wq::command
