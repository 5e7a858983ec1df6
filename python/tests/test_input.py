import math

import cv2
import numpy as np
import pytest

import stereo_rectify as sr

# A rig whose camera 0 is the device frame, so that its XML file and an
# OpenCV stereo calibration describe exactly the same two cameras.
ANGLE = 0.07
R = np.array([[math.cos(ANGLE), 0.0, math.sin(ANGLE)], [0.0, 1.0, 0.0], [-math.sin(ANGLE), 0.0, math.cos(ANGLE)]])
T = np.array([-0.1, 0.002, 0.001])
K1 = np.array([[281.5, 0.0, 322.25], [0.0, 280.75, 238.5], [0.0, 0.0, 1.0]])
K2 = np.array([[279.0, 0.0, 318.5], [0.0, 279.5, 241.0], [0.0, 0.0, 1.0]])
# (model name, OpenCV coefficients of camera 1 and 2, library coefficients k1..k6, p1 p2, fisheye)
RIGS = {
    "radial5": ("RADIAL_3_PARAMETERS", [-0.3, 0.1, 4e-4, -3e-4, -0.015], [-0.3, 0.1, -0.015, 0, 0, 0], [4e-4, -3e-4], False),
    "rational8": (
        "RADIAL_6_PARAMETERS",
        [0.35, -0.04, 1e-4, 2e-4, 0.002, 0.7, 0.03, -0.001],
        [0.35, -0.04, 0.002, 0.7, 0.03, -0.001],
        [1e-4, 2e-4],
        False,
    ),
    "fisheye": ("FISHEYE_4_PARAMETERS", [-0.012, 0.004, -0.0012, 0.0002], [-0.012, 0.004, -0.0012, 0.0002, 0, 0], [0, 0], True),
}


def numbers(values):
    return " ".join(repr(float(v)) for v in np.ravel(values)) + " "


def write_xml(path, model, k, p):
    cams = []
    for index, (name, K, pose_r, pose_t) in enumerate(
        [("trackingA0", K1, np.eye(3), np.zeros(3)), ("trackingB1", K2, R, T)]
    ):
        cams.append(
            f'<Camera id="{name}" index="{index}">'
            f'<Calibration size="640 480 " principal_point="{numbers([K[0, 2], K[1, 2]])}" '
            f'focal_length="{numbers([K[0, 0], K[1, 1]])}" model="{model}" radial_distortion="{numbers(k)}" '
            f'tangential_distortion="{numbers(p)}"/>'
            f'<Pose rotation="{numbers(pose_r)}" translation="{numbers(pose_t)}"/></Camera>'
        )
    path.write_text('<DeviceConfiguration version="1">' + "".join(cams) + "</DeviceConfiguration>")


def write_opencv(path, entries):
    fs = cv2.FileStorage(str(path), cv2.FILE_STORAGE_WRITE)
    for key, value in entries.items():
        fs.write(key, value)
    fs.release()


def opencv_entries(d, fisheye):
    entries = {"image_size": (640, 480), "K1": K1, "D1": np.array(d), "K2": K2, "D2": np.array(d), "R": R, "T": T}
    if fisheye:
        entries["fisheye"] = 1
    return entries


@pytest.mark.parametrize("suffix", [".yml", ".xml"])
@pytest.mark.parametrize("rig", list(RIGS))
def test_opencv_file_loads_to_the_record_of_the_same_rig_in_xml(tmp_path, rig, suffix):
    model, d, k, p, fisheye = RIGS[rig]
    write_xml(tmp_path / "rig.xml", model, k, p)
    write_opencv(tmp_path / ("stereo" + suffix), opencv_entries(d, fisheye))
    from_xml = sr.Calibration.load(str(tmp_path / "rig.xml"))
    from_opencv = sr.Calibration.load(str(tmp_path / ("stereo" + suffix)))
    assert from_opencv.left_camera.model == model
    assert from_opencv.to_record() == from_xml.to_record()


