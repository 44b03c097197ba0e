// The parameters of `WaterSolver`.
#include <map>

#include "fluids/solvers/water_solver.h"
#include "framework/node_kind.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using namespace host;

namespace {

/// What a row of a gas says of a liquid: no text drops it.
const std::map<i32, std::string_view>& LiquidHelp() {
  static const std::map<i32, std::string_view> help = {
      {1000,
       "liquids of differing weight in one scene: oil floats on water; who fills the channel from "
       "the liquid's own particles does so in stage 6"},
      {1001,
       "how heavy the liquid is where no channel says so; matters for a viscous one, and once "
       "bodies float in it"},
      {1008,
       "what moves the liquid, by name; none without names, so that it doesn't fall until a "
       "gravity is named, and with null every grid force"},
      {1009,
       "air round the liquid that the cells cover too; ahead of fast water they reach as far as it "
       "goes in two steps"},
      {1010, "the space that the liquid may ever fill; it ends at the walls of this box"},
      {1011, "closed holds the liquid at the box's low x side, open lets it out there"},
      {1012, "closed holds the liquid at the box's high x side, open lets it out there"},
      {1013, "the floor of the box: closed carries the liquid, open lets it fall through"},
      {1014, "under a closed ceiling a splash stops, through an open one it leaves"},
      {1015, "closed holds the liquid at the box's low z side, open lets it out there"},
      {1016, "closed holds the liquid at the box's high z side, open lets it out there"},
      {1018,
       "at least how many cells beyond its surface the liquid's velocity is continued; fast "
       "water gets as many as it crosses in a step"},
      {1019,
       "how thick it is: water 0.001, oil 0.1, syrup 3, honey 10; evens out differences of speed "
       "and holds what touches solids"},
      {1020, "how the pressure is found: multigrid is the quickest, gauss_seidel for a rough look"},
      {1021,
       "gives up after that many rounds: too few let the liquid sink into itself; where it lets go "
       "of walls a step solves up to five times, and 'iterations' in the statistics counts all"},
      {1022, "how well the liquid keeps its volume: 0 is rough and quick, 1 exact"},
      {1023, ""},
      {1024, ""},
      {1028, ""},
      {1035, "0 lets the liquid stick to obstacles, 1 lets it slide along them freely"},
      {1036, "a moving obstacle drags the liquid along"},
      {1045, ""},
      {1046, ""},
      {1047, ""},
      {1300,
       "thick and thin liquid in one scene: a field of viscosity in Pa s, in the place of "
       "'viscosity'"},
      {1301, ""},
      {1302, ""},
      {1309, ""},
      {1307, "only inside this time window the liquid keeps its volume"},
  };
  return help;
}

/// The rows of a gas in a liquid's words and with its defaults.
ParameterTable RowsOfFlow() {
  ParameterTable rows;
  for (ParameterRow row : FluidSolver::Parameters()) {
    const auto found = LiquidHelp().find(row.id);
    if (found == LiquidHelp().end()) continue;
    if (!found->second.empty()) row.help = found->second;
    if (row.id == 1001) row.creation = 1000.0;
    if (row.id == 1009) row.creation = i32{3};
    rows.push_back(std::move(row));
  }
  return rows;
}

}  // namespace

const NodeKind& WaterSolver::Kind() {
  static const NodeKind kind = {
      .id = 1300003,
      .type = "liquid",
      .label = "Liquid Dynamics",
      .className = "WaterSolver",
      .typeId = kTypeWaterSolver,
      .list = kListSolvers,
      .flags = "S",
      .stages = {kEmitters, kOperators, kFluidDynamics, kForcesEmission, kPressure, kFlip},
      .priority = 30,
      .menu = {"Dynamics"},
      .purpose = "water: the box that it may fill, its particles, its forces and its pressure",
      .example =
          {{example::kBall},
           {example::kBallMesh, example::kBallVolume,
            R"({ "type": "particlegroup", "name": "water" })",
            R"({ "type": "duration", "name": "first moment", "parameters": { "length": 0.01 } })",
            R"({ "type": "particlemesh_emission_setting", "name": "once", "parameters": { "duration": "first moment" } })",
            R"({ "type": "particlegridemitter", "name": "drop", "parameters": { "group": "water", "volume": "ball volume", "settings": "once" } })",
            R"({ "type": "particle_advection", "name": "move", "parameters": { "group": "water" } })",
            R"({ "type": "force_gravity", "name": "gravity" })",
            R"({ "type": "liquid", "name": "pool", "position": [-100, -100, -100],)",
            R"(  "parameters": { "box_size": [200, 200, 200], "groups": ["water"], "forces": ["gravity"] } })"}},
      .rows = Parameters,
      .make = MakeNode<WaterSolver>,
  };
  return kind;
}

