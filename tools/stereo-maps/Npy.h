#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace StereoMaps {

/// A row-major float32 array of shape (rows, cols), as stored in an .npy file.
struct NpyArray {
  uint32_t rows = 0;
  uint32_t cols = 0;
  std::vector<float> values;
};

/// Writes `values` (rows * cols floats, row-major) as a version 1.0 .npy file
/// with dtype '<f4' and shape (rows, cols), the layout numpy.load returns and
/// OpenCV's remap accepts as a map. Returns false with `error` set when the
/// file cannot be written completely.
bool writeNpy(const std::string& path, const float* values, uint32_t rows, uint32_t cols,
              std::string* error);

/// Reads a float32 2-D .npy file written by writeNpy (or numpy with the same
/// dtype and C order). Returns false with `error` set otherwise.
bool readNpy(const std::string& path, NpyArray& out, std::string* error);

}  // namespace StereoMaps
