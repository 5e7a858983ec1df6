#pragma once

#include <memory>
#include <string>
#include <vector>

#include "AR/Common/Macros.h"
#include "AR/Common/Path.h"

namespace tinyxml2 {
class XMLDocument;
class XMLElement;
}  // namespace tinyxml2

namespace AR {
namespace Common {

/// A view of one element of an XML configuration tree, or of the whole
/// document after loading. Copies are cheap and share the document, which
/// lives as long as any node refers to it. A default-constructed node, a
/// failed load and a failed lookup give an invalid node: every read on it
/// reports "absent" rather than failing.
class AR_EXPORT ConfigNode {
 public:
  ConfigNode();
  ~ConfigNode();
  ConfigNode(const ConfigNode&);
  ConfigNode& operator=(const ConfigNode&);

  /// Parses the XML file at `path` and makes this node its document. On a
  /// missing or malformed file returns false, leaves the node invalid, keeps
  /// the reason in getError() and logs it at ERROR.
  bool loadFromFile(const Path& path);
  /// The same for XML text in memory.
  bool loadFromString(const char* xml);
  /// Why the last load failed (empty after a successful load).
  const std::string& getError() const { return error_; }

  /// True for a loaded document and for an element found in one.
  bool isValid() const { return document_ != nullptr; }
  /// The element name; empty for the document node and an invalid node.
  std::string getName() const;
  /// The element's text content; empty if it has none.
  std::string getText() const;

  /// The descendant at a dotted path of element names ("Brim.Logging" is the
  /// "Logging" child of the "Brim" child of this node; from the document the
  /// first name is the root element). The first matching element is taken at
  /// each step. Invalid if any step is missing; this node itself for "".
  ConfigNode getNode(const char* dottedPath) const;

  bool hasAttribute(const char* name) const;
  /// The attribute's text, or `fallback` when absent.
  std::string getString(const char* name, const std::string& fallback = std::string()) const;
  /// True when the attribute's text equals "true" ignoring case; `fallback`
  /// when the attribute is absent.
  bool getBool(const char* name, bool fallback = false) const;
  /// False (and `out` untouched) when absent or not a whole number / number.
  bool tryGetInt(const char* name, int& out) const;
  bool tryGetDouble(const char* name, double& out) const;

  /// The first child element (with the given name when `name` is not null),
  /// invalid if there is none.
  ConfigNode firstChild(const char* name = nullptr) const;
  /// The next sibling element (with the given name when not null).
  ConfigNode nextSibling(const char* name = nullptr) const;
  /// All child elements in document order.
  std::vector<ConfigNode> getChildren() const;

 private:
  ConfigNode(std::shared_ptr<tinyxml2::XMLDocument> document, const tinyxml2::XMLElement* element);
  bool adopt(std::unique_ptr<tinyxml2::XMLDocument> document, const char* source);

  std::shared_ptr<tinyxml2::XMLDocument> document_;
  const tinyxml2::XMLElement* element_ = nullptr;  // null: the document itself
  std::string error_;
};

}  // namespace Common
}  // namespace AR
