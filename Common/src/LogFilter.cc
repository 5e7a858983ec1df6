#include "AR/Common/LogFilter.h"

#include <strings.h>

#include <cstring>

#include "AR/Common/ConfigNode.h"
#include "AR/Common/Logger.h"
#include "AR/Common/SmallVector.h"
#include "LogFilterInternal.h"

namespace AR {
namespace Common {

bool StringPortion::operator==(const StringPortion& other) const {
  return length == other.length && (length == 0 || std::memcmp(text, other.text, length) == 0);
}

bool StringPortion::operator<(const StringPortion& other) const {
  const size_t common = length < other.length ? length : other.length;
  // memcmp compares as unsigned char.
  const int order = common == 0 ? 0 : std::memcmp(text, other.text, common);
  if (order != 0) return order < 0;
  return length < other.length;
}

LogFilterNode::LogFilterNode() : Level(2) {}

LogFilterNode::LogFilterNode(int level) : Level(level) {}

LogFilterNode* LogFilterNode::AddChildNode(StringPortion& name, LogFilterNode& node) {
  if (Children.find(name) != Children.end()) return nullptr;
  std::unique_ptr<char[]> copy(new (std::nothrow) char[name.length + 1]);
  if (copy == nullptr) {
    logError(Names.size(), Names.capacity(), "AR::Common::LogFilterNode name", name.length + 1);
    return nullptr;
  }
  if (name.length > 0) std::memcpy(copy.get(), name.text, name.length);
  copy[name.length] = '\0';
  const StringPortion key(copy.get(), name.length);
  if (!Names.push_back(std::move(copy))) return nullptr;
  auto inserted = Children.insert(key, std::move(node));
  if (!inserted.second) {
    Names.pop_back();
    return nullptr;
  }
  return &inserted.first->second;
}

void LogFilterNode::RemoveChildNode(
    Map<StringPortion, LogFilterNode, VectorGrowConstant<16>>::iterator position) {
  const char* name = position->first.text;
  Children.erase(position);
  for (size_t i = 0; i < Names.size(); ++i) {
    if (Names[i].get() == name) {
      Names.erase(i);
      break;
    }
  }
}

void LogFilterNode::RemoveAllChildNodes() {
  Children.clear();
  Names.clear();
}

LogFilter::LogFilter() : LogFilterNode(3) {}

LogFilter::LogFilter(int rootLevel) : LogFilterNode(rootLevel) {}

size_t LogFilter::splitUpMethodName(const char* methodName, StringPortion* out, size_t maxPortions,
                                    int maxLength) {
  if (methodName == nullptr || out == nullptr || maxPortions < 2) return 0;
  const size_t limit = maxLength >= 1 ? static_cast<size_t>(maxLength) : SIZE_MAX;
  size_t count = 0;
  size_t start = 0;
  size_t i = 0;
  while (i < limit && methodName[i] != '\0') {
    if (methodName[i] == ':' && i + 1 < limit && methodName[i + 1] == ':') {
      out[count++] = StringPortion(methodName + start, i - start);
      if (count == maxPortions - 1) return count;
      i += 2;
      start = i;
    } else {
      ++i;
    }
  }
  out[count++] = StringPortion(methodName + start, i - start);
  return count;
}

void LogFilter::clear() { RemoveAllChildNodes(); }

int LogFilter::getLevel(const char* methodName, int maxLength) const {
  if (methodName == nullptr) return Level;
  StringPortion parts[MAX_NAME_PORTIONS];
  const size_t count = splitUpMethodName(methodName, parts, MAX_NAME_PORTIONS + 1, maxLength);
  const LogFilterNode* node = this;
  for (size_t i = 0; i < count; ++i) {
    auto child = node->Children.find(parts[i]);
    if (child == node->Children.end()) break;
    node = &child->second;
  }
  return node->Level;
}

void LogFilter::setFilterNodeLevel(LogFilterNode* node, int level, LOG_FILTER_SET mode) {
  if (node == nullptr) return;
  switch (mode) {
    case LOG_FILTER_SET_IF_HIGHER:
      if (node->Level < level) node->Level = level;
      break;
    case LOG_FILTER_SET_IF_LOWER:
      if (node->Level > level) node->Level = level;
      break;
    case LOG_FILTER_SET_ALWAYS:
      node->Level = level;
      break;
    case LOG_FILTER_SET_IF_NEW:
      break;
  }
}

void LogFilter::setFilterLevel(const char* methodName, int level, LOG_FILTER_SET mode) {
  if (methodName == nullptr) {
    Level = level;
    return;
  }
  StringPortion parts[MAX_NAME_PORTIONS];
  const size_t count = splitUpMethodName(methodName, parts, MAX_NAME_PORTIONS + 1, -1);
  LogFilterNode* node = this;
  for (size_t i = 0; i < count; ++i) {
    auto child = node->Children.find(parts[i]);
    if (child != node->Children.end()) {
      // Existing ancestors follow the mode too, but the root's level is the
      // global default and only changes when no name is given.
      if (node != this) setFilterNodeLevel(node, level, mode);
      node = &child->second;
    } else {
      LogFilterNode fresh(level);
      LogFilterNode* added = node->AddChildNode(parts[i], fresh);
      if (added == nullptr) return;  // out of memory, already reported
      node = added;
    }
  }
  // A node created above already has the level, whatever the mode.
  setFilterNodeLevel(node, level, mode);
}

void LogFilter::removeFilterLevel(const char* methodName) {
  if (methodName == nullptr) return;
  StringPortion parts[MAX_NAME_PORTIONS];
  const size_t count = splitUpMethodName(methodName, parts, MAX_NAME_PORTIONS + 1, -1);
  // The path from the root to the deepest existing node.
  SmallVector<LogFilterNode*, MAX_NAME_PORTIONS + 1> path;
  path.push_back(this);
  for (size_t i = 0; i < count; ++i) {
    auto child = path.back()->Children.find(parts[i]);
    if (child == path.back()->Children.end()) break;
    path.push_back(&child->second);
  }
  for (size_t depth = path.size() - 1; depth > 0; --depth) {
    LogFilterNode* node = path[depth];
    if (!node->Children.empty()) break;
    if (!detachChildNode(*path[depth - 1], *node)) break;
  }
}

bool detachChildNode(LogFilterNode& parentNode, LogFilterNode& node) {
  auto position = parentNode.Children.find_data(node);
  if (!(position != parentNode.Children.end())) {
    logError("parentNode->Children.find_data(*node) != parentNode->Children.end()",
             "Common/src/LogFilter",
             "bool AR::Common::detachChildNode(LogFilterNode&, LogFilterNode&)",
             __LINE__);
    return false;
  }
  parentNode.RemoveChildNode(position);
  return true;
}

int LogFilter::getLogLevelFromString(const std::string& text) {
  static const char* const kNames[] = {"off", "error", "warning", "debug", "info", "verbose"};
  for (int level = 0; level <= 5; ++level)
    if (strcasecmp(text.c_str(), kNames[level]) == 0) return level;
  Logger& logger = Logger::getInstance();
  if (logger.getLevel() >= Logger::LEVEL_WARNING)
    logger.logEx2(Logger::LEVEL_WARNING, "Common/src/LogFilter",
                  "static int AR::Common::LogFilter::getLogLevelFromString(const std::string&)",
                  __LINE__, "Unable to parse logging level: '%s'", text.c_str());
  return 0;
}

void LogFilter::initializeFromConfiguration(const ConfigNode& config) {
  const ConfigNode logging = config.getNode("Brim.Logging");
  if (!logging.isValid()) return;
  if (logging.hasAttribute("defaultLevel"))
    Level = getLogLevelFromString(logging.getString("defaultLevel"));
  for (ConfigNode child = logging.firstChild("LogLevel"); child.isValid();
       child = child.nextSibling("LogLevel")) {
    if (!child.hasAttribute("name") || !child.hasAttribute("level")) continue;
    const std::string name = child.getString("name");
    setFilterLevel(name.c_str(), getLogLevelFromString(child.getString("level")),
                   LOG_FILTER_SET_IF_NEW);
  }
}

}  // namespace Common
}  // namespace AR

