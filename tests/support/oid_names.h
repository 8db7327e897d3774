/*
 * Trees of names as tests handle them: by dotted text.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_OID_NAMES_H
#define WQEVENTS_TESTS_SUPPORT_OID_NAMES_H

#include <wqevents/names.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "support/vectors.h"

namespace wq::test {

using Name = std::optional<std::string>;

inline Name name_of(oidnode* root, const std::string& dotted_oid) {
    const Oid path = oid(dotted_oid);
    const char* name = TreeLookupOid(root, path.data(), static_cast<int>(path.size()));
    return name == nullptr ? Name() : Name(name);
}

/* TreeInsertOid() of a new name, which is freed where it is refused. */
inline oidnode* name_oid(oidnode*& root, const std::string& text, const std::string& name) {
    oiddata* data = buildOidData(name.c_str());
    oidnode* node = TreeInsertOid(&root, text.c_str(), data);
    if (node == nullptr) {
        std::free(data);
    }
    return node;
}

/* A tree that is freed with the object, and all local mappings with it. */
class Tree {
  public:
    explicit Tree(oidnode* node = nullptr) : root(node) {}
    ~Tree() { oidFreeTree(root); }
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    oidnode* insert(const std::string& text, const std::string& name) {
        return name_oid(root, text, name);
    }
    Name name(const std::string& dotted_oid) const { return name_of(root, dotted_oid); }

    oidnode* root;
};

}  // namespace wq::test

#endif
