// An edit changes what was asked for and nothing else, reads and writes no more than it must, and
// takes a failed read for no end of the file.
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <numeric>

#include "support/random.h"
#include "support/sandbox.h"
#include "support/temp_dir.h"
#include "traced_command.h"

namespace wq::test {
namespace {

struct Trap {
    std::string name, oid;
    int generic = 6, specific = 0, severity = 1;
    std::string category, format = "f", nodes, description;

    std::string text() const {
        std::string text = name + " {" + oid + "} " + std::to_string(generic) + " ";
        text += std::to_string(specific) + " A " + std::to_string(severity) + " 0 \"" + category;
        text += "\"\n" + format + "\n";
        text += nodes.empty() ? "" : "NODES" + nodes + "\n";
        return text + "SDESC\n" + description + "EDESC\n";
    }
};

// A configuration as the library writes it.
struct Model {
    std::vector<std::pair<int, std::string>> categories;
    std::vector<std::string> actions;
    std::vector<std::pair<std::string, std::string>> enterprises;
    std::vector<Trap> traps;

    std::string text() const {
        std::string text =
            "#\n# Created by zeltrap at some time by someone\n#\n###################\n#\n"
            "# enterprises:\n#\n###################\n#\n# display categories:\n#\n";
        for (const auto& [number, name] : categories) {
            text += "CATEGORY " + std::to_string(number) + " \"" + name + "\"\n";
        }
        if (!actions.empty()) {
            text += "###################\n#\n# Operator Actions:\n#\n";
        }
        for (const std::string& name : actions) {
            text += "ACTION 3 \"" + name + "\" do it\nSDESC\nIt is done.\nEDESC\n";
        }
        text += "###################\n#\n# enterprises:\n#\n";
        for (const auto& [name, oid] : enterprises) {
            text += name + " {" + oid + "}\n";
        }
        text += "#\n# User added trap formats:\n#\n";
        for (const Trap& trap : traps) {
            text += trap.text();
        }
        return text;
    }
};

const std::vector<std::pair<int, std::string>> all_categories = {
    {0, "Threshold Events"},
    {1, "Network Topology Events"},
    {2, "Error Events"},
    {3, "Status Events"},
    {4, "Node Configuration Events"},
    {5, "Application Alert Events"},
    {7, "LOGONLY"},
    {9, "IGNORE"},
    {11, "Own"},
    {20, "Status Events"},  // a second one, as editors used to leave it
    {63, "Last"},
};

// The more specific enterprise comes first.
const std::vector<std::pair<std::string, std::string>> all_enterprises = {
    {"ups", "1.3.6.1.2.1.33"},
    {"longer", "1.3.6.1.4.1.8072.4"},
    {"agent", "1.3.6.1.4.1.8072"},
    {"room", "1.3.6.1.4.1.32473"},
};

class RandomModel {
  public:
    explicit RandomModel(Random& random) : random_(random) {
        for (const auto& category : all_categories) {
            if (random_.one_in(2)) {
                model_.categories.push_back(category);
            }
        }
        if (model_.categories.empty()) {
            model_.categories.emplace_back(12, "Only");
        }
        for (const char* name : {"one", "two", "three"}) {
            if (random_.one_in(3)) {
                model_.actions.emplace_back(name);
            }
        }
        for (const auto& enterprise : all_enterprises) {
            if (random_.one_in(2)) {
                model_.enterprises.push_back(enterprise);
                add_traps(enterprise.second);
            }
        }
    }
    Model take() { return model_; }

  private:
    void add_traps(const std::string& oid) {
        for (int generic = 0; generic <= 6; generic += 6) {
            for (int specific = 0; specific < 3; ++specific) {
                const std::uint32_t with_nodes = random_.one_in(2) ? random_.between(0, 4) : 0;
                for (std::uint32_t i = 0; i < with_nodes; ++i) {
                    add_trap(oid, generic, specific, " n" + std::to_string(i) + " m" + number());
                }
                if (random_.one_in(2)) {
                    add_trap(oid, generic, specific, "");
                }
            }
        }
    }
    void add_trap(const std::string& oid, int generic, int specific, const std::string& nodes) {
        Trap trap;
        trap.name = "trap" + number();
        trap.oid = oid;
        trap.generic = generic;
        trap.specific = specific;
        trap.nodes = nodes;
        trap.severity = static_cast<int>(random_.between(0, 5));
        const auto last = static_cast<std::uint32_t>(model_.categories.size() - 1);
        trap.category = model_.categories[random_.between(0, last)].second;
        trap.description = random_.one_in(2) ? "Text of " + trap.name + ".\n\nMore.\n" : "";
        model_.traps.push_back(trap);
    }
    std::string number() { return std::to_string(++numbers_); }

