/*
 * Any bytes as a catalogue, any bindings as an alert. The input: two bytes for the length of the
 * catalogue, the catalogue, a byte for the room, and bindings: a byte each for the subvector, the
 * part of it, and the type, two for a number, or one for a text's length and the text. Whatever
 * they are, the text is terminated within its room, and less room shows the beginning of what more
 * room shows.
 */
#include <sys/mman.h>
#include <unistd.h>
#include <wqevents/alerts.h>
#include <wqevents/codec.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "fuzz_target.h"

namespace {

using wq::fuzz::require;
using Input = std::span<const uint8_t>;

constexpr size_t bindings_max = 32;
constexpr size_t much_room = 20000;
constexpr uint32_t root[] = {1, 3, 6, 1, 4, 1, 2, 5, 1};
constexpr uint32_t subvectors[] = {3, 7, 11, 12, 13, 14, 15, 17, 4};

uint8_t take(Input& input) {
    if (input.empty()) {
        return 0;
    }
    const uint8_t byte = input.front();
    input = input.subspan(1);
    return byte;
}

uint32_t take_number(Input& input) {
    const uint32_t high = take(input);
    return high << 8 | take(input);
}

void load(Input content) {
    const int fd = memfd_create("codepoint.cat", MFD_CLOEXEC);
    require(fd >= 0 &&
            write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
    codeptpath(("/proc/self/fd/" + std::to_string(fd)).c_str());
    const int result = codeptcatinit();
    require(result == 0 || result == -2);
    close(fd);
}

/* The parts have up to three numbers: two of two bits and one of four. */
void name(SnmpVarBindEMS& binding, uint32_t subvector, uint32_t part) {
    const uint32_t rest[] = {part >> 6, part >> 4 & 3, part & 15};
    std::copy(std::begin(root), std::end(root), binding.oid);
    uint32_t length = std::size(root);
    binding.oid[length++] = subvectors[subvector % std::size(subvectors)];
    if (rest[0] == 0) {
        binding.oid[length++] = rest[2];
    } else {
        std::copy(std::begin(rest), std::end(rest), binding.oid + length);
        length += uint32_t{3};
    }
    binding.oid_length = length;
}

SnmpVarBindEMS take_binding(Input& input) {
    SnmpVarBindEMS binding{};
    const uint8_t subvector = take(input);
    name(binding, subvector, take(input));
    binding.type = take(input);
    if (binding.type == ASN_OCTETSTR09 || binding.type == ASN_OPAQUE09) {
        binding.val_len = std::min<uint32_t>(take(input), static_cast<uint32_t>(input.size()));
        std::copy_n(input.begin(), binding.val_len, binding.val.string);
        input = input.subspan(binding.val_len);
    } else {
        binding.val.integer = static_cast<int32_t>(take_number(input));
        binding.val_len = 4;
    }
    return binding;
}

std::vector<SnmpVarBindEMS> take_bindings(Input& input) {
    std::vector<SnmpVarBindEMS> bindings;
    bindings.reserve(bindings_max);
    while (!input.empty() && bindings.size() < bindings_max) {
        bindings.push_back(take_binding(input));
    }
    bindings.shrink_to_fit();
    return bindings;
}

std::string render(std::vector<SnmpVarBindEMS>& bindings, size_t index, size_t room) {
    const auto buffer = std::make_unique<char[]>(room);
    call_formatZYNcp(buffer.get(), static_cast<int>(room), &bindings[index],
                     static_cast<int>(bindings.size()), static_cast<int>(index));
    require(strnlen(buffer.get(), room) < room);
    return buffer.get();
}

}  // namespace

int LLVMFuzzerInitialize(int*, char***) {
    wq::fuzz::drop_diagnostics();
    SnmpVarBindEMS none{};
    char text[1] = "";
    call_formatZYNcp(text, sizeof text, &none, 1, 0); /* the first one looks for a catalogue */
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const size_t length = std::min<size_t>(take_number(input), input.size());
    load(input.first(length));
    input = input.subspan(length);
    for (int set = -1; set < 9; ++set) {
        require(codeptstr(set, 0xA001) != nullptr && *codeptstr(set, 0xFFFF) == '\0');
    }
    const size_t room = take(input) + size_t{1};
    std::vector<SnmpVarBindEMS> bindings = take_bindings(input);
    for (size_t i = 0; i < bindings.size(); ++i) {
        const std::string whole = render(bindings, i, much_room);
        require(render(bindings, i, room) == whole.substr(0, room - 1));
    }
    return 0;
}
