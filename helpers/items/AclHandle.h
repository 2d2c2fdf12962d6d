// SPDX-License-Identifier: MIT
#pragma once

#include <sys/acl.h>

#include <memory>
#include <type_traits>

/// What libacl allocates, freed with its owner.
namespace morvane {

struct AclFree {
    void operator()(void* acl) const { acl_free(acl); }
};
using AclHandle = std::unique_ptr<std::remove_pointer_t<acl_t>, AclFree>;
using QualifierHandle = std::unique_ptr<id_t, AclFree>;

}  // namespace morvane
