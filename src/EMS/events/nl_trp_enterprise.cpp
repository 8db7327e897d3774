#include <array>
#include <cstring>

#include "EMS/events/nl_trp_format.h"

namespace wq {
namespace {

// The platform's own enterprise. Its events come under the tenth sub-identifier, but everything
// below the nine is taken for the platform's.
constexpr std::array<uint32_t, 9> jwoid = {1, 3, 6, 1, 4, 1, 2, 6, 3};
constexpr std::array<uint32_t, threshold_enterprise_length> smthreshoid = {1, 3, 6,  1, 4, 1,
                                                                           2, 6, 12, 5, 1};
constexpr std::array<uint32_t, 9> qrmoid = {1, 3, 6, 1, 4, 1, 2, 6, 12};
constexpr std::array<uint32_t, 7> fenneloid = {1, 3, 6, 1, 4, 1, 5593};

constexpr uint32_t event_bit = 1U << 25;
constexpr int first_numbered_event = 1001;
constexpr int last_numbered_event = 2000;

// The leading bytes alone decide, whatever length the trap says its enterprise has.
template <std::size_t length>
bool begins_with(const uint32_t* enterprise, const std::array<uint32_t, length>& prefix) {
    return enterprise != nullptr && std::memcmp(enterprise, prefix.data(), sizeof prefix) == 0;
}

bool is_event_number(int specific) {
    return (static_cast<uint32_t>(specific) & event_bit) != 0 ||
           (specific >= first_numbered_event && specific <= last_numbered_event);
}

}  // namespace

bool is_threshold_enterprise(const uint32_t* enterprise) {
    return begins_with(enterprise, smthreshoid);
}

}  // namespace wq

int isTrapJW(int generic, int specific, const uint32_t* enterprise) {
    return generic == ENTERPRISE_SPECIFIC && wq::is_event_number(specific) &&
                   wq::begins_with(enterprise, wq::jwoid)
               ? 1
               : 0;
}

int isKMEnterprise(const uint32_t* enterprise) {
    return wq::begins_with(enterprise, wq::jwoid) ? 1 : 0;
}

int isQRMEnterprise(const uint32_t* enterprise) {
    return wq::begins_with(enterprise, wq::qrmoid) ? 1 : 0;
}

int isVEBEnterprise(const uint32_t* enterprise) {
    return wq::begins_with(enterprise, wq::fenneloid) ? 1 : 0;
}