def test_opencv_units_and_size_names(tmp_path):
    _, d, _, _, _ = RIGS["radial5"]
    entries = opencv_entries(d, False)
    del entries["image_size"]
    entries.update({"width": 640, "height": 480, "units": "mm", "T": T * 1000.0})
    write_opencv(tmp_path / "mm.yaml", entries)
    calib = sr.Calibration.load(str(tmp_path / "mm.yaml"), format="opencv")
    assert calib.left_camera.size == (640, 480)
    assert calib.baseline == pytest.approx(np.linalg.norm(T), rel=1e-12)
    # Four coefficients read as fisheye when asked, as k1..k4 of the equidistant model.
    entries["D1"] = entries["D2"] = np.array([-0.012, 0.004, -0.0012, 0.0002])
    write_opencv(tmp_path / "fish.yaml", entries)
    assert sr.Calibration.load(str(tmp_path / "fish.yaml")).left_camera.model == "RADIAL_2_PARAMETERS"
    assert sr.Calibration.load(str(tmp_path / "fish.yaml"), fisheye=True).left_camera.model == "FISHEYE_4_PARAMETERS"


def skewed():
    K = K1.copy()
    K[0, 1] = 0.5
    return K


# (what to change, expected message after "<path>: ")
MALFORMED = {
    "missing K1": ({"K1": None}, "key 'K1' is missing"),
    "K1 wrong shape": ({"K1": np.eye(2)}, "key 'K1' is 2x2, expected 3x3"),
    "skew": ({"K1": skewed()}, "key 'K1' has a skew term, which no supported lens model has"),
    "six coefficients": ({"D1": np.zeros(6)}, "key 'D1' holds 6 coefficients, expected 4, 5, 8 (or 12, 14 with zero extra terms)"),
    "thin prism": (
        {"D2": np.array([0, 0, 0, 0, 0, 0, 0, 0, 1e-3, 0, 0, 0])},
        "key 'D2' has thin-prism terms (s1..s4), which no supported lens model has",
    ),
    "tilted": (
        {"D2": np.array([0.0] * 12 + [0.01, 0.0])},
        "key 'D2' has tilted-sensor terms (tauX, tauY), which no supported lens model has",
    ),
    "fisheye with five": ({"fisheye": 1}, "key 'D1' holds 5 coefficients, a fisheye calibration has 4"),
    "not a rotation": ({"R": 1.01 * R}, "key 'R' is not a rotation matrix"),
    "reflection": ({"R": np.diag([1.0, 1.0, -1.0])}, "key 'R' is not a rotation matrix"),
    "short T": ({"T": np.array([0.1, 0.0])}, "key 'T' holds 2 values, expected 3"),
    "non-finite": ({"K2": np.array([[np.nan, 0, 320], [0, 280, 240], [0, 0, 1]])}, "key 'K2' holds a value that is not a finite number"),
    "no size": ({"image_size": None}, "key 'image_size' is missing (also looked for 'imageSize' and for 'width' with 'height')"),
    "fractional size": ({"image_size": (640.5, 480)}, "key 'image_size' must be a whole number of pixels between 1 and 65535"),
    "unknown units": ({"units": "inch"}, "key 'units' must be \"m\", \"cm\" or \"mm\""),
}


@pytest.mark.parametrize("kind", list(MALFORMED))
def test_malformed_opencv_file_raises_value_error_with_its_message(tmp_path, kind):
    change, message = MALFORMED[kind]
    entries = opencv_entries(RIGS["radial5"][1], False)
    for key, value in change.items():
        if value is None:
            del entries[key]
        else:
            entries[key] = value
    path = tmp_path / "bad.yml"
    write_opencv(path, entries)
    with pytest.raises(ValueError) as raised:
        sr.Calibration.load(str(path), format="opencv")
    assert str(raised.value) == f"{path}: {message}"


def test_unreadable_opencv_file(tmp_path):
    path = tmp_path / "garbage.yml"
    path.write_text("%YAML:1.0\n: : [\n")
    with pytest.raises(ValueError, match=r"garbage.yml: not an OpenCV FileStorage file \(YAML or XML\)$"):
        sr.Calibration.load(str(path))


def record_with(calib, offset, dtype, value):
    data = bytearray(calib.to_record())
    raw = np.array([value], dtype).tobytes()
    data[offset : offset + len(raw)] = raw
    return bytes(data)


