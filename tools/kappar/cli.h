#pragma once
// Shared pieces of the kappar command-line tool: exit statuses, argument parsing, output,
// loading saved entities with their diagnostics, descriptions of parameters, and JSON text.

#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kappar/kapEntity.h"
#include "kappar/kapEntityFile.h"
#include "kapparameter/kapParameter.h"
#include "kapparameter/kapParameterFile.h"

namespace kcli {

// Exit statuses; the higher status wins when a command meets several outcomes.
enum Exit : int {
    kExitOk = 0,          // success
    kExitProblems = 1,    // the command ran and found problems (check, a failing expression)
    kExitUsage = 2,       // wrong arguments
    kExitUnreadable = 3,  // an input could not be read or loaded
    kExitUnwritable = 4,  // an output could not be written
};

// ---------------------------------------------------------------------------------------------
// Output

void out(std::string_view text);
void err(std::string_view text);
// Flushes standard output; on any failure to write it, since the start, reports it on standard
// error and answers kExitUnwritable, else `status`.
int finish_output(int status);
// Text from a file or the command line, safe to print in a message (control characters and bytes
// that are not UTF-8 as "\x1b").
std::string printable(std::string_view text);

// ---------------------------------------------------------------------------------------------
// Replacing files

// The file an output replaces: a symbolic link is resolved (the link stays a link and the file
// it leads to is replaced), and the mode and owner of an existing file are kept.
struct OutputFile {
    std::string file;
    bool exists = false;
    unsigned mode = 0;
    unsigned uid = 0;
    unsigned gid = 0;
};

// Settles which file writing `path` replaces. False, with the reason in `error`, for what must
// not be replaced: a file that is not a regular file (a folder, a device, a FIFO), a read-only
// file, a file with several hard links, a link that leads nowhere.
bool resolve_output(const std::string& path, OutputFile& target, std::string& error);
// Replaces the file with `text` through a temporary file of its own in the same folder (created
// exclusively, synced, renamed over it), so the file holds the old text or the new, whole,
// whatever happens. False, with the reason in `error`, when it could not.
bool write_output(const OutputFile& target, std::string_view text, std::string& error);

// ---------------------------------------------------------------------------------------------
// Arguments

struct OptionDecl {
    std::string_view name;  // "--format"
    char short_name = 0;    // 'o' for "-o"; 0 when none
    bool takes_value = false;
};

// Options given to one command, in order, and its positional arguments. "--name=value" and
// "--name value" are both accepted; "--" ends the options.
struct ParsedArgs {
    std::vector<std::pair<std::string, std::string>> options;
    std::vector<std::string> positional;