    Random& random_;
    Model model_;
    int numbers_ = 0;
};

std::string timeless(std::string text) {
    const std::size_t begin = text.find("# Created by");
    if (begin != std::string::npos) {
        text.erase(begin, text.find('\n', begin) + 1 - begin);
    }
    return text;
}

std::size_t count_of(const std::string& part, const std::string& text) {
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) {
        ++count;
    }
    return count;
}

class ConfExact : public testing::Test {
  protected:
    Words edit(Words words) const {
        words.insert(words.begin(), "conf");
        words.insert(words.end(), {"--conf", file_, "--no-notify"});
        return words;
    }
    // Asks for a dry run first, whose difference must turn the file into what is written then.
    void expect_edit(const Words& words, const Model& after, const std::string& seed) {
        Words dry = edit(words);
        dry.push_back("--dry-run");
        const std::string before = dir_.read("conf");
        const CommandRun shown(dry, options_);
        ASSERT_EQ(shown.err, "") << seed;
        ASSERT_EQ(dir_.read("conf"), before) << seed;
        dir_.write("copy", before);
        dir_.write("difference", shown.out);
        Subprocess patch({"patch", "-s", dir_.path("copy"), dir_.path("difference")});
        ASSERT_EQ(patch.wait(), 0) << patch.out() << patch.err() << seed;
        const CommandRun run(edit(words), options_);
        ASSERT_EQ(run.status, 0) << run.err << seed;
        ASSERT_EQ(timeless(dir_.read("conf")), timeless(after.text()))
            << testing::PrintToString(words) << " " << seed << "\n"
            << before;
        ASSERT_EQ(timeless(dir_.read("copy")), timeless(dir_.read("conf"))) << seed;
    }

