#include "fluids/advection/correction_room.h"

#include <algorithm>
#include <cmath>

#include "fluids/advection/row_chunks.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

bool HasExcess(const AdvectedField& field) { return field.balance && field.balance->HasExcess(); }

/// The parts of a cell that the flow goes in the step, at samples that a path changes.
void FindWays(const AdvectionData& data, const SampleChunk& c, double* ways) {
  const double perCell = data.step / data.Shape().mLayout.cellSize;
  const u8* marks = data.marks->mData + c.index;
  for (i32 i = 0; i < c.n; ++i) {
    const bool stays = (c.anySolid && c.solid[i]) || (marks[i] & CorrectedRow::kUncorrected);
    ways[i] = stays ? 0 : std::min(1.0, Length(c.k1.At(i)) * perCell);
  }
}

/// Room of the samples [first, last) of a chunk above their values, or below.
void FindRoom(const AdvectionData& data, const AdvectedField& field, const SampleChunk& c,
              const double* ways, bool isAbove, IndexRange part, double* room) {
  const i32 index = c.index + part.first, n = part.last - part.first;
  CorrectedRow row{};
  row.limits = field.source->mData;
  row.corners = data.starts->mData + index;
  row.ny = field.source->mNx;
  row.nz = field.source->mSlice;
  row.marks = data.marks->mData + index;
  LimitRow(row, isAbove, n, room);
  const double* values = field.destination->mData + index;
  const double* thinning = data.outflow ? data.thinning->mData + index : nullptr;
  for (i32 i = 0; i < n; ++i) {
    const double limit = thinning ? room[i] * thinning[i] : room[i];
    const double way = isAbove ? limit - values[i] : values[i] - limit;
    room[i] = ways[part.first + i] * std::max(way, 0.0);
  }
}

/// Calls f(field, piece, index of the first sample, their room, their number).
template <class F>
void ForEachRoom(const AdvectionData& data, const CellBox& box, F&& f) {
  const PathSolids solids(data);
  RowValues ways, room;
  ForEachChunk(
      data, solids, box, [](i32, i32) {},
      [&](const SampleChunk& c) {
        FindWays(data, c, ways.v);
        for (const AdvectedField& field : data.fields) {
          if (!HasExcess(field)) continue;
          field.balance->ForEachStretch(
              c.x, c.x + c.n, c.y, c.z, [&](i32 piece, i32 first, i32 last) {
                const double excess = field.balance->ExcessOf(piece);
                if (excess == 0) return;
                FindRoom(data, field, c, ways.v, excess < 0, {first - c.x, last - c.x}, room.v);
                f(field, piece, c.index + first - c.x, room.v, last - first);
              });
        }
      });
}

}  // namespace

void SumRoom(const AdvectionData& data, const CellBox& box) {
  ForEachRoom(data, box,
              [&](const AdvectedField& field, i32 piece, i32, const double* room, i32 n) {
                double sum = 0;
                for (i32 i = 0; i < n; ++i) sum += room[i];
                field.balance->RoomOf(box.min.z, piece) += sum;
              });
}

void LevelRoom(const AdvectionData& data, const CellBox& box) {
  ForEachRoom(data, box,
              [&](const AdvectedField& field, i32 piece, i32 index, const double* room, i32 n) {
                const double share = field.balance->ShareOf(piece);
                const double step = field.balance->ExcessOf(piece) > 0 ? -share : share;
                double* values = field.destination->mData + index;
                for (i32 i = 0; i < n; ++i) values[i] += step * room[i];
              });
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
