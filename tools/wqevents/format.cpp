/*
 * wqevents format: prints the text of traps that are kept in files.
 */
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <memory>

#include "command.h"
#include "framing.h"
#include "host_names.h"
#include "input_file.h"
#include "octets.h"
#include "output.h"
#include "packet.h"
#include "pcap_file.h"
#include "reload.h"
#include "trap_formatter.h"
#include "undecodable.h"

namespace wq::command {
namespace {

constexpr const char* footer_text =
    "A FILE holds hexadecimal digits, two an octet, or encoded traps as they are, back to back\n"
    "either way, or captured packets (pcap, pcapng). Of packets those are taken that carry an\n"
    "SNMPv1 trap by UDP to any port; their lines tell the time of the capture, others the present\n"
    "one. A FILE that cannot be read to its end is told; the next one is read, and the status is "
    "1.\n"
    "\n"
    "Control characters are printed as \\xHH, and a tab stands before further lines of a text "
    "that\n"
    "would look like a trap's first. With --raw the lines are as the library makes them.\n"
    "\n"
    "Examples:\n"
    "  wqevents format trap.hex\n"
    "  wqevents format --conf vortd.conf --kind kmevents traps.pcap\n"
    "  tcpdump -w - udp port 162 | wqevents format -";

constexpr std::uint16_t trap_port = 162;
constexpr std::size_t piece_size = 65536;

/* Each encoded trap has an octet below a blank before its sixteenth: the version's INTEGER. */
constexpr std::size_t text_start = 16;

struct FormatOptions {
    std::string conf;
    std::string kind;
    bool raw = false;
    NameMode names = NameMode::now;
    std::vector<std::string> files;
};

/* Prints the text of one trap after the other and counts what cannot be printed. */
class Printer {
  public:
    explicit Printer(const FormatOptions& options)
        : configuration_(options.conf),
          names_(options.names, options.names == NameMode::cache),
          formatter_(parse_layout_kind(options.kind), options.raw) {
        if (options.raw) {
            output_.pass_raw();
        }
    }

    /* `where` is the trap's place, for messages. */
    void print(const std::string& where, std::span<const std::uint8_t> message, std::time_t time) {
        if (const char* reason = trap_.decode(message)) {
            ++undecodable_;
            return note(where + ": the trap does not decode: " + reason);
        }
        switch (formatter_.format(trap_, time)) {
            case TrapFormatter::Result::cut:
                note(where + ": the text is cut short");
                [[fallthrough]];
            case TrapFormatter::Result::shown:
                output_.text() += formatter_.text();
                return output_.written();
            case TrapFormatter::Result::hidden:
                ++hidden_;
                return;
        }
    }

    /* Tells something about the input, after the lines that came before it. */
    void note(const std::string& text) {
        output_.flush();
        report_message("wqevents format", text);
    }

    /* The same, of an input the rest of which is left out. */
    void tell_failure(const std::string& text) {
        failed_ = true;
        note(text);
    }

    void finish() {
        output_.flush();
        if (hidden_ > 0) {
            note("traps that are not to be shown: " + std::to_string(hidden_));
        }
        if (undecodable_ > 0) {
            throw Failure("traps that do not decode: " + std::to_string(undecodable_));
        }
        if (failed_) {
            throw Failure("");
        }
    }

  private:
    Configuration configuration_;
    HostNames names_;
    TrapFormatter formatter_;
    TrapRecords trap_;
    Output output_;
    std::uint64_t hidden_ = 0;
    std::uint64_t undecodable_ = 0;
    bool failed_ = false;
};

/* Packets of a capture that may have carried a trap, but give none. */
struct Skipped {
    std::uint64_t fragments = 0;
    std::uint64_t cut = 0;
    std::uint64_t no_traps = 0;

