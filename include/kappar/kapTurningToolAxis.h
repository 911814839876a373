#pragma once
// The tool axis of turning toolpaths. A turning tool's axis is not entered as a vector: it follows
// from the turning strategy, the cycle, the cut direction, the groove orientation of the tool,
// whether the tool works below the centre line, and the insert's cut angle. The toolpath shows
// the result as its calculated holder angle and tool orientation ("Turning.HolderAngleF()",
// "Turning.ToolOrientationF()").
//
// Axes lie in the ZX plane of the lathe: directions (x, 0, z). Angles are in degrees and measured
// from the Z axis, anticlockwise as seen in the ZX plane (Z towards X): the X axis is at 90, the
// negative Z axis at 180, the negative X axis at -90.

#include "geometry/gi.h"
#include "kappar/kappar_export.h"
#include "kapparameter/kapParameter.h"

// Which way the insert faces on its holder.
enum kapTurningToolOrientation : int {
    kapTurningToolOrientation_Standard = 0,
    kapTurningToolOrientation_Reversed = 1,  // the insert turned over
};

// A tool axis of a turning tool: a unit direction in the ZX plane and the insert's orientation.
class KAPPAR_API kapTurningToolAxis {
  public:
    // The Z axis, standard.
    kapTurningToolAxis() noexcept = default;
    // The direction is taken as given (y is expected to be 0).
    kapTurningToolAxis(const giUnitVec3& direction, kapTurningToolOrientation orientation) noexcept
        : direction_(direction), orientation_(orientation) {}
    // The axis at `degrees` from Z; exact at multiples of 90 degrees.
    static kapTurningToolAxis at_angle(double degrees,
                                       kapTurningToolOrientation orientation) noexcept;

    const giUnitVec3& direction() const noexcept { return direction_; }
    kapTurningToolOrientation orientation() const noexcept { return orientation_; }
    // The direction's angle from Z in degrees, in (-180, 180]; exact for the four axis
    // directions.
    double axis_angle_from_z() const noexcept;

    bool operator==(const kapTurningToolAxis&) const = default;

  private:
    giUnitVec3 direction_{gi_Z};
    kapTurningToolOrientation orientation_ = kapTurningToolOrientation_Standard;
};

// Classification of a toolpath's turning strategy ("Strategy"). The tests other than is_turning
// and is_pattern_turning look for a part of the strategy's name: "turn_face_roughing" is facing
// and roughing alike.
class KAPPAR_API kapTurnStrategyParUtils {
  public:
    // "Turning" exists and is active.
    static bool is_turning(const kapParameter& toolpath);
    // "turn_roughing" or "turn_finishing".
    static bool is_profiling(const kapParameter& toolpath);
    // "turn_pattern".
    static bool is_pattern_turning(const kapParameter& toolpath);
    // The strategy contains "bore", "face", "groove", "roughing", "finishing".
    static bool is_boring(const kapParameter& toolpath);
    static bool is_facing(const kapParameter& toolpath);
    static bool is_grooving(const kapParameter& toolpath);
    static bool is_roughing(const kapParameter& toolpath);
    static bool is_finishing(const kapParameter& toolpath);
};

// Calculates the tool axis of a toolpath from its parameters and the tool its "Tool" reference
// names. Reads only; cheap to make for each question. A toolpath without a tool (none referenced,
// or a reference that leads nowhere) is answered as if its tool had no cut angle and were not a
// grooving tool.
class KAPPAR_API kapTurningToolAxisParCalc {
  public:
    // `toolpath`: a handle on the toolpath's root or on any parameter of its tree; the tree is
    // read from its top. An empty handle reads as a toolpath that is not turning.
    explicit kapTurningToolAxisParCalc(const kapParameterPtr& toolpath);
    // A handle on a node of the tree `node` lies in, for a calculator to read that tree through
    // without owning it: the top of a tree that its maker owns (on the stack, by a unique
    // pointer) is counted by no handle, and a handle on it would be the last to let it go, so
    // the handle goes on a node that a map counts. Empty for a lone uncounted node.
    static kapParameterPtr handle_in(const kapParameter& node);

