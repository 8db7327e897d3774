#include <algorithm>
#include <array>
#include <clocale>
#include <cstring>
#include <span>
#include <string_view>

#include <wqevents/alerts.h>
#include <wqevents/codec.h>

#include "EMS/events/internal/text_sink.h"
#include "EMS/events/nl_ferlospec.h"

namespace wq {
namespace {

using Oid = std::span<const uint32_t>;

enum CodePointSet {
    alert_types = 1,
    causes_of_probable = 2,
    user_set = 3,
    install_set = 4,
    failure_set = 5,
    actions_set = 6,
    data_identifiers = 7,
};

enum Encoding { hexadecimal = 0, decimal = 1, text_encoding = 17 };

constexpr std::string_view actions_caption = "\nRecommended Actions: ";

// ---- bindings

Oid name_of(const SnmpVarBindEMS& binding) {
    return {binding.oid, std::min<std::size_t>(binding.oid_length, EMS_OID_MAX)};
}

bool begins_with(Oid oid, Oid prefix) {
    return oid.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), oid.begin());
}

bool is_text(const SnmpVarBindEMS& binding) {
    return binding.type == ASN_OCTETSTR09 || binding.type == ASN_OPAQUE09;
}

int number_in(const SnmpVarBindEMS& binding) {
    return is_text(binding) || binding.type == ASN_OBJID09 ? 0 : binding.val.integer;
}

// A text ends at its first NUL: what follows it, the rest of the alert included, is read as a C
// string.
std::string_view text_in(const SnmpVarBindEMS& binding) {
    if (!is_text(binding)) {
        return {};
    }
    const auto* const text = reinterpret_cast<const char*>(binding.val.string);
    return {text, strnlen(text, std::min<std::size_t>(binding.val_len, EMS_STRING_MAX))};
}

// The bindings of one subvector, from the starting one on.
struct Subvector {
    std::span<const SnmpVarBindEMS> bindings;
    Oid prefix;
};

Subvector subvector_at(const SnmpVarBindEMS* var, const uint32_t* svoid, int svoid_bytes, int count,
                       int index) {
    constexpr int octets = sizeof(uint32_t);
    const int left = count - std::clamp(index, 0, std::max(count, 0));
    const std::span all(var, static_cast<std::size_t>(std::max(left, 0)));
    const Oid prefix(svoid, static_cast<std::size_t>(std::max(svoid_bytes, 0) / octets));
    const auto foreign = std::find_if(all.begin(), all.end(), [prefix](const auto& binding) {
        return !begins_with(name_of(binding), prefix);
    });
    return {all.first(static_cast<std::size_t>(foreign - all.begin())), prefix};
}

// Whether a binding of the subvector lies under these sub-identifiers behind its prefix.
template <std::size_t count>
bool is_under(const Subvector& in, const SnmpVarBindEMS& binding,
              const std::array<uint32_t, count>& part) {
    return begins_with(name_of(binding).subspan(in.prefix.size()), part);
}

// ---- text

// Goes on behind the text that the buffer holds.
TextSink sink_behind(char* buffer, int buflen) {
    const auto size = static_cast<std::size_t>(std::max(buflen, 0));
    const std::size_t length = strnlen(buffer, size);
    return length == size ? TextSink(nullptr, 0) : TextSink(buffer + length, size - length);
}

void append_value(TextSink& out, int encoding, const SnmpVarBindEMS& binding) {
    switch (encoding) {
        case hexadecimal:
            out.append_hex(static_cast<uint32_t>(number_in(binding)));
            break;
        case decimal:
            out.append_decimal(number_in(binding));
            break;
        case text_encoding:
            out.append(text_in(binding));
            break;
        default:
            break;
    }
}

// A line for each code point under `part`.
template <std::size_t count>
void append_code_points(TextSink& out, const Subvector& in, int set,
                        const std::array<uint32_t, count>& part) {
    bool first = true;
    for (const SnmpVarBindEMS& binding : in.bindings) {
        if (is_under(in, binding, part)) {
            out.append(std::string_view(first ? "" : "\n"));
            out.append(std::string_view(codeptstr(set, number_in(binding))));
            first = false;
        }
    }
}

// What goes with a detail value: the bindings before it set this.
struct Detail {
    int identifier = 0;
    int encoding = hexadecimal;
};

// ---- causes and their recommended actions

constexpr std::array<uint32_t, 3> action{2, 1, 1};

struct Causes {
    TextSink out;
    int set;
    bool first = true;
    int items_of_causes = 0;  // detail values that the causes still expect
    int items_of_actions = 0;
    bool has_actions = false;                      // that are not written yet
    std::span<const SnmpVarBindEMS> pending = {};  // the bindings among which they are
    Detail detail = {};
};

void add_cause(Causes& state, int code_point) {
    state.out.append(std::string_view(state.first ? "" : "\n"));
    state.out.append(std::string_view(codeptstr(state.set, code_point)));
    state.first = false;
    state.items_of_causes += items_of_code_point(static_cast<uint32_t>(code_point));
}

