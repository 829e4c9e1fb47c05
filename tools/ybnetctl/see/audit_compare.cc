// SPDX-License-Identifier: Apache-2.0
//
// See audit_compare.h. Sections: one record; netdevs without a record; the whole.
#include "tools/ybnetctl/see/audit_compare.h"

#include <algorithm>
#include <map>
#include <set>

#include "tools/ybnetctl/see/audit_remedy.h"
#include "tools/ybnetctl/shell_word.h"
#include "tools/ybnetctl/table.h"

namespace ybnetctl {

namespace {

// Namespaces by name; those that are one and the same under two names have one number.
class places {
  public:
    explicit places(const std::vector<namespace_view> &namespaces) {
        for (const namespace_view &view : namespaces) {
            const auto same =
                std::find_if(distinct_.begin(), distinct_.end(), [&](const namespace_view *other) {
                    return view.seen == sight::seen && other->seen == sight::seen &&
                           other->identity == view.identity && !(view.identity == namespace_identity{});
                });
            numbers_[view.name] = static_cast<size_t>(same - distinct_.begin());
            if (same == distinct_.end())
                distinct_.push_back(&view);
        }
    }
    [[nodiscard]] size_t number_of(const std::string &name) const {
        return numbers_.at(name);
    }
    [[nodiscard]] const std::vector<const namespace_view *> &distinct() const {
        return distinct_;
    }

