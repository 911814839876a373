#include <cmath>
#include <limits>

#include "cli.h"
#include "kapparameter/kapExpr.h"
#include "kapparameter/kapParameterFile.h"

namespace kcli {

// ---------------------------------------------------------------------------------------------
// Output

void out(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

void err(std::string_view text) {
    // Keep the order of the two streams when both go to the same place.
    std::fflush(stdout);
    std::fwrite(text.data(), 1, text.size(), stderr);
}

// ---------------------------------------------------------------------------------------------
// Arguments

bool ParsedArgs::has(std::string_view name) const {
    for (const auto& [key, value] : options) {
        if (key == name) return true;
    }
    return false;
}

std::optional<std::string> ParsedArgs::value(std::string_view name) const {
    std::optional<std::string> found;
    for (const auto& [key, value] : options) {
        if (key == name) found = value;
    }
    return found;
}

bool parse_args(std::span<const std::string> args, std::span<const OptionDecl> decls,
                ParsedArgs& parsed, std::string& error) {
    bool options_done = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (options_done || a.size() < 2 || a[0] != '-') {
            parsed.positional.push_back(a);
            continue;
        }
        if (a == "--") {
            options_done = true;
            continue;
        }
        std::string_view name = a;
        std::optional<std::string> inline_value;
        const OptionDecl* decl = nullptr;
        if (a.starts_with("--")) {
            const auto eq = a.find('=');
            if (eq != std::string::npos) {
                name = std::string_view(a).substr(0, eq);
                inline_value = a.substr(eq + 1);
            }
            for (const auto& s : decls) {
                if (s.name == name) decl = &s;
            }
        } else if (a.size() == 2) {
            for (const auto& s : decls) {
                if (s.short_name != 0 && s.short_name == a[1]) decl = &s;
            }
        }
        if (decl == nullptr) {
            error = "unknown option '" + std::string(name) + "'";
            return false;
        }
        std::string value;
        if (decl->takes_value) {
            if (inline_value) {
                value = *inline_value;
            } else if (i + 1 < args.size()) {
                value = args[++i];
            } else {
                error = "option '" + std::string(decl->name) + "' needs a value";
                return false;
            }
        } else if (inline_value) {
            error = "option '" + std::string(decl->name) + "' takes no value";
            return false;
        }
        parsed.options.emplace_back(std::string(decl->name), std::move(value));
    }
    return true;
}

// ---------------------------------------------------------------------------------------------
// Loading

std::string diagnostic(std::string_view file, int line, int column, std::string_view message) {
    kapFileError e;
    e.line = line;
    e.column = column;
    e.message = std::string(message);
    return kap_format_file_error(file, e) + "\n";
}

std::unique_ptr<LoadedEntity> load_entity(const std::string& path, std::string* messages) {
    auto loaded = std::make_unique<LoadedEntity>();
    kapFileError e;
    bool ok = kap_read_entity_file(path, loaded->doc, e);
    if (ok) {
        loaded->root = kap_load_entity(loaded->doc, loaded->report, e);
        ok = loaded->root != nullptr;
    }
    if (ok) return loaded;
    const std::string text = kap_format_file_error(path, e) + "\n";
    if (messages != nullptr) {
        *messages += text;
    } else {
        err(text);
    }
    return nullptr;
}

// ---------------------------------------------------------------------------------------------
// Parameters

namespace {

void walk(const kapParameter& p, const std::function<void(const kapParameter&)>& fn) {
    fn(p);
    if (!p.is_map()) return;
    const auto& map = static_cast<const kapParameterMap&>(p);
    for (std::size_t i = 0; i < map.size(); ++i) {
        walk(*map.child(i), fn);
    }
}

}  // namespace

void for_each_node(const kapParameter& top, const std::function<void(const kapParameter&)>& fn) {
    if (!top.is_map()) return;
    const auto& map = static_cast<const kapParameterMap&>(top);
    for (std::size_t i = 0; i < map.size(); ++i) {
        walk(*map.child(i), fn);
    }
}

void for_each_value(const kapParameter& top, const std::function<void(const kapParameter&)>& fn) {
    for_each_node(top, [&](const kapParameter& p) {
        if (!p.is_map()) fn(p);
    });
}

std::size_t count_nodes(const kapParameter& top) {
    std::size_t n = 0;
    for_each_node(top, [&](const kapParameter&) { ++n; });
    return n;
}

std::string path_of(const kapParameter& p) {
    return kap_entity_key(p);
}

std::string kind_of(const kapParameter& p) {
    switch (p.type()) {
        case kapParameterType::numeric:
            switch (p.subtype()) {
                case kapSubTypeReal:
                    return "real";
                case kapSubTypeInteger:
                    return "integer";
                case kapSubTypeFlag:
                    return "flag";
                case kapSubTypeAngle:
                    return "angle";
                default:
                    return "numeric " + std::to_string(p.subtype());
            }
        case kapParameterType::enumeration:
            return "enumeration";
        case kapParameterType::map: {
            const auto& m = static_cast<const kapParameterMap&>(p);
            return m.is_fixed() ? "map" : "open map";
        }
        case kapParameterType::ref:
            return "reference";
        default:
            return kap_type_name(p.type());
    }
}

std::string units_of(const kapParameter& p) {
    const kapParameterImpl* decl = &p.impl();
    if (p.type() == kapParameterType::vector) {
        if (!decl->component) return "";
        decl = decl->component.get();
    } else if (p.type() != kapParameterType::numeric) {
        return "";
    }
    if (decl->subtype == kapSubTypeAngle) return "deg";
    if (decl->subtype != kapSubTypeReal) return "";
    std::string text;
    if (decl->dims == kapDimLength) {
        text = kapUnitsUtils::get_units() == 0 ? "mm" : "in";
    } else if (decl->dims != kapDimNone) {
        text = "dimension " + std::to_string(decl->dims);
    }
    if (decl->units > 0) {
        if (!text.empty()) text += ", ";
        text += "units standard " + std::to_string(decl->units);
    }
    return text;
}

std::optional<kapRange> range_of(const kapParameter& p) {
    const kapParameterImpl* decl = &p.impl();
    if (p.type() == kapParameterType::vector) decl = decl->component.get();
    if (decl == nullptr || !decl->has_range) return std::nullopt;
    return decl->range;
}

std::string number_text(double v) {
    if (v == std::numeric_limits<double>::max()) return "max";
    if (v == std::numeric_limits<double>::lowest()) return "-max";
    return kapExpr::format_number(v);
}

std::string evaluation_message(const kapParameterPtr& result, int& column) {
    column = 0;
    if (!result) return "no result";
    std::string message = result->get_string();
    if (const auto* error = kapParameterError::ut_dynamic_cast(result.pointer())) {
        if (!error->message().empty()) message = error->message();
    }
    const auto at = message.rfind(" (at ");
    if (at == std::string::npos || !message.ends_with(")")) return message;
    const std::string digits = message.substr(at + 5, message.size() - at - 6);
    if (digits.empty() || digits.size() > 9 ||
        digits.find_first_not_of("0123456789") != std::string::npos) {
        return message;
    }
    column = std::stoi(digits) + 1;
    message.erase(at);
    return message;
}

std::string range_text(const kapRange& r) {
    std::string text = r.min_flag() ? "(" : "[";
    text += number_text(r.min());
    text += ", ";
    text += number_text(r.max());
    text += r.max_flag() ? ")" : "]";
    return text;
}

std::string in_quotes(std::string_view text) {
    return kap_quote(text);
}

// ---------------------------------------------------------------------------------------------
// JSON

Json Json::boolean(bool v) {
    Json j;
    j.type_ = Type::boolean;
    j.flag_ = v;
    return j;
}

Json Json::integer(long long v) {
    Json j;
    j.type_ = Type::integer;
    j.integer_ = v;
    return j;
}

Json Json::number(double v) {
    Json j;
    if (std::isfinite(v)) {
        j.type_ = Type::number;
        j.number_ = v;
    }
    return j;
}

Json Json::string(std::string_view v) {
    Json j;
    j.type_ = Type::string;
    j.text_ = std::string(v);
    return j;
}

Json Json::array() {
    Json j;
    j.type_ = Type::array;
    return j;
}

Json Json::object() {
    Json j;
    j.type_ = Type::object;
    return j;
}

Json& Json::push(Json v) {
    items_.emplace_back(std::string(), std::move(v));
    return *this;
}

Json& Json::set(std::string_view key, Json v) {
    items_.emplace_back(std::string(key), std::move(v));
    return *this;
}

namespace {

// A JSON string: the saved-entity quoting is valid JSON (\" \\ \n \t \r, \u00XX for the other
// controls) and writes bytes that are not UTF-8 as U+FFFD, so the output is always valid JSON.
void write_string(std::string& out, std::string_view s) {
    kap_append_quoted(out, s);
}

}  // namespace

void Json::write(std::string& out, int indent) const {
    switch (type_) {
        case Type::null:
            out += "null";
            return;
        case Type::boolean:
            out += flag_ ? "true" : "false";
            return;
        case Type::integer:
            out += std::to_string(integer_);
            return;
        case Type::number:
            out += kapExpr::format_number(number_);
            return;
        case Type::string:
            write_string(out, text_);
            return;
        case Type::array:
        case Type::object:
            break;
    }
    const bool object = type_ == Type::object;
    const char open = object ? '{' : '[';
    const char close = object ? '}' : ']';
    if (items_.empty()) {
        out += open;
        out += close;
        return;
    }
    bool flat = true;
    for (const auto& item : items_) {
        flat = flat && item.second.is_scalar();
    }
    if (flat) {
        // Short runs of scalars stay on one line.
        std::string line;
        write_flat(line);
        if (static_cast<std::size_t>(indent) + line.size() <= kFlatWidth) {
            out += line;
            return;
        }
    }
    out += open;
    bool first = true;
    for (const auto& [key, value] : items_) {
        if (!first) out += ',';
        first = false;
        out += '\n';
        out.append(static_cast<std::size_t>(indent) + 2, ' ');
        if (object) {
            write_string(out, key);
            out += ": ";
        }
        value.write(out, indent + 2);
    }
    out += '\n';
    out.append(static_cast<std::size_t>(indent), ' ');
    out += close;
}

void Json::write_flat(std::string& out) const {
    if (is_scalar()) {
        write(out, 0);
        return;
    }
    const bool object = type_ == Type::object;
    out += object ? '{' : '[';
    bool first = true;
    for (const auto& [key, value] : items_) {
        if (!first) out += ", ";
        first = false;
        if (object) {
            write_string(out, key);
            out += ": ";
        }
        value.write_flat(out);
    }
    out += object ? '}' : ']';
}

std::string Json::dump() const {
    std::string text;
    write(text, 0);
    text += '\n';
    return text;
}

}  // namespace kcli