void add_action(Causes& state, int code_point) {
    state.has_actions = true;
    state.items_of_actions += items_of_code_point(static_cast<uint32_t>(code_point));
}

// Writes the actions that came before the binding `next`.
void write_actions(Causes& state, const Subvector& in, std::size_t next) {
    const std::size_t start = in.bindings.size() - state.pending.size();
    if (state.has_actions) {
        state.out.append(actions_caption);
        append_code_points(state.out, {state.pending.first(next - start), in.prefix}, actions_set,
                           action);
        state.has_actions = false;
    }
    state.pending = in.bindings.subspan(next);
}

void add_detail(Causes& state, const Subvector& in, std::size_t index) {
    int& expected = state.items_of_causes > 0 ? state.items_of_causes : state.items_of_actions;
    if (state.items_of_causes == 0) {
        write_actions(state, in, index);
    }
    if (expected > 0) {
        --expected;
        state.out.append(' ');
        state.out.append(std::string_view(codeptstr(data_identifiers, state.detail.identifier)));
        state.out.append(' ');
        append_value(state.out, state.detail.encoding, in.bindings[index]);
    }
}

void append_causes(Causes& state, const Subvector& in) {
    constexpr std::array<uint32_t, 3> cause{1, 1, 1};
    constexpr std::array<uint32_t, 3> identifier{3, 1, 2};
    constexpr std::array<uint32_t, 3> encoding{3, 1, 3};
    constexpr std::array<uint32_t, 3> value{3, 1, 4};
    state.pending = in.bindings;
    for (std::size_t i = 0; i < in.bindings.size(); ++i) {
        const SnmpVarBindEMS& binding = in.bindings[i];
        if (is_under(in, binding, cause)) {
            add_cause(state, number_in(binding));
        } else if (is_under(in, binding, action)) {
            add_action(state, number_in(binding));
        } else if (is_under(in, binding, encoding)) {
            state.detail.encoding = number_in(binding);
        } else if (is_under(in, binding, identifier)) {
            state.detail.identifier = number_in(binding);
        } else if (is_under(in, binding, value)) {
            add_detail(state, in, i);
        }
    }
    write_actions(state, in, in.bindings.size());
}

// ---- dispatch

constexpr std::size_t subvector_oid_length = 10;
constexpr std::array<uint32_t, subvector_oid_length - 1> subvectors_oid{1, 3, 6, 1, 4, 1, 2, 5, 1};

using SetRenderer = void (*)(char*, int, SnmpVarBindEMS*, const uint32_t*, int, int, int, int);
using Renderer = void (*)(char*, int, SnmpVarBindEMS*, const uint32_t*, int, int, int);

struct Dispatch {
    uint32_t number;  // the last sub-identifier of the subvector
    SetRenderer with_set;
    Renderer without_set;
    int set;
};

constexpr std::array<Dispatch, 8> dispatch{{
    {3, nullptr, formatsvpsid, 0},
    {7, nullptr, formatsvsdc, data_identifiers},
    {11, formatsvga, nullptr, alert_types},
    {12, formatsvpc, nullptr, causes_of_probable},
    {13, formatsv, nullptr, user_set},
    {14, formatsv, nullptr, install_set},
    {15, formatsv, nullptr, failure_set},
    {17, formatsvdd, nullptr, data_identifiers},
}};

const Dispatch* find_renderer(const SnmpVarBindEMS& binding) {
    const Oid name = name_of(binding);
    if (name.size() < subvector_oid_length || !begins_with(name, subvectors_oid)) {
        return nullptr;
    }
    const auto* const row =
        std::find_if(dispatch.begin(), dispatch.end(), [name](const Dispatch& candidate) {
            return candidate.number == name[subvector_oid_length - 1];
        });
    return row == dispatch.end() ? nullptr : row;
}

// Once: a catalogue that cannot be loaded is not tried again for every trap.
void prepare_once() {
    static bool prepared = false;
    if (!prepared) {
        prepared = true;
        std::setlocale(LC_ALL, "");
        codeptcatinit();
    }
}

struct Caption {
    uint32_t number;
    std::string_view text;
};

constexpr std::array<Caption, 7> captions{{
    {3, "\nMachine Type: "},
    {4, "\nModel Number: "},
    {5, "\nPlant of Manufacture: "},
    {6, "\nSequence Number: "},
    {7, "\nMicrocode EC Level: "},
    {8, "\nHardware Product Common Name: "},
    {9, "\nVendor ID Hardware: "},
}};

}  // namespace
}  // namespace wq

void formatZYNcp(char* buffer, int buflen, SnmpVarBindEMS* var, int count, int index) {
    if (buffer == nullptr || var == nullptr || index >= count) {
        return;
    }
    wq::prepare_once();
    const wq::Dispatch* const row = wq::find_renderer(*var);
    if (row == nullptr) {
        return;
    }
    // Copied: the renderers walk on from the binding that holds it.
    std::array<uint32_t, wq::subvector_oid_length> svoid{};
    std::copy_n(var->oid, svoid.size(), svoid.begin());
    if (row->with_set != nullptr) {
        row->with_set(buffer, buflen, var, svoid.data(), sizeof svoid, row->set, count, index);
    } else {
        row->without_set(buffer, buflen, var, svoid.data(), sizeof svoid, count, index);
    }
}

