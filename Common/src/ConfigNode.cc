#include "AR/Common/ConfigNode.h"

#include <tinyxml2.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <climits>

#include "AR/Common/Logger.h"

namespace AR {
namespace Common {

ConfigNode::ConfigNode() = default;
ConfigNode::~ConfigNode() = default;
ConfigNode::ConfigNode(const ConfigNode&) = default;
ConfigNode& ConfigNode::operator=(const ConfigNode&) = default;

ConfigNode::ConfigNode(std::shared_ptr<tinyxml2::XMLDocument> document,
                       const tinyxml2::XMLElement* element)
    : document_(element != nullptr ? std::move(document) : nullptr), element_(element) {}

bool ConfigNode::loadFromFile(const Path& path) {
  auto document = std::make_unique<tinyxml2::XMLDocument>();
  document->LoadFile(path.c_str());
  return adopt(std::move(document), path.c_str());
}

bool ConfigNode::loadFromString(const char* xml) {
  auto document = std::make_unique<tinyxml2::XMLDocument>();
  if (xml == nullptr) xml = "";
  document->Parse(xml);
  return adopt(std::move(document), "a string");
}

bool ConfigNode::adopt(std::unique_ptr<tinyxml2::XMLDocument> document, const char* source) {
  document_.reset();
  element_ = nullptr;
  error_.clear();
  if (document->Error()) {
    const char* reason = document->ErrorStr();
    error_ = reason != nullptr ? reason : "unknown XML error";
  } else if (document->RootElement() == nullptr) {
    error_ = "no root element";
  }
  if (!error_.empty()) {
    Logger& logger = Logger::getInstance();
    if (logger.getLevel() >= Logger::LEVEL_ERROR)
      logger.logEx2(Logger::LEVEL_ERROR, "Common/src/ConfigNode",
                    "bool AR::Common::ConfigNode::adopt(std::unique_ptr<tinyxml2::XMLDocument>, "
                    "const char*)",
                    __LINE__, "Unable to load configuration from %s: %s", source, error_.c_str());
    return false;
  }
  document_ = std::move(document);
  return true;
}

std::string ConfigNode::getName() const {
  return element_ != nullptr ? std::string(element_->Name()) : std::string();
}

std::string ConfigNode::getText() const {
  const char* text = element_ != nullptr ? element_->GetText() : nullptr;
  return text != nullptr ? std::string(text) : std::string();
}

ConfigNode ConfigNode::getNode(const char* dottedPath) const {
  if (document_ == nullptr || dottedPath == nullptr) return ConfigNode();
  const tinyxml2::XMLNode* current = element_ != nullptr
                                         ? static_cast<const tinyxml2::XMLNode*>(element_)
                                         : static_cast<const tinyxml2::XMLNode*>(document_.get());
  const tinyxml2::XMLElement* found = element_;
  const char* segment = dottedPath;
  while (*segment != '\0') {
    const char* dot = std::strchr(segment, '.');
    const std::string name =
        dot != nullptr ? std::string(segment, static_cast<size_t>(dot - segment)) : segment;
    found = current->FirstChildElement(name.c_str());
    if (found == nullptr || name.empty()) return ConfigNode();
    current = found;
    if (dot == nullptr) break;
    segment = dot + 1;
    if (*segment == '\0') return ConfigNode();  // trailing dot names nothing
  }
  if (found == nullptr) return *this;  // "" from the document: the document
  return ConfigNode(document_, found);
}

bool ConfigNode::hasAttribute(const char* name) const {
  return element_ != nullptr && name != nullptr && element_->Attribute(name) != nullptr;
}

std::string ConfigNode::getString(const char* name, const std::string& fallback) const {
  const char* value = (element_ != nullptr && name != nullptr) ? element_->Attribute(name) : nullptr;
  return value != nullptr ? std::string(value) : fallback;
}

bool ConfigNode::getBool(const char* name, bool fallback) const {
  const char* value = (element_ != nullptr && name != nullptr) ? element_->Attribute(name) : nullptr;
  if (value == nullptr) return fallback;
  return strcasecmp(value, "true") == 0;
}

bool ConfigNode::tryGetInt(const char* name, int& out) const {
  const char* value = (element_ != nullptr && name != nullptr) ? element_->Attribute(name) : nullptr;
  if (value == nullptr || *value == '\0') return false;
  char* end = nullptr;
  errno = 0;
  const long parsed = std::strtol(value, &end, 10);
  if (errno != 0 || *end != '\0' || parsed < INT_MIN || parsed > INT_MAX) return false;
  out = static_cast<int>(parsed);
  return true;
}

bool ConfigNode::tryGetDouble(const char* name, double& out) const {
  const char* value = (element_ != nullptr && name != nullptr) ? element_->Attribute(name) : nullptr;
  if (value == nullptr || *value == '\0') return false;
  char* end = nullptr;
  errno = 0;
  const double parsed = std::strtod(value, &end);
  if (errno != 0 || *end != '\0') return false;
  out = parsed;
  return true;
}

ConfigNode ConfigNode::firstChild(const char* name) const {
  if (document_ == nullptr) return ConfigNode();
  const tinyxml2::XMLElement* child = element_ != nullptr ? element_->FirstChildElement(name)
                                                          : document_->FirstChildElement(name);
  return ConfigNode(document_, child);
}

ConfigNode ConfigNode::nextSibling(const char* name) const {
  if (element_ == nullptr) return ConfigNode();
  return ConfigNode(document_, element_->NextSiblingElement(name));
}

std::vector<ConfigNode> ConfigNode::getChildren() const {
  std::vector<ConfigNode> children;
  for (ConfigNode child = firstChild(); child.isValid(); child = child.nextSibling())
    children.push_back(child);
  return children;
}

}  // namespace Common
}  // namespace AR
