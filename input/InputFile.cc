#include "InputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace StereoMaps {
namespace {

/// Why a file that is not a regular file cannot be read as one, or empty.
std::string notRegular(const struct stat& st, const char* what) {
  if (S_ISREG(st.st_mode)) return std::string();
  if (S_ISDIR(st.st_mode)) return std::string("is a directory, not ") + what;
  return std::string("is not a regular file (a device, FIFO or socket cannot be ") + what + ")";
}

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

/// Reads up to `capacity` bytes; false with errno set on a read error.
bool readUpTo(int fd, size_t capacity, std::string& bytes) {
  bytes.assign(capacity, '\0');
  size_t got = 0;
  while (got < capacity) {
    const ssize_t n = ::read(fd, &bytes[got], capacity - got);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) break;
    got += static_cast<size_t>(n);
  }
  bytes.resize(got);
  return true;
}

std::string sizeProblem(size_t size, size_t limit, bool exact, const char* what) {
  if (exact && size < limit)
    return "is " + std::to_string(size) + " bytes; " + what + " needs at least " + std::to_string(limit);
  if (!exact && size > limit)
    return "is more than the " + std::to_string(limit) + " bytes " + what + " may have";
  return std::string();
}

/// Reads an open file after checking, on the descriptor itself, that it is
/// still a regular file of an acceptable size.
std::string readOpenFile(int fd, const char* what, size_t limit, bool exact, std::string& bytes) {
  struct stat st {};
  if (::fstat(fd, &st) != 0) return std::string("cannot be read (") + std::strerror(errno) + ")";
  std::string why = notRegular(st, what);
  if (!why.empty()) return why;
  why = sizeProblem(static_cast<size_t>(st.st_size), limit, exact, what);
  if (!why.empty()) return why;
  // One byte more than allowed tells a file that grew past the limit since
  // fstat from one that ends exactly there.
  if (!readUpTo(fd, exact ? limit : limit + 1, bytes)) return std::string("cannot be read (") + std::strerror(errno) + ")";
  return sizeProblem(bytes.size(), limit, exact, what);
}

}  // namespace

bool readInputFile(const std::string& path, const char* what, size_t limit, bool exact, std::string& bytes,
                   std::string& error) {
  if (path.empty()) {
    error = std::string("an empty path cannot name ") + what;
    return false;
  }
  // Look before opening: opening a FIFO blocks until a writer appears, and a
  // device may act on being opened.
  struct stat st {};
  std::string why;
  if (::stat(path.c_str(), &st) != 0) {
    why = std::string("cannot be opened (") + std::strerror(errno) + ")";
  } else {
    why = notRegular(st, what);
  }
  if (why.empty()) {
    // O_NONBLOCK: should the path have become a FIFO since the look above,
    // the open still returns at once and the descriptor check refuses it.
    const Descriptor fd(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    why = fd.get() < 0 ? std::string("cannot be opened (") + std::strerror(errno) + ")"
                       : readOpenFile(fd.get(), what, limit, exact, bytes);
  }
  if (!why.empty()) {
    error = path + ": " + why;
    return false;
  }
  return true;
}

}  // namespace StereoMaps