void formatsv(char* buffer, int buflen, SnmpVarBindEMS* var, const uint32_t* svoid, int svoid_bytes,
              int set, int count, int index) {
    if (buffer == nullptr || var == nullptr || svoid == nullptr) {
        return;
    }
    wq::Causes state{wq::sink_behind(buffer, buflen), set};
    wq::append_causes(state, wq::subvector_at(var, svoid, svoid_bytes, count, index));
}

void formatsvga(char* buffer, int buflen, SnmpVarBindEMS* var, const uint32_t* svoid,
                int svoid_bytes, int set, int count, int index) {
    if (buffer == nullptr || var == nullptr || svoid == nullptr) {
        return;
    }
    constexpr std::array<uint32_t, 1> code_point{3};
    wq::TextSink out = wq::sink_behind(buffer, buflen);
    wq::append_code_points(out, wq::subvector_at(var, svoid, svoid_bytes, count, index), set,
                           code_point);
}

void formatsvpc(char* buffer, int buflen, SnmpVarBindEMS* var, const uint32_t* svoid,
                int svoid_bytes, int set, int count, int index) {
    if (buffer == nullptr || var == nullptr || svoid == nullptr) {
        return;
    }
    constexpr std::array<uint32_t, 3> code_point{1, 1, 1};
    wq::TextSink out = wq::sink_behind(buffer, buflen);
    wq::append_code_points(out, wq::subvector_at(var, svoid, svoid_bytes, count, index), set,
                           code_point);
}

void formatsvdd(char* buffer, int buflen, SnmpVarBindEMS* var, const uint32_t* svoid,
                int svoid_bytes, int set, int count, int index) {
    if (buffer == nullptr || var == nullptr || svoid == nullptr) {
        return;
    }
    constexpr std::array<uint32_t, 3> identifier{1, 1, 2};
    constexpr std::array<uint32_t, 3> encoding{1, 1, 3};
    constexpr std::array<uint32_t, 3> value{1, 1, 4};
    wq::TextSink out = wq::sink_behind(buffer, buflen);
    const wq::Subvector in = wq::subvector_at(var, svoid, svoid_bytes, count, index);
    bool first = true;
    int encoded_as = wq::hexadecimal;
    for (const SnmpVarBindEMS& binding : in.bindings) {
        if (wq::is_under(in, binding, identifier)) {
            out.append(std::string_view(first ? "" : "\n"));
            out.append(std::string_view(codeptstr(set, wq::number_in(binding))));
            out.append(' ');
            first = false;
        } else if (wq::is_under(in, binding, encoding)) {
            encoded_as = wq::number_in(binding);
        } else if (wq::is_under(in, binding, value)) {
            wq::append_value(out, encoded_as, binding);
        }
    }
}

void formatsvsdc(char* buffer, int buflen, SnmpVarBindEMS* var, const uint32_t* svoid,
                 int svoid_bytes, int count, int index) {
    if (buffer == nullptr || var == nullptr || svoid == nullptr) {
        return;
    }
    constexpr std::array<uint32_t, 3> identifier{2, 1, 2};
    constexpr std::array<uint32_t, 3> encoding{2, 1, 3};
    constexpr std::array<uint32_t, 3> value{2, 1, 4};
    wq::TextSink out = wq::sink_behind(buffer, buflen);
    const wq::Subvector in = wq::subvector_at(var, svoid, svoid_bytes, count, index);
    wq::Detail detail;
    for (const SnmpVarBindEMS& binding : in.bindings) {
        if (wq::is_under(in, binding, identifier)) {
            detail.identifier = wq::number_in(binding);
        } else if (wq::is_under(in, binding, encoding)) {
            detail.encoding = wq::number_in(binding);
        } else if (wq::is_under(in, binding, value)) {
            out.append(std::string_view(codeptstr(wq::data_identifiers, detail.identifier)));
            out.append(' ');
            wq::append_value(out, detail.encoding, binding);
        }
    }
}

void formatsvpsid(char* buffer, int buflen, SnmpVarBindEMS* var, const uint32_t* svoid,
                  int svoid_bytes, int count, int index) {
    if (buffer == nullptr || var == nullptr || svoid == nullptr) {
        return;
    }
    wq::TextSink out = wq::sink_behind(buffer, buflen);
    const wq::Subvector in = wq::subvector_at(var, svoid, svoid_bytes, count, index);
    for (const SnmpVarBindEMS& binding : in.bindings) {
        for (const wq::Caption& caption : wq::captions) {
            if (wq::is_under(in, binding, std::array<uint32_t, 3>{1, 1, caption.number})) {
                out.append(caption.text);
                out.append(wq::text_in(binding));
            }
        }
    }
}
