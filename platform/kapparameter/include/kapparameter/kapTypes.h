#pragma once
// Small value types shared by the parameter framework: the numeric enumerations that declarations
// pass, object ids, ranges, dimensions, units and the process-wide unit system.

#include <cstdint>
#include <limits>

#include "utils/utString.h"

// Numbers as the declarations pass them; the named constants give the meanings the library uses.
using kapParameterSubType = int;  // 21 real, 22 integer, 23 flag, 24 angle
inline constexpr kapParameterSubType kapSubTypeReal = 21;
inline constexpr kapParameterSubType kapSubTypeInteger = 22;
inline constexpr kapParameterSubType kapSubTypeFlag = 23;
inline constexpr kapParameterSubType kapSubTypeAngle = 24;

using kapDimStandard = int;  // 1 dimensionless, 3 length, 4/7/9 further physical dimensions
inline constexpr kapDimStandard kapDimNone = 1;
inline constexpr kapDimStandard kapDimLength = 3;

using kapUnitsStandard = int;              // 0: units of the dimension in the current unit system
using kapParameterMeasureMode = int;       // 1 most lengths, 7 angles; -1 when none is declared
using kapParameterMirrorMode = int;        // 0 leaves a value unchanged when mirroring
using kapParameterVectorAccessType = int;  // 1 component-wise

// Unit systems for get_double_in_units / set_double_in_units and kapUnitsUtils::get_scale_from.
enum kapUnitsType : int { kapUnitsMetric = 0, kapUnitsInch = 1 };

// Error codes: those carried by kapParameterError and by the expression engine's errors.
enum kapParameterErrorCode : int {
    kapErrNone = -1,         // no error (the code of an expression value that is not one)
    kapErrGeneric = 0,       // a failure with no code of its own
    kapErrSyntax = 1,        // a text that does not parse
    kapErrType = 2,          // an operand of the wrong type ('abc' * 2, a text as a condition)
    kapErrNoItem = 3,        // the item named does not exist: a name or function nothing answers
    kapErrLocked = 4,        // a write refused by a lock
    kapErrCycle = 5,         // an expression that reads itself
    kapErrDivideByZero = 6,  // x / 0
    kapErrTooDeep = 7,       // nesting beyond the bounds
    kapErrBadCall = 8,       // a built-in called with the wrong number or kind of arguments
    kapErrDomain = 9,        // sqrt(-1), log(0), asin(2), tan(90), a result that is not finite
};

// Identity of an entity root in the process-wide registry; 0 is the empty id.
struct kapObjectId {
    std::uint64_t value = 0;
    constexpr bool empty() const noexcept { return value == 0; }
    constexpr bool operator==(const kapObjectId&) const = default;
};

// A reference to an entity by its object id, as the host passes it around.
struct kapRefToObjectId {
    kapObjectId id;
    constexpr kapRefToObjectId() = default;
    constexpr explicit kapRefToObjectId(kapObjectId i) : id(i) {}
    constexpr bool empty() const noexcept { return id.empty(); }
    constexpr bool operator==(const kapRefToObjectId&) const = default;
};

// Numeric range. A flag of 1 makes its bound open (the bound itself is outside the range); the
// lengths that run from 0 to the largest finite double pass (0, 1).
class kapRange {
  public:
    constexpr kapRange() = default;
    constexpr kapRange(double min, double max, int min_flag, int max_flag)
        : min_(min), max_(max), min_flag_(min_flag), max_flag_(max_flag) {}
    constexpr double min() const noexcept { return min_; }
    constexpr double max() const noexcept { return max_; }
    constexpr int min_flag() const noexcept { return min_flag_; }
    constexpr int max_flag() const noexcept { return max_flag_; }
    constexpr bool contains(double v) const noexcept {
        const bool above = min_flag_ ? v > min_ : v >= min_;
        const bool below = max_flag_ ? v < max_ : v <= max_;
        return above && below;
    }
    constexpr bool operator==(const kapRange&) const = default;

  private:
    double min_ = -std::numeric_limits<double>::max();
    double max_ = std::numeric_limits<double>::max();
    int min_flag_ = 0;
    int max_flag_ = 0;
};

class kapDimensions {
  public:
    constexpr explicit kapDimensions(kapDimStandard s = kapDimNone) : standard_(s) {}
    constexpr kapDimStandard standard() const noexcept { return standard_; }

  private:
    kapDimStandard standard_;
};

class kapUnits {
  public:
    constexpr explicit kapUnits(kapUnitsStandard s = 0) : standard_(s) {}
    constexpr kapUnitsStandard standard() const noexcept { return standard_; }

  private:
    kapUnitsStandard standard_;
};

// The process-wide unit system. Defaults are chosen from it when a schema is declared.
class kapUnitsUtils {
  public:
    // 0 for metric; any other value selects imperial defaults.
    static int get_units() noexcept;
    static void set_units(int units) noexcept;
    // The metric value when get_units() is 0, else the imperial one.
    static double select(double metric, double imperial) noexcept {
        return get_units() == 0 ? metric : imperial;
    }
    // Factor that converts a length given in `from` into the current unit system.
    static double get_scale_from(kapUnitsType from) noexcept;
};

// Sets the unit system for its lifetime and restores the previous one (tests, the tool).
class kapUnitsScope {
  public:
    explicit kapUnitsScope(int units) noexcept : saved_(kapUnitsUtils::get_units()) {
        kapUnitsUtils::set_units(units);
    }
    ~kapUnitsScope() { kapUnitsUtils::set_units(saved_); }
    kapUnitsScope(const kapUnitsScope&) = delete;
    kapUnitsScope& operator=(const kapUnitsScope&) = delete;

  private:
    int saved_;
};
