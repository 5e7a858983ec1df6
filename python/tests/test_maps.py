import logging
import threading

import numpy as np
import pytest

import stereo_rectify as sr
from conftest import LENSES, same_bits, with_lens


def map_list(maps):
    return [maps.left_x, maps.left_y, maps.right_x, maps.right_y]


@pytest.mark.parametrize("lens", list(LENSES))
def test_maps_equal_the_entry_points_bit_for_bit(example, clib, lens):
    record = with_lens(example, lens)
    calib = sr.Calibration.from_record(record)
    w, h = calib.left_camera.size

    got = sr.rectify(calib, allow_out_of_image=(lens == "LINEAR"))
    want, depth, camera = clib.rectify(record, w, h, allow_out=(lens == "LINEAR"))
    for a, b in zip(map_list(got), want):
        assert a.flags["C_CONTIGUOUS"] and a.dtype == np.float32 and a.shape == (h, w)
        assert same_bits(a, b)
    assert np.float32(got.depth_constant) == np.float32(depth)
    assert got.depth_offset == 0.0
    # The rectified camera's intrinsics and pose (bytes 64..247) match too.
    assert got.rectified_camera.to_record()[64:248] == camera[64:248]

    for a, b in zip(map_list(sr.undistort(calib, 0.8)), clib.undistort(record, w, h, 0.8)):
        assert same_bits(a, b)


def test_see_through_equals_the_entry_point(example, clib):
    left, right = example.left_display, example.right_display
    got = sr.see_through(example, 1.5)
    want = clib.see_through(example.to_record(), left.to_record(), right.to_record(), left.width, left.height, 1.5)
    for a, b in zip(map_list(got), want):
        assert same_bits(a, b)
    # Display eyes given explicitly are used instead of the file's.
    explicit = sr.see_through(example, 1.5, left_display=left, right_display=right)
    assert all(same_bits(a, b) for a, b in zip(map_list(explicit), want))
    eye = sr.Camera.display(320, 240, 150.0, 150.0, left.pose)
    small = sr.see_through(example, 1.5, left_display=eye, right_display=eye)
    assert small.left_x.shape == (240, 320)
    assert np.any(small.left_x != -1.0)


def project(camera, point_device):
    """Pixel of a device-frame point in a RADIAL_2 camera, in double precision."""
    x, y, z = (camera.pose @ np.append(point_device, 1.0))[:3]
    u, v = x / z, y / z
    r2 = u * u + v * v
    k1, k2 = camera.radial_coefficients[:2]
    d = 1.0 + r2 * (k1 + r2 * k2)
    (fx, fy), (cx, cy) = camera.focal_length, camera.principal_point
    return fx * u * d + cx, fy * v * d + cy


def blob(shape, centre):
    yy, xx = np.mgrid[0 : shape[0], 0 : shape[1]]
    return (255.0 * np.exp(-((xx - centre[0]) ** 2 + (yy - centre[1]) ** 2) / (2 * 2.0**2))).astype(np.float32)


def centroid(image):
    weights = np.where(image > 0.2 * image.max(), image, 0.0)
    yy, xx = np.mgrid[0 : image.shape[0], 0 : image.shape[1]]
    return (xx * weights).sum() / weights.sum(), (yy * weights).sum() / weights.sum()


def test_scene_points_land_on_the_same_row_after_rectification(example):
    calib = sr.Calibration.from_record(with_lens(example, "RADIAL_2_PARAMETERS"))
    maps = sr.rectify(calib)
    left, right = calib.left_camera, calib.right_camera
    device_from_left = np.linalg.inv(left.pose)
    shape = (left.height, left.width)
    for x, y, depth in [(-0.4, -0.3, 1.2), (0.5, 0.2, 2.0), (0.0, 0.6, 3.0), (-1.0, 0.9, 4.5), (0.3, -0.1, 1.0)]:
        point = (device_from_left @ np.array([x, y, depth, 1.0]))[:3]
        rect_left, rect_right = sr.remap_pair(blob(shape, project(left, point)), blob(shape, project(right, point)), maps)
        (xl, yl), (xr, yr) = centroid(rect_left), centroid(rect_right)
        assert abs(yl - yr) < 0.25
        # Farther points have smaller disparities: depth = constant / disparity.
        assert maps.depth_constant / (xl - xr) == pytest.approx(depth, rel=0.03)


def test_depth_fitting_maps_the_disparity_range_onto_the_depth_range(example):
    fitted = sr.rectify(example, num_disparities=64, min_depth=1.0, max_depth=10.0)
    assert fitted.depth_offset == pytest.approx(64 / 9, rel=1e-6)
    assert fitted.depth_constant / (0 + fitted.depth_offset) == pytest.approx(10.0, rel=1e-5)
    assert fitted.depth_constant / (64 + fitted.depth_offset) == pytest.approx(1.0, rel=1e-5)
    narrow = sr.rectify(example, target_width=500)
    assert narrow.left_x.shape == (480, 500)
    assert narrow.rectified_camera.size == (500, 480)


def test_four_threads_build_identical_maps(example):
    reference = map_list(sr.rectify(example))
    results = [None] * 4
    start = threading.Barrier(4)

    def work(i):
        start.wait()
        results[i] = map_list(sr.rectify(example))

    threads = [threading.Thread(target=work, args=(i,)) for i in range(4)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    for maps in results:
        assert all(same_bits(a, b) for a, b in zip(maps, reference))


def test_library_messages_go_to_logging_not_to_the_terminal(example_path, caplog, capfd):
    sr.set_log_level("debug")
    with caplog.at_level(logging.DEBUG, logger="stereo_rectify"):
        sr.rectify(sr.Calibration.load(example_path))
    texts = [r.getMessage() for r in caplog.records if r.name == "stereo_rectify"]
    assert any(t.startswith("Model FISHEYE_4_PARAMETERS. Distortion is valid") for t in texts)
    assert any("Fitted Hermite spline" in t for t in texts)
    out, err = capfd.readouterr()
    assert out == "" and err == ""

    caplog.clear()
    sr.set_log_level("off")
    with caplog.at_level(logging.DEBUG, logger="stereo_rectify"):
        sr.rectify(sr.Calibration.load(example_path))
    assert not [r for r in caplog.records if r.name == "stereo_rectify" and r.levelno < logging.ERROR and "Fitted" in r.getMessage()]
    sr.set_log_level("debug")
    with pytest.raises(ValueError, match="unknown level 'loud'"):
        sr.set_log_level("loud")


def test_valid_mask_marks_entries_with_a_source():
    x = np.array([[-1.0, 2.0], [3.0, -1.0]], np.float32)
    y = np.array([[1.0, -1.0], [3.0, 4.0]], np.float32)
    assert sr.valid_mask(x).tolist() == [[False, True], [True, False]]
    assert sr.valid_mask(x, y).tolist() == [[False, False], [True, False]]