const ParameterTable& WaterSolver::Parameters() {
  static const ParameterTable table = [] {
    ParameterTable rows = RowsOfFlow();
    ParameterTable own = {
        LinkRow(1200, "group", "kept with the scene; 'groups' names whose particles the liquid is",
                {ParticleGroup::kNodeType})
            .Kept(),
        LinksRow(kGroupsRow, "groups", "whose liquid particles the liquid is", {})
            .Accepts({ParticleGroup::kNodeType})
            .To(&LiquidSettings::groups)
            .Writes()
            .Required(),
        LongRow(kTransferRow, "transfer", 0, "",
                "how particles hand on their velocity: flip is lively, and by its ratio noisy; "
                "affine is quieter and keeps eddies as they turn")
            .Choices({{0, "flip"}, {1, "affine"}})
            .To(&LiquidSettings::transfer),
        RealRow(kFlipRatioRow, "flip_ratio", 0.96, "none",
                "how lively it splashes: 1 keeps every eddy and its noise, 0 is calm and thick")
            .Missing(0.0)
            .Range(0, 1)
            .OnlyWith(kTransferRow, {0})
            .To(&LiquidSettings::flipRatio),
        BoolRow(kGatherRow, "kernel_transfer", false,
                "faces weigh particles by a kernel and their mass, which is slower, in place of "
                "linear interpolation")
            .To(&LiquidSettings::gathers),
        RealRow(1211, "kernel_radius", 1.4, "cells", "how far that kernel reaches")
            .Missing(1.0)
            .Range(1e-3, 8)
            .OnlyWith(kGatherRow, {1})
            .To(&LiquidSettings::kernelRadius),
        LinkRow(1217, "kernel", "that kernel; without one a sharp one", {Kernel::kNodeType})
            .OnlyWith(kGatherRow, {1})
            .To(&LiquidSettings::kernel),
        LongRow(
            kSurfaceModeRow, "surface_mode", 2, "",
            "what is liquid: cells with particles, cells where they are dense, or the space "
            "that they fill, known to a part of a cell, or with fewer than 4 particles in one, of "
            "one twice as wide")
            .Choices({{0, "count"}, {1, "density"}, {2, "smooth"}})
            .To(&LiquidSettings::surfaceMode),
        RealRow(1212, "density_threshold", 0.2, "none",
                "how dense: particles in a cell, in eighths")
            .AtLeast(0)
            .OnlyWith(kSurfaceModeRow, {1})
            .To(&LiquidSettings::densityThreshold),
        LongRow(1214, "count_threshold", 0, "",
                "cells with no more particles than that count as air")
            .Missing(4)
            .Range(0, 255)
            .OnlyWith(kSurfaceModeRow, {0})
            .To(&LiquidSettings::countThreshold),
        ButtonRow(1215, "add_channels", "sets channels for density and viscosity up").Kept(),
        BoolRow(kReprojectRow, "reproject", false,
                "where a recording plays the velocity, particles take it in every step")
            .To(&LiquidSettings::reproject),
        BoolRow(kEvenRow, "position_correction", false,
                "spreads particles that crowd and closes gaps between them, so that the liquid "
                "keeps its volume")
            .To(&LiquidSettings::correctsPositions),
        RealRow(kPerCellRow, "particles_per_cell", 8.0, "none",
                "how many are in a full cell: what position_correction holds them to; emitters in "
                "volumes make 8 unless their subdivisions say otherwise")
            .AtLeast(1e-3)
            .OnlyWith(kEvenRow, {1})
            .To(&LiquidSettings::particlesPerCell),
    };
    rows.insert(rows.end(), own.begin(), own.end());
    return rows;
  }();
  return table;
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
