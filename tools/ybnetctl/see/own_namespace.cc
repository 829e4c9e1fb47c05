// SPDX-License-Identifier: Apache-2.0
//
// See own_namespace.h.
#include "tools/ybnetctl/see/own_namespace.h"

#include <algorithm>

#include <unistd.h>

#include "tools/ybnetctl/kernel/namespaces.h"
#include "tools/ybnetctl/see/mappers.h"
#include "tools/ybnetctl/segments/segment_copy.h"

namespace ybnetctl {

namespace {

// A stack may live in a named namespace as a whole: its processes tell.
bool is_where_the_stack_is(const namespace_identity &own) {
    const segment_copy interfaces = locate_segment(segment_kind::interfaces);
    const mappers_survey survey = find_mappers(interfaces, locate_segment(segment_kind::ports));
    size_t others = 0;
    for (const mapper &who : survey.of(segment_kind::interfaces).live) {
        if (who.pid == getpid())
            continue;
        others++;
        if (!(identity_of_process(who.pid) == own))
            return false;
    }
    return others != 0;
}

} // namespace

std::string named_instead_of_default() {
    const std::vector<std::string> names = named_namespaces();
    const auto name = std::find_if(names.begin(), names.end(), is_callers_namespace);
    if (name == names.end())
        return "";
    const namespace_identity own = identity_of_namespace("");
    return identity_of_process(1) == own || is_where_the_stack_is(own) ? "" : *name;
}

std::string not_the_default_one(const std::string &name) {
    return "this is " + namespace_in_words(name) + ", not the default one";
}

} // namespace ybnetctl
