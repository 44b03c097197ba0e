// The rows of a parameter table: the one place where a parameter of a node kind is described.
//
// Creation defaults, scene-file validation, `sulva nodes`, the node reference and the members that
// a core object reads all come from these rows: a row names the member that it fills.
#pragma once
#include <functional>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "host/script_family.h"
#include "host/value.h"

namespace MELDO_GLOBAL::host {

enum class ParameterType {
  Real,
  Long,
  Bool,
  String,
  Vector,
  Link,
  Filename,
  Links,
  Curve,
  Gradient,
  Button
};

/// The name of a type as `sulva nodes --json` prints it: "real", "long", ...
std::string_view NameOf(ParameterType type);

/// One allowed value of a long, with the word that scene files may use for it.
struct Choice {
  i32 value;
  std::string_view name;
};

/// A parameter counts only while another one of its node, a long or bool, has one of these values.
struct Condition {
  i32 id = 0;
  std::vector<i32> values;  ///< none: while the link of that row is empty
};

class BaseNode;

/// The root of every class whose members rows may fill.
struct ParameterHolder {
  virtual ~ParameterHolder() = default;
};

/// What an entry of a link leads to: its node, and the object that stands for it in the scene of
/// the holder; null where there is none that takes part.
struct LinkTarget {
  BaseNode* node = nullptr;
  ParameterHolder* object = nullptr;
  u32 flags = 0;
};

/// An entry of a list of links, with its word of flags.
template <class T>
struct Linked {
  T* object = nullptr;
  u32 flags = 0;
  T* operator->() const { return object; }
};

/// All kinds of one object list that can do something.
struct KindGroup {
  i32 list = 0;
  u32 categories = 0;  ///< what an object of the list has to be able to, bit for bit
  /// Whether an object of that list and with these categories belongs to it.
  bool Holds(i32 ofList, u32 ofCategories) const {
    return list == ofList && (ofCategories & categories) == categories;
  }
};

struct ParameterRow {
  i32 id = 0;
  std::string_view name;  ///< readable, snake_case
  ParameterType type = ParameterType::Real;
  Value creation;                ///< default of a new node
  std::optional<Value> missing;  ///< default of a missing parameter, where it differs
  std::string_view unit;
  double min = -std::numeric_limits<double>::infinity();
  double max = std::numeric_limits<double>::infinity();
  std::vector<Choice> choices;
  bool orNumbers = false;    ///< whole numbers in range that no choice names are values too
  std::vector<i32> accepts;  ///< node types that a link may point to; empty means any
  std::vector<KindGroup> acceptsAny;  ///< and all kinds of these
  bool allWhenAbsent = false;         ///< a node without the list means all that it could name
  bool required = false;              ///< without this link the node does nothing
  bool restsWhereDead = false;  ///< given and leading to what takes no part, it isn't as if empty
  bool writes = false;          ///< the node changes what the link leads to, others only read it
  i32 writesWithout = 0;        ///< it changes that where the link of this other row is empty
  bool readsToo = false;        ///< and what it changes elsewhere follows from what it finds there
  bool readsFlags = false;      ///< of a list: the flags of its entries count
  const ScriptFamily* script = nullptr;  ///< of a text: it is a script that is told this
  bool kept = false;                     ///< stored and kept with the scene, without effect
  std::optional<Condition> condition;    ///< none: it always counts
  std::string_view help;
  /// Gives a value of the row's type to the member that the row names; null where it names none.
  std::function<void(ParameterHolder&, const Value&)> fill;
  /// Gives the targets of a link or list to the member; none clears it.
  std::function<void(ParameterHolder&, std::span<const LinkTarget>)> connect;

  /// Whether a member, or some other reader, takes the parameter.
  bool HasEffect() const { return !kept; }
  bool HasMin() const { return min != -std::numeric_limits<double>::infinity(); }
  bool HasMax() const { return max != std::numeric_limits<double>::infinity(); }

  /// The value that a core object reads when the node doesn't hold the parameter.
  const Value& WhenMissing() const { return missing ? *missing : creation; }

