"""Stereo rectification, undistortion and see-through remap tables for NumPy and OpenCV.

Load a rig with :meth:`Calibration.load`, build maps with :func:`rectify`,
:func:`undistort` or :func:`see_through`, and remap images with ``cv2.remap``
or :func:`remap_pair`. Maps are float32 arrays of shape (height, width); -1
marks output pixels without a source. The library's messages go to the
``stereo_rectify`` logger (see :func:`set_log_level`).
"""

import numpy as np

from ._native import (
    Calibration,
    Camera,
    Maps,
    RectifyMaps,
    rectify,
    see_through,
    set_log_level,
    undistort,
)

__all__ = [
    "Calibration",
    "Camera",
    "Maps",
    "RectifyMaps",
    "rectify",
    "remap_pair",
    "see_through",
    "set_log_level",
    "undistort",
    "valid_mask",
]


def valid_mask(map_x, map_y=None):
    """Boolean array, True where the map has a source (entries other than -1).

    With ``map_y`` both maps must have a source.
    """
    mask = np.asarray(map_x) != -1.0
    if map_y is not None:
        mask &= np.asarray(map_y) != -1.0
    return mask


def remap_pair(left, right, maps, interpolation=None):
    """Remaps a left and a right camera image through ``maps`` with OpenCV.

    Pixels without a source come out 0. Returns (left, right). Needs OpenCV's
    Python module (cv2); raises ImportError without it.
    """
    import cv2

    if interpolation is None:
        interpolation = cv2.INTER_LINEAR
    out = []
    for image, mx, my in ((left, maps.left_x, maps.left_y), (right, maps.right_x, maps.right_y)):
        remapped = cv2.remap(image, mx, my, interpolation, borderMode=cv2.BORDER_CONSTANT, borderValue=0)
        remapped[~valid_mask(mx, my)] = 0
        out.append(remapped)
    return out[0], out[1]