    TempDir dir_;
    std::string file_ = dir_.path("conf");
    SubprocessOptions options_{
        .environment = {{"FERLOD_CONF", dir_.path("ferlod.conf")}, {"LC_ALL", "C"}}};
};

TEST_F(ConfExact, EditsChangeNothingElse) {
    Random random;
#ifdef __SANITIZE_ADDRESS__
    constexpr int rounds = 5;  // each starts the command many times
#else
    constexpr int rounds = 25;
#endif
    for (int round = 0; round < rounds; ++round) {
        Model model = RandomModel(random).take();
        dir_.write("conf", model.text());
        for (int i = 0; i < 2 && !model.traps.empty(); ++i) {
            const auto last = static_cast<std::uint32_t>(model.traps.size() - 1);
            Trap& trap = model.traps[random.between(0, last)];
            trap.severity = (trap.severity + 1) % 6;
            trap.format = "Changed $" + std::to_string(i + 1);
            trap.description = "Another.\n";
            expect_edit({"set", trap.name, "--severity", std::to_string(trap.severity), "--format",
                         trap.format, "--description", "Another."},
                        model, random.name());
            const std::string old_name = trap.name;
            trap.name += "New";
            expect_edit({"rename", old_name, trap.name}, model, random.name());
        }
        if (!model.traps.empty()) {
            const auto last = static_cast<std::uint32_t>(model.traps.size() - 1);
            const auto at = model.traps.begin() + random.between(0, last);
            const std::string name = at->name;
            model.traps.erase(at);
            expect_edit({"delete", name}, model, random.name());
        }
        const auto added = std::ranges::find_if(
            model.categories, [](const auto& category) { return category.first > 40; });
        model.categories.insert(added, {40, "Added"});
        expect_edit({"category", "add", "Added", "--number", "40"}, model, random.name());
        if (HasFatalFailure()) {
            return;
        }
    }
}

// A category that only the reader gives the model gets no line, even where traps are in it.
TEST_F(ConfExact, StandardCategoriesStayImplied) {
    Model model;
    model.categories = {{20, "Status Events"}};
    model.enterprises = {{"agent", "1.3.6.1.4.1.8072"}};
    Trap ignored;
    ignored.name = "ignored";
    ignored.oid = "1.3.6.1.4.1.8072";
    ignored.category = "IGNORE";
    Trap own = ignored;
    own.name = "own";
    own.specific = 1;
    own.category = "Status Events";
    model.traps = {ignored, own};
    dir_.write("conf", model.text());
    model.traps[1].severity = 3;
    expect_edit({"set", "own", "--severity", "3"}, model, "");
    model.traps[0].severity = 4;
    expect_edit({"set", "ignored", "--severity", "4"}, model, "");
    const CommandRun check({"conf", "check", file_}, options_);
    EXPECT_EQ(check.out, "ok: 1 enterprises, 2 traps, 1 categories, 0 actions\n");

    model.categories = {{9, "IGNORE"},
                        {7, "LOGONLY"},
                        {2, "Error Events"},
                        {0, "Threshold Events"},
                        {1, "Network Topology Events"}};
    std::ranges::sort(model.categories);
    model.categories.emplace_back(20, "Status Events");
    dir_.write("conf", model.text());
    model.traps[1].severity = 5;
    expect_edit({"set", "own", "--severity", "5"}, model, "");
    model.categories.back().second = "State";
    model.traps[1].category = "State";
    expect_edit({"category", "set", "Status Events", "--name", "State"}, model, "");
}

// What reading a file loses must not be lost by an edit of something else.
TEST_F(ConfExact, RefusesToLoseWhatAReadLoses) {
    Model model;
    model.categories = {{9, "IGNORE"}};
    model.enterprises = {{"agent", "1.3.6.1.4.1.8072"}};
    Trap trap;
    trap.name = "long";
    trap.oid = "1.3.6.1.4.1.8072";
    trap.category = "IGNORE";
    trap.format = std::string(4095, 'x');
    Trap other = trap;
    other.name = "other";
    other.specific = 1;
    other.format = "f";
    model.traps = {trap, other};
    dir_.write("conf", model.text());
    const CommandRun run(edit({"set", "other", "--status", "3"}), options_);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(without_command(run.err),
              "the text in line 22 is longer than 4094 bytes and would be lost\n");
    EXPECT_EQ(dir_.read("conf"), model.text());

    model.traps = {other};
    std::string oid = "1.3.6";
    for (int i = 0; i < 98; ++i) {
        oid += ".1";
    }
    model.enterprises.insert(model.enterprises.begin(), {"deep", oid});
    dir_.write("conf", model.text());
    const CommandRun deep(edit({"set", "other", "--status", "3"}), options_);
    EXPECT_EQ(without_command(deep.err),
              "the object identifier of the enterprise 'deep' is longer than 100 numbers and would "
              "be cut\n");
    EXPECT_EQ(dir_.read("conf"), model.text());
}

TEST_F(ConfExact, ReadsAndWritesNoMoreThanItMust) {
    REQUIRE_TRACING();
    Random random;
    Model model;
    while (model.traps.empty()) {
        model = RandomModel(random).take();
    }
    dir_.write("conf", model.text());
    const CommandRun run =
        traced_run({"-y", "-o", dir_.path("calls"), "-e",
                    "trace=openat,memfd_create,fdatasync,fsync,read,pread64,pwrite64"},
                   edit({"set", model.traps[0].name, "--status", "7"}), options_);
    ASSERT_EQ(run.status, 0) << run.err;
    const std::string calls = dir_.read("calls");
    EXPECT_EQ(count_of("\"" + file_ + "\"", calls), 1U) << "opened once\n" << calls;
    EXPECT_LE(count_of("openat(AT_FDCWD, \"/proc/self/fd/", calls), 2U) << "parsed\n" << calls;
    EXPECT_LE(count_of("memfd_create(", calls), 4U) << "two texts, two of them parsed\n" << calls;
    EXPECT_LE(count_of("sync(", calls), 12U) << calls;
    EXPECT_LE(count_of("sync(3<" + file_, calls), 4U) << calls;
}

// --- reads that fail ---

TEST_F(ConfExact, AFailedReadIsNoEndOfTheFile) {
    REQUIRE_TRACING();
    Model model;
    model.categories = {{9, "IGNORE"}};
    model.enterprises = {{"agent", "1.3.6.1.4.1.8072"}};
    for (int i = 0; i < 3000; ++i) {
        Trap trap;
        trap.name = "trap" + std::to_string(i);
        trap.oid = "1.3.6.1.4.1.8072";
        trap.specific = i;
        trap.category = "IGNORE";
        model.traps.push_back(trap);
    }
    dir_.write("conf", model.text());
    const std::string other = dir_.write("other", model.text());
    const Words commands[] = {
        {"conf", "check", file_},
        {"conf", "list", "--conf", file_},
        {"conf", "show", "--conf", file_, "trap1"},
        {"conf", "diff", file_, other},
        {"conf", "diff", other, file_},
        {"conf", "category", "list", "--conf", file_},
        {"conf", "repair", file_, "--no-notify"},
        {"conf", "repair", file_, "--dry-run"},
        edit({"set", "trap1", "--status", "3"}),
        edit({"set", "trap1", "--status", "3", "--dry-run"}),
        edit({"delete", "trap1"}),
        edit({"rename", "trap1", "x"}),
        edit({"category", "add", "x"}),
        edit({"action", "add", "x"}),
        edit({"enterprise", "add", "x", "1.3.6.1.4.1.9"}),
        edit({"add", "x", "--enterprise", "agent", "--specific", "9999", "--category", "IGNORE",
              "--format", "f"}),
    };
    for (const Words& words : commands) {
        for (const char* when : {"1+", "2+", "3+"}) {
            const CommandRun run = traced_run({"-o", "/dev/null", "-P", file_, "-e",
                                               std::string("inject=read:error=EIO:when=") + when},
                                              words, options_);
            EXPECT_EQ(run.status, 1) << testing::PrintToString(words) << when;
            EXPECT_EQ(run.out, "") << testing::PrintToString(words);
            EXPECT_EQ(without_command(run.err),
                      "Could not read trap format file \"" + file_ + "\": Input/output error\n");
            ASSERT_EQ(dir_.read("conf"), model.text());
        }
    }
}

// --- files that cannot be written ---

TEST_F(ConfExact, AReadOnlyMountIsNotWaitedFor) {
    REQUIRE_SANDBOX();
    run_in_sandbox([this] {
        const std::string folder = dir_.path("mounted");
        std::filesystem::create_directory(folder);
        sandbox::check(mount("tmpfs", folder.c_str(), "tmpfs", 0, nullptr) == 0, "tmpfs");
        const std::string text = "CATEGORY 9 \"IGNORE\"\nagent {1.3.6}\n";
        dir_.write("mounted/conf", text);
        sandbox::check(
            mount(nullptr, folder.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0,
            "read-only");
        const auto start = std::chrono::steady_clock::now();
        const CommandRun run({"conf", "category", "add", "x", "--conf", folder + "/conf",
                              "--no-notify", "--wait", "600"},
                             options_);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(25));
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(without_command(run.err), "Could not open configuration file \"" + folder +
                                                "/conf\".\nError 30: Read-only file system.\n");
        EXPECT_EQ(dir_.read("mounted/conf"), text);
    });
}

TEST_F(ConfExact, TakesNoSpecialFiles) {
    const std::string pipe = dir_.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& name : {std::string("/dev/zero"), std::string("/"), pipe}) {
        for (const Words& words :
             {Words{"check", name}, Words{"list", "--conf", name}, Words{"diff", name, name},
              Words{"delete", "x", "--conf", name, "--dry-run"},
              Words{"action", "list", "--conf", name}, Words{"repair", "--dry-run", name}}) {
            Words all{"conf"};
            all.insert(all.end(), words.begin(), words.end());
            const CommandRun run(all, options_);
            EXPECT_EQ(run.status, 1) << name;
            EXPECT_EQ(run.out, "");
            EXPECT_TRUE(without_command(run.err).starts_with("cannot read " + name)) << run.err;
        }
    }
}

}  // namespace
}  // namespace wq::test
