#pragma once
// The value kinds: numbers, enumerations, texts, paths, data, vectors, references, member
// functions and errors.

#include <span>
#include <string_view>

#include "kapparameter/kapParameterNode.h"

// Numeric value: real (21), integer (22), flag (23) or angle (24), with dimension, units and range.
class kapParameterNumeric : public kapParameter {
    UT_TYPE(kapParameterNumeric, kapParameter)

    kapParameterNumeric(kapParameterSubType subtype, const kapDimensions& dims, double value);
    // A flag holding `value` (0 or 1).
    static kapParameterPtr create_bool(int value);
    kapParameter* create_new() const override { return new kapParameterNumeric(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::numeric; }

    void set_units(const kapUnits& units);
    void set_range(const kapRange& range);
    kapDimensions get_dimensions() const noexcept { return kapDimensions(impl_->dims); }

    int get_int() const override;
    double get_double() const override;
    utString get_string() const override;
    double get_double_in_units(kapUnitsType units) const override;
    bool set_int(int v) override;
    bool set_double(double v) override;
    bool set_string(const utString& text) override;
    bool set_double_in_units(double v, kapUnitsType units) override;
    bool copy_value_from(const kapParameter& other) override;
    utString get_value_text() const override;
    bool check_range() const override;
    bool is_equal(const kapParameter& other) const override;

    // Formats a number the way value texts write it: kapExpr::format_number.
    static utString format(double v);
    // Reads a whole text as a number, as kapExpr::parse_number does; false when it is not one.
    static bool parse(std::string_view text, double& out);

  protected:
    kapParameterNumeric(const kapParameterNumeric& o) = default;
    bool store(double v, bool seen = true);
};

// Enumeration: states of (key, label, description) in display order; the value is a state key.
// A loaded text that is not a state is kept as it stands and reported by is_valid() as false,
// until an update step converts it.
class kapParameterEnum : public kapParameter {
    UT_TYPE(kapParameterEnum, kapParameter)

    kapParameterEnum();
    kapParameterEnum(const utString& key, const utString& label);  // a first state
    kapParameter* create_new() const override { return new kapParameterEnum(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::enumeration; }

    void add_state(const utString& key, const utString& label, const utString& desc);
    int num_states() const noexcept { return static_cast<int>(impl_->states.size()); }
    const kapEnumState& state(int i) const { return impl_->states[static_cast<std::size_t>(i)]; }
    // Position of a state key (exact match), or -1.
    int find_state(std::string_view key) const noexcept;
    // Position of the current state, or -1 when the value is an undeclared text.
    int get_state() const noexcept { return extra() ? -1 : static_cast<int>(slot_.integer); }

    bool is_valid() const override { return get_state() >= 0; }
    int get_int() const override;
    double get_double() const override { return get_int(); }
    utString get_string() const override;
    utString get_translated_string() const override;
    bool set_int(int v) override;
    bool set_double(double v) override { return set_int(static_cast<int>(v)); }
    bool set_string(const utString& text) override;
    bool copy_value_from(const kapParameter& other) override;
    utString get_value_text() const override { return get_string(); }
    bool is_equal(const kapParameter& other) const override;

  protected:
    kapParameterEnum(const kapParameterEnum& o) = default;
};

// Text value. A text wrapped as "${...}" is an expression, evaluated on read.
class kapParameterString : public kapParameter {
    UT_TYPE(kapParameterString, kapParameter)

    explicit kapParameterString(const utString& value = utString());
    kapParameter* create_new() const override { return new kapParameterString(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::string; }
    int get_int() const override;
    double get_double() const override;
    utString get_string() const override;
    bool set_int(int v) override;
    bool set_double(double v) override;
    bool set_string(const utString& text) override;
    bool copy_value_from(const kapParameter& other) override;
    utString get_value_text() const override;
    bool is_equal(const kapParameter& other) const override;

  protected:
    kapParameterString(const kapParameterString& o) = default;
};

// Path value: a string naming a file.
class kapParameterPath : public kapParameterString {
    UT_TYPE(kapParameterPath, kapParameterString)
    explicit kapParameterPath(const utString& value = utString()) : kapParameterString(value) {}
    kapParameter* create_new() const override { return new kapParameterPath(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::path; }

  protected:
    kapParameterPath(const kapParameterPath& o) = default;
};

// Opaque data node named by a type string; its value is kept as text.
class kapParameterData : public kapParameterString {
    UT_TYPE(kapParameterData, kapParameterString)
    explicit kapParameterData(const utString& type_name);
    kapParameter* create_new() const override { return new kapParameterData(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::data; }

  protected:
    kapParameterData(const kapParameterData& o) = default;
};

// Fixed-size vector of numeric components, written "(x;y;z)".
class kapParameterVector : public kapParameter {
    UT_TYPE(kapParameterVector, kapParameter)

