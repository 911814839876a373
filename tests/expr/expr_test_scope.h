#pragma once
// A small scope for the expression tests: parameters are entries keyed by their path text
// (letter case ignored), functions are callables keyed by their path text.

#include <deque>
#include <functional>
#include <map>
#include <string>

#include "kapparameter/kapExpr.h"

class ExprTestScope : public kapExprScope {
  public:
    struct Entry {
        kapExprValue value;
        bool active = true;
    };
    using Fn = std::function<kapExprValue(std::span<const kapExprValue>)>;

    // Paths as written in expressions: "Type", "Rootpar.Tolerance", "{toolpath}.Strategy".
    Entry& set(const std::string& path, kapExprValue v) {
        Entry& e = entries_[key(path)];
        e.value = std::move(v);
        return e;
    }
    Entry& set(const std::string& path, double v) {
        return set(path, kapExprValue::from_number(v));
    }
    Entry& set(const std::string& path, const char* text) {
        texts_.emplace_back(text);
        return set(path, kapExprValue::from_text(texts_.back()));
    }
    void define(const std::string& fn, Fn f) { fns_[key(fn)] = std::move(f); }
    const Entry* find(const std::string& path) const {
        auto it = entries_.find(key(path));
        return it == entries_.end() ? nullptr : &it->second;
    }

    mutable int resolves = 0;
    mutable int calls = 0;

    kapExprValue resolve(const kapExprPath& path) const override {
        ++resolves;
        auto it = entries_.find(key(path));
        if (it == entries_.end()) return {};
        return kapExprValue::from_node(&it->second, this);
    }
    kapExprValue call(const kapExprPath& fn, std::span<const kapExprValue> args) const override {
        ++calls;
        auto it = fns_.find(key(fn));
        if (it == fns_.end()) return {};
        return it->second(args);
    }
    kapExprValue value_of(const void* node) const override {
        return static_cast<const Entry*>(node)->value;
    }
    bool is_active(const void* node) const override {
        return static_cast<const Entry*>(node)->active;
    }

    static std::string lower(std::string_view s) {
        std::string r(s);
        for (char& c : r)
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        return r;
    }

  private:
    // The key of a path as the compiler split it, rebuilt from its parts: this checks that the
    // anchor, the entity and the relative text agree with the text as written.
    static std::string key(const kapExprPath& p) {
        std::string k;
        if (p.anchor == kapExprAnchor::root) k = "rootpar";
        if (p.anchor == kapExprAnchor::global) k = "{" + lower(p.entity.text) + "}";
        if (!p.relative.empty()) k += (k.empty() ? "" : ".") + lower(p.relative);
        return k;
    }
    static std::string key(const std::string& text) { return lower(text); }

    std::map<std::string, Entry> entries_;
    std::map<std::string, Fn> fns_;
    std::deque<std::string> texts_;  // never moved: values borrow their bytes
};
