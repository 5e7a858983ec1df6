// A program that knows the library only through its installed package.
#include <AR/Common/Logger.h>

#include <cstdio>
#include <string>

namespace {

class Collect : public AR::Common::LogTarget {
 public:
  void output(const char* text) override { last = text; }
  std::string last;
};

}  // namespace

int main() {
  Collect collect;
  auto& logger = AR::Common::Logger::getInstance();
  logger.addTarget(&collect);
  AR::Common::logError("consumer", "consumer", "int main()", 1);
  logger.removeTarget(&collect);
  if (collect.last.find("AR_ASSERT consumer consumer(1) int main()") == std::string::npos) {
    std::fprintf(stderr, "unexpected log text: %s\n", collect.last.c_str());
    return 1;
  }
  std::puts("consumer ok");
  return 0;
}
