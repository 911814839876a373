#pragma once
// The host's geometric tools: the tool library's description of a cutter or probe (its shape,
// diameter, tip radius and how far it sticks out of its holder) and of a turning tool's
// assembly. Tool entities keep a pointer to one of these and never own it.

#include "kapparameter/kapParameter.h"
#include "utils/utTypeID.h"

// The parts a tool is mounted with: holder components, for turning tools the insert holder.
class kapAbsToolAssembly {
    UT_TYPE_ROOT(kapAbsToolAssembly)

    kapAbsToolAssembly() = default;
    virtual ~kapAbsToolAssembly() = default;
    kapAbsToolAssembly(const kapAbsToolAssembly&) = default;
    kapAbsToolAssembly& operator=(const kapAbsToolAssembly&) = default;
};

class kapToolTurningAssembly : public kapAbsToolAssembly {
    UT_TYPE(kapToolTurningAssembly, kapAbsToolAssembly)

    // Index of the holder component made from a model (a "complex" holder); -1 when the holder
    // is built from its parameters.
    int complex_holder_component_index() const noexcept { return complex_holder_; }
    void set_complex_holder_component_index(int index) noexcept { complex_holder_ = index; }

  private:
    int complex_holder_ = -1;
};

class kapAbsTool {
    UT_TYPE_ROOT(kapAbsTool)

    kapAbsTool() = default;
    virtual ~kapAbsTool() = default;
    kapAbsTool(const kapAbsTool&) = default;
    kapAbsTool& operator=(const kapAbsTool&) = default;

    // The assembly the tool is mounted with, or null; not owned.
    const kapAbsToolAssembly* get_abs_tool_assembly() const noexcept { return assembly_; }
    void set_abs_tool_assembly(const kapAbsToolAssembly* assembly) noexcept {
        assembly_ = assembly;
    }

  private:
    const kapAbsToolAssembly* assembly_ = nullptr;
};

// A rotating tool: its shape and the lengths that place it in its holder.
class kapTool : public kapAbsTool {
    UT_TYPE(kapTool, kapAbsTool)

    enum class Shape { end_mill, ball_nosed, tip_radiused, other };

    kapTool() = default;
    kapTool(Shape shape, double diameter, double cutting_length)
        : shape_(shape),
          diameter_(diameter),
          cutting_length_(cutting_length),
          overhang_(cutting_length) {}

    Shape shape() const noexcept { return shape_; }
    double diameter() const noexcept { return diameter_; }
    double cutting_length() const noexcept { return cutting_length_; }

    // The radius at the tip: none for an end mill, half the diameter for a ball-nosed tool, the
    // given radius (at most half the diameter) otherwise.
    double tip_radius() const noexcept;
    void set_tip_radius(double radius) noexcept { tip_radius_ = radius; }

    // How far the tool sticks out of its holder. A tool is never held by its cutting part, so an
    // overhang shorter than the cutting length is taken as the cutting length; a negative one is
    // refused (the overhang stays as it was).
    double get_tool_overhang() const noexcept { return overhang_; }
    void set_tool_overhang(double overhang) noexcept;

  private:
    Shape shape_ = Shape::end_mill;
    double diameter_ = 0.0;
    double cutting_length_ = 0.0;
    double tip_radius_ = 0.0;
    double overhang_ = 0.0;
};

class kapToolMaker {
  public:
    // Diameter at the top of the taper of a tapered tipped tool whose tip has the radius
    // `tip_radius`, widening at `taper_angle` degrees from the axis over `taper_height`.
    static double get_taper_diameter(double tip_radius, double taper_angle, double taper_height);
};

// Turning inserts.
enum class kapInsertShape {
    diamond_35,
    diamond_55,
    diamond_80,
    trigon_80,
    triangle,
    square,
    round,
    custom,
    unknown
};

class kapFMKToolUtils {
  public:
    // The shape an insert-shape parameter names by its state key ("diamond_35" ...); unknown
    // for any other text.
    static kapInsertShape insert_shape_from_par(const kapParameter& par);
    // The angle in degrees between the cutting edges at the insert's tip; 0 for round inserts,
    // custom and unknown shapes (whose angle is not given by the shape).
    static double insert_shape_to_tip_angle(kapInsertShape shape);
};
