// Parameter access: the seam between a core object and the node that it stands for.
#pragma once
#include <string>

#include "host/document.h"
#include "host/node.h"

namespace MELDO_GLOBAL::MELDO_SULVA {

/// Reads and writes the parameters of the bound node by numeric id.
///
/// A getter returns its default when the handler is unbound or the node doesn't hold the id. The
/// getters without a default take it from the row of the node's parameter table ("when missing"),
/// and zero when there is no row. For the pipeline thread only: workers never read parameters.
class InterfaceHandler {
 public:
  InterfaceHandler() = default;
  explicit InterfaceHandler(host::BaseNode* node) { Bind(node); }
  virtual ~InterfaceHandler() = default;

  void Bind(host::BaseNode* node) {
    mNode = node;
    mNodeLink = host::BaseLink(node);
  }

  virtual void GetVector(Vec3d& out, i32 id, const Vec3d& fallback) const;
  /// A real vector with each component truncated.
  virtual void GetVectorInt(VecInt3D& out, i32 id, const VecInt3D& fallback) const;
  virtual f32 GetFloat32(i32 id, f32 fallback) const;
  /// A long converts.
  virtual f64 GetReal(i32 id, f64 fallback) const;
  virtual i32 GetInt(i32 id, i32 fallback) const;
  /// A real converts by truncation.
  virtual i32 GetLong(i32 id, i32 fallback) const;
  /// True only if the stored value is exactly 1.
  virtual bool GetBool(i32 id, bool fallback) const;
  /// A narrow string owned by the node.
  virtual const char* GetString(i32 id, const char* fallback) const;
  /// The linked host object, or null; a null document means the node's own.
  virtual host::BaseNode* GetObjectLink(i32 id, const host::Document* document = nullptr) const;
  virtual host::BaseNode* GetLink(i32 id, const host::Document* document = nullptr) const;

  virtual void SetVector(i32 id, const Vec3d& value);
  virtual void SetVectorInt(i32 id, const VecInt3D& value);
  virtual void SetFloat32(i32 id, f32 value);
  virtual void SetReal(i32 id, f64 value);
  virtual void SetInt(i32 id, i32 value);
  virtual void SetLong(i32 id, i32 value);
  virtual void SetBool(i32 id, bool value);
  virtual void SetString(i32 id, const char* value);
  virtual void SetObjectLink(i32 id, const host::BaseNode* node);
  virtual void SetLink(i32 id, const host::BaseNode* node);

  virtual host::BaseNode* GetObject() const { return mNode; }
  virtual bool HasNode() const { return mNode != nullptr; }
  /// The link still resolves to the bound node under these filters; (0, null) means any.
  virtual bool IsNodeAlive(i32 instanceOf, const host::Document* document) const;
  /// The node's dirty count; false when unbound, gone, or switched off.
  virtual bool GetDirtyCount(u32& out) const;
  /// Raises the node's dirty count.
  virtual void SetDirty();

  virtual std::string GetFilename(i32 id) const;
  virtual void SetFilename(i32 id, const std::string& path);

  /// Defaults from the node's parameter table.
  Vec3d GetVector(i32 id) const;
  f64 GetReal(i32 id) const;
  i32 GetLong(i32 id) const;
  bool GetBool(i32 id) const;

  /// Null when absent.
  const host::InExcludeData* GetInExclude(i32 id) const;
  const host::SplineData* GetSpline(i32 id) const;
  const host::Gradient* GetGradient(i32 id) const;
  /// y of the curve at `x`; 0 when absent.
  double EvaluateSpline(i32 id, double x) const { return EvaluateSpline(GetSpline(id), x); }
  static double EvaluateSpline(const host::SplineData* spline, double x) {
    return spline ? spline->Evaluate(x) : 0.0;
  }
  /// The node's global matrix; the identity when unbound.
  void GetMatrix(Matrix& out) const { out = mNode ? mNode->GlobalMatrix() : Matrix{}; }

 private:
  template <class T>
  const T* Stored(i32 id) const;
  const host::Value& RowDefault(i32 id) const;

  host::BaseNode* mNode = nullptr;
  host::BaseLink mNodeLink;
};

}  // namespace MELDO_GLOBAL::MELDO_SULVA
