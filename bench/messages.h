// The three kinds of trap that the benchmarks encode, decode and send, each in many variants, so
// that no branch predictor learns one by heart.
#pragma once

#include <wqevents/channel.h>
#include <wqevents/codec.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace wq::bench {

struct Message {
    snmp_trap_infoEMS trap{};
    std::vector<SnmpVarBindEMS> vars;
    std::vector<uint8_t> encoded;
};

inline constexpr std::size_t variants = 64;

inline void set_oid(SnmpVarBindEMS& binding, std::initializer_list<uint32_t> oid) {
    std::copy(oid.begin(), oid.end(), binding.oid);
    binding.oid_length = static_cast<uint32_t>(oid.size());
}

inline void set_string(SnmpVarBindEMS& binding, const std::string& text) {
    binding.type = ASN_OCTETSTR09;
    binding.val_len = static_cast<uint32_t>(text.size());
    std::memcpy(binding.val.string, text.data(), text.size());
}

class Generator {
  public:
    explicit Generator(uint32_t seed) : random_(seed) {}

    uint32_t number() { return static_cast<uint32_t>(random_()); }
    uint32_t below(uint32_t limit) { return number() % limit; }

    std::string text(uint32_t shortest, uint32_t longest) {
        std::string text(shortest + below(longest - shortest + 1), ' ');
        std::generate(text.begin(), text.end(), [&] { return static_cast<char>('a' + below(26)); });
        return text;
    }

    snmp_trap_infoEMS trap(std::initializer_list<uint32_t> enterprise) {
        snmp_trap_infoEMS trap{};
        trap.clen = 6;
        std::memcpy(trap.community, "public", 6);
        std::copy(enterprise.begin(), enterprise.end(), trap.enterprise);
        trap.elen = static_cast<int32_t>(enterprise.size());
        trap.agent = 0x0A000000 + below(0x01000000);
        trap.time = number() >> (1 + below(20));
        trap.gen = ENTERPRISE_SPECIFIC;
        trap.specific = number() >> (1 + below(24));
        return trap;
    }

    // (a) no bindings
    Message bare() {
        Message message;
        message.trap = trap({1, 3, 6, 1, 4, 1, 8072, 3, 2, 10});
        return message;
    }

    // (b) the platform's own event with its five bindings, about 307 bytes
    Message event() {
        Message message;
        message.trap = trap({1, 3, 6, 1, 4, 1, 2, 6, 3, 1});
        message.vars.resize(5);
        for (uint32_t i = 0; i < 5; ++i) {
            set_oid(message.vars[i], {1, 3, 6, 1, 4, 1, 2, 6, 3, 1, 1, 2 + i, 0});
        }
        message.vars[0].type = ASN_INTEGER09;
        message.vars[0].val_len = 4;
        message.vars[0].val.integer = static_cast<int32_t>(1 + below(27));
        set_string(message.vars[1], text(8, 16));
        set_string(message.vars[2], text(80, 120));
        set_string(message.vars[3], text(30, 60));
        set_string(message.vars[4], text(4, 12));
        return message;
    }

    // (c) thirty bindings of all types, about 1.3 KB
    Message mixed() {
        Message message;
        message.trap = trap({1, 3, 6, 1, 4, 1, 9, 9, 43, 2});
        message.vars.resize(30);
        for (SnmpVarBindEMS& binding : message.vars) {
            set_oid(binding, {1, 3, 6, 1, 4, 1, below(2) != 0 ? 9U : 8072U, 2, 2, 1, 1 + below(20),
                              1 + below(40), 1 + below(1000)});
            set_mixed_value(binding);
        }
        return message;
    }

  private:
    void set_mixed_value(SnmpVarBindEMS& binding) {
        static constexpr std::array<uint8_t, 4> numbers = {ASN_INTEGER09, ASN_COUNTER09,
                                                           ASN_GAUGE09, ASN_TIMETICKS09};
        const uint32_t kind = below(10);
        if (kind < 4) {
            set_string(binding, text(12, 72));
        } else if (kind < 8) {
            binding.type = numbers[kind - 4];
            binding.val.integer = static_cast<int32_t>(number() >> (1 + below(24)));
            binding.val_len = 4;
        } else if (kind == 8) {
            binding.type = ASN_OBJID09;
            const std::array<uint32_t, 10> objid = {1, 3, 6, 1, 2, 1, 2, 2, 1, 1 + below(500)};
            std::copy(objid.begin(), objid.end(), binding.val.objid);
            binding.val_len = objid.size();
        } else {
            binding.type = ASN_IPADDR09;
            binding.val.integer = static_cast<int32_t>(number());
            binding.val_len = 4;
        }
    }

    std::mt19937 random_;
};

inline std::vector<Message> make_messages(Message (Generator::*make)()) {
    Generator generator(1);
    std::vector<Message> messages;
    for (std::size_t i = 0; i < variants; ++i) {
        Message message = (generator.*make)();
        message.trap.vars = static_cast<int32_t>(message.vars.size());
        message.encoded.resize(EMS_TRAP_MAX);
        int length = EMS_TRAP_MAX;
        if (snmpBuildTrapEMS(message.encoded.data(), &length, &message.trap, nullptr,
                             message.vars.data()) != 0) {
            std::abort();
        }
        message.encoded.resize(static_cast<std::size_t>(length));
        messages.push_back(std::move(message));
    }
    return messages;
}

inline const std::vector<Message>& bare_messages() {
    static const std::vector<Message> messages = make_messages(&Generator::bare);
    return messages;
}
inline const std::vector<Message>& event_messages() {
    static const std::vector<Message> messages = make_messages(&Generator::event);
    return messages;
}
inline const std::vector<Message>& mixed_messages() {
    static const std::vector<Message> messages = make_messages(&Generator::mixed);
    return messages;
}

}  // namespace wq::bench
