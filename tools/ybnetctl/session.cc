// SPDX-License-Identifier: Apache-2.0
//
// See session.h.
#include "tools/ybnetctl/session.h"

#include <cstdlib>
#include <ostream>

#include "tools/ybnetctl/status_name.h"
#include "tools/ybnetctl/table.h"

namespace ybnetctl {

bool session::colourful() const {
    if (colour != "auto")
        return colour == "always";
    const char *const refusal = std::getenv("NO_COLOR");
    return out_is_terminal && (refusal == nullptr || *refusal == '\0');
}

namespace {

// How every line on standard error begins.
std::string beginning(const session &run) {
    if (run.batch_line == 0)
        return "ybnetctl: ";
    return "ybnetctl: " + printable(run.batch_name) + ':' + std::to_string(run.batch_line) + ": ";
}

void print_as_it_is(session &run, const json &document) {
    const bool indented = run.out_is_terminal && run.batch_line == 0;
    run.out << document.dump(indented ? 2 : -1, ' ', false, json::error_handler_t::replace) << '\n';
}

} // namespace

void print(session &run, const json &document) {
    if (run.batch_line == 0)
        print_as_it_is(run, document);
    else
        print_as_it_is(run, json{{"line", run.batch_line}, {"result", document}});
}

json to_json(const failure &what) {
    json error;
    error["thing"] = what.thing;
    error["reason"] = what.reason;
    error["advice"] = what.advice;
    error["status"] = what.status ? json(status_name(*what.status)) : json(nullptr);
    error["exit_code"] = static_cast<int>(what.code);
    return error;
}

void print(session &run, const failure &what) {
    if (run.json_wanted) {
        json document;
        if (run.batch_line != 0)
            document["line"] = run.batch_line;
        document["error"] = to_json(what);
        print_as_it_is(run, document);
        return;
    }
    run.err << beginning(run);
    if (!what.thing.empty())
        run.err << printable(what.thing) << ": ";
    run.err << printable(what.reason);
    if (what.status)
        run.err << " (" << status_name(*what.status) << ')';
    run.err << '\n';
    if (!what.advice.empty())
        run.err << "  try: " << printable(what.advice) << '\n';
}

void note(session &run, const std::string &sentence) {
    run.notes.push_back(sentence);
    run.err << beginning(run) << "note: " << printable(sentence) << '\n' << std::flush;
}

} // namespace ybnetctl
