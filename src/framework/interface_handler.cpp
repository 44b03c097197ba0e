#include "framework/interface_handler.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

using host::BaseNode;
using host::Value;

template <class T>
const T* InterfaceHandler::Stored(i32 id) const {
  const Value* value = mNode ? mNode->Get(id) : nullptr;
  return value ? std::get_if<T>(value) : nullptr;
}

namespace {
double ToReal(const Value& value, double fallback) {
  if (const double* v = std::get_if<double>(&value)) return *v;
  if (const i32* v = std::get_if<i32>(&value)) return *v;
  return fallback;
}

/// Towards zero, limited to the range of a long; not a number becomes 0.
i32 Truncate(double v) {
  constexpr double limit = 2147483647.0;
  if (!(v > -limit)) return v < 0 ? -2147483647 : 0;
  return static_cast<i32>(v < limit ? v : limit);
}

i32 ToLong(const Value& value, i32 fallback) {
  if (const i32* v = std::get_if<i32>(&value)) return *v;
  if (const double* v = std::get_if<double>(&value)) return Truncate(*v);
  return fallback;
}
}  // namespace

const Value& InterfaceHandler::RowDefault(i32 id) const {
  static const Value none;
  if (!mNode || !mNode->Table()) return none;
  const host::ParameterRow* row = host::FindRow(*mNode->Table(), id);
  return row ? row->WhenMissing() : none;
}

void InterfaceHandler::GetVector(Vec3d& out, i32 id, const Vec3d& fallback) const {
  const Vec3d* v = Stored<Vec3d>(id);
  out = v ? *v : fallback;
}

void InterfaceHandler::GetVectorInt(VecInt3D& out, i32 id, const VecInt3D& fallback) const {
  Vec3d v;
  GetVector(v, id, MELDO_GLOBAL::ToReal(fallback));
  out = {Truncate(v.x), Truncate(v.y), Truncate(v.z)};
}

f32 InterfaceHandler::GetFloat32(i32 id, f32 fallback) const {
  return static_cast<f32>(GetReal(id, fallback));
}

f64 InterfaceHandler::GetReal(i32 id, f64 fallback) const {
  const Value* value = mNode ? mNode->Get(id) : nullptr;
  return value ? ToReal(*value, fallback) : fallback;
}

i32 InterfaceHandler::GetInt(i32 id, i32 fallback) const { return GetLong(id, fallback); }

i32 InterfaceHandler::GetLong(i32 id, i32 fallback) const {
  const Value* value = mNode ? mNode->Get(id) : nullptr;
  return value ? ToLong(*value, fallback) : fallback;
}

bool InterfaceHandler::GetBool(i32 id, bool fallback) const { return GetLong(id, fallback) == 1; }

const char* InterfaceHandler::GetString(i32 id, const char* fallback) const {
  const std::string* v = Stored<std::string>(id);
  return v ? v->c_str() : fallback;
}

BaseNode* InterfaceHandler::GetObjectLink(i32 id, const host::Document* document) const {
  return GetLink(id, document);
}

BaseNode* InterfaceHandler::GetLink(i32 id, const host::Document* document) const {
  const host::Link* link = Stored<host::Link>(id);
  if (!link || (document && document != &mNode->GetDocument())) return nullptr;
  return mNode->GetDocument().Find(link->node);
}

void InterfaceHandler::SetVector(i32 id, const Vec3d& value) {
  if (mNode) mNode->Set(id, value);
}
void InterfaceHandler::SetVectorInt(i32 id, const VecInt3D& value) {
  SetVector(id, MELDO_GLOBAL::ToReal(value));
}
void InterfaceHandler::SetFloat32(i32 id, f32 value) { SetReal(id, value); }
void InterfaceHandler::SetReal(i32 id, f64 value) {
  if (mNode) mNode->Set(id, value);
}
void InterfaceHandler::SetInt(i32 id, i32 value) { SetLong(id, value); }
void InterfaceHandler::SetLong(i32 id, i32 value) {
  if (mNode) mNode->Set(id, value);
}
void InterfaceHandler::SetBool(i32 id, bool value) { SetLong(id, value); }
void InterfaceHandler::SetString(i32 id, const char* value) {
  if (mNode) mNode->Set(id, std::string(value));
}
void InterfaceHandler::SetObjectLink(i32 id, const BaseNode* node) { SetLink(id, node); }
void InterfaceHandler::SetLink(i32 id, const BaseNode* node) {
  if (mNode) mNode->Set(id, host::Link{node ? node->Id() : 0});
}

bool InterfaceHandler::IsNodeAlive(i32 instanceOf, const host::Document* document) const {
  return mNode && mNodeLink.Resolve(instanceOf, document) == mNode;
}

bool InterfaceHandler::GetDirtyCount(u32& out) const {
  if (!IsNodeAlive(0, nullptr) || !mNode->IsEnabled()) return false;
  out = mNode->DirtyCount();
  return true;
}

void InterfaceHandler::SetDirty() {
  if (mNode) mNode->Touch();
}

std::string InterfaceHandler::GetFilename(i32 id) const {
  const host::Filename* v = Stored<host::Filename>(id);
  return v ? v->path : std::string();
}

void InterfaceHandler::SetFilename(i32 id, const std::string& path) {
  if (mNode) mNode->Set(id, host::Filename{path});
}

Vec3d InterfaceHandler::GetVector(i32 id) const {
  const Vec3d* row = std::get_if<Vec3d>(&RowDefault(id));
  Vec3d out;
  GetVector(out, id, row ? *row : Vec3d{});
  return out;
}
f64 InterfaceHandler::GetReal(i32 id) const { return GetReal(id, ToReal(RowDefault(id), 0.0)); }
i32 InterfaceHandler::GetLong(i32 id) const { return GetLong(id, ToLong(RowDefault(id), 0)); }
bool InterfaceHandler::GetBool(i32 id) const { return GetBool(id, ToLong(RowDefault(id), 0) == 1); }

const host::InExcludeData* InterfaceHandler::GetInExclude(i32 id) const {
  return Stored<host::InExcludeData>(id);
}
const host::SplineData* InterfaceHandler::GetSpline(i32 id) const {
  return Stored<host::SplineData>(id);
}
const host::Gradient* InterfaceHandler::GetGradient(i32 id) const {
  return Stored<host::Gradient>(id);
}

}  // namespace MELDO_GLOBAL::MELDO_SULVA