    bool has(std::string_view name) const;
    // The last value given for an option.
    std::optional<std::string> value(std::string_view name) const;
};

// False with `error` filled for an unknown option or a missing value.
bool parse_args(std::span<const std::string> args, std::span<const OptionDecl> decls,
                ParsedArgs& parsed, std::string& error);

// ---------------------------------------------------------------------------------------------
// Commands

struct Command {
    std::string_view name;
    std::string_view summary;  // one line for the tool's own help
    std::string_view help;     // the command's help text, starting with its usage line
    std::span<const OptionDecl> options;
    int (*run)(const ParsedArgs& args);
};

std::span<const Command> commands();

// Reports a usage error of `command` and answers kExitUsage.
int usage_error(std::string_view command, std::string_view message);

// The unit system chosen with --units / --inch (0 metric, 1 inch).
int selected_units();

int run_kinds(const ParsedArgs& args);
int run_schema(const ParsedArgs& args);
int run_show(const ParsedArgs& args);
int run_upgrade(const ParsedArgs& args);
int run_eval(const ParsedArgs& args);
int run_check(const ParsedArgs& args);

// ---------------------------------------------------------------------------------------------
// Loading

// A saved entity read, loaded and brought to the current version.
struct LoadedEntity {
    kapFileDocument doc;
    kapEntityLoadReport report;
    std::unique_ptr<kapParameterRoot> root;
};

// Reads and loads `path`. On failure writes "file:line:column: message" to `messages` (to
// standard error when null) and answers null.
std::unique_ptr<LoadedEntity> load_entity(const std::string& path, std::string* messages = nullptr);

// The duplicate whose second pair is `pair`, or null.
const kapEntityDuplicate* duplicate_of(const kapEntityLoadReport& report, const kapFilePair& pair);

// What loading did with the pairs it did not store, one (line, column, message) per note, in the
// order of the file: unrecognised keys, refused values, duplicates (at both pairs), dropped keys.
// `for_check` gives the wording of `check` (which does not list dropped keys).
struct PairNote {
    int line = 0;
    int column = 0;
    std::string message;
};
std::vector<PairNote> pair_notes(const kapEntityLoadReport& report, bool for_check);

// "file:line:column: message", or "file: message" at line 0, with a line ending.
std::string diagnostic(std::string_view file, int line, int column, std::string_view message);

// ---------------------------------------------------------------------------------------------
// Parameters

// Every node below `top` in declaration order (depth first, a map before its children).
void for_each_node(const kapParameter& top, const std::function<void(const kapParameter&)>& fn);
// Every node that holds a value (not a map, list or array) below `top`, in declaration order.
void for_each_value(const kapParameter& top, const std::function<void(const kapParameter&)>& fn);
std::size_t count_nodes(const kapParameter& top);

// The dotted path of a node from its root ("ThicknessSetValues[16].Mode").
std::string path_of(const kapParameter& p);
// "real", "integer", "flag", "angle", "enumeration", "string", "path", "data", "vector",
// "map", "open map", "list", "array", "reference" ...
std::string kind_of(const kapParameter& p);
// Units of a numeric value in the current unit system: "mm", "in", "deg", or "" when unitless.
std::string units_of(const kapParameter& p);
// The declared range of a numeric node or of a vector's components.
std::optional<kapRange> range_of(const kapParameter& p);
// "[0, max)": brackets for closed bounds, parentheses for open ones, "max" for the largest double.
std::string range_text(const kapRange& r);
std::string number_text(double v);
// The message of a failed evaluation without its trailing " (at N)", with N + 1 (the character
// of the expression where the fault lies, counted from 1) in `column`, or 0 when there is none.
std::string evaluation_message(const kapParameterPtr& result, int& column);
// An expression evaluated as `eval` shows it and `check` judges it.
struct Evaluation {
    kapParameterPtr value;  // the answer; a parameter of the tree for a bare name
    bool failed = false;
    int column = 0;       // of the fault in the expression's text, in characters from 1; 0 for none
    std::string message;  // printable
};
// Evaluates `text` in `scope`. A bare name answers the parameter it names; when that
// parameter's value is itself an expression, it is followed (as reading the name in arithmetic
// would), so a chain of names that ends where it started is the cycle it is, and an expression
// that fails makes the names that lead to it fail too. `owner` is the parameter whose value
// `text` is, or null.
Evaluation evaluate_expression(const kapParameter* scope, const utString& text,
                               const kapParameter* owner = nullptr);
// The scope an expression owned by `p` is evaluated in: its parent map, or `p` itself.
const kapParameter* scope_of(const kapParameter& p);
// A text between double quotes, escaped as the saved-entity files write values.
std::string in_quotes(std::string_view text);

// ---------------------------------------------------------------------------------------------
// JSON

// A JSON value built in memory and written with two-space indentation; an object or array that
// holds only scalars is written on one line when that line is at most 100 characters wide.
class Json {
  public:
    enum class Type { null, boolean, integer, number, string, array, object };

    Json() = default;
    static Json boolean(bool v);
    static Json integer(long long v);
    static Json number(double v);
    static Json string(std::string_view v);
    static Json array();
    static Json object();

    Json& push(Json v);                       // arrays
    Json& set(std::string_view key, Json v);  // objects; keys keep the order they are set in
    bool empty() const noexcept { return items_.empty(); }

    // The text, ending with a line ending.
    std::string dump() const;

  private:
    static constexpr std::size_t kFlatWidth = 100;
    void write(std::string& out, int indent) const;
    void write_flat(std::string& out) const;
    bool is_scalar() const noexcept { return type_ != Type::array && type_ != Type::object; }

    Type type_ = Type::null;
    bool flag_ = false;
    long long integer_ = 0;
    double number_ = 0.0;
    std::string text_;
    std::vector<std::pair<std::string, Json>> items_;  // arrays leave keys empty
};

}  // namespace kcli
