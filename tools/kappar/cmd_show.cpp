// kappar show FILE, kappar eval FILE EXPR

#include "cli.h"
#include "kapparameter/kapEvaluator.h"

namespace kcli {
namespace {

bool is_refused(const kapEntityLoadReport& report, const kapFilePair& pair) {
    for (const auto& r : report.refused) {
        if (r.key == pair.key && r.line == pair.line && r.column == pair.column) return true;
    }
    return false;
}

std::string entity_title(const LoadedEntity& e) {
    std::string s = e.report.kind + " " + in_quotes(e.root->get_root_name()) + ", version " +
                    std::to_string(e.root->version());
    if (e.report.saved_version != e.root->version()) {
        s += " (saved at version " + std::to_string(e.report.saved_version) + ")";
    }
    return s;
}

std::string value_line(const kapParameter& p, bool show_activity) {
    std::string s = path_of(p) + " = " + in_quotes(p.get_string());
    std::string notes;
    if (p.is_expr()) notes = "expression " + in_quotes(p.get_expr());
    if (show_activity && !p.is_active()) notes += notes.empty() ? "inactive" : ", inactive";
    if (!notes.empty()) s += "  (" + notes + ")";
    return s + "\n";
}

std::string class_name_of(std::string_view kind) {
    const kapEntityKindInfo* info = kapEntityKinds::find(kind);
    return info ? std::string(info->class_name) : std::string();
}

}  // namespace

int run_show(const ParsedArgs& args) {
    const std::string format = args.value("--format").value_or("text");
    if (format != "text" && format != "json") {
        return usage_error("show", "option '--format' takes text or json, not '" + format + "'");
    }
    if (args.positional.empty()) return usage_error("show", "missing FILE");
    if (args.positional.size() > 1) return usage_error("show", "too many arguments");
    const std::string& path = args.positional[0];
    const bool active_only = args.has("--active-only");
    auto e = load_entity(path);
    if (!e) return kExitUnreadable;
    const kapParameterRoot& root = *e->root;

    if (format == "json") {
        Json top = Json::object();
        top.set("file", Json::string(path));
        top.set("kind", Json::string(e->report.kind));
        top.set("class", Json::string(class_name_of(e->report.kind)));
        top.set("name", Json::string(root.get_root_name()));
        top.set("saved_version", Json::integer(e->report.saved_version));
        top.set("version", Json::integer(root.version()));
        Json list = Json::array();
        for_each_value(root, [&](const kapParameter& p) {
            const bool active = p.is_active();
            if (active_only && !active) return;
            Json j = Json::object();
            j.set("path", Json::string(path_of(p)));
            j.set("value", Json::string(p.get_string()));
            if (p.is_expr()) j.set("expression", Json::string(p.get_expr()));
            j.set("active", Json::boolean(active));
            list.push(std::move(j));
        });
        top.set("parameters", std::move(list));
        Json unrecognised = Json::array();
        for (const auto& pair : e->report.unrecognised) {
            Json j = Json::object();
            j.set("key", Json::string(pair.key));
            j.set("value", Json::string(pair.value));
            j.set("line", Json::integer(pair.line));
            j.set("column", Json::integer(pair.column));
            if (is_refused(e->report, pair)) j.set("refused", Json::boolean(true));
            if (const kapEntityDuplicate* d = duplicate_of(e->report, pair)) {
                Json first = Json::object();
                first.set("key", Json::string(d->first.key));
                first.set("line", Json::integer(d->first.line));
                first.set("column", Json::integer(d->first.column));
                j.set("duplicate_of", std::move(first));
            }
            unrecognised.push(std::move(j));
        }
        top.set("unrecognised", std::move(unrecognised));
        Json dropped = Json::array();
        for (const auto& pair : e->report.dropped) {
            Json j = Json::object();
            j.set("key", Json::string(pair.key));
            j.set("value", Json::string(pair.value));
            j.set("line", Json::integer(pair.line));
            j.set("column", Json::integer(pair.column));
            dropped.push(std::move(j));
        }
        top.set("dropped", std::move(dropped));
        out(top.dump());
        return kExitOk;
    }

    std::string s = entity_title(*e) + "\n\n";
    for_each_value(root, [&](const kapParameter& p) {
        if (active_only && !p.is_active()) return;
        s += value_line(p, true);
    });
    if (!e->report.unrecognised.empty()) {
        s += "\nnot in the schema, kept as read:\n";
        for (const auto& pair : e->report.unrecognised) {
            s += pair.key + " = " + in_quotes(pair.value) + "  (line " + std::to_string(pair.line);
            if (is_refused(e->report, pair)) s += ", value refused";
            if (const kapEntityDuplicate* d = duplicate_of(e->report, pair)) {
                s += ", sets " + in_quotes(d->first.key) + " of line " +
                     std::to_string(d->first.line) + " again";
            }
            s += ")\n";
        }
    }
    if (!e->report.dropped.empty()) {
        s += "\nno longer read, dropped:\n";
        for (const auto& pair : e->report.dropped) {
            s += pair.key + " = " + in_quotes(pair.value) + "  (line " + std::to_string(pair.line) +
                 ")\n";
        }
    }
    out(s);
    return kExitOk;
}

int run_eval(const ParsedArgs& args) {
    if (args.positional.size() < 2) {
        return usage_error("eval", args.positional.empty() ? "missing FILE" : "missing EXPR");
    }
    if (args.positional.size() > 2) return usage_error("eval", "too many arguments");
    const std::string& path = args.positional[0];
    const std::string& text = args.positional[1];
    auto e = load_entity(path);
    if (!e) return kExitUnreadable;

    const Evaluation evaluation = evaluate_expression(e->root.get(), text);
    if (evaluation.failed) {
        err(diagnostic("<expression>", evaluation.column > 0 ? 1 : 0, evaluation.column,
                       evaluation.message));
        return kExitProblems;
    }
    const kapParameterPtr& result = evaluation.value;
    if (result->is_map()) {
        std::string s;
        for_each_value(*result, [&](const kapParameter& p) { s += value_line(p, false); });
        out(s);
        return kExitOk;
    }
    out(result->get_string() + "\n");
    return kExitOk;
}

}  // namespace kcli
