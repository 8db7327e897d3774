// The names that the tree of identifiers has, for those who ask for many.
#pragma once

#include <cstdint>
#include <span>

#include <wqevents/names.h>

namespace wq {

// TreeLookupOid() of `oid`, and of `oid` with one more sub-identifier.
const char* find_label(oidnode* root, std::span<const std::uint32_t> oid);
const char* find_label_below(oidnode* root, std::span<const std::uint32_t> oid, std::uint32_t last);

}  // namespace wq