    void count(const Packet& packet) {
        fragments += packet.kind == Packet::Kind::fragment ? 1 : 0;
        cut += packet.kind == Packet::Kind::cut ? 1 : 0;
        no_traps += packet.kind == Packet::Kind::datagram && packet.port == trap_port ? 1 : 0;
    }
    void tell(Printer& printer, const std::string& name) const {
        const auto tell = [&](std::uint64_t count, const char* what) {
            if (count > 0) {
                printer.note(name + ": skipped " + what + ": " + std::to_string(count));
            }
        };
        tell(fragments, "fragments of IP packets");
        tell(cut, "packets that are cut short");
        tell(no_traps, "datagrams to port 162 that are no SNMPv1 trap");
    }
};

void format_capture(Printer& printer, Input& input) {
    const std::string& name = input.name();
    PcapFile capture(input.stream(), name);
    Skipped skipped;
    std::uint64_t number = 0;
    while (const auto frame = capture.next()) {
        ++number;
        const Packet packet = parse_packet(capture.link(), frame->bytes);
        if (packet.kind == Packet::Kind::datagram && is_trap_message(packet.payload)) {
            printer.print(name + ": packet " + std::to_string(number), packet.payload, frame->time);
        } else {
            skipped.count(packet);
        }
    }
    skipped.tell(printer, name);
}

/* Whether all of it could have been typed: digits, or what was meant to be some. */
bool is_text(std::string_view content) {
    return std::all_of(content.begin(), content.end(), [](char c) {
        return (c >= ' ' && c <= '~') || c == '\t' || c == '\r' || c == '\n';
    });
}

/* Appends encoded octets of a further piece; false at the end. */
bool append_encoded(Input& input, Octets& octets) {
    std::array<char, piece_size> room;
    const std::string_view piece = input.read(room);
    octets.insert(octets.end(), piece.begin(), piece.end());
    return !piece.empty();
}

/* The traps of an input that is no capture, which are printed as soon as they are whole. */
class TrapsBackToBack {
  public:
    TrapsBackToBack(Printer& printer, Input& input) : printer_(printer), input_(input) {}

    void print() {
        HexStream hex(input_);
        const bool text = is_text(input_.peek(text_start));
        try {
            while (text ? hex.append_to(octets_) : append_encoded(input_, octets_)) {
                print_whole_traps();
            }
        } catch (const Failure&) {
            print_whole_traps();
            throw;
        }
        check_end();
    }

  private:
    std::string place() const { return input_.name() + ": trap " + std::to_string(printed_ + 1); }

    void print_whole_traps() {
        std::span<const std::uint8_t> rest = octets_;
        Frame frame = next_frame(Framing::raw, rest);
        while (frame.state == Frame::State::whole) {
            printer_.print(place(), frame.trap, 0);
            ++printed_;
            rest = rest.subspan(frame.length);
            frame = next_frame(Framing::raw, rest);
        }
        octets_.erase(octets_.begin(), octets_.end() - static_cast<std::ptrdiff_t>(rest.size()));
        if (frame.state == Frame::State::refused) {
            octets_.clear();
            throw Failure(place() + ": " + frame.reason);
        }
    }

    void check_end() const {
        if (!octets_.empty()) {
            throw Failure(place() + ": it does not end");
        }
        if (printed_ == 0) {
            throw Failure(input_.name() + " holds no trap");
        }
    }

    Printer& printer_;
    Input& input_;
    Octets octets_; /* less than a trap and a piece of the input */
    std::uint64_t printed_ = 0;
};

void format_file(Printer& printer, const std::string& name) {
    Input input(name);
    if (PcapFile::begins_with(input.peek(PcapFile::magic_size))) {
        format_capture(printer, input);
    } else {
        TrapsBackToBack(printer, input).print();
    }
}

void run_format(const FormatOptions& options) {
    Printer printer(options);
    for (const std::string& name : options.files) {
        try {
            format_file(printer, name);
        } catch (const Failure& failure) {
            printer.tell_failure(failure.what());
        }
    }
    printer.finish();
}

}  // namespace

void add_format(CLI::App& app) {
    const auto options = std::make_shared<FormatOptions>();
    CLI::App* command =
        app.add_subcommand("format", "Print the operator's lines for traps in files");
    command
        ->add_option("--conf", options->conf,
                     "The configuration (default: the one that the platform names)")
        ->type_name("FILE");
    command->add_option("--kind", options->kind, "The layout, see below")->type_name("KIND");
    command->add_flag("--raw", options->raw, "Print the lines as the library makes them");
    add_names_option(*command, options->names);
    command->add_option("FILE", options->files, "What holds the traps; - is the standard input")
        ->type_name("")
        ->required();
    command->footer(layout_kinds_help + std::string("\n\n") + footer_text);
    command->callback([options] { run_format(*options); });
}

}  // namespace wq::command
