#include <atomic>
#include <ctime>

#include "AR/PL/PLError.h"
#include "AR/PL/PLTime.h"
#include "PL/PLHooks.h"

namespace {

std::atomic<ArLocalTimeFunction> gLocalTimeHook{nullptr};

bool systemLocalTime(ArLocalTime* out) {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  if (now == static_cast<std::time_t>(-1) || localtime_r(&now, &parts) == nullptr) {
    arSetLastError(AR_PL_ERROR_FAILED);
    return false;
  }
  out->year = static_cast<unsigned int>(parts.tm_year + 1900);
  out->month = static_cast<unsigned int>(parts.tm_mon + 1);
  out->day = static_cast<unsigned int>(parts.tm_mday);
  out->hour = static_cast<unsigned int>(parts.tm_hour);
  out->minute = static_cast<unsigned int>(parts.tm_min);
  out->second = static_cast<unsigned int>(parts.tm_sec);
  return true;
}

}  // namespace

bool arTimeGetLocalTime(ArLocalTime* out) {
  if (out == nullptr) {
    arSetLastError(AR_PL_ERROR_INVALID_ARGUMENT);
    return false;
  }
  const ArLocalTimeFunction hook = gLocalTimeHook.load(std::memory_order_acquire);
  return hook != nullptr ? hook(out) : systemLocalTime(out);
}

ArLocalTimeFunction arTimeSetLocalTimeHook(ArLocalTimeFunction hook) {
  return gLocalTimeHook.exchange(hook, std::memory_order_acq_rel);
}