  ParameterRow& Missing(Value v) { return missing = std::move(v), *this; }
  ParameterRow& Range(double low, double high) { return min = low, max = high, *this; }
  ParameterRow& AtLeast(double low) { return min = low, *this; }
  ParameterRow& Choices(std::vector<Choice> c) { return choices = std::move(c), *this; }
  ParameterRow& OrNumbers() { return orNumbers = true, *this; }
  ParameterRow& OnlyWith(i32 other, std::vector<i32> values) {
    return condition = {other, std::move(values)}, *this;
  }
  /// Counts while a link of the node is empty, which takes its place else.
  ParameterRow& OnlyWithout(i32 link) { return condition = {link, {}}, *this; }
  ParameterRow& Accepts(std::vector<i32> types) { return accepts = std::move(types), *this; }
  /// Links may also point to whatever belongs to a group, kinds that come later among them.
  ParameterRow& AcceptsAny(KindGroup group) { return acceptsAny.push_back(group), *this; }
  ParameterRow& AllWhenAbsent() { return allWhenAbsent = true, *this; }
  ParameterRow& Writes() { return writes = true, *this; }
  /// While the link of another row is empty, the node changes what this one leads to.
  ParameterRow& WritesWithout(i32 link) { return writesWithout = link, *this; }
  ParameterRow& ReadsToo() { return readsToo = true, *this; }
  ParameterRow& Required() { return required = true, *this; }
  /// An empty link means something else: the node rests while what it names takes no part.
  ParameterRow& RestsWhereDead() { return restsWhereDead = true, *this; }
  /// The text is a script; `family` outlives the row.
  ParameterRow& Script(const ScriptFamily& family) { return script = &family, *this; }
  /// Nothing reads the parameter; it is kept with the scene.
  ParameterRow& Kept() { return kept = true, *this; }

  /// The member that the row fills. Holders of other classes pass unharmed, since the parts of an
  /// object share its node and its rows. Members: bool, i32, f32, double, std::string, Vec3d;
  /// pointers to const SplineData, Gradient or InExcludeData, null without one; for links a pointer
  /// to the class of object or host node, null unless the target is one; for lists a vector of such
  /// pointers, or of `Linked` where the flags count; or a port that has `Connect(targets)`.
  /// A link may fill several pointers, of which each takes its own class.
  template <class C, class M>
  ParameterRow& To(M C::*member);