    kapParameterVector(int n, const kapParameterNumeric& component);
    ~kapParameterVector() override;
    kapParameter* create_new() const override { return new kapParameterVector(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::vector; }

    void set_access_type(kapParameterVectorAccessType t);
    int num_components() const noexcept { return impl_->vector_size; }
    double get_component(int i) const;
    // Writes component i; a vector held as an expression becomes plain values first. False when
    // i is out of range or the write is refused.
    bool set_component(int i, double v);

    double get_double() const override { return get_component(0); }
    int get_int() const override { return static_cast<int>(get_component(0)); }
    utString get_string() const override;
    bool set_string(const utString& text) override;
    bool set_double(double v) override;
    bool copy_value_from(const kapParameter& other) override;
    utString get_value_text() const override;
    bool check_range() const override;
    bool is_equal(const kapParameter& other) const override;
    // Component i as "[i]": a numeric whose number setters write through to this vector (an
    // expression is refused, components hold plain numbers).
    kapParameterPtr operator[](const kapParameterKey& key) const override;

    static bool parse(std::string_view text, std::span<double> out);

  protected:
    kapParameterVector(const kapParameterVector& o);
    friend struct kapParameterBlocks;
    double* data() noexcept { return impl_->vector_size <= 3 ? inline_ : heap_; }
    const double* data() const noexcept { return impl_->vector_size <= 3 ? inline_ : heap_; }
    union {
        double inline_[3];
        double* heap_;
    };
};

// Reference to another entity's root, by object id. Lookups through it continue in the root it
// refers to unless it is marked not to be followed.
class kapParameterRef : public kapParameter {
    UT_TYPE(kapParameterRef, kapParameter)

    kapParameterRef();
    kapParameter* create_new() const override { return new kapParameterRef(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::ref; }
    void set_ref_root_type(const utString& kind);
    const utString& get_ref_root_type() const noexcept { return impl_->type_name; }
    void set_nofollow(int nofollow);

    bool is_ref() const noexcept override { return true; }
    kapParameter* follow() const noexcept override;
    kapParameterRoot* get_ref() const noexcept;
    kapObjectId get_ref_id() const noexcept override;
    // True when the id names a live root of the declared kind (any kind when none is declared).
    bool is_valid_ref() const noexcept;
    int get_int() const override { return static_cast<int>(get_ref_id().value); }
    double get_double() const override { return static_cast<double>(get_ref_id().value); }
    utString get_string() const override;
    bool set_string(const utString& text) override;
    bool set_ref_from_id(const kapObjectId& id) override;
    bool set_int(int v) override;
    bool copy_value_from(const kapParameter& other) override;
    utString get_value_text() const override { return get_string(); }
    bool is_equal(const kapParameter& other) const override;

  protected:
    kapParameterRef(const kapParameterRef& o) = default;
};

// A function callable from expressions: (self, arguments) -> result.
using kapMemberFn = kapParameterPtr (*)(const kapParameter& self, const kapParameterPtr& args);
class kapParameterMemberFunction : public kapParameter {
    UT_TYPE(kapParameterMemberFunction, kapParameter)
    kapParameterMemberFunction(kapMemberFn fn, const kapParameter* self);
    kapParameter* create_new() const override { return new kapParameterMemberFunction(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::memberfunction; }
    kapParameterPtr call(const kapParameterPtr& args) const;
    kapMemberFn function() const noexcept { return fn_; }
    const kapParameter* self() const noexcept { return self_; }

  protected:
    kapParameterMemberFunction(const kapParameterMemberFunction& o) = default;
    kapMemberFn fn_;
    const kapParameter* self_;
};

// Error value with a code (see kapParameterErrorCode) and a message.
class kapParameterError : public kapParameter {
    UT_TYPE(kapParameterError, kapParameter)
    explicit kapParameterError(int code, const utString& message = utString());
    static kapParameterPtr create(int code, const utString& message = utString());
    kapParameter* create_new() const override { return new kapParameterError(*this); }
    kapParameterType type() const noexcept override { return kapParameterType::error; }
    bool is_error() const noexcept override { return true; }
    int code() const noexcept { return static_cast<int>(slot_.integer); }
    const utString& message() const noexcept { return impl_->desc; }
    utString get_string() const override;

  protected:
    kapParameterError(const kapParameterError& o) = default;
};
