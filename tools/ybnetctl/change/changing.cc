// SPDX-License-Identifier: Apache-2.0
//
// See changing.h.
#include "tools/ybnetctl/change/changing.h"

#include <cstring>
#include <optional>
#include <ostream>
#include <utility>

#include "tools/ybnetctl/status_name.h"
#include "tools/ybnetctl/table.h"

namespace ybnetctl {

const char *const change_keys =
    "notes (a list of sentences, as on standard error; what is known only when the process ends stands there "
    "alone), status.";

const char *const dry_run_keys =
    "With --dry-run a command that changes something prints instead: dry_run (true), steps, notes, status "
    "(as "
    "it would be), error (null, or as after any failure). Each step has kind (command, lookup, namespace, "
    "request, open, "
    "driver, "
    "record), text, fails (why it would not succeed, or null) and details (null where none are named "
    "here).\n\n"
    "The details of a record are segment, region, index and fields (a list; each has field, from, to; null "
    "is "
    "what only the kernel will tell), or of a registration by hold segment and user_count. Those of a lookup "
    "are "
    "found; of driver, file. Those of a request are type, length, flags (a list), cut_short (true, where it "
    "is) "
    "and, by its type, ifindex, netdev, family, link_flags, link_flags_changed, prefix_length and attributes "
    "(a "
    "list; each has name and type, and by its name value, valid and preferred, bytes or attributes).";

namespace {

const char *verb_of(const char *kind) {
    struct verb {
        const char *kind;
        const char *words;
    };
    static constexpr verb verbs[] = {{"command", "would run: "},     {"lookup", "would look: "},
                                     {"namespace", "would enter: "}, {"request", "would send: "},
                                     {"open", "would open: "},       {"driver", "would write: "},
                                     {"record", "would record: "}};
    for (const verb &each : verbs)
        if (std::strcmp(each.kind, kind) == 0)
            return each.words;
    return "would do: ";
}

void print_rehearsal(session &run, const std::vector<step> &steps, const std::optional<failure> &problem) {
    if (run.json_wanted) {
        json document;
        document["dry_run"] = true;
        document["steps"] = json::array();
        for (const step &each : steps)
            document["steps"].push_back(to_json(each));
        document["notes"] = std::exchange(run.notes, {});
        document["status"] = !problem          ? json(status_name(YB_STATUS_SUCCESS))
                             : problem->status ? json(status_name(*problem->status))
                                               : json(nullptr);
        document["error"] = problem ? to_json(*problem) : json(nullptr);
        print(run, document);
        return;
    }
    for (const step &each : steps)
        run.out << step_in_words(each) << '\n';
    if (steps.empty() && !problem)
        run.out << "would do nothing\n";
    run.out.flush();
    if (problem)
        print(run, *problem);
}

} // namespace

std::string step_in_words(const step &what) {
    std::string text = verb_of(what.kind) + printable(what.text);
    if (what.details.is_object() && what.details.contains("file"))
        text += " > " + what.details["file"].get<std::string>();
    return what.fails.empty() ? text : text + "   (which would fail: " + printable(what.fails) + ')';
}

json to_json(const step &what) {
    json document;
    document["kind"] = what.kind;
    document["text"] = what.text;
    document["fails"] = what.fails.empty() ? json(nullptr) : json(what.fails);
    document["details"] = what.details;
    return document;
}

void change(session &run, const std::function<change_result(library &)> &command) {
    run.notes.clear(); // of a line of the batch that failed
    library &lib = library_of(run);
    rehearsal *const rehearsed = lib.rehearsed();
    if (rehearsed == nullptr) {
        change_result result = command(lib);
        lib.note_change();
        if (run.json_wanted) {
            result.document["notes"] = std::exchange(run.notes, {});
            result.document["status"] = status_name(YB_STATUS_SUCCESS);
            print(run, result.document);
        } else if (!result.sentence.empty() && run.batch_line == 0) {
            run.out << printable(result.sentence) << '\n';
        }
        return;
    }
    std::optional<failure> problem;
    try {
        (void)command(lib); // what it would say of a netdev that is not there means nothing
    } catch (const failure &what) {
        problem = what;
    }
    const std::vector<step> steps = rehearsed->take_steps();
    if (problem && steps.empty() && !run.json_wanted)
        throw *problem; // refused before there was anything to do; JSON has one form whatever comes of it
    print_rehearsal(run, steps, problem);
    if (problem)
        run.ends_with = problem->code;
}

} // namespace ybnetctl
