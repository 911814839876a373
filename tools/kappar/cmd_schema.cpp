// kappar kinds, kappar schema KIND

#include <algorithm>

#include "cli.h"
#include "utils/utString.h"

namespace kcli {
namespace {

std::vector<const kapEntityKindInfo*> sorted_kinds() {
    std::vector<const kapEntityKindInfo*> kinds;
    for (const auto& k : kapEntityKinds::all()) {
        kinds.push_back(&k);
    }
    std::sort(kinds.begin(), kinds.end(), [](const auto* a, const auto* b) {
        const std::string la = kapdowncase(a->kind), lb = kapdowncase(b->kind);
        return la != lb ? la < lb : a->kind < b->kind;
    });
    return kinds;
}

std::size_t parameter_count(const kapEntityKindInfo& info) {
    std::unique_ptr<kapParameterRoot> root = kapEntityKinds::create(info.kind, utString());
    return root ? count_nodes(*root) : 0;
}

std::string pad(std::string_view text, std::size_t width, bool right) {
    std::string s(text);
    if (s.size() >= width) return s;
    const std::string fill(width - s.size(), ' ');
    return right ? fill + s : s + fill;
}

// The kind named on the command line: the exact name, or else the one name that differs only
// in letter case.
const kapEntityKindInfo* find_kind(std::string_view name) {
    if (const auto* k = kapEntityKinds::find(name)) return k;
    const kapEntityKindInfo* found = nullptr;
    for (const auto& k : kapEntityKinds::all()) {
        if (kapdowncase(k.kind) == kapdowncase(name)) {
            if (found != nullptr) return nullptr;
            found = &k;
        }
    }
    return found;
}

bool holds_value(const kapParameter& p) {
    return !p.is_map();
}

std::string units_name() {
    return kapUnitsUtils::get_units() == 0 ? "metric" : "inch";
}

// ---------------------------------------------------------------------------------------------
// Text

void text_field(std::string& s, std::string_view name, std::string_view value) {
    s += "    ";
    s += pad(name, 13, false);
    s += value;
    s += '\n';
}

void text_entry(std::string& s, const kapParameter& p) {
    s += path_of(p);
    s += "  ";
    s += kind_of(p);
    s += '\n';
    const std::string units = units_of(p);
    if (!units.empty()) text_field(s, "units", units);
    if (holds_value(p)) text_field(s, "default", in_quotes(p.get_value_text()));
    if (auto range = range_of(p)) text_field(s, "range", range_text(*range));
    if (p.type() == kapParameterType::ref && !p.get_typename().empty()) {
        text_field(s, "refers to", in_quotes(p.get_typename()));
    }
    if (p.type() == kapParameterType::data) text_field(s, "data type", in_quotes(p.get_typename()));
    if (p.type() == kapParameterType::vector) {
        const auto& v = static_cast<const kapParameterVector&>(p);
        text_field(s, "components", std::to_string(v.num_components()));
    }
    if (p.type() == kapParameterType::array) text_field(s, "elements", std::to_string(p.size()));
    if (p.type() == kapParameterType::enumeration) {
        const auto& e = static_cast<const kapParameterEnum&>(p);
        for (int i = 0; i < e.num_states(); ++i) {
            const kapEnumState& st = e.state(i);
            text_field(s, "state",
                       in_quotes(st.key) + ", " + in_quotes(st.label) + ", " + in_quotes(st.desc));
        }
    }
    text_field(s, "label", in_quotes(p.get_label()));
    text_field(s, "description", in_quotes(p.get_desc()));
    text_field(s, "group", in_quotes(p.get_group_name()));
    if (!p.get_active().empty()) text_field(s, "active", in_quotes(p.get_active()));
}

// ---------------------------------------------------------------------------------------------
// JSON

Json json_entry(const kapParameter& p) {
    Json j = Json::object();
    j.set("path", Json::string(path_of(p)));
    j.set("kind", Json::string(kind_of(p)));
    const std::string units = units_of(p);
    if (!units.empty()) j.set("units", Json::string(units));
    if (holds_value(p)) j.set("default", Json::string(p.get_value_text()));
    if (auto range = range_of(p)) {
        Json r = Json::object();
        r.set("min", Json::number(range->min()));
        r.set("max", Json::number(range->max()));
        r.set("min_open", Json::boolean(range->min_flag() != 0));
        r.set("max_open", Json::boolean(range->max_flag() != 0));
        j.set("range", std::move(r));
    }
    if (p.type() == kapParameterType::ref && !p.get_typename().empty()) {
        j.set("refers_to", Json::string(p.get_typename()));
    }
    if (p.type() == kapParameterType::data) j.set("data_type", Json::string(p.get_typename()));
    if (p.type() == kapParameterType::vector) {
        const auto& v = static_cast<const kapParameterVector&>(p);
        j.set("components", Json::integer(v.num_components()));
    }
    if (p.type() == kapParameterType::array) {
        j.set("elements", Json::integer(static_cast<long long>(p.size())));
    }
    if (p.type() == kapParameterType::enumeration) {
        const auto& e = static_cast<const kapParameterEnum&>(p);
        Json states = Json::array();
        for (int i = 0; i < e.num_states(); ++i) {
            const kapEnumState& st = e.state(i);
            Json s = Json::object();
            s.set("key", Json::string(st.key));
            s.set("label", Json::string(st.label));
            s.set("description", Json::string(st.desc));
            states.push(std::move(s));
        }
        j.set("states", std::move(states));
    }
    j.set("label", Json::string(p.get_label()));
    j.set("description", Json::string(p.get_desc()));
    j.set("group", Json::string(p.get_group_name()));
    if (!p.get_active().empty()) j.set("active", Json::string(p.get_active()));
    return j;
}

// ---------------------------------------------------------------------------------------------
// Markdown

std::string cell(std::string_view text) {
    std::string s;
    for (char c : text) {
        if (c == '|') s += '\\';
        if (c == '\n') {
            s += "<br>";
            continue;
        }
        s += c;
    }
    return s;
}

std::string code_cell(std::string_view text) {
    if (text.empty()) return "";
    if (text.find('`') != std::string_view::npos) return cell(text);
    return "`" + cell(text) + "`";
}

void markdown_row(std::string& s, const kapParameter& p) {
    std::string states;
    if (p.type() == kapParameterType::enumeration) {
        const auto& e = static_cast<const kapParameterEnum&>(p);
        for (int i = 0; i < e.num_states(); ++i) {
            if (i > 0) states += ", ";
            states += code_cell(e.state(i).key) + " (" + cell(e.state(i).label) + ")";
        }
    }
    std::string kind = kind_of(p);
    if (p.type() == kapParameterType::ref && !p.get_typename().empty()) {
        kind += " to " + p.get_typename();
    } else if (p.type() == kapParameterType::data) {
        kind += " " + p.get_typename();
    } else if (p.type() == kapParameterType::vector) {
        kind += " of " + std::to_string(static_cast<const kapParameterVector&>(p).num_components());
    } else if (p.type() == kapParameterType::array) {
        kind += " of " + std::to_string(p.size());
    }
    const auto range = range_of(p);
    s += "| " + code_cell(path_of(p));
    s += " | " + cell(kind);
    s += " | " + cell(units_of(p));
    s += " | " + (holds_value(p) ? code_cell(p.get_value_text()) : std::string());
    s += " | " + (range ? cell(range_text(*range)) : std::string());
    s += " | " + states;
    s += " | " + cell(p.get_label());
    s += " | " + cell(p.get_desc());
    s += " | " + cell(p.get_group_name());
    s += " | " + code_cell(p.get_active());
    s += " |\n";
}

}  // namespace

int run_kinds(const ParsedArgs& args) {
    const std::string format = args.value("--format").value_or("text");
    if (format != "text" && format != "json") {
        return usage_error("kinds", "option '--format' takes text or json, not '" + format + "'");
    }
    if (!args.positional.empty()) return usage_error("kinds", "too many arguments");
    const auto kinds = sorted_kinds();
    if (format == "json") {
        Json list = Json::array();
        for (const auto* k : kinds) {
            Json j = Json::object();
            j.set("kind", Json::string(k->kind));
            j.set("class", Json::string(k->class_name));
            j.set("version", Json::integer(k->version));
            j.set("parameters", Json::integer(static_cast<long long>(parameter_count(*k))));
            list.push(std::move(j));
        }
        Json top = Json::object();
        top.set("kinds", std::move(list));
        out(top.dump());
        return kExitOk;
    }
    std::size_t kind_width = 4, class_width = 5;
    for (const auto* k : kinds) {
        kind_width = std::max(kind_width, k->kind.size());
        class_width = std::max(class_width, k->class_name.size());
    }
    std::string s = pad("KIND", kind_width, false) + "  " + pad("CLASS", class_width, false) +
                    "  VERSION  PARAMETERS\n";
    for (const auto* k : kinds) {
        s += pad(k->kind, kind_width, false) + "  " + pad(k->class_name, class_width, false) +
             "  " + pad(std::to_string(k->version), 7, true) + "  " +
             pad(std::to_string(parameter_count(*k)), 10, true) + "\n";
    }
    out(s);
    return kExitOk;
}

int run_schema(const ParsedArgs& args) {
    const std::string format = args.value("--format").value_or("text");
    if (format != "text" && format != "json" && format != "markdown") {
        return usage_error("schema",
                           "option '--format' takes text, json or markdown, not '" + format + "'");
    }
    if (args.positional.empty()) return usage_error("schema", "missing KIND");
    if (args.positional.size() > 1) return usage_error("schema", "too many arguments");
    const kapEntityKindInfo* info = find_kind(args.positional[0]);
    if (info == nullptr) {
        return usage_error("schema", "unknown entity kind '" + args.positional[0] +
                                         "' (run 'kappar kinds' for the list)");
    }
    std::unique_ptr<kapParameterRoot> root = kapEntityKinds::create(info->kind, utString());
    const std::size_t count = count_nodes(*root);

    if (format == "json") {
        Json top = Json::object();
        top.set("kind", Json::string(info->kind));
        top.set("class", Json::string(info->class_name));
        top.set("version", Json::integer(info->version));
        top.set("units", Json::string(units_name()));
        Json list = Json::array();
        for_each_node(*root, [&](const kapParameter& p) { list.push(json_entry(p)); });
        top.set("parameters", std::move(list));
        out(top.dump());
        return kExitOk;
    }

    std::string s;
    if (format == "markdown") {
        s += "# " + std::string(info->kind) + "\n\n";
        s += "Class `" + std::string(info->class_name) + "`, version " +
             std::to_string(info->version) + ", " + std::to_string(count) + " parameters, " +
             units_name() + " defaults.\n\n";
        s += "| Path | Kind | Units | Default | Range | States | Label | Description | Group | "
             "Active |\n";
        s += "|---|---|---|---|---|---|---|---|---|---|\n";
        for_each_node(*root, [&](const kapParameter& p) { markdown_row(s, p); });
        out(s);
        return kExitOk;
    }

    s += std::string(info->kind) + ": " + std::string(info->class_name) + ", version " +
         std::to_string(info->version) + ", " + std::to_string(count) + " parameters, " +
         units_name() + " defaults\n";
    for_each_node(*root, [&](const kapParameter& p) {
        s += '\n';
        text_entry(s, p);
    });
    out(s);
    return kExitOk;
}

}  // namespace kcli
