// SPDX-License-Identifier: Apache-2.0
//
// Records compared with netdevs: pure, so that any state of both can be put
// through it. audit.cc reads both and prints what comes out.
#ifndef YBNET_YBNETCTL_SEE_AUDIT_COMPARE_H
#define YBNET_YBNETCTL_SEE_AUDIT_COMPARE_H

#include <optional>
#include <string>
#include <vector>

#include "tools/ybnetctl/kernel/netdevs.h"
#include "tools/ybnetctl/kernel/recorded.h"

namespace ybnetctl {

enum class finding {
    ok,
    kind,          // name and ifindex agree, but the netdev is not what the record says
    duplicate,     // all agrees, but another record has the same netdev or the same key
    renamed,       // the ifindex is there, under another name
    other_ifindex, // the name is there, with another ifindex
    moved,         // found by its name in another namespace
    gone,          // not found wherever it was looked for
    no_namespace,  // the record's namespace does not exist
    unseen         // the record's namespace could not be looked at
};

// As in JSON.
const char *key_of(finding what);

struct audited_record {
    recorded_interface record;
    finding what = finding::ok;
    std::string explanation = {};      // "" when all is well
    std::optional<netdev> device = {}; // the netdev that was found
    std::string found_in = {};         // its namespace
    std::string remedy = {};           // audit_remedy.h
};

// A netdev named as the library names its own, which no record has.
struct unrecorded_netdev {
    std::string ns;
    netdev device;
    std::string command; // what would remove it; "" when that is not advised
};

struct unseen_namespace {
    std::string name;
    std::string reason;
};

struct audit_result {
    std::vector<audited_record> records;
    std::vector<unrecorded_netdev> unrecorded;
    std::vector<unseen_namespace> unseen; // those that could not be looked at

    [[nodiscard]] size_t count(finding what) const;
    [[nodiscard]] bool agrees() const; // in all namespaces: none was left unlooked at

    // Takes the commands back: those against netdevs without a record, or every one.
    void spare_unrecorded();
    void advise_nothing();
};

// namespaces: the default one, and each that a record names or that the system has.
audit_result audit(const std::vector<recorded_interface> &records,
                   const std::vector<namespace_view> &namespaces);

} // namespace ybnetctl

#endif
