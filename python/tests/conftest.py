import ctypes
import os

import numpy as np
import pytest

import stereo_rectify as sr

# Byte offsets of the records, as the C header lays them out.
CAMERAS = 880
CAMERA_SIZE = 312
K, P, MODEL = 104, 152, 184

# One plausible lens per model, for the example rig's 640x480 cameras.
LENSES = {
    "LINEAR": (0, [], (0.0, 0.0)),
    "RADIAL_2_PARAMETERS": (1, [-0.28, 0.07], (0.0, 0.0)),
    "RADIAL_3_PARAMETERS": (2, [-0.3, 0.1, -0.015], (4e-4, -3e-4)),
    "RADIAL_6_PARAMETERS": (3, [0.35, -0.04, 0.002, 0.7, 0.03, -0.001], (0.0, 0.0)),
    "FISHEYE_1_PARAMETER": (4, [0.92], (0.0, 0.0)),
    "FISHEYE_4_PARAMETERS": (5, [-0.012, 0.004, -0.0012, 0.0002], (0.0, 0.0)),
}


@pytest.fixture(scope="session")
def example_path():
    return os.environ["STEREO_RECTIFY_EXAMPLE"]


@pytest.fixture(scope="session")
def example(example_path):
    return sr.Calibration.load(example_path)


def with_lens(calib, name):
    """The example rig's record with both cameras given the lens `name`."""
    model, k, p = LENSES[name]
    record = bytearray(calib.to_record())
    for cam in range(2):
        base = CAMERAS + cam * CAMERA_SIZE
        record[base + K : base + K + 48] = np.array(k + [0.0] * (6 - len(k))).tobytes()
        record[base + P : base + P + 16] = np.array(p).tobytes()
        record[base + MODEL : base + MODEL + 4] = np.int32(model).tobytes()
    return bytes(record)


class CLibrary:
    """The C entry points called directly, to compare the module against."""

    def __init__(self):
        self.lib = ctypes.CDLL(os.environ["STEREO_RECTIFY_LIBRARY"])
        f, u, p = ctypes.c_float, ctypes.c_uint32, ctypes.c_void_p
        self.lib.CreateRectifyMap.argtypes = [p, u, p, u, p, u, p, u, p, u, p, p]
        self.lib.CreateUndistortMap.argtypes = [p, u, f, p, u, p, u, p, u, p, u]
        self.lib.CreateFixedPlaneVSTMaps.argtypes = [p, p, p, f, u, p, u, p, u, p, u, p, u]
        for fn in (self.lib.CreateRectifyMap, self.lib.CreateUndistortMap, self.lib.CreateFixedPlaneVSTMaps):
            fn.restype = ctypes.c_bool

    @staticmethod
    def _maps(width, height):
        maps = [np.full((height, width), 7.0, np.float32) for _ in range(4)]
        args = []
        for m in maps:
            args += [m.ctypes.data, m.size]
        return maps, args

    def rectify(self, record, width, height, allow_out=False):
        maps, args = self._maps(width, height)
        depth = ctypes.c_float(0.0)
        camera = ctypes.create_string_buffer(312)
        self.lib.CreateRectifyMap(record, int(allow_out), *args, ctypes.addressof(depth), camera)
        return maps, depth.value, camera.raw

    def undistort(self, record, width, height, fov, allow_out=False):
        maps, args = self._maps(width, height)
        self.lib.CreateUndistortMap(record, int(allow_out), fov, *args)
        return maps

    def see_through(self, record, left, right, width, height, depth):
        maps, args = self._maps(width, height)
        self.lib.CreateFixedPlaneVSTMaps(record, left, right, depth, 0, *args)
        return maps


@pytest.fixture(scope="session")
def clib():
    return CLibrary()


def same_bits(a, b):
    a, b = np.ascontiguousarray(a), np.ascontiguousarray(b)
    return a.shape == b.shape and a.dtype == b.dtype and a.tobytes() == b.tobytes()