 private:
  template <class T>
  static T* As(const LinkTarget& target);
  template <class T>
  static void Append(std::vector<T*>& list, const LinkTarget& target);
  template <class T>
  static void Append(std::vector<Linked<T>>& list, const LinkTarget& target);
};

/// The conversions of a stored value: a long becomes a real, a real is truncated towards zero into
/// the range of a long (not a number becomes 0), a bool is true if it is exactly 1.
double RealOf(const Value& value, double fallback);
i32 LongOf(const Value& value, i32 fallback);

template <class M>
struct IsList : std::false_type {};
template <class T>
struct IsList<std::vector<T>> : std::true_type {};
template <class M>
inline constexpr bool kKeepsFlags = false;
template <class T>
inline constexpr bool kKeepsFlags<std::vector<Linked<T>>> = true;

template <class T>
T* ParameterRow::As(const LinkTarget& target) {
  if constexpr (std::is_base_of_v<BaseNode, T>) {
    return dynamic_cast<T*>(target.node);
  } else {
    return dynamic_cast<T*>(target.object);
  }
}

template <class T>
void ParameterRow::Append(std::vector<T*>& list, const LinkTarget& target) {
  if (T* object = As<T>(target)) list.push_back(object);
}

template <class T>
void ParameterRow::Append(std::vector<Linked<T>>& list, const LinkTarget& target) {
  if (T* object = As<T>(target)) list.push_back({object, target.flags});
}

template <class C, class M>
ParameterRow& ParameterRow::To(M C::*member) {
  if constexpr (std::is_pointer_v<M> && std::is_const_v<std::remove_pointer_t<M>>) {
    using Data = std::remove_const_t<std::remove_pointer_t<M>>;
    fill = [member](ParameterHolder& holder, const Value& value) {
      if (C* object = dynamic_cast<C*>(&holder)) object->*member = std::get_if<Data>(&value);
    };
  } else if constexpr (std::is_pointer_v<M>) {
    connect = [member, other = std::move(connect)](ParameterHolder& holder,
                                                   std::span<const LinkTarget> targets) {
      if (other) other(holder, targets);
      if (C* object = dynamic_cast<C*>(&holder))
        object->*member = targets.empty() ? nullptr : As<std::remove_pointer_t<M>>(targets.front());
    };
  } else if constexpr (requires(M & port, std::span<const LinkTarget> targets) {
                         port.Connect(targets);
                       }) {
    connect = [member](ParameterHolder& holder, std::span<const LinkTarget> targets) {
      if (C* object = dynamic_cast<C*>(&holder)) (object->*member).Connect(targets);
    };
  } else if constexpr (IsList<M>::value) {
    readsFlags = kKeepsFlags<M>;
    connect = [member](ParameterHolder& holder, std::span<const LinkTarget> targets) {
      C* object = dynamic_cast<C*>(&holder);
      if (!object) return;
      M& list = object->*member;
      list.clear();
      for (const LinkTarget& target : targets) Append(list, target);
    };
  } else {
    fill = [member](ParameterHolder& holder, const Value& value) {
      C* object = dynamic_cast<C*>(&holder);
      if (!object) return;
      M& out = object->*member;
      if constexpr (std::is_same_v<M, bool>) {
        out = LongOf(value, 0) == 1;
      } else if constexpr (std::is_integral_v<M> || std::is_enum_v<M>) {
        out = static_cast<M>(LongOf(value, 0));
      } else if constexpr (std::is_floating_point_v<M>) {
        out = static_cast<M>(RealOf(value, 0));
      } else if (const M* stored = std::get_if<M>(&value)) {
        out = *stored;
      } else {
        out = M{};
      }
    };
  }
  return *this;
}

using ParameterTable = std::vector<ParameterRow>;

/// The row of `id`, or null.
const ParameterRow* FindRow(const ParameterTable& table, i32 id);

/// Fills every member that the rows name with what `node` holds, limited to the range of the row,
/// or with the value of a missing parameter. A null node fills nothing.
void FillMembers(const ParameterTable& table, const BaseNode* node, ParameterHolder& holder);

/// Where links find the objects that stand for nodes.
struct LinkSource {
  virtual ~LinkSource() = default;
  /// The object of a node that a row may link, or null.
  virtual ParameterHolder* Find(const BaseNode& node, const ParameterRow& row) const = 0;
  /// All objects that a row may link, in the order of the scene.
  virtual std::vector<LinkTarget> All(const ParameterRow& row) const = 0;
};
/// What the links of a row lead to, in the order of its list; targets that have no object too.
std::vector<LinkTarget> TargetsOf(const ParameterRow& row, const BaseNode& node,
                                  const LinkSource& source);
/// Resolves every link and list that the rows name, in the order of the lists; what leads nowhere
/// or to an object of another class is left out.
void ConnectLinks(const ParameterTable& table, const BaseNode& node, ParameterHolder& holder,
                  const LinkSource& source);
/// Clears what `ConnectLinks` filled.
void ClearLinks(const ParameterTable& table, ParameterHolder& holder);

/// Makers of rows, so that a table reads as a table. Lengths with the unit "host" are in host
/// units, "cells" in cells.
ParameterRow RealRow(i32 id, std::string_view name, double value, std::string_view unit,
                     std::string_view help);
ParameterRow LongRow(i32 id, std::string_view name, i32 value, std::string_view unit,
                     std::string_view help);
ParameterRow BoolRow(i32 id, std::string_view name, bool value, std::string_view help);
ParameterRow StringRow(i32 id, std::string_view name, std::string value, std::string_view help);
ParameterRow VectorRow(i32 id, std::string_view name, const Vec3d& value, std::string_view unit,
                       std::string_view help);
ParameterRow LinkRow(i32 id, std::string_view name, std::string_view help,
                     std::vector<i32> accepts = {});
ParameterRow LinksRow(i32 id, std::string_view name, std::string_view help,
                      std::vector<i32> accepts = {});
/// A list of links that a new node does not hold at all: absent and empty mean different things.
ParameterRow AbsentLinksRow(i32 id, std::string_view name, std::string_view help,
                            std::vector<i32> accepts = {});
ParameterRow FilenameRow(i32 id, std::string_view name, std::string_view help);
ParameterRow CurveRow(i32 id, std::string_view name, std::string_view help);
ParameterRow GradientRow(i32 id, std::string_view name, std::string_view help);
ParameterRow ButtonRow(i32 id, std::string_view name, std::string_view help);

}  // namespace MELDO_GLOBAL::host