  private:
    std::map<std::string, size_t> numbers_;
    std::vector<const namespace_view *> distinct_;
};

// What records say they have.
struct claims {
    std::map<std::pair<size_t, uint32_t>, std::vector<uint32_t>> by_ifindex; // to system ifindexes
    std::set<std::pair<size_t, std::string>> names;
    std::map<uint32_t, int> keys; // how often a system ifindex occurs
};

claims claims_of(const std::vector<recorded_interface> &records, const places &where) {
    claims all;
    for (const recorded_interface &record : records) {
        const size_t place = where.number_of(record.ns);
        all.by_ifindex[{place, record.linux_ifindex}].push_back(record.sys_ifindex);
        all.names.emplace(place, record.name);
        all.keys[record.sys_ifindex]++;
    }
    return all;
}

// ---- One record -------------------------------------------------------------

std::string quoted(const std::string &name) {
    return '"' + printable(name) + '"';
}

std::string kind_in_words(const netdev &device) {
    if (device.vlan_id)
        return "a VLAN with id " + std::to_string(*device.vlan_id);
    return device.kind.empty() ? "no netdev that a driver's link kind made"
                               : "of kind " + printable(device.kind);
}

// "" when the netdev can be what the record says.
std::string kind_mismatch(const recorded_interface &record, const netdev &device) {
    std::string wanted;
    switch (record.type) {
    case YB_L2_INTERFACE_TYPE_VLAN:
    case YB_L2_INTERFACE_TYPE_PORT_VLAN:
        if (device.kind == "vlan" && device.vlan_id == record.vlan_id)
            return "";
        wanted = "a VLAN with id " + std::to_string(record.vlan_id.value_or(0));
        break;
    case YB_L2_INTERFACE_TYPE_PORT:
        if (device.kind == "yb_netdev")
            return "";
        wanted = "a port, of kind yb_netdev";
        break;
    case YB_L2_INTERFACE_TYPE_LOOPBACK:
        if (device.kind == "bridge")
            return "";
        wanted = "a loopback, of kind bridge";
        break;
    default:
        return ""; // recorded only: what stands behind it is its owner's business
    }
    return "recorded as " + wanted + ", but the netdev is " + kind_in_words(device);
}

void add_sentence(std::string &text, const std::string &sentence) {
    if (!sentence.empty())
        text += (text.empty() ? "" : "; ") + sentence;
}

// Looks for the netdev by its name in all other namespaces, past those that other records have.
void look_elsewhere(audited_record &audited, const places &where, const claims &all) {
    const recorded_interface &record = audited.record;
    const size_t home = where.number_of(record.ns);
    const auto &distinct = where.distinct();
    for (size_t place = 0; place < distinct.size(); place++) {
        const netdev *const device = place == home ? nullptr : distinct[place]->by_name(record.name);
        if (device == nullptr || all.by_ifindex.contains({place, device->ifindex}))
            continue;
        add_sentence(audited.explanation, "a netdev of this name is in " +
                                              namespace_in_words(distinct[place]->name) + ", with ifindex " +
                                              std::to_string(device->ifindex));
        if (audited.device)
            continue; // the first one is shown
        audited.device = *device;
        audited.found_in = distinct[place]->name;
    }
}

void compare_at_home(audited_record &audited, const namespace_view &home, const places &where,
                     const claims &all) {
    const recorded_interface &record = audited.record;
    const netdev *const by_ifindex = home.by_ifindex(record.linux_ifindex);
    const netdev *const by_name = home.by_name(record.name);
    if (by_name == nullptr && by_ifindex == nullptr) {
        look_elsewhere(audited, where, all);
        audited.what = audited.device ? finding::moved : finding::gone;
        if (!audited.device)
            audited.explanation = "no netdev has this name or ifindex";
        return;
    }
    audited.found_in = record.ns;
    audited.device = by_name != nullptr ? *by_name : *by_ifindex;
    if (by_name == by_ifindex) {
        audited.explanation = kind_mismatch(record, *by_name);
        audited.what = audited.explanation.empty() ? finding::ok : finding::kind;
        return;
    }
    if (by_name != nullptr) {
        audited.what = finding::other_ifindex;
        audited.explanation = "the netdev of this name has ifindex " + std::to_string(by_name->ifindex);
        if (by_ifindex != nullptr)
            add_sentence(audited.explanation, "ifindex " + std::to_string(record.linux_ifindex) + " is " +
                                                  quoted(by_ifindex->name) + "'s");
    } else {
        audited.what = finding::renamed;
        audited.explanation = "the netdev with this ifindex is called " + quoted(by_ifindex->name);
    }
    add_sentence(audited.explanation, kind_mismatch(record, *audited.device));
}

void look_for_duplicates(audited_record &audited, const places &where, const claims &all) {
    const recorded_interface &record = audited.record;
    std::string sentence;
    for (const uint32_t other : all.by_ifindex.at({where.number_of(record.ns), record.linux_ifindex})) {
        if (other != record.sys_ifindex)
            add_sentence(sentence, "record " + std::to_string(other) + " has the same netdev");
    }
    if (all.keys.at(record.sys_ifindex) > 1)
        add_sentence(sentence, "another record has the same system ifindex");
    if (!sentence.empty() && audited.what == finding::ok)
        audited.what = finding::duplicate;
    add_sentence(audited.explanation, sentence);
}

audited_record compare(const recorded_interface &record, const places &where, const claims &all) {
    audited_record audited{.record = record};
    const namespace_view &home = *where.distinct()[where.number_of(record.ns)];
    switch (home.seen) {
    case sight::unseen:
        audited.what = finding::unseen;
        audited.explanation = namespace_in_words(record.ns) + " could not be looked at";
        break;
    case sight::missing:
        audited.what = finding::no_namespace;
        audited.explanation = "there is no namespace of this name";
        look_elsewhere(audited, where, all);
        break;
    case sight::seen:
        compare_at_home(audited, home, where, all);
        break;
    }
    look_for_duplicates(audited, where, all);
    audited.remedy = remedy_of(audited);
    return audited;
}

// ---- Netdevs without a record -----------------------------------------------

// A VLAN id as the library writes it: no sign, no zeros in front.
bool is_vlan_id(const std::string &text) {
    return !text.empty() && text.size() <= 4 && (text == "0" || text[0] != '0') &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }) &&
           std::stoul(text) <= 4095;
}

// "swid0_eth"
bool is_partition(const std::string &name) {
    return name.size() > 8 && name.starts_with("swid") && name.ends_with("_eth") &&
           is_vlan_id(name.substr(4, name.size() - 8));
}

