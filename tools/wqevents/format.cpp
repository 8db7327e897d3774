/*
 * wqevents format: prints the text of traps that are kept in files.
 */
#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>

#include "command.h"
#include "framing.h"
#include "input_file.h"
#include "octets.h"
#include "output.h"
#include "packet.h"
#include "pcap_file.h"
#include "trap_formatter.h"
#include "undecodable.h"

namespace wq::command {
namespace {

constexpr const char* footer_text =
    "A FILE holds hexadecimal digits, two an octet, or encoded traps as they are, back to back\n"
    "either way, or captured packets (pcap, pcapng). Of packets those are taken that carry an\n"
    "SNMPv1 trap by UDP to any port; their lines tell the time of the capture, others the present\n"
    "one.\n"
    "\n"
    "Examples:\n"
    "  wqevents format trap.hex\n"
    "  wqevents format --conf vortd.conf --kind kmevents traps.pcap\n"
    "  tcpdump -w - udp port 162 | wqevents format -";

constexpr std::uint16_t trap_port = 162;

struct FormatOptions {
    std::string conf;
    std::string kind;
    std::vector<std::string> files;
};

/* Prints the text of one trap after the other and counts what cannot be printed. */
class Printer {
  public:
    Printer(rtrap_user kind, const std::string& configuration) : formatter_(kind, configuration) {}

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
            case TrapFormatter::Result::failed:
                throw Failure(std::string(formatter_.text()));
        }
    }

    /* Tells something about the input, behind the lines that came before it. */
    void note(const std::string& text) {
        output_.flush();
        report("wqevents format: " + text + "\n");
    }

    void flush() { output_.flush(); }

    void finish() {
        output_.flush();
        if (hidden_ > 0) {
            note("traps that are not to be shown: " + std::to_string(hidden_));
        }
        if (undecodable_ > 0) {
            throw Failure("traps that do not decode: " + std::to_string(undecodable_));
        }
    }

  private:
    TrapFormatter formatter_;
    TrapRecords trap_;
    Output output_;
    std::uint64_t hidden_ = 0;
    std::uint64_t undecodable_ = 0;
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

void format_capture(Printer& printer, InputFile file, const std::string& name) {
    PcapFile capture(std::move(file), name);
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

/* Whether everything could have been typed: digits, or what was meant to be some. */
bool is_text(std::string_view content) {
    return std::all_of(content.begin(), content.end(), [](char c) {
        return (c >= ' ' && c <= '~') || c == '\t' || c == '\r' || c == '\n';
    });
}

/* The encoded traps of a file that is no capture. */
Octets octets_of(std::FILE* file, const std::string& name) {
    const std::string content = read_all(file, name);
    Octets octets =
        is_text(content) ? read_hex(name, content) : Octets(content.begin(), content.end());
    if (octets.empty()) {
        throw Failure(name + " holds no trap");
    }
    return octets;
}

void format_octets(Printer& printer, const Octets& octets, const std::string& name) {
    std::span<const std::uint8_t> rest = octets;
    for (std::uint64_t number = 1; !rest.empty(); ++number) {
        const std::string where = name + ": trap " + std::to_string(number);
        const Frame frame = next_frame(Framing::raw, rest);
        if (frame.state == Frame::State::whole) {
            printer.print(where, frame.trap, 0);
            rest = rest.subspan(frame.length);
            continue;
        }
        throw Failure(where + ": " +
                      (frame.state == Frame::State::refused ? frame.reason : "it does not end"));
    }
}

void format_file(Printer& printer, const std::string& name) {
    InputFile file = open_input(name);
    if (PcapFile::begins_with(read_start(file.get(), PcapFile::magic_size))) {
        format_capture(printer, std::move(file), name);
    } else {
        format_octets(printer, octets_of(file.get(), name), name);
    }
}

void run_format(const FormatOptions& options) {
    Printer printer(parse_layout_kind(options.kind), options.conf);
    try {
        for (const std::string& name : options.files) {
            format_file(printer, name);
        }
    } catch (const Failure&) {
        printer.flush();
        throw;
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
    command->add_option("FILE", options->files, "What holds the traps; - is the standard input")
        ->type_name("")
        ->required();
    command->footer(layout_kinds_help + std::string("\n\n") + footer_text);
    command->callback([options] { run_format(*options); });
}

}  // namespace wq::command
