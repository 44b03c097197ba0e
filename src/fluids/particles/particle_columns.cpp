#include "fluids/particles/particle_columns.h"

#include <algorithm>

namespace MELDO_GLOBAL::MELDO_SULVA {

namespace {

constexpr double kDiffuseLife = 100;  ///< frames

template <class T>
void ApplyMoves(std::vector<T>& values, std::span<const RowMove> moves) {
  for (const RowMove& move : moves) values[move.to] = std::move(values[move.from]);
}

/// The value of `list` at the place of each of the two in the order of their ids.
template <class List>
auto PlaceOf(List& list, i32 id) {
  return std::upper_bound(list.begin(), list.end(), id,
                          [](i32 value, const auto& column) { return value < column->Key().id; });
}

}  // namespace

template <class T>
PropertyColumn<T>& ParticleColumns::Require(const PropertyKey& key, std::string_view name) {
  if (PropertyColumn<T>* found = Find<T>(key)) return *found;
  const std::string_view known = NameOfProperty(key.id);
  auto column =
      std::make_unique<PropertyColumn<T>>(key, std::string(known.empty() ? name : known), Count());
  auto& list = List<T>();
  return **list.insert(PlaceOf(list, key.id), std::move(column));
}
template PropertyColumn<double>& ParticleColumns::Require<double>(const PropertyKey&,
                                                                  std::string_view);
template PropertyColumn<Vec3d>& ParticleColumns::Require<Vec3d>(const PropertyKey&,
                                                                std::string_view);
template PropertyColumn<bool>& ParticleColumns::Require<bool>(const PropertyKey&, std::string_view);

template <class F>
void ParticleColumns::ForEachColumn(F&& f) {
  for (const auto& column : mScalars) f(*column);
  for (const auto& column : mVectors) f(*column);
  for (const auto& column : mSwitches) f(*column);
}

void ParticleColumns::Drop(const PropertyKey& key) {
  const auto drop = [&](auto& list) {
    std::erase_if(list, [&](const auto& column) { return column->Key().Answers(key); });
  };
  drop(mScalars);
  drop(mVectors);
  drop(mSwitches);
}

void ParticleColumns::Resize(i32 count) {
  mIds.resize(count, -1);
  mFlags.resize(count);
  mPositions.resize(count);
  mVelocities.resize(count);
  if (HasLinks()) mLinks.resize(count);
}

template <class T>
void ParticleColumns::AppendEntries(const std::vector<ParticleTemplate::Entry<T>>& entries,
                                    i32 row) {
  for (const ParticleTemplate::Entry<T>& entry : entries)
    Require<T>(entry.key, entry.name).Set(row, entry.value);
}

i32 ParticleColumns::Append(const ParticleTemplate& particle) {
  const i32 row = Count();
  mIds.push_back(-1);
  mFlags.push_back(particle.flags);
  mPositions.push_back(particle.position);
  mVelocities.push_back(particle.velocity);
  if (HasLinks()) mLinks.emplace_back();
  ForEachColumn([](auto& column) { column.Push(); });
  AppendEntries(particle.scalars, row);
  AppendEntries(particle.vectors, row);
  AppendEntries(particle.switches, row);
  GiveWhatKindsAreBornWith(row, particle.flags);
  return row;
}

void ParticleColumns::GiveWhatKindsAreBornWith(i32 row, u16 flags) {
  using enum property_id::Id;
  if (flags & PF_BALLISTIC) Require<double>(kMass).Set(row, 1.0);
  if (flags & PF_KIND_DIFFUSE) {
    Require<double>(kAge).Set(row, kDiffuseLife);
    Require<double>(kLifeSpan).Set(row, kDiffuseLife);
  }
  if (flags & PF_KIND_VORTICITY) Require<Vec3d>(kVorticity).Set(row, Vec3d{});
}

template <class T>
void ParticleColumns::AppendList(const ParticleColumns& others, i32 first) {
  for (const auto& column : others.List<T>()) Require<T>(column->Key(), column->Name());
  for (const auto& column : List<T>()) {
    // The rows of the fields are there already.
    column->Resize(first);
    column->Append(others.Find<T>(column->Key()), others.Count());
  }
}

void ParticleColumns::Append(const ParticleColumns& others) {
  const i32 first = Count();
  if (others.IsEmpty()) return;
  const auto add = [](auto& to, const auto& from) {
    to.insert(to.end(), from.begin(), from.end());
  };
  add(mIds, others.mIds);
  add(mFlags, others.mFlags);
  add(mPositions, others.mPositions);
  add(mVelocities, others.mVelocities);
  AppendList<double>(others, first);
  AppendList<Vec3d>(others, first);
  AppendList<bool>(others, first);
  if (others.HasLinks()) {
    mLinks.resize(first);
    add(mLinks, others.mLinks);
  } else if (HasLinks()) {
    mLinks.resize(Count());
  }
}

void ParticleColumns::MoveRows(std::span<const RowMove> moves) {
  ApplyMoves(mIds, moves);
  ApplyMoves(mFlags, moves);
  ApplyMoves(mPositions, moves);
  ApplyMoves(mVelocities, moves);
  if (HasLinks()) ApplyMoves(mLinks, moves);
  ForEachColumn([&](auto& column) {
    for (const RowMove& move : moves) column.CopyRow(move.from, move.to);
  });
}

void ParticleColumns::SetCount(i32 count) {
  Resize(count);
  ForEachColumn([&](auto& column) { column.Resize(count); });
}

void ParticleColumns::Clear() { *this = ParticleColumns(); }

IndexRange ParticleColumns::PartOf(i32 part, i32 parts) const {
  const IndexRange words = MELDO_GLOBAL::PartOf(part, parts, 0, (Count() + 63) / 64);
  return {words.first * 64, std::min(words.last * 64, Count())};
}

const std::vector<ParticleLink>& ParticleColumns::LinksOf(i32 row) const {
  static const std::vector<ParticleLink> none;
  return HasLinks() ? mLinks[row] : none;
}

std::vector<ParticleLink>& ParticleColumns::EditLinks(i32 row) {
  mLinks.resize(Count());
  return mLinks[row];
}

void ParticleColumns::Reserve(i64 count) {
  mIds.reserve(count);
  mFlags.reserve(count);
  mPositions.reserve(count);
  mVelocities.reserve(count);
  ForEachColumn([&](auto& column) { column.Reserve(count); });
}

i64 ParticleColumns::Bytes() const {
  const auto held = [](const auto& values) {
    return static_cast<i64>(values.capacity() * sizeof(values[0]));
  };
  i64 bytes = held(mIds) + held(mFlags) + held(mPositions) + held(mVelocities) + held(mLinks);
  for (const auto& links : mLinks) bytes += held(links);
  const_cast<ParticleColumns*>(this)->ForEachColumn(
      [&](const auto& column) { bytes += column.Bytes(); });
  return bytes;
}

template <class T>
void ParticleColumns::PersistList(StateArchive& archive) {
  auto& list = List<T>();
  u64 count = list.size();
  archive(count);
  if (archive.IsLoading()) list.clear();
  for (u64 i = 0; i < count && archive.IsGood(); ++i) {
    if (archive.IsLoading()) list.push_back(std::make_unique<PropertyColumn<T>>());
    archive(*list[i]);
    if (archive.IsGood() && !list[i]->Fits(Count()))
      archive.Fail("a property of particles is short");
  }
}

void ParticleColumns::Persist(StateArchive& archive) {
  archive(mIds, mFlags, mPositions, mVelocities);
  const std::size_t count = mPositions.size();
  if (mIds.size() != count || mFlags.size() != count || mVelocities.size() != count)
    return archive.Fail("particles are short of a field");
  PersistList<double>(archive);
  PersistList<Vec3d>(archive);
  PersistList<bool>(archive);
  u64 linked = mLinks.size();
  archive(linked);
  if (linked != 0 && linked != count) archive.Fail("links of particles are short");
  if (!archive.IsGood()) return;
  if (archive.IsLoading()) mLinks.resize(linked);
  for (std::vector<ParticleLink>& links : mLinks) {
    u64 own = links.size();
    archive(own);
    if (own > count) archive.Fail("a particle has too many links");
    if (!archive.IsGood()) return;
    if (archive.IsLoading()) links.resize(own);
    for (ParticleLink& link : links) archive(link.weight, link.other);
  }
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
