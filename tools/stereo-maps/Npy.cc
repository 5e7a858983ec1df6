#include "Npy.h"

#include <cstring>
#include <fstream>
#include <sstream>

namespace StereoMaps {
namespace {

const char kMagic[] = "\x93NUMPY";
constexpr size_t kMagicLength = 6;
// Header and preamble together are padded to a multiple of 64 bytes so the
// data that follows is aligned for memory mapping, as numpy itself does.
constexpr size_t kAlignment = 64;

std::string makeHeader(uint32_t rows, uint32_t cols) {
  std::ostringstream dict;
  dict << "{'descr': '<f4', 'fortran_order': False, 'shape': (" << rows << ", " << cols << "), }";
  std::string header = dict.str();
  const size_t preamble = kMagicLength + 2 + 2;
  size_t total = preamble + header.size() + 1;
  header.append((kAlignment - total % kAlignment) % kAlignment, ' ');
  header.push_back('\n');
  return header;
}

bool hostIsLittleEndian() {
  const uint16_t probe = 1;
  unsigned char first = 0;
  std::memcpy(&first, &probe, 1);
  return first == 1;
}

}  // namespace

bool writeNpy(const std::string& path, const float* values, uint32_t rows, uint32_t cols,
              std::string* error) {
  if (!hostIsLittleEndian()) {
    if (error) *error = "writing .npy files needs a little-endian host";
    return false;
  }
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!file) {
    if (error) *error = "cannot open '" + path + "' for writing";
    return false;
  }
  const std::string header = makeHeader(rows, cols);
  const unsigned char version[2] = {1, 0};
  const uint16_t headerLength = static_cast<uint16_t>(header.size());
  const unsigned char lengthBytes[2] = {static_cast<unsigned char>(headerLength & 0xff),
                                        static_cast<unsigned char>(headerLength >> 8)};
  file.write(kMagic, kMagicLength);
  file.write(reinterpret_cast<const char*>(version), 2);
  file.write(reinterpret_cast<const char*>(lengthBytes), 2);
  file.write(header.data(), static_cast<std::streamsize>(header.size()));
  const size_t count = static_cast<size_t>(rows) * cols;
  if (count > 0) file.write(reinterpret_cast<const char*>(values), static_cast<std::streamsize>(count * sizeof(float)));
  file.flush();
  if (!file) {
    if (error) *error = "cannot write '" + path + "'";
    return false;
  }
  return true;
}

namespace {

bool parseShape(const std::string& header, uint32_t& rows, uint32_t& cols) {
  const size_t key = header.find("'shape':");
  if (key == std::string::npos) return false;
  const size_t open = header.find('(', key);
  const size_t close = header.find(')', open);
  if (open == std::string::npos || close == std::string::npos) return false;
  std::istringstream in(header.substr(open + 1, close - open - 1));
  unsigned long r = 0, c = 0;
  char comma = 0;
  if (!(in >> r >> comma >> c) || comma != ',') return false;
  if (r > UINT32_MAX || c > UINT32_MAX) return false;
  rows = static_cast<uint32_t>(r);
  cols = static_cast<uint32_t>(c);
  return true;
}

}  // namespace

bool readNpy(const std::string& path, NpyArray& out, std::string* error) {
  auto fail = [&](const std::string& why) {
    if (error) *error = "'" + path + "': " + why;
    return false;
  };
  std::ifstream file(path, std::ios::binary);
  if (!file) return fail("cannot open");
  char preamble[10];
  if (!file.read(preamble, sizeof preamble) || std::memcmp(preamble, kMagic, kMagicLength) != 0)
    return fail("not an .npy file");
  if (preamble[6] != 1) return fail("unsupported .npy version");
  const size_t headerLength = static_cast<unsigned char>(preamble[8]) |
                              (static_cast<size_t>(static_cast<unsigned char>(preamble[9])) << 8);
  std::string header(headerLength, '\0');
  if (!file.read(&header[0], static_cast<std::streamsize>(headerLength))) return fail("truncated header");
  if (header.find("'descr': '<f4'") == std::string::npos) return fail("dtype is not little-endian float32");
  if (header.find("'fortran_order': False") == std::string::npos) return fail("not in C order");
  if (!parseShape(header, out.rows, out.cols)) return fail("shape is not two-dimensional");
  out.values.assign(static_cast<size_t>(out.rows) * out.cols, 0.f);
  if (!out.values.empty() &&
      !file.read(reinterpret_cast<char*>(out.values.data()),
                 static_cast<std::streamsize>(out.values.size() * sizeof(float))))
    return fail("truncated data");
  return true;
}

}  // namespace StereoMaps