def test_bad_records_and_arguments_raise_value_error(example):
    zero_quaternion = bytearray(example.to_record())
    zero_quaternion[880 + 192 : 880 + 224] = bytes(32)
    cases = [
        (lambda: sr.Calibration.from_record(b"\0" * 100), "at least 1504 bytes, got 100"),
        (lambda: sr.Calibration.from_record(record_with(example, 872, np.uint32, 3)), "num_cameras is 3, expected 2"),
        (lambda: sr.Calibration.from_record(record_with(example, 880 + 184, np.int32, 9)), "camera 0: unknown distortion model 9"),
        (lambda: sr.Calibration.from_record(bytes(zero_quaternion)), "camera 0: pose orientation is not a usable quaternion"),
        (lambda: sr.Calibration.from_record(record_with(example, 880 + 88, np.float64, -5.0)), "camera 0 (trackingA0) fx: the focal length must be positive"),
        (lambda: sr.Calibration.load("/nonexistent/rig.xml"), "/nonexistent/rig.xml: cannot be opened"),
        (lambda: sr.Calibration.load("rig.xml", format="json"), "format: unknown format 'json'"),
        (lambda: sr.undistort(example, 0.0), "fov_factor: must be a positive number"),
        (lambda: sr.undistort(example, float("nan")), "fov_factor: must be a positive number"),
        (lambda: sr.see_through(example, -1.0), "plane_depth: must be a positive number"),
        (lambda: sr.see_through(example, 1.0, left_display=example.left_display), "give both display eyes or neither"),
        (lambda: sr.rectify(example, num_disparities=0), "num_disparities: must be between 1 and 16384"),
        (lambda: sr.rectify(example, min_depth=5.0, max_depth=5.0), "min_depth: must be below max_depth"),
        (lambda: sr.rectify(example, min_depth=float("inf")), "min_depth: must be a finite number"),
        (lambda: sr.rectify(example, target_width=641), "target_width: must be between 1 and camera 0's width 640"),
        # A depth range so narrow that the rectified right camera cannot exist.
        (lambda: sr.rectify(example, min_depth=9.999, max_depth=10.0), "example_rig.xml: the rectified pair has no baseline"),
        (lambda: sr.Camera.display(100, 100, 50.0, 50.0, np.diag([1.0, 1.0, -1.0, 1.0])), "not a rotation matrix"),
    ]
    for call, message in cases:
        with pytest.raises(ValueError) as raised:
            call()
        assert message in str(raised.value)


def test_rig_without_baseline_or_displays_is_refused(example, tmp_path):
    data = bytearray(example.to_record())
    data[880 + 312 + 192 : 880 + 312 + 248] = data[880 + 192 : 880 + 248]
    same_place = sr.Calibration.from_record(bytes(data))
    with pytest.raises(ValueError, match="^record: the two cameras are at the same position; rectification needs a baseline$"):
        sr.rectify(same_place)
    with pytest.raises(ValueError, match=r"^record: no display eyes \(only the XML calibration file carries them\)$"):
        sr.see_through(sr.Calibration.from_record(example.to_record()), 1.0)


def test_records_the_library_refuses_are_refused_with_its_message(example):
    # Every number is finite in float, but a focal length of 3e30 leaves the
    # rectified camera without a finite one: only the library's own
    # validation sees that, and its sentence is the error.
    data = bytearray(example.to_record())
    for cam in range(2):
        base = 880 + 312 * cam
        data[base + 88 : base + 104] = np.array([3e30, 3e30]).tobytes()
    message = r"^record: camera 0 \(trackingA0\) intrinsics: the rectified camera has no finite focal length"
    with pytest.raises(ValueError, match=message):
        sr.Calibration.from_record(bytes(data))


def test_save_xml_round_trip(example, tmp_path):
    example.save_xml(str(tmp_path / "saved.xml"))
    again = sr.Calibration.load(str(tmp_path / "saved.xml"))
    for a, b in zip(example.cameras + (example.left_display,), again.cameras + (again.left_display,)):
        assert (a.size, a.focal_length, a.principal_point, a.model) == (b.size, b.focal_length, b.principal_point, b.model)
        assert a.radial_coefficients == b.radial_coefficients
        np.testing.assert_allclose(a.pose, b.pose, atol=1e-12)
    with pytest.raises(ValueError, match="cannot be written"):
        example.save_xml(str(tmp_path / "missing" / "dir" / "x.xml"))
