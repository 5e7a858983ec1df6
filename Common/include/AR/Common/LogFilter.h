#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "AR/Common/Macros.h"
#include "AR/Common/Map.h"
#include "AR/Common/Vector.h"

namespace AR {
namespace Common {

class ConfigNode;

/// A piece of text that is not owned: a pointer and a length (the text need
/// not be terminated). Ordered bytewise as unsigned characters, a prefix
/// before the longer text.
struct AR_EXPORT StringPortion {
  const char* text = nullptr;
  size_t length = 0;

  StringPortion() = default;
  StringPortion(const char* t, size_t n) : text(t), length(n) {}

  bool operator==(const StringPortion& other) const;
  bool operator!=(const StringPortion& other) const { return !(*this == other); }
  bool operator<(const StringPortion& other) const;
};

/// One node of the per-method level tree: a level and the children keyed by
/// the next "::"-separated part of a method name. Each key points into the
/// node's own copy of the child's name, so the tree does not depend on the
/// lifetime of the names it was built from. Nodes can be moved, not copied.
class AR_EXPORT LogFilterNode {
 public:
  /// A node with level 2 (WARNING).
  LogFilterNode();
  explicit LogFilterNode(int level);
  LogFilterNode(LogFilterNode&&) noexcept = default;
  LogFilterNode& operator=(LogFilterNode&&) noexcept = default;
  LogFilterNode(const LogFilterNode&) = delete;
  LogFilterNode& operator=(const LogFilterNode&) = delete;

  /// Identity, not contents: two nodes differ unless they are the same object.
  bool operator!=(const LogFilterNode& other) const { return this != &other; }

  /// Stores a copy of `name`, inserts `node` (moved from) under a key that
  /// refers to that copy, keeping the children sorted. Returns the child now
  /// in the tree, or null if `name` already names a child or memory ran out.
  LogFilterNode* AddChildNode(StringPortion& name, LogFilterNode& node);
  /// Removes the child at `position` together with its copy of the name.
  void RemoveChildNode(Map<StringPortion, LogFilterNode, VectorGrowConstant<16>>::iterator position);
  /// Removes all children with their names.
  void RemoveAllChildNodes();

  Map<StringPortion, LogFilterNode, VectorGrowConstant<16>> Children;
  int Level;

 private:
  // The children's names. Each is a separate heap block, so the keys stay
  // valid when this vector (or the node holding it) moves.
  Vector<std::unique_ptr<char[]>, VectorGrowDoubling<16>> Names;
};

/// The per-method level tree; the filter object is its root node. A method
/// name such as "AR::CV::Camera<float>::initialize" is looked up part by part
/// ("AR", "CV", "Camera<float>", "initialize"), and the level of the deepest
/// node reached applies.
class AR_EXPORT LogFilter : public LogFilterNode {
 public:
  /// How a level is applied to a node that already exists.
  enum LOG_FILTER_SET : int {
    LOG_FILTER_SET_IF_HIGHER = 0,  ///< only if the node's level is lower
    LOG_FILTER_SET_IF_LOWER = 1,   ///< only if the node's level is higher
    LOG_FILTER_SET_ALWAYS = 2,
    LOG_FILTER_SET_IF_NEW = 3,  ///< existing nodes keep their level
  };

  /// Most parts of a method name that the tree distinguishes.
  static constexpr size_t MAX_NAME_PORTIONS = 15;

  /// A root with level 3 (DEBUG), the logger's default.
  LogFilter();
  explicit LogFilter(int rootLevel);

  /// Sets the level of `methodName` (null: the root, whatever the mode),
  /// creating the missing nodes of the path with `level`; existing nodes on
  /// the way below the root and the final node follow `mode`.
  void setFilterLevel(const char* methodName, int level, LOG_FILTER_SET mode);
  /// Removes the deepest existing node of the name's path and then every
  /// ancestor left without children (never the root). Null does nothing.
  void removeFilterLevel(const char* methodName);
  /// Removes every method entry; the root level stays.
  void clear();
  /// The level of the deepest node on the name's path (root for null).
  /// With maxLength >= 1 only the first maxLength characters are read.
  int getLevel(const char* methodName, int maxLength) const;
  bool allowed(const char* methodName, int level) const { return allowed(methodName, -1, level); }
  bool allowed(const char* methodName, int maxLength, int level) const {
    return getLevel(methodName, maxLength) >= level;
  }
  /// Applies `level` to `node` according to `mode`.
  static void setFilterNodeLevel(LogFilterNode* node, int level, LOG_FILTER_SET mode);

  /// Splits at "::" into at most maxPortions - 1 parts (the rest of the name
  /// after the separator that reaches that count is ignored). With
  /// maxLength >= 1 only the first maxLength characters are read. Returns
  /// the number of parts written to `out`.
  static size_t splitUpMethodName(const char* methodName, StringPortion* out, size_t maxPortions,
                                  int maxLength);
  /// "off", "error", "warning", "debug", "info", "verbose" (any case) as
  /// 0..5; anything else is logged as a warning and gives 0.
  static int getLogLevelFromString(const std::string& text);

  /// Reads "Brim.Logging": "defaultLevel" sets the root level, and each
  /// "LogLevel" child with "name" and "level" sets that method's level
  /// (LOG_FILTER_SET_IF_NEW). Nothing changes when the node is absent.
  void initializeFromConfiguration(const ConfigNode& config);
};

}  // namespace Common
}  // namespace AR
