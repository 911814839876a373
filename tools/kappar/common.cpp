#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>

#include "cli.h"
#include "kapparameter/kapEvaluator.h"
#include "kapparameter/kapExpr.h"
#include "kapparameter/kapParameterFile.h"

namespace kcli {

// ---------------------------------------------------------------------------------------------
// Output

namespace {

int g_out_errno = 0;  // the first failure to write standard output

void note_out_failure() {
    if (g_out_errno == 0) g_out_errno = errno != 0 ? errno : EIO;
}

}  // namespace

void out(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) note_out_failure();
}

int finish_output(int status) {
    if (std::fflush(stdout) != 0) note_out_failure();
    if (g_out_errno == 0 && std::ferror(stdout) != 0) g_out_errno = EIO;
    if (g_out_errno == 0) return status;
    std::fputs(("kappar: cannot write to standard output: " +
                std::string(std::strerror(g_out_errno)) + "\n")
                   .c_str(),
               stderr);
    return std::max<int>(status, kExitUnwritable);
}

std::string printable(std::string_view text) {
    return kap_message_text(text);
}

void err(std::string_view text) {
    // Keep the order of the two streams when both go to the same place.
    if (std::fflush(stdout) != 0) note_out_failure();
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

const kapEntityDuplicate* duplicate_of(const kapEntityLoadReport& report, const kapFilePair& pair) {
    for (const auto& d : report.duplicates) {
        if (d.second.line == pair.line && d.second.column == pair.column) return &d;
    }
    return nullptr;
}

std::vector<PairNote> pair_notes(const kapEntityLoadReport& report, bool for_check) {
    std::vector<PairNote> notes;
    auto note = [&](const kapFilePair& at, std::string head, std::string_view tail) {
        head += for_check ? " (" + std::string(tail) + ")" : ", " + std::string(tail);
        notes.push_back({at.line, at.column, std::move(head)});
    };
    for (const auto& pair : report.unrecognised) {
        bool refused = false;
        for (const auto& r : report.refused) {
            refused = refused || (r.line == pair.line && r.column == pair.column);
        }
        if (refused) {
            note(pair, "value " + in_quotes(pair.value) + " refused by " + in_quotes(pair.key),
                 "kept as unrecognised");
        } else if (const kapEntityDuplicate* d = duplicate_of(report, pair)) {
            note(d->first,
                 "key " + in_quotes(d->first.key) + " is set again by " + in_quotes(pair.key) +
                     " at line " + std::to_string(pair.line),
                 "this value is loaded");
            note(pair,
                 "key " + in_quotes(pair.key) + " sets the same parameter as " +
                     in_quotes(d->first.key) + " at line " + std::to_string(d->first.line),
                 "kept as unrecognised");
        } else if (for_check) {
            notes.push_back(
                {pair.line, pair.column, "unrecognised key " + in_quotes(pair.key) + " (kept)"});
        } else {
            notes.push_back(
                {pair.line, pair.column, "unrecognised key " + in_quotes(pair.key) + " kept"});
        }
    }
    if (!for_check) {
        for (const auto& pair : report.dropped) {
            notes.push_back({pair.line, pair.column,
                             "key " + in_quotes(pair.key) + " is no longer read, dropped"});
        }
    }
    std::stable_sort(notes.begin(), notes.end(), [](const PairNote& a, const PairNote& b) {
        return a.line != b.line ? a.line < b.line : a.column < b.column;
    });
    return notes;
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

namespace {

// Characters of `text` before byte `offset`.
int characters_before(std::string_view text, std::size_t offset) {
    int n = 0;
    for (std::size_t i = 0; i < offset && i < text.size(); ++i) {
        n += (static_cast<unsigned char>(text[i]) & 0xc0) != 0x80;
    }
    return n;
}

// The message of a failed evaluation of `text`, made printable. The parser names a character it
// did not expect by its first byte; the whole character is named instead.
std::string failure_message(std::string message, std::string_view text, std::size_t offset) {
    static constexpr std::string_view kUnexpected = "unexpected character '";
    if (message.size() == kUnexpected.size() + 2 && message.starts_with(kUnexpected) &&
        message.back() == '\'' && offset < text.size() &&
        message[kUnexpected.size()] == text[offset]) {
        std::size_t n = 1;
        while (offset + n < text.size() &&
               (static_cast<unsigned char>(text[offset + n]) & 0xc0) == 0x80 && n < 4) {
            ++n;
        }
        message = std::string(kUnexpected) + std::string(text.substr(offset, n)) + "'";
    }
    return printable(message);
}

}  // namespace

const kapParameter* scope_of(const kapParameter& p) {
    return p.parent() != nullptr ? static_cast<const kapParameter*>(p.parent()) : &p;
}

Evaluation evaluate_expression(const kapParameter* scope, const utString& text,
                               const kapParameter* owner) {
    Evaluation r;
    r.value = kapEvaluator(scope).evaluate(text);
    std::vector<const kapParameter*> followed;
    if (owner != nullptr) followed.push_back(owner);
    bool inner = false;
    while (r.value && !r.value->is_error() && !r.value->is_map() && r.value->is_expr() &&
           r.value->parent() != nullptr) {
        const kapParameter* node = r.value.pointer();
        if (std::find(followed.begin(), followed.end(), node) != followed.end()) {
            r.failed = true;
            r.column = 1;
            r.message = "expression reads its own value";
            return r;
        }
        followed.push_back(node);
        r.value = kapEvaluator(scope_of(*node)).evaluate(node->get_expr());
        inner = true;
    }
    if (r.value && !r.value->is_error()) return r;
    r.failed = true;
    int column = 0;
    const std::string message = evaluation_message(r.value, column);
    if (inner) {
        // The fault lies in the expression of a parameter the name leads to.
        r.column = 1;
        r.message = printable(message);
    } else if (column > 0) {
        const auto offset = static_cast<std::size_t>(column - 1);
        r.column = characters_before(text, offset) + 1;
        r.message = failure_message(message, text, offset);
    } else {
        r.message = printable(message);
    }
    return r;
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
