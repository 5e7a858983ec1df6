/* Compiled as C: the record header must be valid C, and its compile-time
 * layout checks must hold for the C compiler too. */
#include "StereoRectifyWrapper.h"

/* Gives the translation unit a definition of its own. */
size_t srwTestCSizeOfDevice(void);
size_t srwTestCSizeOfDevice(void) { return sizeof(DeviceCalibrationMRV); }
