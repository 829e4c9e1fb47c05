// SPDX-License-Identifier: Apache-2.0
//
// See upgrade_report.h.
#include "tools/ybnetctl/upgrade/upgrade_report.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace ybnetctl {

namespace {

struct property {
    const char *words;
    uint32_t layout_note_segment::*value;
};

// All that two builds have to agree in; the size is compared on its own.
constexpr std::array properties = {
    property{"size of a record", &layout_note_segment::record_size},
    property{"number of records", &layout_note_segment::record_count},
    property{"place of the trailer", &layout_note_segment::trailer_offset},
    property{"size of the trailer", &layout_note_segment::trailer_size},
    property{"place of the lock", &layout_note_segment::lock_offset},
    property{"size of the lock", &layout_note_segment::lock_size},
    property{"kind of lock", &layout_note_segment::lock_format},
    property{"place of the lock's state", &layout_note_segment::lock_state_offset},
    property{"place of the marker", &layout_note_segment::marker_offset},
    property{"place of the user count", &layout_note_segment::user_count_offset},
    property{"place of the size check", &layout_note_segment::size_check_offset},
    property{"places of the fields (fingerprint)", &layout_note_segment::fields_fingerprint},
};

const layout_note_segment *find_segment(const shared_library &library, const std::string &name) {
    const auto found = std::find_if(library.layout.begin(), library.layout.end(),
                                    [&](const layout_note_segment &each) { return name_of(each) == name; });
    return found == library.layout.end() ? nullptr : &*found;
}

void add_once(std::vector<std::string> &sentences, const std::string &sentence) {
    if (std::find(sentences.begin(), sentences.end(), sentence) == sentences.end())
        sentences.push_back(sentence);
}

void compare_layouts(const layout_note_segment &now, const layout_note_segment &then,
                     std::vector<std::string> &reasons) {
    for (const property &each : properties)
        if (now.*each.value != then.*each.value)
            add_once(reasons, std::string(each.words) + ": " + std::to_string(now.*each.value) + " now, " +
                                  std::to_string(then.*each.value) + " in the new build");
}

segment_fit compare_segment(const shared_library &candidate, const std::vector<running_library> &references,
                            const running_segment &running) {
    segment_fit result{.running = running, .new_size = {}, .reasons = {}};
    const layout_note_segment *const then = find_segment(candidate, running.name);
    if (then != nullptr)
        result.new_size = then->size;
    if (!running.present) {
        result.what = fit::not_running;
        return result;
    }
    if (then == nullptr) {
        // A note without the segment says that the new build does not know it: nothing to tell either.
        result.reasons.push_back(candidate.layout.empty() ? candidate.note_problem
                                                          : "the new build's layout note does not name it");
        return result;
    }
    if (running.size != then->size)
        result.reasons.push_back("size: " + std::to_string(running.size) + " bytes now, " +
                                 std::to_string(then->size) + " in the new build");
    if (running.size_check != then->size)
        result.reasons.push_back(
            "size check: " + (running.size_check ? std::to_string(*running.size_check) : "none") + " now, " +
            std::to_string(then->size) + " in the new build");
    for (const running_library &reference : references)
        if (const layout_note_segment *const now = find_segment(reference.library, running.name))
            compare_layouts(*now, *then, result.reasons);
    result.what = result.reasons.empty() ? fit::fits : fit::does_not_fit;
    return result;
}

library_fit compare_library(const shared_library &candidate, const running_library &reference) {
    library_fit result{.path = reference.library.path,
                       .processes = reference.processes,
                       .soname = reference.library.soname,
                       .same_soname = reference.library.soname == candidate.soname,
                       .missing = {}};
    std::set_difference(reference.library.exports.begin(), reference.library.exports.end(),
                        candidate.exports.begin(), candidate.exports.end(),
                        std::back_inserter(result.missing));
    return result;
}

bool any_segment(const upgrade_report &report, fit what) {
    return std::any_of(report.segments.begin(), report.segments.end(),
                       [&](const segment_fit &each) { return each.what == what; });
}

void decide(upgrade_report &report) {
    const bool replaceable =
        std::all_of(report.libraries.begin(), report.libraries.end(),
                    [](const library_fit &each) { return each.same_soname && each.missing.empty(); });
    if (!report.is_libybnet) {
        report.verdict = fit::does_not_fit;
        report.sentence = "This is no libybnet: " +
                          (report.soname.empty() ? "it has no name" : "its name is " + report.soname) +
                          ", and it has no layout note.";
    } else if (any_segment(report, fit::does_not_fit)) {
        report.verdict = fit::does_not_fit;
        report.sentence = "It does not fit: all users must end and the segments be deleted first.";
    } else if (!replaceable) {
        report.verdict = fit::does_not_fit;
        report.sentence = "It does not fit: programs linked with the running build would not start with it.";
    } else if (any_segment(report, fit::cannot_tell) || !report.has_note) {
        report.verdict = fit::cannot_tell;
        report.sentence =
            "Whether it fits cannot be told: " +
            (report.has_note ? "its layout note does not name every segment" : report.note_problem) + '.';
    } else {
        report.verdict = fit::fits;
        report.sentence = any_segment(report, fit::fits)
                              ? "It fits: processes can be restarted with it one by one."
                              : "It fits: no segment is there, so any build may make them.";
    }
}

} // namespace

const char *key_of(fit what) {
    switch (what) {
    case fit::fits:
        return "fits";
    case fit::not_running:
        return "not_running";
    case fit::does_not_fit:
        return "does_not_fit";
    case fit::cannot_tell:
        break;
    }
    return "cannot_tell";
}

upgrade_report compare_upgrade(const shared_library &candidate,
                               const std::vector<running_library> &references,
                               const std::vector<running_segment> &segments) {
    upgrade_report report;
    report.path = candidate.path;
    report.soname = candidate.soname;
    report.has_note = !candidate.layout.empty();
    report.note_problem = candidate.note_problem;
    report.is_libybnet = report.has_note || candidate.soname.starts_with("libybnet.so");
    for (const running_segment &segment : segments)
        report.segments.push_back(compare_segment(candidate, references, segment));
    for (const running_library &reference : references)
        report.libraries.push_back(compare_library(candidate, reference));
    decide(report);
    return report;
}

} // namespace ybnetctl
