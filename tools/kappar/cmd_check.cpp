// kappar check FILE...

#include <algorithm>
#include <unordered_map>

#include "cli.h"
#include "kapparameter/kapEvaluator.h"

namespace kcli {
namespace {

struct Problem {
    int line = 0;
    int column = 0;
    std::string message;
};

// Where each parameter's value was read: the position of the pair that set it.
std::unordered_map<const kapParameter*, const kapFilePair*> pair_positions(const LoadedEntity& e) {
    std::unordered_map<const kapParameter*, const kapFilePair*> where;
    for (const auto& pair : e.doc.pairs) {
        const utString key = e.root->lookup_key_synonym(pair.key);
        if (const kapParameter* p = e.root->find_node(key)) where[p] = &pair;
    }
    return where;
}

// Why an expression of `owner` (its value when `is_value`, else its activity) fails, evaluated as
// `eval` would evaluate it, or empty when it does not.
std::string expression_failure(const kapParameter& owner, const utString& text, bool is_value) {
    const Evaluation v = evaluate_expression(scope_of(owner), text, is_value ? &owner : nullptr);
    if (!v.failed) return std::string();
    if (v.column == 0) return "fails: " + v.message;
    return "fails at character " + std::to_string(v.column) + ": " + v.message;
}

std::vector<Problem> find_problems(const LoadedEntity& e) {
    std::vector<Problem> problems;
    const auto where = pair_positions(e);
    auto add = [&](const kapParameter* p, std::string message) {
        Problem problem;
        if (p != nullptr) {
            if (auto it = where.find(p); it != where.end()) {
                problem.line = it->second->line;
                problem.column = it->second->column;
            }
        }
        problem.message = std::move(message);
        problems.push_back(std::move(problem));
    };

    for_each_value(*e.root, [&](const kapParameter& p) {
        const std::string name = in_quotes(path_of(p));
        if (p.type() == kapParameterType::enumeration && !p.is_valid()) {
            add(&p, name + ": " + in_quotes(p.get_string()) + " is not a state of the enumeration");
        }
        if (p.is_expr()) {
            const std::string failure = expression_failure(p, p.get_expr(), true);
            if (!failure.empty()) {
                add(&p, name + ": expression " + in_quotes(p.get_expr()) + " " + failure);
                return;
            }
        }
        if (!p.check_range()) {
            const auto range = range_of(p);
            add(&p, name + ": " + p.get_string() + " is out of range" +
                        (range ? " " + range_text(*range) : std::string()));
        }
    });
    for_each_node(*e.root, [&](const kapParameter& p) {
        if (p.get_active().empty()) return;
        const std::string failure = expression_failure(p, p.get_active(), false);
        if (!failure.empty()) {
            add(&p, in_quotes(path_of(p)) + ": activity expression " + in_quotes(p.get_active()) +
                        " " + failure);
        }
    });
    for (auto& n : pair_notes(e.report, true)) {
        problems.push_back({n.line, n.column, std::move(n.message)});
    }
    // In the order of the file; problems without a position last.
    std::stable_sort(problems.begin(), problems.end(), [](const Problem& a, const Problem& b) {
        const int la = a.line > 0 ? a.line : 1 << 30, lb = b.line > 0 ? b.line : 1 << 30;
        return la != lb ? la < lb : a.column < b.column;
    });
    return problems;
}

std::string plural(std::size_t n, std::string_view word) {
    return std::to_string(n) + " " + std::string(word) + (n == 1 ? "" : "s");
}

}  // namespace

int run_check(const ParsedArgs& args) {
    if (args.positional.empty()) return usage_error("check", "missing FILE");
    int status = kExitOk;
    std::size_t ok = 0, with_problems = 0, unreadable = 0;
    for (const std::string& path : args.positional) {
        auto e = load_entity(path);
        if (!e) {
            ++unreadable;
            status = std::max<int>(status, kExitUnreadable);
            continue;
        }
        const std::vector<Problem> problems = find_problems(*e);
        std::string s;
        for (const auto& p : problems) {
            s += diagnostic(path, p.line, p.column, p.message);
        }
        if (problems.empty()) {
            ++ok;
            s += path + ": ok\n";
        } else {
            ++with_problems;
            s += path + ": " + plural(problems.size(), "problem") + "\n";
            status = std::max<int>(status, kExitProblems);
        }
        out(s);
    }
    if (args.positional.size() > 1) {
        out(plural(args.positional.size(), "file") + " checked: " + std::to_string(ok) + " ok, " +
            std::to_string(with_problems) + " with problems, " + std::to_string(unreadable) +
            " unreadable\n");
    }
    return status;
}

}  // namespace kcli