// "vlan10", "swid0_eth.10", "swp1.10" of a port called swp1, and ports themselves.
bool is_named_like_ours(const netdev &device, const std::set<std::string> &ports) {
    if (device.kind == "yb_netdev")
        return !is_partition(device.name); // those are the driver's own
    if (device.name.starts_with("vlan") && is_vlan_id(device.name.substr(4)))
        return true;
    const size_t dot = device.name.rfind('.');
    if (dot == std::string::npos || !is_vlan_id(device.name.substr(dot + 1)))
        return false;
    const std::string parent = device.name.substr(0, dot);
    return is_partition(parent) || ports.contains(parent);
}

std::set<std::string> names_of_ports(const std::vector<recorded_interface> &records, const places &where) {
    std::set<std::string> names;
    for (const namespace_view *const view : where.distinct())
        for (const netdev &device : view->netdevs())
            if (device.kind == "yb_netdev")
                names.insert(device.name);
    for (const recorded_interface &record : records) {
        if (record.type == YB_L2_INTERFACE_TYPE_PORT)
            names.insert(record.name);
        else if (record.type == YB_L2_INTERFACE_TYPE_PORT_VLAN)
            names.insert(record.port_name);
    }
    return names;
}

// Past those that the audited records turned out to stand for.
std::vector<unrecorded_netdev> find_unrecorded(const std::vector<recorded_interface> &records,
                                               const std::vector<audited_record> &audited,
                                               const places &where, const claims &all) {
    const std::set<std::string> ports = names_of_ports(records, where);
    std::set<std::pair<size_t, uint32_t>> taken;
    for (const audited_record &each : audited)
        if (each.device)
            taken.emplace(where.number_of(each.found_in), each.device->ifindex);
    std::vector<unrecorded_netdev> found;
    const auto &distinct = where.distinct();
    for (size_t place = 0; place < distinct.size(); place++) {
        const std::string &ns = distinct[place]->name;
        for (const netdev &device : distinct[place]->netdevs()) {
            if (!is_named_like_ours(device, ports) || all.names.contains({place, device.name}) ||
                all.by_ifindex.contains({place, device.ifindex}) || taken.contains({place, device.ifindex}))
                continue;
            found.push_back({ns, device, ip_in(ns) + "link del dev " + shell_word(device.name)});
        }
    }
    return found;
}

} // namespace

// ---- The whole --------------------------------------------------------------

const char *key_of(finding what) {
    switch (what) {
    case finding::ok:
        return "ok";
    case finding::kind:
        return "kind";
    case finding::duplicate:
        return "duplicate";
    case finding::renamed:
        return "renamed";
    case finding::other_ifindex:
        return "other_ifindex";
    case finding::moved:
        return "moved";
    case finding::gone:
        return "gone";
    case finding::no_namespace:
        return "no_namespace";
    case finding::unseen:
        break;
    }
    return "unseen";
}

size_t audit_result::count(finding what) const {
    return static_cast<size_t>(std::count_if(records.begin(), records.end(),
                                             [&](const audited_record &each) { return each.what == what; }));
}

bool audit_result::agrees() const {
    return unseen.empty() && unrecorded.empty() && count(finding::ok) == records.size();
}

void audit_result::spare_unrecorded() {
    for (unrecorded_netdev &each : unrecorded)
        each.command.clear();
}

void audit_result::advise_nothing() {
    spare_unrecorded();
    for (audited_record &each : records)
        each.remedy.clear();
}

audit_result audit(const std::vector<recorded_interface> &records,
                   const std::vector<namespace_view> &namespaces) {
    const places where(namespaces);
    const claims all = claims_of(records, where);
    audit_result result;
    for (const recorded_interface &record : records)
        result.records.push_back(compare(record, where, all));
    result.unrecorded = find_unrecorded(records, result.records, where, all);
    for (const namespace_view &view : namespaces)
        if (view.seen == sight::unseen)
            result.unseen.push_back({view.name, view.reason});
    return result;
}

} // namespace ybnetctl