    // -- what the toolpath and its tool say --
    // "Turning.Cycle" and "Turning.CutDirection"; empty when the toolpath lacks them.
    utString turning_cycle() const;
    utString cut_direction() const;
    // "Turning.BelowCentreLine" is active and set.
    bool below_centreline() const;
    // "Tool.TurningInsert.CutAngle" in degrees; 0 without a tool.
    double insert_angle() const;
    // "Tool.Type" is "turn_grooving".
    bool tool_is_grooving() const;
    // The tool's "OrientationDirection" when the tool answers "IsGroove()" as true; else empty.
    utString groove_direction() const;

    // -- the axis, step by step --
    // By strategy: not turning, Z standard; profiling, the turn axis; boring, the bore axis;
    // facing, the face axis; grooving, the groove axis; any other (a pattern), Z standard.
    kapTurningToolAxis calculate_basic_axis() const;
    // X, oriented by the cycle and the cut direction.
    kapTurningToolAxis calculate_turn_axis() const;
    // Along Z: -Z standard when cutting a "turn" cycle in the "positive" direction, else Z
    // reversed; mirrored through the face on the back face.
    kapTurningToolAxis calculate_bore_axis() const;
    // X, reversed.
    static kapTurningToolAxis calculate_face_axis();
    // By the tool's groove direction: "positive_x", "negative_x", "front_face", "back_face";
    // Z standard when the tool names none.
    kapTurningToolAxis calculate_groove_axis() const;
    static kapTurningToolAxis calculate_outer_groove_axis();      // X, reversed
    static kapTurningToolAxis calculate_inner_groove_axis();      // the outer one, below centre
    static kapTurningToolAxis calculate_face_groove_axis();       // Z, reversed
    static kapTurningToolAxis calculate_back_face_groove_axis();  // the face one, mirrored
    // The basic axis turned by the insert's cut angle; for a grooving tool then the equivalent
    // grooving axis closest to Z.
    kapTurningToolAxis calculate_axis_with_insert_rotation() const;
    // The axis with the insert rotation, mirrored through the centre line when cutting below it,
    // rounded to the nearest quarter turn.
    kapTurningToolAxis calculate_final_axis() const;
    // The final axis's angle from Z, normalised (normalise_angle).
    double calculate_holder_angle() const;
    // "reversed" when the final axis is reversed, else "standard".
    utString calculate_tool_orientation() const;

    // -- helpers --
    // The other orientation: standard for reversed, reversed for anything else.
    static kapTurningToolOrientation flipped(kapTurningToolOrientation orientation);
    // (x, 0, z) becomes (-x, 0, z) / (x, 0, -z); both flip the orientation.
    static kapTurningToolAxis mirrored_through_centreline(const kapTurningToolAxis& axis);
    static kapTurningToolAxis mirrored_through_face(const kapTurningToolAxis& axis);
    // Rotation about the Y axis, anticlockwise as seen in the ZX plane (Z turns towards X).
    static giXform3 anticlockwise_zx_rotation(const giAngle& angle);
    // Turns the axis by the insert's cut angle: anticlockwise for a standard insert, clockwise
    // for a reversed one.
    static kapTurningToolAxis apply_insert_angle(const kapTurningToolAxis& axis, double degrees);
    // Of the axis and its mirror images through the centre line and through the face, the one
    // with the smallest angle to the Z axis (the first of them on a tie).
    static kapTurningToolAxis best_equivalent_grooving_axis(const kapTurningToolAxis& axis);
    // Subtracts 360 while the angle is above 180. Angles below -180 are left as they are.
    static double normalise_angle(double degrees);
    // floor(a / 90 + 0.5) * 90: to the nearest quarter turn, ties upwards.
    static double round_to_nearest_90(double degrees);
    static giAngle round_to_nearest_90(const giAngle& angle);
    // The axis rebuilt at its rounded angle from Z, with its orientation.
    static kapTurningToolAxis round_to_nearest_90(const kapTurningToolAxis& axis);

  private:
    kapTurningToolAxisParCalc(kapParameterPtr toolpath, kapParameterPtr tool);
    // The top of the toolpath's tree and the tool's root; null when there is none.
    const kapParameter* toolpath() const noexcept;
    const kapParameter* tool() const noexcept;

    kapParameterPtr toolpath_;  // a parameter of the toolpath's tree
    kapParameterPtr tool_;      // the toolpath's "Tool" reference, or a parameter of the tool
};
